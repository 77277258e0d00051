// Each kind of scripted reply, as it stands on an HTTP/1 connection.
#include <gtest/gtest.h>

#include <stdexcept>

#include "support/RawClient.h"
#include "tools/geoserver/GeoServer.h"

namespace nvxcore::geoserver {
namespace {

constexpr size_t kRequests = 3;
constexpr size_t kPayload = 10;
constexpr size_t kAnswer = 2 + 4 + kPayload;

std::string post() { return postRequest(postBody(kRequests, kPayload)); }
std::string good() { return goodReply(kRequests, kPayload); }

TEST(ReplyPlanTest, WrongContentIsFramedAsIfItWereRight) {
  struct Case {
    ReplyPlan plan;
    std::string body;
    uint64_t answersSent;
  };
  const std::string g = good();
  const auto answer = [&](size_t k) { return g.substr(2 + k * kAnswer, kAnswer); };
  std::string flipped = g;
  for (size_t i = 2 + 2 * kAnswer - 3; i < 2 + 2 * kAnswer; ++i) flipped[i] = static_cast<char>(~flipped[i]);
  const Case cases[] = {
      {ReplyPlan(), g, 3},
      {faults::wrongVersionWord(23), std::string("\0\x17", 2) + g.substr(2), 0},
      {faults::wrongContentType("text/html"), g, 0},
      {faults::wrongRequestId(1, 0xABCD), g.substr(0, 2 + kAnswer) + "\xAB\xCD" + g.substr(4 + kAnswer), 1},
      {faults::wrongRequestId(kRequests, 0xABCD), g.substr(0, 2) + "\xAB\xCD" + g.substr(4), 0},
      {faults::alteredAnswer(1, 3), flipped, 1},
      {faults::otherAnswer(2, "!"), g.substr(0, 2 + 2 * kAnswer) + answer(2).substr(0, 2) + "!", 2},
      {faults::shortAnswer(0, 4), g.substr(0, 2 + kAnswer - 4) + answer(1) + answer(2), 0},
      {faults::extraBytes("more"), g + "more", 3},
      {faults::truncated(2 + kAnswer), g.substr(0, 2 + kAnswer), 1},
      {faults::truncated(1 + kAnswer), g.substr(0, 1 + kAnswer), 0},
      {faults::status(503, "busy"), "busy", 0},
      {faults::emptyStatus(404), "", 0},
      {ReplyPlan::withBody(200, "text/plain", "plain").withChange([](ProtocolReply& reply) {
         reply.bytes += "!";
       }),
       "plain!", 0},
  };
  GeoServer server;
  RawClient client(server.port());
  uint64_t sent = 0;
  for (const Case& c : cases) {
    server.enqueue(c.plan);
    client.send(post());
    const std::string reply = client.readReply();
    EXPECT_EQ(bodyOf(reply), c.body) << c.plan.label;
    EXPECT_TRUE(reply.starts_with("HTTP/1.1 " + std::to_string(c.plan.status) + " ")) << reply;
    ASSERT_TRUE(server.waitForEndedCount(++sent, kPatience));
    const Exchange exchange = server.exchanges().back();
    EXPECT_EQ(exchange.answersSent, c.answersSent) << c.plan.label;
    EXPECT_EQ(exchange.fault, c.plan.fault);
    EXPECT_EQ(exchange.status, c.plan.status);
    EXPECT_EQ(exchange.ending, Ending::answered);
  }
  EXPECT_EQ(server.counters().connectionsAccepted, 1u);
}

TEST(ReplyPlanTest, ConnectionsEndWhereThePlanSaysSo) {
  struct Case {
    ReplyPlan plan;
    bool head;
    size_t bodyBytes;
    bool reset;
    Ending ending;
  };
  const Case cases[] = {
      {faults::closeBeforeReply(), false, 0, false, Ending::cut},
      {faults::closeAfterHead(), true, 0, false, Ending::cut},
      {faults::closeMidBody(20), true, 20, false, Ending::cut},
      {ReplyPlan().thenShare(500).thenClose(), true, good().size() / 2, false, Ending::cut},
      {ReplyPlan().thenShare(1000).thenClose(), true, good().size() - 1, false, Ending::cut},
      {faults::resetBeforeReply(), false, 0, true, Ending::reset},
      {faults::resetMidBody(20), true, 20, true, Ending::reset},
      {faults::streamResetMidBody(20, 2), true, 20, true, Ending::streamReset},
      {faults::goAwayRefused(), false, 0, false, Ending::refused},
      {faults::goAwayServed(), true, good().size(), false, Ending::answered},
  };
  GeoServer server;
  uint64_t sent = 0;
  for (const Case& c : cases) {
    server.enqueue(c.plan);
    RawClient client(server.port());
    client.send(post());
    const std::string reply = client.readToEnd();
    EXPECT_EQ(!reply.empty(), c.head) << c.plan.label;
    EXPECT_EQ(bodyOf(reply), good().substr(0, c.bodyBytes)) << c.plan.label;
    EXPECT_EQ(client.wasReset(), c.reset) << c.plan.label;
    ASSERT_TRUE(server.waitForEndedCount(++sent, kPatience));
    const Exchange exchange = server.exchanges().back();
    EXPECT_EQ(exchange.ending, c.ending) << c.plan.label;
    EXPECT_EQ(exchange.replyBytesSent, c.bodyBytes) << c.plan.label;
    EXPECT_EQ(exchange.replyBytes, good().size());
  }
}

TEST(ReplyPlanTest, PiecesComeApartAndInOrder) {
  GeoServer server;
  RawClient client(server.port());
  ReplyPlan plan;
  plan.thenStall("head").thenHead().thenStall("1").thenBytes(1).thenStall("2");
  plan.thenUpToAnswer(2).thenStall("3").thenBytes(0).thenBytes(100000);
  server.enqueue(plan);
  client.send(post());
  const auto passGate = [&](const char* gate) {
    ASSERT_TRUE(server.waitUntilStalled(1, kPatience));
    server.release(gate);
  };
  ASSERT_TRUE(server.waitUntilStalled(1, kPatience));
  EXPECT_EQ(server.exchanges().back().status, 0);
  passGate("head");
  EXPECT_TRUE(client.readUntil("\r\n\r\n").starts_with("HTTP/1.1 200"));
  passGate("1");
  EXPECT_EQ(client.readExactly(1), good().substr(0, 1));
  passGate("2");
  EXPECT_EQ(client.readExactly(1 + 2 * kAnswer), good().substr(1, 1 + 2 * kAnswer));
  ASSERT_TRUE(server.waitUntilStalled(1, kPatience));
  EXPECT_EQ(server.exchanges().back().answersSent, 2u);
  server.release("3");
  EXPECT_EQ(client.readExactly(kAnswer), good().substr(2 + 2 * kAnswer));

  for (const ReplyPlan& timed :
       {faults::pieces({3, 7, 7, 40}, Millis(2)), faults::drip(1, Millis(1)), faults::delayedHead(Millis(5)),
        faults::delayedBody(Millis(5)), faults::pausedBody(9, Millis(5))}) {
    const auto start = std::chrono::steady_clock::now();
    server.enqueue(timed);
    client.send(post());
    EXPECT_EQ(bodyOf(client.readReply()), good()) << timed.label;
    EXPECT_GE(std::chrono::steady_clock::now() - start, Millis(5)) << timed.label;
  }
}

TEST(ReplyPlanTest, FramingsInterimRepliesAndTrailers) {
  GeoServer server;
  RawClient client(server.port());
  ReplyPlan chunked = ReplyPlan::withBody(200, "text/plain", "0123456789abcdef");
  chunked.framing = ReplyPlan::Framing::chunked;
  chunked.trailers.add("X-Sum", "7");
  chunked.thenInterim(103, {{"Link", "</a>"}}).thenBytes(11);
  server.enqueue(chunked);
  client.send(getRequest("/"));
  EXPECT_EQ(client.readUntil("\r\n\r\n"), "HTTP/1.1 103 Early Hints\r\nLink: </a>\r\n\r\n");
  EXPECT_NE(client.readUntil("\r\n\r\n").find("Transfer-Encoding: chunked\r\n"), std::string::npos);
  EXPECT_EQ(client.readUntil("\r\n\r\n"), "b\r\n0123456789a\r\n5\r\nbcdef\r\n0\r\nX-Sum: 7\r\n\r\n");

  ReplyPlan lying = ReplyPlan::withBody(200, "text/plain", "12345");
  lying.declaredLength = 9;
  lying.withHeader("Date", "never").withoutHeader("Content-Type").withHeader("A", "1").withHeader("A", "2");
  server.enqueue(lying);
  client.send(getRequest("/"));
  const std::string head = client.readUntil("\r\n\r\n");
  EXPECT_EQ(head, "HTTP/1.1 200 OK\r\nDate: never\r\nA: 1\r\nA: 2\r\nContent-Length: 9\r\n\r\n");
  EXPECT_EQ(client.readExactly(5), "12345");

  server.enqueue(ReplyPlan::raw("HTTP/1.0 200 Fine\r\nContent-Length: 2\r\n\r\nok"));
  client.send(getRequest("/"));
  EXPECT_EQ(client.readUntil("ok"), "HTTP/1.0 200 Fine\r\nContent-Length: 2\r\n\r\nok");

  ReplyPlan open = ReplyPlan::withBody(200, "text/plain", "to the end");
  open.framing = ReplyPlan::Framing::untilClose;
  server.enqueue(open);
  client.send(getRequest("/"));
  const std::string reply = client.readToEnd();
  EXPECT_EQ(bodyOf(reply), "to the end");
  EXPECT_EQ(reply.find("Content-Length"), std::string::npos);
  EXPECT_TRUE(client.endedOrderly());

  server.enqueue(faults::garbage("\x16\x03\x01"));
  RawClient other(server.port());
  other.send(getRequest("/"));
  EXPECT_EQ(other.readToEnd(), "\x16\x03\x01");
}

TEST(ReplyPlanTest, EarlyRepliesDoNotWaitForTheBody) {
  constexpr size_t kBody = 32 * 1024 * 1024;
  const std::string head =
      "POST / HTTP/1.1\r\nHost: x\r\nContent-Length: " + std::to_string(kBody) + "\r\n\r\n";
  GeoServer server;
  {
    server.enqueue(faults::earlyReply(413, "too much"));
    RawClient client(server.port());
    client.send(head);
    EXPECT_EQ(client.sendUntilFull(kBody / 2), kBody / 2);
    EXPECT_EQ(bodyOf(client.readToEnd()), "too much");
    EXPECT_TRUE(client.endedOrderly());
  }
  {
    server.enqueue(ReplyPlan::withStatus(200).answeredEarly());
    RawClient client(server.port());
    client.send(head);
    EXPECT_TRUE(client.readReply().starts_with("HTTP/1.1 200"));
    EXPECT_EQ(client.sendUntilFull(kBody), kBody);
    client.send(getRequest("/status/201"));
    EXPECT_TRUE(client.readReply().starts_with("HTTP/1.1 201"));
  }
  {
    server.enqueue(
        ReplyPlan::withStatus(200).answeredEarly(ReplyPlan::Intake::unread).thenHead().thenStall("unread"));
    RawClient client(server.port());
    client.send(head);
    const uint64_t before = server.counters().bytesIn;
    const size_t taken = client.sendUntilFull(kBody);
    EXPECT_LT(taken, kBody);
    EXPECT_LT(server.counters().bytesIn - before, 1024u * 1024);
    server.release("unread");
    EXPECT_TRUE(client.readReply().starts_with("HTTP/1.1 200"));
    EXPECT_EQ(client.sendUntilFull(kBody - taken), kBody - taken);
    client.send(getRequest("/status/202"));
    EXPECT_TRUE(client.readReply().starts_with("HTTP/1.1 202"));
  }
}

TEST(ReplyPlanTest, ScriptsAndHandlersAreAskedInTurn) {
  GeoServer server;
  server.handle("/a", [](const Exchange& exchange) {
    return ReplyPlan::withBody(200, "text/plain",
                               "a:" + std::string(exchange.headers.value("x")) + *exchange.body);
  });
  server.handle("/a/longer",
                [](const Exchange&) -> ReplyPlan { throw std::runtime_error("broken handler"); });
  server.setScript([](const Exchange& exchange) -> std::optional<ReplyPlan> {
    if (exchange.query == "script") return ReplyPlan::withBody(200, "text/plain", "script");
    return std::nullopt;
  });
  server.setHeadScript([](const Exchange& exchange) -> std::optional<ReplyPlan> {
    if (exchange.query == "head") return ReplyPlan::withBody(200, "text/plain", "head");
    return std::nullopt;
  });
  RawClient client(server.port());
  const auto ask = [&](const std::string& path) {
    client.send(postRequest("body", path, "X: 1\r\n"));
    return bodyOf(client.readReply());
  };
  EXPECT_EQ(ask("/a"), "a:1body");
  EXPECT_EQ(ask("/a?script"), "script");
  EXPECT_EQ(ask("/a?head"), "head");
  server.enqueue(ReplyPlan::withBody(200, "text/plain", "queue"));
  EXPECT_EQ(ask("/a?head"), "queue");
  EXPECT_EQ(ask("/a/longer/x"), "a handler failed: broken handler\n");
  EXPECT_EQ(server.exchanges().back().handlerError, "broken handler");
  EXPECT_EQ(server.exchanges().back().status, 500);

  server.registerRequestType(
      kEchoType, [](WireReader& reader) { reader.readCountedBytes(); },
      [](std::string_view, const Exchange&, WireWriter&) { throw std::runtime_error("no answer"); });
  client.send(post());
  EXPECT_TRUE(client.readReply().starts_with("HTTP/1.1 500"));
}

}  // namespace
}  // namespace nvxcore::geoserver
