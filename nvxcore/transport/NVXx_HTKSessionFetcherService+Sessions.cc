// The session that the fetchers of a service share.

#include <utility>

#include "nvxcore/transport/NVXx_HTKSessionFetcher.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcherService.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcherSessionDelegateDispatcher.h"

namespace nvxcore {

std::shared_ptr<NVXx_HTKSessionFetcherService::Dispatcher> NVXx_HTKSessionFetcherService::dispatcher() const {
  Lock lock(_lock);
  return _delegateDispatcher;
}

std::shared_ptr<NVXx_HTKSessionFetcherService::Dispatcher> NVXx_HTKSessionFetcherService::makeDispatcher() {
  return Dispatcher::initWithParentService(weak_from_this(), _unusedSessionTimeout);
}

HTTPSessionRef NVXx_HTKSessionFetcherService::session() {
  std::shared_ptr<Dispatcher> current = dispatcher();
  return current ? current->session() : nullptr;
}

std::shared_ptr<HTTPSessionDelegate> NVXx_HTKSessionFetcherService::sessionDelegate() { return dispatcher(); }

HTTPSessionRef NVXx_HTKSessionFetcherService::sessionForFetcherCreation(const FetcherRef& fetcher) {
  if (!dispatcher()) return nullptr;
  _sessionCreationSemaphore.wait();
  // While the semaphore is held nobody replaces the dispatcher.
  if (std::shared_ptr<Dispatcher> current = dispatcher()) {
    current->startSessionUsage();
    HTTPSessionRef session = current->session();
    if (!session) {
      Lock lock(_lock);
      _creatingFetcher = fetcher.get();
      return nullptr;
    }
    _sessionCreationSemaphore.signal();
    return session;
  }
  _sessionCreationSemaphore.signal();
  return nullptr;
}

void NVXx_HTKSessionFetcherService::fetcherDidCreateSession(const FetcherRef& fetcher) {
  bool wasBound;
  {
    Lock lock(_lock);
    wasBound = _creatingFetcher == fetcher.get();
    if (wasBound) _creatingFetcher = nullptr;
  }
  if (fetcher->canShareSession()) {
    const HTTPSessionRef session = fetcher->session();
    auto delegate = session ? std::dynamic_pointer_cast<Dispatcher>(session->delegate()) : nullptr;
    if (delegate) delegate->setSession(session);
  }
  if (wasBound) _sessionCreationSemaphore.signal();
}

void NVXx_HTKSessionFetcherService::fetcherDidBeginFetching(const FetcherRef& fetcher) {
  const HTTPSessionRef session = fetcher->session();
  const HTTPSessionTaskRef task = fetcher->sessionTask();
  if (!session || !task) return;
  auto delegate = std::dynamic_pointer_cast<Dispatcher>(session->delegate());
  // Also when the dispatcher was abandoned since the session was taken: the task's events go there all the
  // same.
  if (!delegate) return;
  delegate->setFetcherForTask(fetcher, task);
  // Stopped meanwhile: the task may have sent its last event already, and nothing else would take the fetcher
  // out again.
  if (fetcher->sessionTask() != task) delegate->removeFetcher(fetcher);
}

std::shared_ptr<NVXx_HTKSessionFetcherService::Dispatcher>
NVXx_HTKSessionFetcherService::resetSessionInternal() {
  if (!_delegateDispatcher) return nullptr;
  return std::exchange(_delegateDispatcher, makeDispatcher());
}

void NVXx_HTKSessionFetcherService::resetSession() {
  std::shared_ptr<Dispatcher> abandoned;
  _sessionCreationSemaphore.wait();
  {
    Lock lock(_lock);
    abandoned = resetSessionInternal();
  }
  _sessionCreationSemaphore.signal();
  if (abandoned) abandoned->abandon();
}

void NVXx_HTKSessionFetcherService::resetSessionForDispatcherDiscardTimer(
    const std::shared_ptr<Timer>& timer) {
  std::shared_ptr<Dispatcher> abandoned;
  _sessionCreationSemaphore.wait();
  {
    Lock lock(_lock);
    // A timer that was replaced while this waited has nothing to say any more.
    if (_delegateDispatcher && _delegateDispatcher->discardTimer() == timer)
      abandoned = resetSessionInternal();
  }
  _sessionCreationSemaphore.signal();
  if (abandoned) abandoned->abandon();
}

bool NVXx_HTKSessionFetcherService::reuseSession() { return dispatcher() != nullptr; }

void NVXx_HTKSessionFetcherService::setReuseSession(bool reuse) {
  std::shared_ptr<Dispatcher> abandoned;
  // A session that is being made would come to a dispatcher that nobody abandons any more.
  _sessionCreationSemaphore.wait();
  {
    Lock lock(_lock);
    if (reuse != (_delegateDispatcher != nullptr))
      abandoned = std::exchange(_delegateDispatcher, reuse ? makeDispatcher() : nullptr);
  }
  _sessionCreationSemaphore.signal();
  if (abandoned) abandoned->abandon();
}

}  // namespace nvxcore
