#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string_view>

namespace nvxcore::testing {

/// The base of all fixtures: a test fails on a console line that it doesn't expect, and on an expected one
/// that is missing.
class NVXTest : public ::testing::Test {
 protected:
  NVXTest();
  ~NVXTest() override;

  /// Allows, and asks for, one or more lines that contain `part`. Any thread.
  void expectConsoleLine(std::string_view part);

 private:
  struct Lines;
  const std::shared_ptr<Lines> _lines;
};

}  // namespace nvxcore::testing
