#include "tools/geoserver/messages/TextFormat.h"

#include <gtest/gtest.h>

#include "support/PostBuilder.h"

namespace nvxcore::geoserver {
namespace {

TEST(TextFormatTest, MessagesPrintByNameAndByNumber) {
  struct Case {
    const MessageSchema& schema;
    const char* bytes;
    const char* text;
  };
  const Case cases[] = {
      {schemas::clientPropertiesRequest, "", ""},
      {schemas::clientPropertiesRequest,
       "0A 03 61 22 C3  20 01  10 00  B8 01 05 B8 01 07  FA 01 02 0A 00  18 FF FF FF FF FF FF FF FF FF 01",
       "cohort: \"a\\\"\xC3\"\ngzip_enabled: true\nhas_location_fix: false\nexperiment_id: 5\nexperiment_id: "
       "7\n"
       "oatcake_token {\n  nid: \"\"\n}\nmobile_country_code: -1\n"},
      {schemas::resourceResponse, "0B 12 01 75 18 C8 01 21 2A 00 00 00 00 00 00 80 32 02 C3 A9 3A 00 0C",
       "Response {\n  url: \"u\"\n  response_code: 200\n  hash: 0x800000000000002a\n  body: \"\\303\\251\"\n"
       "  content_type: \"\"\n}\n"},
      {schemas::locationDescriptor, "10 0C 3D CD CC CC 3D 2A 05 0D FE FF FF FF",
       "producer: 12\nradius: 0.1\nlatlng {\n  latitude_e7: -2\n}\n"},
      // Unknown ones of each wire type, and a known number that came with another.
      {schemas::unknown, "08 07 15 01 00 00 00 19 01 00 00 00 00 00 00 00 22 02 0A FF 2B 08 01 2C",
       "1: 7\n2: 0x00000001\n3: 0x0000000000000001\n4: \"\\n\\377\"\n5 group {\n  1: 1\n}\n"},
      {schemas::resourceRequest, "20 05", "4: 5\n"},
      {schemas::clientPropertiesRequest, "FA 01 02 0A 05",
       "oatcake_token: \"\\n\\005\"  # message ends within a field\n"},
  };
  for (const Case& c : cases) {
    const WireMessage message = WireMessage::parse(fromHex(c.bytes), c.schema);
    EXPECT_EQ(textFormat(message), c.text);
    EXPECT_EQ(parseTextFormat(c.text, c.schema).serialised(), message.serialised()) << c.text;
  }
  const WireMessage body = WireMessage(schemas::unknown).add({1, WireType::bytes, 0, std::string(100, 'b')});
  EXPECT_EQ(textFormat(body, 4, 3), "    1: \"bbb\"  # the first of 100 bytes\n");
}

TEST(TextFormatTest, HandWrittenTextReads) {
  const WireMessage group = parseTextFormat(
      "# a comment\n type:16;hash : 0xFFFFFFFFFFFFFFFF, logging:{experiment_id:1 # first\n "
      "experiment_id:-2}\n"
      "enable_features { 1: true 2 { 3: 'a' \"\\x41\\101\" } } server_setting{}",
      schemas::parameterGroup);
  EXPECT_EQ(group.number("type"), 16u);
  EXPECT_EQ(group.number("hash"), UINT64_MAX);
  EXPECT_EQ(group.message("logging").numbers("experiment_id"), (std::vector<uint64_t>{1, UINT64_MAX - 1}));
  EXPECT_EQ(group.message("enable_features").serialised(), fromHex("08 01 12 05 1A 03 61 41 41"));
  EXPECT_TRUE(group.has("server_setting"));
}

TEST(TextFormatTest, ErrorsNameTheLine) {
  const std::pair<const char*, const char*> cases[] = {
      {"type: 1\nhsah: 2", "line 2: ParameterGroup has no field hsah"},
      {"type 1", "line 1: a colon is missing"},
      {"type: x", "line 1: x is no value for type"},
      {"type: 3000000000", "line 1: 3000000000 is no value for type"},
      {"type: 1 2", "line 1: a colon is missing"},
      {"type: \"1\"", "line 1: type is no string"},
      {"type {}", "line 1: type is no message"},
      {"logging: 5", "line 1: 5 is no value for logging"},
      {"logging {\n\n", "line 3: a closing brace is missing"},
      {"type: 1 }", "line 1: a brace closes that was not opened"},
      {"server_setting { zlc_server_url: \"a\n\" }", "line 1: a string does not end"},
      {"9: \"\\q\"", "line 1: no such escape in a string"},
      {"9: \"\\400\"", "line 1: no such escape in a string"},
      {"0: 1", "line 1: ParameterGroup has no field 0"},
      {"536870912: 1", "line 1: ParameterGroup has no field 536870912"},
      {": 1", "line 1: a field's name is missing"},
      {"type: ", "line 1:  is no value for type"},
  };
  for (const auto& [text, error] : cases) {
    try {
      parseTextFormat(text, schemas::parameterGroup);
      ADD_FAILURE() << text;
    } catch (const TextFormatError& thrown) {
      EXPECT_STREQ(thrown.what(), error);
    }
  }
  std::string deep;
  for (int i = 0; i < 100; ++i) deep += "9 {";
  EXPECT_THROW(parseTextFormat(deep, schemas::parameterGroup), TextFormatError);
}

}  // namespace
}  // namespace nvxcore::geoserver
