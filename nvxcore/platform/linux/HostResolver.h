#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/ThreadAnnotations.h"

namespace nvxcore {

/// Looks up host names on threads of its own, so that a look-up that hangs holds up nobody else and can be
/// walked away from, and their number is bounded. libcurl starts a thread for each and can only wait for it
/// or lose sight of it.
///
/// All operations may be called on any thread.
class HostResolver : public std::enable_shared_from_this<HostResolver> {
 public:
  static constexpr size_t kMaximumThreads = 16;

  /// Addresses in text, as the system orders them; none when the name has none.
  using Addresses = std::shared_ptr<const std::vector<std::string>>;
  using Handler = std::function<void(const Addresses&)>;

  /// The addresses when they are known from the last minute, else null.
  Addresses known(const std::string& host);
  /// The addresses when they have become known by now. Else null, and `handler` is called once, on a thread of
  /// the resolver, unless `waiter` has gone by then. Look-ups of one name share an answer.
  Addresses lookUp(const std::string& host, std::weak_ptr<void> waiter, Handler handler);

 private:
  struct Waiter {
    std::weak_ptr<void> object;
    Handler handler;
  };
  struct Entry {
    std::vector<Waiter> waiters;
    Addresses addresses;
    int64_t knownUntil = 0;
    bool isUnderWay = false;
  };

  void work();
  bool takeNext(std::string& host);
  void settle(const std::string& host, Addresses addresses);

  Mutex _lock;
  std::map<std::string, Entry> _entries NVX_GUARDED_BY(_lock);
  std::deque<std::string> _waiting NVX_GUARDED_BY(_lock);
  size_t _threads NVX_GUARDED_BY(_lock) = 0;
};

}  // namespace nvxcore
