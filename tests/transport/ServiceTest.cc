#include "nvxcore/transport/NVXx_HTKSessionFetcherService.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

#include "nvxcore/platform/Semaphore.h"
#include "nvxcore/platform/Threading.h"
#include "nvxcore/platform/URLErrors.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcherSessionDelegateDispatcher.h"
#include "tests/transport/FetcherHarness.h"

namespace nvxcore::testing {
namespace {

using Service = NVXx_HTKSessionFetcherService;
using Dispatcher = NVXx_HTKSessionFetcherSessionDelegateDispatcher;

class ServiceTest : public FetcherTest {
 protected:
  explicit ServiceTest(std::shared_ptr<ManualTime> manual = std::make_shared<ManualTime>())
      : FetcherTest(manual), time(std::move(manual)) {
    service = Service::init();
  }
  ~ServiceTest() override {
    EXPECT_EQ(service->numberOfFetchers(), 0u);
    // The creation semaphore is free.
    service->resetSession();
  }

  FetcherRef begun(const std::string& name, int64_t priority = 0, const char* url = "https://host/path") {
    const FetcherRef fetcher = makeFetcher(url);
    fetcher->setServicePriority(priority);
    begin(fetcher, name);
    return fetcher;
  }
  void finish(const FetcherRef& fetcher) {
    const auto played = std::static_pointer_cast<FakeHTTPTask>(fetcher->sessionTask());
    ASSERT_TRUE(played);
    played->sendResponse(200);
    played->complete();
  }
  std::shared_ptr<Dispatcher> dispatcher() {
    return std::static_pointer_cast<Dispatcher>(service->sessionDelegate());
  }
  std::string counts() {
    return std::to_string(service->numberOfRunningFetchers()) + "+" +
           std::to_string(service->numberOfDelayedFetchers());
  }

