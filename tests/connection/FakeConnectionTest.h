#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "nvxcore/platform/URLErrors.h"
#include "tests/connection/ConnectionHarness.h"
#include "tests/support/FakeFacts.h"
#include "tests/support/FakeHTTPSession.h"
#include "tests/support/NVXTest.h"
#include "tests/support/PlatformScope.h"

namespace nvxcore::testing {

/// A connection over a fake network, which keeps the body of each POST and answers as the test says.
class FakeConnectionTest : public NVXTest {
 protected:
  /// `seams`: what stands in for the real ones besides the network.
  explicit FakeConnectionTest(Platform seams = {}) : _scope(withNetwork(std::move(seams))) {
    _network->onResume = [this](const FakeHTTPTaskRef& task) { serve(task); };
    connection = makeConnection("http://geo.test/glm");
  }
  /// Not left to the destructor: a POST that begins only now calls `serve`, which is virtual.
  void TearDown() override {
    if (connection) {
      EXPECT_TRUE(connection->drain(kPatience));
    }
    connection.reset();
    // What it still held is failed on a queue; the outcomes must outlive that.
    _scope.settle();
  }

  virtual void serve(const FakeHTTPTaskRef& task) {
    if (isUnread) return task->complete(Error(kURLErrorDomain, kURLErrorCannotConnectToHost));
    task->pullBody([this, task](const Data& body) {
      bodies.push_back(body.string());
      reply(task, bodies.back());
    });
  }
  virtual void reply(const FakeHTTPTaskRef& task, const std::string& body) {
    task->sendResponse(200, {{"Content-Type", "application/binary"}});
    task->sendData(echoReply(body));
    task->complete();
  }

  void send(const std::string& name) { connection->sendRequest(echoRequest(outcomes, name)); }
  void enqueue(const std::string& name) { connection->enqueueRequest(echoRequest(outcomes, name)); }
  /// Hands requests in while the main thread can't start a POST.
  void whileMainIsBusy(const std::function<void()>& work) {
    auto done = std::make_shared<Semaphore>(0);
    Queue::main()->post([done] { done->wait(); });
    work();
    done->signal();
  }
  std::vector<size_t> bodySizes() {
    std::vector<size_t> sizes;
    for (const std::string& body : bodies) sizes.push_back(payloadsOf(body).size());
    return sizes;
  }

  /// No server can be reached: POSTs fail before their bodies are read.
  std::atomic<bool> isUnread{false};
  std::shared_ptr<FakeHTTPSessionService> _network = std::make_shared<FakeHTTPSessionService>();
  PlatformScope _scope;
  Outcomes outcomes;
  /// Of the delegate queue, until the connection was drained.
  std::deque<std::string> bodies;
  std::shared_ptr<NVXDASHConnectionImpl> connection;

 private:
  Platform withNetwork(Platform platform) {
    platform.httpSessionService = _network;
    if (!platform.device) platform.device = std::make_shared<FakeDeviceFacts>();
    return platform;
  }
};

}  // namespace nvxcore::testing
