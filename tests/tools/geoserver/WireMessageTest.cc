#include "tools/geoserver/messages/WireMessage.h"

#include <gtest/gtest.h>

#include "support/PostBuilder.h"
#include "tools/geoserver/messages/WebSafe.h"

namespace nvxcore::geoserver {
namespace {

// One field of each wire type, worked out by hand: hash (fixed64), url, a group with fields in it, a negative
// varint, a float.
TEST(WireMessageTest, GoldenBytesReadAndWriteTheSame) {
  const std::string resource = fromHex("11 08 07 06 05 04 03 02 01  22 02 2F 61  4A 01 72");
  const WireMessage request = WireMessage::parse(resource, schemas::resourceRequest);
  EXPECT_EQ(request.number("hash"), 0x0102030405060708u);
  EXPECT_EQ(request.text("url"), "/a");
  EXPECT_EQ(request.text("referer"), "r");
  EXPECT_FALSE(request.has("client_capabilities"));
  EXPECT_EQ(request.serialised(), resource);
  EXPECT_EQ(WireMessage(schemas::resourceRequest)
                .add("hash", 0x0102030405060708)
                .add("url", "/a")
                .add("referer", "r")
                .serialised(),
            resource);

  const std::string response = fromHex("0B 12 01 75 18 C8 01 21 01 00 00 00 00 00 00 00 3A 00 0C");
  const WireMessage answer = WireMessage::parse(response, schemas::resourceResponse);
  ASSERT_EQ(answer.messages("Response").size(), 1u);
  EXPECT_EQ(answer.messages("Response")[0].number("response_code"), 200u);
  EXPECT_EQ(answer.messages("Response")[0].number("hash"), 1u);
  EXPECT_EQ(answer.fault(), "");
  EXPECT_EQ(answer.serialised(), response);

  const std::string place =
      fromHex("3D 00 00 20 C1  40 FF FF FF FF FF FF FF FF FF 01  2A 05 0D 01 00 00 00  2A 05 15 FE FF FF FF");
  const WireMessage descriptor = WireMessage::parse(place, schemas::locationDescriptor);
  EXPECT_EQ(descriptor.real("radius"), -10.0f);
  EXPECT_EQ(static_cast<int64_t>(descriptor.number("confidence")), -1);
  // Two halves of one message are one.
  EXPECT_EQ(descriptor.message("latlng").number("latitude_e7"), 1u);
  EXPECT_EQ(descriptor.message("latlng").number("longitude_e7"), 0xFFFFFFFEu);
  EXPECT_EQ(descriptor.serialised(), place);

  const WireMessage many = WireMessage::parse(fromHex("B8 01 05 B8 01 07"), schemas::clientPropertiesRequest);
  EXPECT_EQ(many.numbers("experiment_id"), (std::vector<uint64_t>{5, 7}));
  EXPECT_THROW(many.number("no_such_field"), std::logic_error);
}

TEST(WireMessageTest, BrokenBytesThrow) {
  const char* broken[] = {
      "08",                                // no value
      "08 80",                             // a varint cut short
      "08 FF FF FF FF FF FF FF FF FF 02",  // one of 65 bits
      "00 01",                             // number 0
      "80 80 80 80 10 01",                 // number 2^29
      "0E 01",
      "0F 01",  // wire types that are none
      "09 01 02 03 04 05 06 07",
      "0D 01 02 03",                       // fixed ones cut short
      "0A 02 61",                          // length beyond the end
      "0A FF FF FF FF FF FF FF FF FF 01",  // the greatest length
      "0B 08 01",                          // a group without end
      "0B 08 01 14",                       // one that ends as another
      "0C",                                // an end without beginning
  };
  for (const char* bytes : broken) EXPECT_THROW(WireMessage::parse(fromHex(bytes)), WireError) << bytes;
  EXPECT_NO_THROW(WireMessage::parse(std::string(64, '\x0B') + std::string(64, '\x0C')));
  EXPECT_THROW(WireMessage::parse(std::string(100000, '\x0B')), WireError);
  EXPECT_NO_THROW(WireMessage::parse(std::string(2 * WireMessage::kMaxFields, '\x08')));
  EXPECT_THROW(WireMessage::parse(std::string(2 * WireMessage::kMaxFields + 2, '\x08')), WireError);
}

TEST(WireMessageTest, FaultsAreFoundBeneathToo) {
  struct Case {
    const MessageSchema& schema;
    const char* bytes;
    const char* fault;
  };
  const Case cases[] = {
      {schemas::resourceRequest, "22 01 61", ""},
      {schemas::resourceRequest, "4A 01 61", "url is missing"},
      {schemas::resourceRequest, "22 01 FF", "url is no UTF-8"},
      {schemas::resourceRequest, "22 03 ED A0 80", "url is no UTF-8"},
      {schemas::resourceRequest, "22 02 C0 80", "url is no UTF-8"},
      {schemas::resourceRequest, "22 01 61 42 01 08", "client_capabilities: message ends within a field"},
      {schemas::resourceResponse, "0B 18 01 0C", "Response: url is missing"},
      {schemas::clientPropertiesRequest, "9A 03 00 5D 01 02 03 04", ""},  // unknown ones are no fault
  };
  for (const Case& c : cases)
    EXPECT_EQ(WireMessage::parse(fromHex(c.bytes), c.schema).fault(), c.fault) << c.bytes;
}

TEST(WireMessageTest, WebSafeBase64IsStrict) {
  const std::pair<const char*, const char*> good[] = {
      {"", ""}, {"Zg", "66"}, {"Zm8", "66 6F"}, {"Zm9v", "66 6F 6F"}, {"-_8", "FB FF"}, {"AAAA", "00 00 00"}};
  for (const auto& [text, bytes] : good) EXPECT_EQ(webSafeDecoded(text), fromHex(bytes)) << text;
  for (const char* bad : {"Z", "Zm9vY", "Zg==", "Zm8=", "+/8", "Zh", "Zm9", "Z g", "Zm9v\n"})
    EXPECT_FALSE(webSafeDecoded(bad)) << bad;
}

}  // namespace
}  // namespace nvxcore::geoserver
