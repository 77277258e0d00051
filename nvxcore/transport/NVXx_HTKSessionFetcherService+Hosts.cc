// How many fetchers run against one host, who waits, and the end of all of them.

#include <algorithm>
#include <deque>
#include <utility>

#include "nvxcore/platform/MainLoop.h"
#include "nvxcore/platform/Platform.h"
#include "nvxcore/platform/Threading.h"
#include "nvxcore/platform/internal/Deadline.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcher.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcherService.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcherSessionDelegateDispatcher.h"

namespace nvxcore {

namespace {

using FetchersByHost = NVXx_HTKSessionFetcherService::FetchersByHost;

/// The fetchers under `host`, or null.
std::vector<FetcherRef>* fetchersOfHost(FetchersByHost& table, const std::string& host) {
  auto it = std::find_if(table.begin(), table.end(), [&](const auto& entry) { return entry.first == host; });
  return it == table.end() ? nullptr : &it->second;
}

void addFetcher(FetchersByHost& table, const std::string& host, const FetcherRef& fetcher) {
  if (std::vector<FetcherRef>* fetchers = fetchersOfHost(table, host)) {
    fetchers->push_back(fetcher);
  } else {
    table.emplace_back(host, std::vector<FetcherRef>{fetcher});
  }
}

void removeFetcher(FetchersByHost& table, const std::string& host, const FetcherRef& fetcher) {
  if (std::vector<FetcherRef>* fetchers = fetchersOfHost(table, host)) std::erase(*fetchers, fetcher);
}

bool contains(FetchersByHost& table, const std::string& host, const FetcherRef& fetcher) {
  const std::vector<FetcherRef>* fetchers = fetchersOfHost(table, host);
  return fetchers && std::find(fetchers->begin(), fetchers->end(), fetcher) != fetchers->end();
}

size_t numberOfNonBackgroundSessionFetchers(FetchersByHost& table, const std::string& host) {
  const std::vector<FetcherRef>* fetchers = fetchersOfHost(table, host);
  if (!fetchers) return 0;
  return static_cast<size_t>(std::count_if(fetchers->begin(), fetchers->end(), [](const FetcherRef& fetcher) {
    return !fetcher->isUsingBackgroundSession();
  }));
}

size_t count(const FetchersByHost& table) {
  size_t sum = 0;
  for (const auto& [host, fetchers] : table) sum += fetchers.size();
  return sum;
}

/// Under which host a request is counted; empty for none.
std::string hostOfRequest(const FetcherRef& fetcher) {
  const std::shared_ptr<URLRequest> request = fetcher->mutableRequest();
  if (!request) return {};
  if (request->url.host().empty() && request->url.isFileURL()) return "localhost";
  return request->url.host();
}

}  // namespace

bool NVXx_HTKSessionFetcherService::fetcherShouldBeginFetching(const FetcherRef& fetcher) {
  const std::string host = hostOfRequest(fetcher);
  if (host.empty()) return true;
  // Goes after the lock.
  NVXx_HTKSessionFetcher::DroppedSession dropped;
  Lock lock(_lock);
  if (contains(_runningFetchersByHost, host, fetcher)) return true;
  const bool waits = contains(_delayedFetchersByHost, host, fetcher);
  const uint64_t limit = _maxRunningFetchersPerHost;
  const bool delays = waits || (!fetcher->isUsingBackgroundSession() && limit != 0 &&
                                numberOfNonBackgroundSessionFetchers(_runningFetchersByHost, host) >= limit);
  if (!waits) {
    addFetcher(delays ? _delayedFetchersByHost : _runningFetchersByHost, host, fetcher);
    fetcher->setServiceHost(host);
  }
  // Under the lock: once the table has it, the end of another fetch may begin it, with a session of its own.
  if (delays) dropped = fetcher->dropSharedSession();
  return !delays;
}

void NVXx_HTKSessionFetcherService::fetcherDidStop(const FetcherRef& fetcher) {
  const std::optional<std::string> host = fetcher->serviceHost();
  if (!host) return;
  const HTTPSessionRef session = fetcher->session();
  auto itsDispatcher = session ? std::dynamic_pointer_cast<Dispatcher>(session->delegate()) : nullptr;
  if (itsDispatcher) itsDispatcher->removeFetcher(fetcher);
  std::vector<FetcherRef> toStart;
  {
    Lock lock(_lock);
    if (_stoppedFetchersToWaitFor) _stoppedFetchersToWaitFor->push_back(fetcher);
    removeFetcher(_runningFetchersByHost, *host, fetcher);
    removeFetcher(_delayedFetchersByHost, *host, fetcher);
    toStart = takeFetchersToStart(*host);
  }
  startFetchers(std::move(toStart));
  fetcher->setServiceHost(std::nullopt);
}

void NVXx_HTKSessionFetcherService::startFetchers(std::vector<FetcherRef> fetchers) {
  // One that fails to begin comes back here to let the next one in: a thousand of them would fill the stack.
  static thread_local std::deque<FetcherRef>* waiting = nullptr;
  if (waiting) {
    waiting->insert(waiting->end(), fetchers.begin(), fetchers.end());
    return;
  }
  if (fetchers.empty()) return;
  // To begin calls authorizers and configuration blocks.
  HandOffScope::settle();
  std::deque<FetcherRef> toStart(fetchers.begin(), fetchers.end());
  struct Turn {
    explicit Turn(std::deque<FetcherRef>& list) { waiting = &list; }
    ~Turn() { waiting = nullptr; }
  } turn(toStart);
  for (; !toStart.empty(); toStart.pop_front()) {
    // Begin calls back into the service, so never under the lock.
    const FetcherRef next = toStart.front();
    next->beginFetchMayDelay(false, true);
  }
}

std::vector<FetcherRef> NVXx_HTKSessionFetcherService::takeFetchersToStart(const std::string& host) {
  std::vector<FetcherRef> toStart;
  const uint64_t limit = _maxRunningFetchersPerHost;
  for (;;) {
    std::vector<FetcherRef>* delayed = fetchersOfHost(_delayedFetchersByHost, host);
    if (!delayed || delayed->empty()) break;
    if (numberOfNonBackgroundSessionFetchers(_runningFetchersByHost, host) >= limit) break;
    // The first of the lowest priority.
    auto next = std::min_element(
        delayed->begin(), delayed->end(),
        [](const FetcherRef& a, const FetcherRef& b) { return a->servicePriority() < b->servicePriority(); });
    toStart.push_back(*next);
    delayed->erase(next);
    addFetcher(_runningFetchersByHost, host, toStart.back());
  }
  for (FetchersByHost* table : {&_runningFetchersByHost, &_delayedFetchersByHost}) {
    std::erase_if(*table, [](const auto& entry) { return entry.second.empty(); });
  }
  return toStart;
}

size_t NVXx_HTKSessionFetcherService::numberOfRunningFetchers() const {
  Lock lock(_lock);
  return count(_runningFetchersByHost);
}

size_t NVXx_HTKSessionFetcherService::numberOfDelayedFetchers() const {
  Lock lock(_lock);
  return count(_delayedFetchersByHost);
}

size_t NVXx_HTKSessionFetcherService::numberOfFetchers() const {
  Lock lock(_lock);
  return count(_runningFetchersByHost) + count(_delayedFetchersByHost);
}

FetchersByHost NVXx_HTKSessionFetcherService::runningFetchersByHost() const {
  Lock lock(_lock);
  return _runningFetchersByHost;
}

FetchersByHost NVXx_HTKSessionFetcherService::delayedFetchersByHost() const {
  Lock lock(_lock);
  return _delayedFetchersByHost;
}

std::vector<FetcherRef> NVXx_HTKSessionFetcherService::issuedFetchers() const {
  std::vector<FetcherRef> issued;
  Lock lock(_lock);
  for (const FetchersByHost* table : {&_runningFetchersByHost, &_delayedFetchersByHost}) {
    for (const auto& [host, fetchers] : *table) issued.insert(issued.end(), fetchers.begin(), fetchers.end());
  }
  return issued;
}

std::vector<FetcherRef> NVXx_HTKSessionFetcherService::issuedFetchersWithRequestURL(const URL& url) const {
  if (url.host().empty()) return {};
  std::vector<FetcherRef> issued = issuedFetchers();
  std::erase_if(issued, [&](const FetcherRef& fetcher) {
    const std::shared_ptr<URLRequest> request = fetcher->mutableRequest();
    return !request || request->url != url;
  });
  return issued;
}

bool NVXx_HTKSessionFetcherService::isDelayingFetcher(const FetcherRef& fetcher) {
  const std::string host = hostOfRequest(fetcher);
  Lock lock(_lock);
  return contains(_delayedFetchersByHost, host, fetcher);
}

void NVXx_HTKSessionFetcherService::stopAllFetchers() {
  FetchersByHost delayed, running;
  {
    Lock lock(_lock);
    _stoppedAllFetchersDate = nextFetchMoment();
    // Emptied first, so that the end of one does not begin another.
    delayed.swap(_delayedFetchersByHost);
    running.swap(_runningFetchersByHost);
  }
  for (const FetchersByHost* table : {&delayed, &running}) {
    for (const auto& [host, fetchers] : *table) {
      for (const FetcherRef& fetcher : fetchers) fetcher->stopFetching();
    }
  }
}

bool NVXx_HTKSessionFetcherService::waitForCompletionOfAllFetchersWithTimeout(TimeInterval timeout) {
  constexpr TimeInterval kFetcherWait = 0.01;
  constexpr TimeInterval kTurn = 0.001;
  Threading& threading = *Platform::current().threading;
  const int64_t deadline = deadlineAfter(threading.monotonicNanos(), timeout);
  const QueueRef main = Queue::main();
  const std::unique_ptr<Parker> parker = threading.makeParker();
  {
    Lock lock(_lock);
    _stoppedFetchersToWaitFor.emplace();
  }
  bool inTime = false;
  for (;;) {
    FetcherRef stopped;
    {
      Lock lock(_lock);
      // Nothing when somebody else waited too, and was done first.
      if (_stoppedFetchersToWaitFor && !_stoppedFetchersToWaitFor->empty()) {
        stopped = _stoppedFetchersToWaitFor->front();
        _stoppedFetchersToWaitFor->erase(_stoppedFetchersToWaitFor->begin());
      } else if (_runningFetchersByHost.empty() && _delayedFetchersByHost.empty()) {
        inTime = true;
        break;
      }
    }
    if (threading.monotonicNanos() >= deadline) break;
    if (stopped) stopped->waitForCompletionWithTimeout(kFetcherWait);
    if (main->isCurrent()) {
      Platform::current().mainLoop->turn(kTurn);
    } else {
      parker->parkUntil(deadlineAfter(threading.monotonicNanos(), kTurn));
    }
  }
  std::optional<std::vector<FetcherRef>> dropped;
  Lock lock(_lock);
  dropped.swap(_stoppedFetchersToWaitFor);
  return inTime;
}

}  // namespace nvxcore
