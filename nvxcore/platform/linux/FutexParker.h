#pragma once

#include <atomic>
#include <cstdint>

#include "nvxcore/platform/Threading.h"

namespace nvxcore {

/// A parker that is one word, which the system watches while the thread sleeps.
class FutexParker final : public Parker {
 public:
  void park() override;
  bool parkUntil(int64_t deadlineNanos) override;
  void unpark() override;

 private:
  bool takeToken();

  std::atomic<uint32_t> _word{0};
};

}  // namespace nvxcore
