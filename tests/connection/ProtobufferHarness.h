#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "nvxcore/connection/NVXDASHProtobufferRequest.h"
#include "nvxcore/message/schema/resource.pb.h"
#include "nvxcore/platform/Value.h"
#include "nvxcore/transport/transforms/NVXx_HTKNSDataZlib.h"
#include "tests/connection/FakeConnectionTest.h"
#include "tests/support/ManualTime.h"

namespace nvxcore::testing {

/// Message requests over a fake network on virtual time. The server sends each message back, unless the test
/// says otherwise; `heard` has what the handlers were called with: "url", "!code" for an error, both for
/// both.
class ProtobufferTest : public FakeConnectionTest {
 protected:
  using Echo = NVXx_ZLCResourceRequestProto;

  ProtobufferTest() : ProtobufferTest(std::make_shared<ManualTime>()) {}
  ~ProtobufferTest() override {
    NVXDASHProtobufferRequest::removeAllResponseHooks();
    NVXx_htk_setInflatedLengthLimit(size_t{256} << 20);
  }

  static std::string bigEndian(int64_t value) {
    std::string bytes;
    for (int shift : {24, 16, 8, 0}) bytes += static_cast<char>(value >> shift);
    return bytes;
  }
  static std::string plain(std::string_view bytes) {
    return bigEndian(static_cast<int64_t>(bytes.size())) + std::string(bytes);
  }
  static std::string compressed(std::string_view bytes) {
    return bigEndian(-static_cast<int64_t>(bytes.size())) + std::string(bytes);
  }
  static Ref<Echo> messageWithURL(const std::string& url) {
    auto message = Echo::message();
    message->setUrl(url);
    return message;
  }

  NVXDASHProtobufferRequestRef request(const std::string& url) {
    return NVXDASHProtobufferRequest::requestWithID<Echo>(
        39, messageWithURL(url), handlers, [this](const Ref<Echo>& response, const Error& error) {
          EXPECT_TRUE(handlers->isCurrent());
          lastError = error;
          std::string text = response ? std::string(response->url()) : "";
          if (error) text += "!" + std::to_string(error.code());
          heard += (heard.empty() ? "" : " ") + text;
        });
  }
  /// All that runs comes to rest; a reader that waits for bytes runs.
  void settle() { ASSERT_TRUE(_scope.settle()); }
  void sendAndSettle(const std::vector<NVXDASHProtobufferRequestRef>& requests) {
    whileMainIsBusy([&] {
      for (const auto& request : requests) connection->sendRequest(request);
    });
    settle();
  }
  void advance(TimeInterval seconds) {
    _time->advance(seconds);
    settle();
  }

  void reply(const FakeHTTPTaskRef& task, const std::string& body) override {
    const int code = statuses.empty() ? 200 : statuses.front();
    if (!statuses.empty()) statuses.pop_front();
    if (code < 0) return task->complete(Error("NSURLErrorDomain", code));
    task->sendResponse(code, {{"Content-Type", "application/binary"}});
    task->sendData(replyTo(body, [this](int requestID, std::string_view payload) {
      return requestID == 39 && answer ? answer(std::string(payload)) : plain(payload);
    }));
    task->complete();
  }

  const std::shared_ptr<ManualTime> _time;
  const QueueRef handlers = Queue::serial("handlers");
  /// HTTP's statuses, or codes of the transport's errors, for the next POSTs; 200 when there is none left.
  std::deque<int> statuses;
  /// What goes out behind a request's ID.
  std::function<std::string(std::string payload)> answer;
  std::string heard;
  Error lastError;

 private:
  explicit ProtobufferTest(std::shared_ptr<ManualTime> time)
      : FakeConnectionTest(Platform{.threading = time}), _time(time) {}
};

}  // namespace nvxcore::testing
