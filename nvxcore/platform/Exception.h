#pragma once

#include <exception>
#include <string>

#include "nvxcore/platform/Export.h"

namespace nvxcore {

/// A platform exception: a fault with a name that code can compare and a reason for people.
class NVXCORE_EXPORT Exception : public std::exception {
 public:
  Exception(std::string name, std::string reason);
  ~Exception() override;
  const std::string& name() const { return _name; }
  const std::string& reason() const { return _reason; }
  const char* what() const noexcept override { return _what.c_str(); }

 private:
  std::string _name;
  std::string _reason;
  std::string _what;
};

inline constexpr char kInvalidArgumentException[] = "NSInvalidArgumentException";

}  // namespace nvxcore
