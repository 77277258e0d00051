#include "nvxcore/platform/linux/HostResolver.h"

#include <netdb.h>
#include <sys/socket.h>

#include <algorithm>
#include <utility>

#include "nvxcore/platform/Platform.h"
#include "nvxcore/platform/Threading.h"

namespace nvxcore {

namespace {

constexpr int64_t kKeepNanos = 60'000'000'000;
/// Names that are kept at most; the rest of the world may have more.
constexpr size_t kMaximumEntries = 256;

std::vector<std::string> addressesOf(const std::string& host) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* list = nullptr;
  if (::getaddrinfo(host.c_str(), nullptr, &hints, &list) != 0) return {};
  std::vector<std::string> result;
  for (const addrinfo* entry = list; entry; entry = entry->ai_next) {
    char text[NI_MAXHOST];
    if (::getnameinfo(entry->ai_addr, entry->ai_addrlen, text, sizeof(text), nullptr, 0, NI_NUMERICHOST) != 0)
      continue;
    result.push_back(entry->ai_family == AF_INET6 ? "[" + std::string(text) + "]" : text);
  }
  ::freeaddrinfo(list);
  return result;
}

}  // namespace

HostResolver::Addresses HostResolver::known(const std::string& host) {
  const int64_t now = Platform::current().threading->monotonicNanos();
  Lock lock(_lock);
  const auto entry = _entries.find(host);
  return entry != _entries.end() && now < entry->second.knownUntil ? entry->second.addresses : nullptr;
}

HostResolver::Addresses HostResolver::lookUp(const std::string& host, std::weak_ptr<void> waiter,
                                             Handler handler) {
  const int64_t now = Platform::current().threading->monotonicNanos();
  {
    Lock lock(_lock);
    Entry& entry = _entries[host];
    if (entry.addresses && now < entry.knownUntil) return entry.addresses;
    entry.waiters.push_back({std::move(waiter), std::move(handler)});
    if (std::exchange(entry.isUnderWay, true)) return nullptr;
    _waiting.push_back(host);
    if (_threads == kMaximumThreads) return nullptr;
    ++_threads;
  }
  Platform::current().threading->startThread("nvx.resolve", [self = shared_from_this()] { self->work(); });
  return nullptr;
}

void HostResolver::work() {
  std::string host;
  while (takeNext(host)) settle(host, std::make_shared<std::vector<std::string>>(addressesOf(host)));
}

/// The next name that somebody still waits for. Without one the thread's work is done.
bool HostResolver::takeNext(std::string& host) {
  std::vector<Waiter> gone;
  Lock lock(_lock);
  while (!_waiting.empty()) {
    host = std::move(_waiting.front());
    _waiting.pop_front();
    Entry& entry = _entries[host];
    if (std::any_of(entry.waiters.begin(), entry.waiters.end(),
                    [](const Waiter& waiter) { return !waiter.object.expired(); }))
      return true;
    gone.insert(gone.end(), std::make_move_iterator(entry.waiters.begin()),
                std::make_move_iterator(entry.waiters.end()));
    _entries.erase(host);
  }
  --_threads;
  return false;
}

void HostResolver::settle(const std::string& host, Addresses addresses) {
  const int64_t now = Platform::current().threading->monotonicNanos();
  std::vector<Waiter> waiters;
  {
    Lock lock(_lock);
    if (_entries.size() > kMaximumEntries)
      std::erase_if(_entries, [now](const auto& item) {
        return !item.second.isUnderWay && item.second.knownUntil <= now;
      });
    Entry& entry = _entries[host];
    waiters = std::move(entry.waiters);
    if (addresses->empty() || _entries.size() > kMaximumEntries) {
      _entries.erase(host);  // The next one asks anew: the network may be back.
    } else {
      entry = {{}, addresses, now + kKeepNanos, false};
    }
  }
  for (Waiter& waiter : waiters) {
    if (auto alive = waiter.object.lock()) waiter.handler(addresses);
  }
}

}  // namespace nvxcore
