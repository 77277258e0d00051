#include "nvxcore/platform/internal/TrackedThreading.h"

#include <list>
#include <utility>

#include "nvxcore/platform/Mutex.h"

namespace nvxcore {

struct TrackedThreading::Registry {
  using Entry = std::list<std::string>::iterator;

  Entry add(const std::string& name) {
    Lock lock(mutex);
    return names.insert(names.end(), name);
  }
  void remove(Entry entry) {
    std::function<void()> handler;
    {
      Lock lock(mutex);
      names.erase(entry);
      if (names.empty()) handler.swap(emptyHandler);
    }
    if (handler) handler();
  }

  Mutex mutex;
  std::list<std::string> names NVX_GUARDED_BY(mutex);
  std::function<void()> emptyHandler NVX_GUARDED_BY(mutex);
};

TrackedThreading::TrackedThreading(std::shared_ptr<Threading> threading)
    : _threading(std::move(threading)), _registry(std::make_shared<Registry>()) {}

std::unique_ptr<ThreadHandle> TrackedThreading::startThread(const std::string& name, Task body) {
  const Registry::Entry entry = _registry->add(name);
  try {
    return _threading->startThread(name, [registry = _registry, entry, body = std::move(body)]() mutable {
      body();
      registry->remove(entry);
    });
  } catch (...) {
    _registry->remove(entry);
    throw;
  }
}

std::shared_ptr<void> TrackedThreading::addJumpListener(std::function<void()> listener) {
  return _threading->addJumpListener(std::move(listener));
}

std::vector<std::string> TrackedThreading::names() const {
  Lock lock(_registry->mutex);
  return {_registry->names.begin(), _registry->names.end()};
}

void TrackedThreading::whenNoneRuns(std::function<void()> handler) {
  {
    Lock lock(_registry->mutex);
    if (!_registry->names.empty()) {
      _registry->emptyHandler = std::move(handler);
      return;
    }
  }
  handler();
}

}  // namespace nvxcore
