#include "tests/platform/http/support/HTTPTest.h"

#include <chrono>
#include <thread>
#include <utility>

#include "nvxcore/platform/Platform.h"

namespace nvxcore::testing {

namespace {

Platform platformOn(std::shared_ptr<Threading> threading) {
  Platform platform;
  platform.threading = std::move(threading);
  return platform;
}

}  // namespace

HTTPTest::HTTPTest(std::shared_ptr<ManualTime> manualTime)
    : time(std::move(manualTime)), _scope(platformOn(time)), delegate(std::make_shared<RecordingDelegate>()) {
  delegate->queue = Queue::serial("test.delegate");
}

HTTPTest::~HTTPTest() {
  for (const HTTPSessionRef& session : _sessions) {
    session->getTasksWithCompletionHandler([](HTTPSession::Tasks tasks) {
      for (const auto* list : {&tasks.data, &tasks.upload, &tasks.download}) {
        for (const HTTPSessionTaskRef& task : *list) task->cancel();
      }
    });
    session->finishTasksAndInvalidate();
  }
  EXPECT_TRUE(delegate->waitUntilInvalid(_sessions.size()));
  // What the service still has to do for them it has done once it is through with another request.
  finished(started(makeSession({})->dataTaskWithRequest(request("http://127.0.0.1:1/"))));
  _sessions.back()->finishTasksAndInvalidate();
}

HTTPSession& HTTPTest::session() {
  if (_sessions.empty()) makeSession(configuration);
  return *_sessions.front();
}

HTTPSessionRef HTTPTest::makeSession(const HTTPSessionConfiguration& settings) {
  _sessions.push_back(
      Platform::current().httpSessionService->sessionWithConfiguration(settings, delegate, delegate->queue));
  return _sessions.back();
}

bool HTTPTest::eventually(const std::function<bool()>& condition) {
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!condition() && std::chrono::steady_clock::now() < limit) std::this_thread::yield();
  return condition();
}

URLRequest HTTPTest::request(std::string_view url, std::string_view method, std::string_view body) {
  URLRequest request(URL::withString(url));
  request.method = method;
  request.timeoutInterval = 15;
  if (!body.empty()) request.body = Data::copy(body);
  return request;
}

}  // namespace nvxcore::testing