  const std::shared_ptr<ManualTime> time;
};

TEST_F(ServiceTest, TheSurplusWaitsByPriority) {
  service->setMaxRunningFetchersPerHost(1);
  const FetcherRef first = begun("first");
  const FetcherRef last = begun("last", 5), second = begun("second", 1), third = begun("third", 1);
  const FetcherRef other = begun("other", 0, "https://elsewhere/");
  const FetcherRef urgent = begun("urgent", std::numeric_limits<int64_t>::min());
  EXPECT_EQ(counts(), "2+3");
  EXPECT_TRUE(service->isDelayingFetcher(last) && !service->isDelayingFetcher(first));
  EXPECT_FALSE(last->session());
  EXPECT_FALSE(urgent->serviceHost());
  EXPECT_EQ(service->issuedFetchers(), (std::vector<FetcherRef>{first, other, last, second, third}));
  EXPECT_EQ(service->issuedFetchersWithRequestURL(URL::withString("https://elsewhere/")),
            std::vector<FetcherRef>{other});
  EXPECT_TRUE(service->issuedFetchersWithRequestURL(URL::withString("file:///x")).empty());
  begin(last, "last");  // A second begin of one that waits changes nothing.
  finish(urgent);
  EXPECT_EQ(happened(), "urgent:\"\"");
  EXPECT_EQ(counts(), "2+3");
  for (const auto& [fetcher, name] :
       {std::pair{first, "first"}, {second, "second"}, {third, "third"}, {last, "last"}}) {
    EXPECT_EQ(fetcher->serviceHost(), "host");
    finish(fetcher);
    EXPECT_EQ(happened(), std::string(name) + ":\"\"");
    EXPECT_FALSE(fetcher->serviceHost());
  }
  finish(other);
  EXPECT_EQ(happened(), "other:\"\"");
  EXPECT_EQ(http->sessions().size(), 1u);
}

TEST_F(ServiceTest, ADelayedOneIsStoppedQuietlyAndAFileCountsAsLocalhost) {
  service->setMaxRunningFetchersPerHost(1);
  service->updateSettings([](Service::Settings& settings) {
    settings.allowLocalhostRequest = true;
    settings.delegateQueue = nullptr;
  });
  EXPECT_EQ(service->delegateQueue(), Queue::main());
  const FetcherRef file = begun("file", 0, "file:///x"), local = begun("local", 0, "http://localhost/");
  EXPECT_EQ(file->serviceHost(), "localhost");
  EXPECT_EQ(counts(), "1+1");
  local->stopFetching();
  EXPECT_EQ(counts(), "1+0");
  EXPECT_EQ(http->tasks().size(), 1u);
  service->setMaxRunningFetchersPerHost(0);
  const FetcherRef free = begun("free", 0, "http://localhost/");
  EXPECT_EQ(counts(), "2+0");
  file->stopFetching();
  finish(free);
  EXPECT_EQ(happened(), "free:\"\"");
  const FetcherRef data = begun("data", 0, "data:,x");  // No host: it is not counted.
  EXPECT_EQ(counts(), "0+0");
  finish(data);
  EXPECT_EQ(happened(), "data:\"\"");
}

TEST_F(ServiceTest, ThousandsThatFailToBeginDoNotPileUp) {
  service->setMaxRunningFetchersPerHost(1);
  const FetcherRef first = begun("first");
  constexpr int kMany = 2000;
  int failed = 0;
  for (int i = 0; i < kMany; ++i) {
    const FetcherRef fetcher = makeFetcher();
    fetcher->setCallbackQueue(queue);
    fetcher->beginFetchWithCompletionHandler([&](Data, const Error& error) {
      EXPECT_EQ(error.code(), kHTKSessionFetcherErrorTaskCreationFailed);
      ++failed;
    });
  }
  EXPECT_EQ(counts(), "1+" + std::to_string(kMany));
  expectConsoleLine("Failed dataTaskWithRequest for ");
  http->makesNoTask = true;
  first->stopFetching();
  EXPECT_EQ(happened(), "");
  EXPECT_EQ(failed, kMany);
  EXPECT_EQ(counts(), "0+0");
}

TEST_F(ServiceTest, StopAllSuppressesWhatIsQueuedAndStartsNobody) {
  service->setMaxRunningFetchersPerHost(2);
  std::vector<FetcherRef> fetchers;
  for (int i = 0; i < 5; ++i) fetchers.push_back(begun("old"));
  Semaphore gate(0);
  queue->post([&] { gate.wait(); });
  const FetcherRef ending = fetchers[0];
  finish(ending);
  Semaphore delivered(0);
  service->delegateQueue()->post([&] { delivered.signal(); });
  delivered.wait();
  EXPECT_EQ(counts(), "2+2");
  // The clock stands still: begun in the same instant, before and after.
  service->stopAllFetchers();
  EXPECT_EQ(counts(), "0+0");
  EXPECT_EQ(http->tasks().size(), 3u);
  const FetcherRef fresh = begun("new");
  finish(fresh);
  gate.signal();
  EXPECT_EQ(happened(), "new:\"\"");
}

TEST_F(ServiceTest, FetchersGetTheSettings) {
  const auto marker = std::make_shared<const URLCredential>();
  service->updateSettings([&](Service::Settings& settings) {
    settings.callbackQueue = queue;
    settings.credential = settings.proxyCredential = marker;
    settings.cookieStorageMethod = 3;
    settings.allowedInsecureSchemes = {"http"};
    settings.allowLocalhostRequest = settings.allowInvalidServerCertificates = true;
    settings.retryEnabled = settings.skipBackgroundTask = true;
    settings.maxRetryInterval = 7;
    settings.minRetryInterval = 3;
    settings.properties = {{"k", "v"}};
    settings.configuration = HTTPSessionConfiguration::ephemeral();
  });
  const FetcherRef fetcher = service->fetcherWithURLString("https://h/");
  EXPECT_EQ(fetcher->callbackQueue(), queue);
  EXPECT_EQ(fetcher->sessionDelegateQueue(), service->delegateQueue());
  EXPECT_TRUE(fetcher->credential() == marker && fetcher->proxyCredential() == marker);
  EXPECT_TRUE(fetcher->cookieStorage());
  EXPECT_TRUE(fetcher->allowLocalhostRequest() && fetcher->allowInvalidServerCertificates());
  EXPECT_TRUE(fetcher->isRetryEnabled() && fetcher->skipBackgroundTask());
  EXPECT_EQ(fetcher->maxRetryInterval(), 7);
  EXPECT_EQ(fetcher->minRetryInterval(), 3);
  EXPECT_EQ(*fetcher->propertyForKey("k").string(), "v");
  EXPECT_EQ(fetcher->service(), service);
  EXPECT_EQ(fetcher->configuration(), service->settings().configuration);
  EXPECT_EQ(fetcher->request()->headers.value("user-agent"), service->userAgent());
  URLRequest own(URL::withString("https://h/"));
  own.headers.set("USER-agent", "mine");
  EXPECT_EQ(service->fetcherWithRequest(own)->request()->headers.value("User-Agent"), "mine");
  service->setUserAgent("");
  EXPECT_FALSE(service->fetcherWithURLString("https://h/")->request()->headers.contains("User-Agent"));
  service->setCallbackQueue(nullptr);
  EXPECT_EQ(service->callbackQueue(), Queue::main());
}

TEST_F(ServiceTest, ManyThreadsShareOneSession) {
  constexpr int kThreads = 8, kRounds = 25;
  std::atomic<int> made{0}, inBlock{0}, completed{0};
  service->setMaxRunningFetchersPerHost(0);
  // One configuration for all: nobody may write into it.
  service->updateSettings([&](Service::Settings& settings) {
    settings.configuration = HTTPSessionConfiguration::ephemeral();
    settings.configurationBlock = [&](const FetcherRef&, HTTPSessionConfiguration&) {
      EXPECT_EQ(++inBlock, 1);
      ++made;
      --inBlock;
      if (made == 1) throw std::runtime_error("once");
    };
  });
  expectConsoleLine("No session could be made for ");
  http->onResume = [](const FakeHTTPTaskRef& played) {
    played->sendResponse(200);
    played->complete();
  };
  std::vector<std::unique_ptr<ThreadHandle>> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.push_back(Platform::current().threading->startThread("fetching", [&] {
      for (int round = 0; round < kRounds; ++round) {
        const FetcherRef fetcher = makeFetcher();
        fetcher->beginFetchWithCompletionHandler([&](Data, const Error&) { ++completed; });
      }
    }));
  }
  for (const auto& thread : threads) thread->join();
  scope.settle();
  EXPECT_EQ(completed, kThreads * kRounds);
  EXPECT_EQ(http->sessions().size(), 1u);
  EXPECT_EQ(made, 2);

