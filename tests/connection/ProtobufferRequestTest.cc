#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "nvxcore/connection/JavaDataInputPBSupport.h"
#include "nvxcore/platform/Exception.h"
#include "tests/connection/ProtobufferHarness.h"

namespace nvxcore {
namespace {

using namespace testing;
using namespace std::string_literals;

constexpr char kConnectionDomain[] = "com.ovrasoft.Atlas.NVXDASHConnection";

class ProtobufferRequestTest : public ProtobufferTest {};

std::string gzipped(std::string_view bytes) {
  return NVXx_htk_dataByGzippingBytes(bytes.data(), bytes.size()).string();
}

TEST_F(ProtobufferRequestTest, AMessageGoesOutPlainAndComesBackPlainOrCompressed) {
  int turn = 0;
  answer = [&](const std::string& payload) {
    EXPECT_EQ(payload, "\x22\x01"s + static_cast<char>('a' + turn));
    switch (turn++) {
      case 0:
        return plain(payload);
      case 1:
        return compressed(gzipped(payload));
      case 2:
        return compressed(NVXx_htk_dataByDeflatingBytes(payload.data(), payload.size()).string());
      default:
        return plain("");
    }
  };
  sendAndSettle({request("a"), request("b"), request("c"), request("d")});
  EXPECT_EQ(heard, "a b c ");
  EXPECT_EQ(bodies.size(), 1u);
  EXPECT_FALSE(lastError);
}

TEST_F(ProtobufferRequestTest, WithoutAMessageAClassAQueueOrAHandler) {
  const PBClass* echo = &Echo::messageClass();
  EXPECT_FALSE(NVXDASHProtobufferRequest::requestWithID(39, messageWithURL("x"), echo, nullptr, {}));

  int calls = 0;
  const auto count = [&calls](const Ref<NVXx_PBGeneratedMessage>& response, const Error& error) {
    EXPECT_FALSE(response || error);
    ++calls;
  };
  const auto bare = NVXDASHProtobufferRequest::requestWithID(39, nullptr, nullptr, handlers, count);
  const auto unheard = NVXDASHProtobufferRequest::requestWithID(39, messageWithURL("x"), echo, handlers, {});
  EXPECT_FALSE(NVXDASHProtobufferRequest::requestWithID<Echo>(
                   39, messageWithURL("x"), handlers, std::function<void(const Ref<Echo>&, const Error&)>())
                   ->handler());
  answer = [](const std::string& payload) { return plain(payload.empty() ? "passed over" : payload); };
  sendAndSettle({bare, unheard, request("last")});
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(heard, "last");
  EXPECT_EQ(payloadsOf(bodies[0]).size(), 3u);

  const std::string text = request("here")->description();
  EXPECT_TRUE(text.starts_with("NVXDASHProtobufferRequest 0x")) << text;
  EXPECT_NE(text.find(": protobuf:<NVXx_ZLCResourceRequestProto "), std::string::npos) << text;
}

TEST_F(ProtobufferRequestTest, ABadAnswerFailsItsRequestAndTheNextOneStillReads) {
  const std::string good = gzipped("\x22\x01x"s);
  struct {
    std::string answer, causeDomain;
    int64_t causeCode;
  } cases[] = {{compressed(good.substr(0, good.size() - 3)), NVXx_HTKNSDataZlibErrorDomain, 1025},
               {compressed("no stream"), NVXx_HTKNSDataZlibErrorDomain, 1025},
               {compressed(good + "more"), NVXx_HTKNSDataZlibErrorDomain, 1026},
               {compressed(gzipped(std::string(2 << 20, 'x'))), NVXx_HTKNSDataZlibErrorDomain, 1025},
               {compressed(gzipped("\x22\x7Fx")), kPBGeneratedMessageErrorDomain, -100},
               {plain("\x22\x7Fx"), kPBGeneratedMessageErrorDomain, -100}};
  NVXx_htk_setInflatedLengthLimit(1 << 20);
  for (const auto& c : cases) {
    heard.clear();
    answer = [&](const std::string& payload) { return payload == "\x22\x01x" ? c.answer : plain(payload); };
    Error error;
    const auto bad = NVXDASHProtobufferRequest::requestWithID<Echo>(
        39, messageWithURL("x"), handlers, [&](const Ref<Echo>& response, const Error& given) {
          EXPECT_FALSE(response);
          error = given;
        });
    sendAndSettle({bad, request("next")});
    EXPECT_TRUE(error.is(kConnectionDomain, 101));
    const Error cause = error.userInfo().get(kUnderlyingErrorKey).error();
    EXPECT_TRUE(cause.is(c.causeDomain, c.causeCode)) << cause.description();
    EXPECT_EQ(heard, "next");
  }
}

TEST_F(ProtobufferRequestTest, AnAnswerThatIsCutFailsItsRequestAndTheLaterOnes) {
  expectConsoleLine("Needed ");
  int turn = 0;
  answer = [&](const std::string& payload) {
    // More than ever comes, by the largest lengths of either sign.
    if (turn++ == 1) return bigEndian(turn == 2 ? INT32_MIN : INT32_MAX);
    return plain(payload);
  };
  sendAndSettle({request("a"), request("b"), request("c")});
  EXPECT_EQ(heard, "a !100 !100");
  EXPECT_TRUE(lastError.is(kConnectionDomain, 100));
}

/// A source whose reads fail otherwise than by ending.
class FailingSource : public utils::PtrDataInputProvider {
 public:
  FailingSource(std::function<void()> fail) : PtrDataInputProvider("", 0), _fail(std::move(fail)) {}
  uint32_t ReadBEInt() override {
    _fail();
    return 0;
  }

