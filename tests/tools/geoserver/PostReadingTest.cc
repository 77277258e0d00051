#include "tools/geoserver/internal/PostReading.h"

#include <gtest/gtest.h>

#include "support/PostBuilder.h"
#include "tools/geoserver/ConversationLog.h"
#include "tools/geoserver/StandardTypes.h"
#include "tools/geoserver/internal/Random.h"

namespace nvxcore::geoserver {
namespace {

PostBuilder richPost() {
  WireMessage properties = clientProperties(true);
  properties.add("cohort", "blue").add("oatcake_token_enabled", 1).add("experiment_id", 1u << 30);
  properties.add("oatcake_token", fromHex("0A 01 61 10 05"));
  WireMessage resource(schemas::resourceRequest);
  resource.add("hash", 5)
      .add("url", "http://host/a%20b?c")
      .add("client_capabilities", fromHex("08 01 80 01 02"));
  WireMessage parameters(schemas::clientParametersRequest);
  parameters.add("parameter_group", fromHex("08 10 11 01 02 03 04 05 06 07 08"));
  parameters.add({9, WireType::group, 0, fromHex("0B 08 01 0C")});
  WireMessage events(schemas::userEvent3Request);
  events.add("event", fromHex("0A 09 10 0C 3D 00 00 80 3F 22 00 10 07"));
  PostBuilder post(7);
  post.request(15).message(62, properties).message(39, resource).message(75, parameters).message(145, events);
  return post.message(kEchoType, "abc");
}

// Bytes changed, cut out and doubled: each such POST is read, answered and shown, whatever it holds.
TEST(PostReadingTest, MutatedPostsAreReadAndAnswered) {
  const auto office = std::make_shared<IdentityOffice>(IdentityOptions{});
  RequestTypes types;
  registerStandardTypes(types, office, std::make_shared<const ContentFolder>(""));
  const std::string good = richPost().bytes();
  const std::string field = "w EAw9AACAPw w IgLDqQ";
  uint64_t random = 0;
  const auto below = [&random](uint64_t bound) { return splitMix64(random += kSplitMix64Step) % bound; };
  const auto mutated = [&](std::string bytes) {
    for (uint64_t i = below(4); i > 0 && !bytes.empty(); --i) {
      const size_t at = below(bytes.size());
      switch (below(4)) {
        case 0:
          bytes[at] = static_cast<char>(below(256));
          break;
        case 1:
          bytes[at] = static_cast<char>(bytes[at] ^ (1 << below(8)));
          break;
        case 2:
          bytes.erase(at, 1 + below(8));
          break;
        default:
          bytes.insert(at, bytes.substr(at, 1 + below(8)));
      }
    }
    return bytes;
  };
  size_t whole = 0, faulty = 0;
  for (int round = 0; round < 4000; ++round) {
    Exchange exchange;
    exchange.body = std::make_shared<const std::string>(mutated(good));
    exchange.headers.add("X-Geo", mutated(field));
    exchange.post = decodePost(*exchange.body, types);
    PostReading reading = readPost(exchange.post, *exchange.body, exchange.headers, types, *office);
    exchange.identity = std::move(reading.identity);
    exchange.clientFaults = std::move(reading.faults);
    const ProtocolReply reply = answerPost(exchange, types, {0, Compression::Format::gzip, true});
    ASSERT_EQ(reply.answerEnds.size(), exchange.post.requests.size());
    exchange.reply = std::make_shared<const std::string>(reply.bytes);
    exchange.answerEnds = reply.answerEnds;
    ASSERT_FALSE(conversation(exchange, types, LogLevel::verbose).empty());
    whole += exchange.post.error.empty();
    faulty += !exchange.clientFaults.empty();
  }
  // Both roads were taken often.
  EXPECT_GT(whole, 1000u);
  EXPECT_GT(faulty, 1000u);
}

}  // namespace
}  // namespace nvxcore::geoserver