  // Without sharing each makes its own, at the same time, and none stays.
  made = 2;
  service->setReuseSession(false);
  EXPECT_FALSE(service->reuseSession());
  service->updateSettings([](Service::Settings& settings) { settings.configurationBlock = nullptr; });
  threads.clear();
  for (int i = 0; i < kThreads; ++i) {
    threads.push_back(Platform::current().threading->startThread("fetching", [&] { begin(makeFetcher()); }));
  }
  for (const auto& thread : threads) thread->join();
  scope.settle();
  EXPECT_EQ(http->sessions().size(), 1u + kThreads);
  for (const auto& session : http->sessions()) EXPECT_TRUE(session->wasInvalidated());
  http->onResume = nullptr;
  service->setReuseSession(true);
}

TEST_F(ServiceTest, WithoutSharingADelayedOneKeepsNoSession) {
  service->setReuseSession(false);
  service->setMaxRunningFetchersPerHost(1);
  const FetcherRef first = begun("first"), second = begun("second");
  EXPECT_FALSE(second->session());
  EXPECT_TRUE(http->sessions()[1]->wasInvalidated());
  first->stopFetching();
  EXPECT_TRUE(second->session());
  finish(second);
  EXPECT_EQ(happened(), "second:\"\"");
  for (const auto& session : http->sessions()) EXPECT_TRUE(session->wasInvalidated());
}

TEST_F(ServiceTest, AnIdleSessionGoesAfterItsTime) {
  service->setUnusedSessionTimeout(10);
  const FetcherRef one = begun("one"), two = begun("two");
  EXPECT_FALSE(dispatcher()->discardTimer());
  finish(one);
  scope.settle();
  EXPECT_FALSE(dispatcher()->discardTimer());
  finish(two);
  scope.settle();
  const std::shared_ptr<Timer> timer = dispatcher()->discardTimer();
  ASSERT_TRUE(timer);
  EXPECT_EQ(timer->interval(), 10);
  EXPECT_EQ(timer->tolerance(), 1);
  // Used again, it starts anew.
  time->advance(9);
  finish(begun("three"));
  scope.settle();
  EXPECT_NE(dispatcher()->discardTimer(), timer);
  EXPECT_FALSE(timer->isValid());
  time->advance(9);
  scope.settle();
  EXPECT_FALSE(http->sessions()[0]->wasInvalidated());
  EXPECT_NE(dispatcher()->description().find("<no tasks>"), std::string::npos);

  // A timer that was replaced while it fires has nothing to say.
  const auto kept = dispatcher();
  service->resetSessionForDispatcherDiscardTimer(timer);
  EXPECT_EQ(dispatcher(), kept);
  EXPECT_FALSE(http->sessions()[0]->wasInvalidated());
  Semaphore gate(0), inLoop(0);
  Queue::main()->post([&] {
    inLoop.signal();
    gate.wait();
  });
  inLoop.wait();
  time->advance(5);  // Due, but the main thread is busy, and somebody takes the session meanwhile.
  const FetcherRef late = begun("late");
  gate.signal();
  scope.settle();
  EXPECT_FALSE(http->sessions()[0]->wasInvalidated());
  finish(late);
  scope.settle();
  time->advance(11.1);
  scope.settle();
  EXPECT_TRUE(http->sessions()[0]->wasInvalidated());
  EXPECT_NE(dispatcher(), kept);
  EXPECT_FALSE(service->session());
  finish(begun("next"));
  scope.settle();
  EXPECT_EQ(http->sessions().size(), 2u);
  // For ever.
  dispatcher()->setDiscardInterval(0);
  finish(begun("more"));
  scope.settle();
  EXPECT_FALSE(dispatcher()->discardTimer());
  journal.take();
}

TEST_F(ServiceTest, AResetLetsWhatRunsFinish) {
  const FetcherRef old = begun("old");
  service->resetSession();
  const FetcherRef fresh = begun("fresh");
  EXPECT_NE(old->session(), fresh->session());
  finish(fresh);
  EXPECT_EQ(happened(), "fresh:\"\"");
  finish(old);
  EXPECT_EQ(happened(), "old:\"\"");
  EXPECT_FALSE(http->sessions()[0]->delegate());
}

TEST_F(ServiceTest, AFetchWhoseSessionIsGivenUpWhileItBeginsIsNotLost) {
  const auto started = NotificationCenter::defaultCenter().addObserver(
      NVXx_kHTKSessionFetcherStartedNotification, nullptr,
      [&](const Notification&) { service->setReuseSession(false); });
  Semaphore begunOnMain(0);
  FetcherRef fetcher;
  Queue::main()->post([&] {
    // Here the notification comes between the making of the task and its entry in the table.
    fetcher = begun("kept");
    begunOnMain.signal();
  });
  begunOnMain.wait();
  task()->sendResponse(200);
  task()->complete();
  EXPECT_NE(happened().find("kept:"), std::string::npos);
  service->setReuseSession(true);
}

TEST_F(ServiceTest, AnInvalidSessionEndsItsFetchersAsCancelled) {
  const auto token = NotificationCenter::defaultCenter().addObserver(
      NVXx_kHTKSessionFetcherServiceSessionBecameInvalidNotification, service.get(),
      [&](const Notification& n) {
        EXPECT_TRUE(service->delegateQueue()->isCurrent());
        EXPECT_EQ(n.userInfo.get(NVXx_kHTKSessionFetcherServiceSessionKey).objectAs<HTTPSessionRef>(),
                  http->sessions()[0]);
        journal.add("invalid");
      });
  begun("a"), begun("b");
  http->sessions()[0]->becomeInvalid();
  scope.settle();
  const std::string heard = journal.take();
  for (const char* part : {"a:nothing,NSURLErrorDomain-999 ", "b:nothing,NSURLErrorDomain-999", "invalid"})
    EXPECT_NE((heard + " ").find(part), std::string::npos) << heard;
  EXPECT_FALSE(dispatcher()->session());
  finish(begun("c"));
  EXPECT_EQ(happened(), "c:\"\"");
  EXPECT_EQ(http->sessions().size(), 2u);
}

TEST_F(ServiceTest, EventsOfUnknownTasksGoNowhere) {
  const FetcherRef fetcher = begun("f");
  const FakeHTTPTaskRef played = task();
  dispatcher()->removeTaskFromMap(played);
  played->sendResponse(200);
  played->sendData("x");
  EXPECT_EQ(happened(), "");
  dispatcher()->setFetcherForTask(fetcher, played);
  dispatcher()->setFetcherForTask(nullptr, played);
  EXPECT_EQ(dispatcher()->fetcherForTask(played), fetcher);
  played->complete();
  EXPECT_EQ(happened(), "f:\"\"");
}

TEST_F(ServiceTest, AServiceThatIsDroppedWaitsForItsFetchersAndThenGoes) {
  const std::weak_ptr<Service> watched = service;
  FetcherRef fetcher = begun("last");
  service = nullptr;
  EXPECT_FALSE(watched.expired());
  finish(fetcher);
  EXPECT_EQ(happened(), "last:\"\"");
  fetcher = nullptr;
  scope.settle();
  EXPECT_TRUE(watched.expired());
  EXPECT_TRUE(http->sessions()[0]->wasInvalidated());
  service = Service::init();
}

/// Waits poll, so time has to pass by itself.
class ServiceWaitTest : public ServiceTest {
 protected:
  ServiceWaitTest() : ServiceTest(nullptr) {}
};

TEST_F(ServiceWaitTest, WaitsForAllOnAnyThread) {
  EXPECT_TRUE(service->waitForCompletionOfAllFetchersWithTimeout(0));
  const FetcherRef stalled = begun("stalled");
  EXPECT_FALSE(service->waitForCompletionOfAllFetchersWithTimeout(-1));
  finish(stalled);
  EXPECT_TRUE(stalled->waitForCompletionWithTimeout(1e30));
  EXPECT_TRUE(service->waitForCompletionOfAllFetchersWithTimeout(std::numeric_limits<double>::infinity()));
  journal.take();
  Semaphore done(0);
  Queue::main()->post([&] {
    service->setCallbackQueue(nullptr);
    const FetcherRef fetcher = service->fetcherWithURLString("https://h/");
    bool called = false;
    fetcher->beginFetchWithCompletionHandler([&](Data, const Error&) { called = true; });
    finish(fetcher);
    EXPECT_TRUE(fetcher->waitForCompletionWithTimeout(1e9));
    EXPECT_TRUE(called);
    EXPECT_TRUE(service->waitForCompletionOfAllFetchersWithTimeout(1));
    done.signal();
  });
  done.wait();
}

class OneAuthorizer : public HTKFetcherAuthorizationProtocol {
 public:
  void authorizeRequest(const URLRequest&, AuthorizedHandler) override {}
  void stopAuthorization() override {}
  void stopAuthorizationForRequest(const URLRequest&) override { ++stops; }
  bool isAuthorizingRequest(const URLRequest&) const override { return false; }
  bool isAuthorizedRequest(const URLRequest&) const override { return true; }
  std::string userEmail() const override { return {}; }
  std::weak_ptr<HTKSessionFetcherServiceProtocol> fetcherService() const override { return service; }
  void setFetcherService(std::weak_ptr<HTKSessionFetcherServiceProtocol> s) override {
    service = std::move(s);
  }
  std::weak_ptr<HTKSessionFetcherServiceProtocol> service;
  int stops = 0;
};

TEST_F(ServiceTest, AnAuthorizerKnowsItsServiceWhileItHasOne) {
  const auto one = std::make_shared<OneAuthorizer>(), two = std::make_shared<OneAuthorizer>();
  const auto hasService = [](const auto& authorizer) {
    const std::weak_ptr<HTKSessionFetcherServiceProtocol> none;
    return authorizer->service.owner_before(none) || none.owner_before(authorizer->service);
  };
  service->setAuthorizer(one);
  EXPECT_EQ(one->service.lock(), service);
  const FetcherRef fetcher = makeFetcher();
  EXPECT_EQ(fetcher->authorizer(), one);
  fetcher->stopFetching();
  EXPECT_EQ(one->stops, 1);
  EXPECT_FALSE(fetcher->authorizer());
  service->setAuthorizer(two);
  EXPECT_FALSE(hasService(one));
  // Another service's by now.
  const auto other = Service::init();
  other->setAuthorizer(two);
  service->setAuthorizer(nullptr);
  EXPECT_EQ(two->service.lock(), other);
}

}  // namespace
}  // namespace nvxcore::testing