 private:
  const std::function<void()> _fail;
};

TEST_F(ProtobufferRequestTest, WhatAReadThrowsIsAnOutcomeToo) {
  const auto read = [&](std::function<void()> fail) {
    FailingSource source(std::move(fail));
    utils::JavaDataInput input(&source);
    const bool isInStep = request("x")->asyncReadResponse(&input, connection);
    settle();
    return isInStep;
  };
  EXPECT_TRUE(read([] { throw Exception("Name", "reason"); }));
  EXPECT_TRUE(lastError.is(kConnectionDomain, 101) && lastError.userInfo().empty());
  EXPECT_FALSE(read([] { throw std::bad_alloc(); }));
  EXPECT_EQ(heard, "!101 !100");
}

TEST_F(ProtobufferRequestTest, SkippingTakesTheAbsoluteLength) {
  for (const auto& [bytes, left] :
       {std::pair("\xFF\xFF\xFF\xFB"s + "12345" + "6", 1u), std::pair("\0\0\0\0"s + "12", 2u),
        std::pair("\0\0\0\x03"s + "123", 0u)}) {
    utils::PtrDataInputProvider provider(bytes.data(), bytes.size());
    utils::JavaDataInput input(&provider);
    dash::JavaDataInputPBSupport(&input).SkipSubdata();
    EXPECT_EQ(bytes.size() - provider.BytesConsumed(), left);
  }
}

TEST_F(ProtobufferRequestTest, HooksSeeAndReplaceWhatTheHandlerGetsInTheirOrder) {
  const auto add = [](const char* name, const std::string& mark) {
    NVXDASHProtobufferRequest::addResponseHookWithID(
        name, [mark](const NVXDASHProtobufferRequestRef& request, Ref<NVXx_PBGeneratedMessage>* response,
                     Error* error) {
          if (request->requestID() == kClientPropertiesRequest) return;
          EXPECT_EQ(request->requestID(), 39);
          if (*response) {
            const auto seen = std::string(static_cast<Echo&>(**response).url());
            *response = messageWithURL(seen + mark);
            if (mark == "2") *error = Error("hook", 7);
          } else {
            *error = Error();
            *response = messageWithURL("mended");
          }
        });
  };
  expectConsoleLine("Response hook thrower threw: x");
  add("one", "1");
  NVXDASHProtobufferRequest::addResponseHookWithID("thrower",
                                                   [](auto&&...) { throw std::runtime_error("x"); });
  add("two", "2");
  add("one", "never");
  const auto bypassing = request("bypass");
  bypassing->setBypassResponseHooks(true);
  sendAndSettle({request("a"), bypassing});
  EXPECT_EQ(heard, "a12!7 bypass");

  NVXDASHProtobufferRequest::removeResponseHookWithID("two");
  statuses = {404};
  sendAndSettle({request("b")});
  EXPECT_EQ(heard, "a12!7 bypass mended");
  NVXDASHProtobufferRequest::removeAllResponseHooks();
  sendAndSettle({request("c")});
  EXPECT_EQ(heard, "a12!7 bypass mended c");
}

TEST_F(ProtobufferRequestTest, AnAnswerIsParsedWithTheGivenExtensions) {
  const NVXx_PBExtensionRegistry& registry = NVXx_ZLCResourceRoot::extensionRegistry();
  const auto asked = request("x");
  EXPECT_EQ(asked->extensionRegistry(), nullptr);
  asked->setExtensionRegistry(&registry);
  EXPECT_EQ(asked->extensionRegistry(), &registry);
  asked->setProtobuffer(messageWithURL("y"));
  sendAndSettle({asked});
  EXPECT_EQ(heard, "y");
}

}  // namespace
}  // namespace nvxcore
