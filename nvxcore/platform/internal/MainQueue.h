#pragma once

#include <memory>
#include <string>
#include <utility>

#include "nvxcore/platform/MainLoop.h"
#include "nvxcore/platform/Queue.h"

namespace nvxcore {

/// The main loop as a queue.
class MainQueue final : public Queue {
 public:
  explicit MainQueue(std::shared_ptr<MainLoop> loop) : _loop(std::move(loop)) {}

  using Queue::post;
  void post(Task task) override { _loop->post(std::move(task)); }
  void postAfter(TimeInterval delay, Task task) override { _loop->postAfter(delay, std::move(task)); }
  const std::string& label() const override { return _label; }
  bool isCurrent() const override { return _loop->isCurrent(); }

 private:
  const std::shared_ptr<MainLoop> _loop;
  const std::string _label = "nvx.main";
};

}  // namespace nvxcore
