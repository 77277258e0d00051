#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "nvxcore/platform/ApplicationFacts.h"
#include "nvxcore/platform/BackgroundTasks.h"
#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/NotificationCenter.h"
#include "nvxcore/platform/Platform.h"
#include "nvxcore/platform/Value.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcher.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcherService.h"
#include "tests/support/FakeHTTPSession.h"
#include "tests/support/ManualTime.h"
#include "tests/support/NVXTest.h"
#include "tests/support/PlatformScope.h"

namespace nvxcore::testing {

/// What happened, in order, as words. Any thread.
class Journal {
 public:
  void add(const std::string& word) {
    Lock lock(_lock);
    _text += (_text.empty() ? "" : " ") + word;
  }
  /// All words since the last call.
  std::string take() {
    Lock lock(_lock);
    return std::exchange(_text, {});
  }

 private:
  Mutex _lock;
  std::string _text NVX_GUARDED_BY(_lock);
};

/// Counts the grants that are open.
class CountedTasks : public BackgroundTasks {
 public:
  BackgroundTaskIdentifier begin(std::string_view, std::function<void()>) override {
    ++open;
    return ++_last;
  }
  void end(BackgroundTaskIdentifier) override { --open; }
  std::atomic<int> open{0};

 private:
  std::atomic<BackgroundTaskIdentifier> _last{0};
};

/// Facts of an application that leaves the choice of schemes to the fetchers.
inline std::shared_ptr<ApplicationFacts> insecureApplication() {
  ApplicationDescription description;
  description.infoDictionary.set("NSAppTransportSecurity", Dictionary{{"NSAllowsArbitraryLoads", true}});
  return applicationFactsWithDescription(std::move(description));
}

/// Fetchers over a network that the test plays, on time that only the test moves. Callbacks come on a queue
/// of the test's.
class FetcherTest : public NVXTest {
 protected:
  explicit FetcherTest(std::shared_ptr<Threading> threading)
      : scope{Platform{.threading = std::move(threading),
                       .httpSessionService = http,
                       .backgroundTasks = background,
                       .application = insecureApplication()}} {}
  FetcherTest() : FetcherTest(nullptr) {}

  ~FetcherTest() override {
    scope.settle();
    EXPECT_EQ(background->open, 0);
  }

  /// A fetcher of `service`, or of none, that writes into the journal how it completes.
  FetcherRef makeFetcher(const char* url = "https://host/path") {
    FetcherRef fetcher =
        service ? service->fetcherWithURLString(url) : NVXx_HTKSessionFetcher::fetcherWithURLString(url);
    fetcher->setCallbackQueue(queue);
    return fetcher;
  }
  void begin(const FetcherRef& fetcher, const std::string& name = "done") {
    fetcher->beginFetchWithCompletionHandler([this, name](Data data, Error error) {
      EXPECT_TRUE(queue->isCurrent());
      const std::string text = data ? "\"" + data.string() + "\"" : "nothing";
      const std::string domain = error.domain().substr(error.domain().rfind('.') + 1);
      journal.add(name + ":" + text + (error ? "," + domain + std::to_string(error.code()) : ""));
    });
  }
  /// Waits until all queues are at rest, and answers what happened.
  std::string happened() {
    scope.settle();
    return journal.take();
  }
  /// Notifications of the fetchers go into the journal as `word`.
  std::shared_ptr<void> note(const char* notification, const std::string& word) {
    return NotificationCenter::defaultCenter().addObserver(notification, nullptr,
                                                           [=, this](const Notification&) {
                                                             EXPECT_TRUE(Queue::main()->isCurrent());
                                                             journal.add(word);
                                                           });
  }
  FakeHTTPTaskRef task() { return http->lastTask(); }

  const std::shared_ptr<FakeHTTPSessionService> http = std::make_shared<FakeHTTPSessionService>();
  const std::shared_ptr<CountedTasks> background = std::make_shared<CountedTasks>();
  Journal journal;
  PlatformScope scope;
  const QueueRef queue = Queue::serial("callbacks");
  std::shared_ptr<NVXx_HTKSessionFetcherService> service;
};

}  // namespace nvxcore::testing
