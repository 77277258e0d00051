#include <gtest/gtest.h>

#include "support/CurlClient.h"
#include "support/RawClient.h"
#include "tools/geoserver/GeoServer.h"

namespace nvxcore::geoserver {
namespace {

TEST(Http1Test, AnswersAKeptAlivePipelinedRunInOrder) {
  GeoServer server;
  RawClient client(server.port());
  std::string run;
  for (size_t i = 0; i < 200; ++i) run += postRequest(postBody(i % 3, i));
  // Cut into uneven pieces, so that requests end in the middle of reads.
  for (size_t at = 0; at < run.size(); at += 997)
    ASSERT_TRUE(client.send(std::string_view(run).substr(at, 997)));
  for (size_t i = 0; i < 200; ++i) EXPECT_EQ(bodyOf(client.readReply()), goodReply(i % 3, i)) << i;
  ASSERT_TRUE(server.waitForEndedCount(200, kPatience));
  const auto exchanges = server.exchanges();
  ASSERT_EQ(exchanges.size(), 200u);
  for (size_t i = 0; i < 200; ++i) {
    EXPECT_EQ(exchanges[i].sequence, i + 1);
    EXPECT_EQ(exchanges[i].connection, 1u);
    EXPECT_EQ(exchanges[i].numberOnConnection, i + 1);
    EXPECT_EQ(exchanges[i].post.requests.size(), i % 3);
    EXPECT_EQ(exchanges[i].answersSent, i % 3);
    EXPECT_EQ(exchanges[i].ending, Ending::answered);
  }
  EXPECT_EQ(server.counters().requestsReceived, 199u);
}

TEST(Http1Test, TakesEachFormOfRequest) {
  GeoServer server;
  const std::string body = postBody(1, 4);
  const std::string chunked =
      "POST / HTTP/1.1\r\nhost: x\r\ntransfer-encoding: chunked\r\n\r\n05\r\n" + body.substr(0, 5) + "\r\n";
  {
    RawClient client(server.port());
    char size[16];
    std::snprintf(size, sizeof(size), "%zx\r\n", body.size() - 5);
    client.send(chunked + size + body.substr(5) + "\r\n0\r\nX-Trailer: yes\r\n\r\n");
    EXPECT_EQ(bodyOf(client.readReply()), goodReply(1, 4));
    EXPECT_EQ(server.exchanges().back().trailers.value("x-trailer"), "yes");
  }
  {
    RawClient client(server.port());
    client.send("GET /status/200 HTTP/1.0\r\n\r\n");
    EXPECT_NE(client.readToEnd().find("Connection: close"), std::string::npos);
    EXPECT_TRUE(client.endedOrderly());
  }
  {
    RawClient client(server.port());
    client.send("GET /status/200 HTTP/1.0\r\nConnection: Keep-Alive\r\n\r\n");
    EXPECT_NE(client.readReply().find("Connection: keep-alive"), std::string::npos);
    client.send("HEAD /bytes/77 HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n");
    const std::string head = client.readToEnd();
    EXPECT_NE(head.find("Content-Length: 77"), std::string::npos);
    EXPECT_EQ(bodyOf(head), "");
  }
  {
    RawClient client(server.port());
    client.send(
        "POST http://elsewhere/echo?q HTTP/1.1\r\nHost: x\r\nExpect: 100-continue\r\nContent-Length: "
        "2\r\n\r\n");
    EXPECT_EQ(client.readUntil("\r\n\r\n"), "HTTP/1.1 100 Continue\r\n\r\n");
    client.send("ok");
    EXPECT_EQ(bodyOf(client.readReply()), "ok");
    EXPECT_EQ(server.exchanges().back().path, "/echo");
    EXPECT_EQ(server.exchanges().back().query, "q");
  }
  {
    RawClient client(server.port());
    client.send(postRequest(body.substr(0, body.size() - 1)));
    EXPECT_TRUE(client.readReply().starts_with("HTTP/1.1 400 "));
    EXPECT_NE(server.exchanges().back().post.error, "");
  }
}

TEST(Http1Test, OutlivesHostileClients) {
  ServerOptions options;
  options.maxHeadBytes = 8192;
  options.maxBodyBytes = 100000;
  options.lingerTime = std::chrono::milliseconds(200);
  GeoServer server(options);
  const std::string start = "POST / HTTP/1.1\r\nHost: x\r\n";
  const std::pair<std::string, int> inputs[] = {
      {"GET /" + std::string(1024 * 1024, 'a'), 431},
      {start + "X: " + std::string(1024 * 1024, 'a') + "\r\n\r\n", 431},
      {start + "Transfer-Encoding: chunked\r\n\r\nnope\r\n", 400},
      {start + "Transfer-Encoding: chunked\r\n\r\n2\r\nabc\r\n", 400},
      {start + "Content-Length: 100001\r\n\r\n", 413},
      {"PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n", 505},
      {std::string(1000, '\0') + "\r\n", 400},
  };
  for (const auto& [input, status] : inputs) {
    RawClient client(server.port());
    client.send(input);
    client.endOutput();
    EXPECT_TRUE(client.readToEnd().starts_with("HTTP/1.1 " + std::to_string(status))) << input.substr(0, 60);
    EXPECT_TRUE(client.endedOrderly());
  }
  EXPECT_EQ(server.counters().badRequests, std::size(inputs));

  // Clients that vanish in the middle of a head, of a body, and of a reply that they do not read.
  const size_t before = server.exchanges().size();
  RawClient inHead(server.port());
  inHead.send(start);
  inHead.reset();
  RawClient inBody(server.port());
  inBody.send(start + "Content-Length: 10\r\n\r\nabc");
  ASSERT_TRUE(server.waitFor([&](const Counters& c) { return c.exchangesStarted == before + 1; }, kPatience));
  inBody.endOutput();
  RawClient inReply(server.port());
  inReply.send(getRequest("/bytes/50000000"));
  EXPECT_TRUE(inReply.readUntil("\r\n\r\n").starts_with("HTTP/1.1 200"));
  inReply.reset();
  ASSERT_TRUE(server.waitForOpenConnections(0, kPatience));
  const auto exchanges = server.exchanges();
  ASSERT_EQ(exchanges.size(), before + 2);
  EXPECT_EQ(exchanges[before].ending, Ending::clientGone);
  EXPECT_EQ(exchanges[before].bodyBytes, 3u);
  EXPECT_FALSE(exchanges[before].bodyComplete);
  EXPECT_EQ(exchanges[before + 1].ending, Ending::clientGone);
}

TEST(Http1Test, AHalfClosedClientIsAnsweredUnlessItsReplyIsHeldUp) {
  for (const bool waits : {false, true}) {
    ServerOptions options;
    options.waitsForHalfClosedClients = waits;
    GeoServer server(options);
    RawClient prompt(server.port());
    prompt.send(postRequest(postBody(2, 5)));
    prompt.endOutput();
    EXPECT_EQ(bodyOf(prompt.readToEnd()), goodReply(2, 5));

    server.enqueue(faults::stalledBody(5, "gate"));
    RawClient held(server.port());
    held.send(postRequest(postBody(2, 5)));
    ASSERT_TRUE(server.waitUntilStalled(1, kPatience));
    held.endOutput();
    if (waits) server.release("gate");
    EXPECT_EQ(bodyOf(held.readToEnd()).size(), waits ? goodReply(2, 5).size() : 5);
    ASSERT_TRUE(server.waitForEndedCount(2, kPatience));
    EXPECT_EQ(server.exchanges().back().ending, waits ? Ending::answered : Ending::clientGone);
  }
}

TEST(Http1Test, LargeBodiesGoThroughBothWaysAlsoToASlowReader) {
  ServerOptions options;
  options.sendBufferBytes = 16 * 1024;
  GeoServer server(options);
  std::string body(1024 * 1024, '\0');
  for (size_t i = 0; i < body.size(); ++i) body[i] = static_cast<char>(i * 7 + i / 1000);
  RawClient client(server.port());
  client.send(postRequest(body, "/echo"));
  client.readUntil("\r\n\r\n");
  for (size_t at = 0; at < body.size(); at += 65536) {
    ASSERT_EQ(client.readExactly(65536), body.substr(at, 65536));
  }
}

TEST(Http1Test, IdleConnectionsCloseAndAcceptScriptsRule) {
  ServerOptions options;
  options.idleTimeout = std::chrono::milliseconds(30);
  GeoServer server(options);
  RawClient idle(server.port());
  idle.send(getRequest("/status/200"));
  EXPECT_TRUE(idle.readReply().starts_with("HTTP/1.1 200"));
  EXPECT_EQ(idle.readToEnd(), "");
  EXPECT_TRUE(idle.endedOrderly());

  server.setAcceptScript(
      [](uint64_t connection) { return connection % 2 ? Acceptance::close : Acceptance::silent; });
  RawClient silent(server.port());
  silent.send(getRequest("/status/200"));
  RawClient closed(server.port());
  EXPECT_EQ(closed.readToEnd(), "");
  EXPECT_EQ(server.counters().exchangesStarted, 1u);
  idle.reset();
  closed.reset();
  EXPECT_TRUE(server.waitForOpenConnections(1, kPatience));
}

}  // namespace
}  // namespace nvxcore::geoserver
