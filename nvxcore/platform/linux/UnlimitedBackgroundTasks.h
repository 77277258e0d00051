#pragma once

#include <atomic>

#include "nvxcore/platform/BackgroundTasks.h"

namespace nvxcore {

/// Grants every task for ever: this system suspends no process for being in the background.
class UnlimitedBackgroundTasks final : public BackgroundTasks {
 public:
  BackgroundTaskIdentifier begin(std::string_view, std::function<void()>) override {
    return _last.fetch_add(1, std::memory_order_relaxed) + 1;
  }
  void end(BackgroundTaskIdentifier) override {}

 private:
  std::atomic<BackgroundTaskIdentifier> _last{kInvalidBackgroundTask};
};

}  // namespace nvxcore
