// Faults of answers that are messages, and failures of one request type.
#include <gtest/gtest.h>

#include "support/PostBuilder.h"

namespace nvxcore::geoserver {
namespace {

// Cookie (10 bytes with its ID), an echo of one byte (7), another (7).
PostBuilder post() { return PostBuilder().request(15).message(kEchoType, "a").message(kEchoType, "b"); }

constexpr const char* kCookie = "0018 000F 1122334455667788 ";

class MessageFaultsTest : public ::testing::Test {
 protected:
  std::string ask(ReplyPlan plan) {
    ServerOptions options;
    options.keepReplies = true;
    GeoServer server(options);
    server.enqueue(std::move(plan));
    const PostReply reply(server, post());
    EXPECT_TRUE(server.waitForEndedCount(1, kPatience));
    exchange = server.exchanges().back();
    return reply.body();
  }

  Exchange exchange;
};

TEST_F(MessageFaultsTest, SpoiledAnswersLeaveTheOthersGood) {
  struct Case {
    ReplyPlan plan;
    const char* answers;
    uint64_t spoiled;
    std::vector<size_t> ends;
  };
  const Case cases[] = {
      {faults::badCompression(1), "00EF FFFFFFFA 789CFFFFFFFF  00EF 00000001 62", 1, {12, 24, 31}},
      // A cookie is no message: the next answer has the fault.
      {faults::unreadableMessage(0), "00EF 00000003 0A7F21  00EF 00000001 62", 1, {12, 21, 28}},
      {faults::unreadableMessage(5), "00EF 00000001 61  00EF 00000003 0A7F21", 2, {12, 19, 28}},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(ask(c.plan), fromHex(kCookie) + fromHex(c.answers)) << c.plan.label;
    EXPECT_EQ(exchange.spoiledAnswer, c.spoiled);
    EXPECT_EQ(exchange.answersSent, 3u);
    EXPECT_EQ(exchange.answerEnds, c.ends);
    WireReader answer(std::string_view(*exchange.reply).substr(exchange.answerEnds[c.spoiled - 1] + 2));
    try {
      const std::string message = readSubdata(answer);
      EXPECT_EQ(exchange.fault, FaultKind::unreadableMessage);
      EXPECT_THROW(WireMessage::parse(message), WireError);
    } catch (const WireError&) {
      EXPECT_EQ(exchange.fault, FaultKind::badCompression);
    }
  }
}

TEST_F(MessageFaultsTest, LengthsThatAreNotMet) {
  struct Case {
    ReplyPlan plan;
    const char* answers;
    uint64_t sent;
  };
  const Case cases[] = {
      {faults::excessiveLength(1, 1), "00EF 00000009 61  00EF 00000001 62", 1},
      {faults::excessiveLength(2, 16, true), "00EF 00000001 61  00EF FFFFFFEF 62", 2},
      {faults::excessiveLength(2, UINT32_MAX), "00EF 00000001 61  00EF 7FFFFFFF 62", 2},
      {faults::lowestLength(0), "00EF 80000000 61  00EF 00000001 62", 1},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(ask(c.plan), fromHex(kCookie) + fromHex(c.answers)) << c.plan.label;
    EXPECT_FALSE(exchange.spoiledAnswer);
    EXPECT_EQ(exchange.answersSent, c.sent) << c.plan.label;
  }
}

TEST_F(MessageFaultsTest, WithoutMessagesThereIsNothingToSpoil) {
  GeoServer server;
  for (const ReplyPlan& plan : {faults::badCompression(0), faults::lowestLength(3)}) {
    server.enqueue(plan);
    PostReply reply(server, PostBuilder().request(15));
    EXPECT_NE(reply.cookie(), 0);
    EXPECT_TRUE(reply.atEnd());
  }
}

TEST_F(MessageFaultsTest, ATypeFailsAsOftenAsTold) {
  GeoServer server;
  server.failRequests(300, faults::status(503, "busy"), 2);
  server.failRequests(300, faults::emptyStatus(502), 1);
  server.failRequests(301, faults::emptyStatus(504), 1);
  server.failRequests(301, faults::emptyStatus(500), 0);
  const auto ask = [&](std::initializer_list<uint16_t> ids) {
    PostBuilder post;
    for (const uint16_t id : ids) post.message(id, "x");
    return PostReply(server, post).raw().substr(9, 3);
  };
  EXPECT_EQ(ask({kEchoType}), "200");
  EXPECT_EQ(ask({kEchoType, 300}), "503");
  EXPECT_EQ(ask({301, 300}), "503");
  EXPECT_EQ(ask({300}), "502");
  EXPECT_EQ(ask({300}), "200");
  EXPECT_EQ(ask({301}), "504");
  EXPECT_EQ(ask({301}), "200");
  server.failRequests(300, faults::emptyStatus(502), 1);
  server.clear();
  EXPECT_EQ(ask({300}), "200");
}

}  // namespace
}  // namespace nvxcore::geoserver
