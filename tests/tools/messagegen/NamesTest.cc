// Names as code has them, names back in the text format, and places in storage.

#include <gtest/gtest.h>

#include <cctype>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "tests/tools/messagegen/Compilation.h"
#include "tools/messagegen/Names.h"
#include "tools/messagegen/ReservedWords.h"
#include "tools/messagegen/Tables.h"
#include "tools/messagegen/TextFormatInfo.h"

namespace nvxcore::messagegen {
namespace {

using namespace std::string_literals;
using testing::Compilation;

std::string accessorOf(const std::string& declaration) {
  const Compilation compilation("enum E { A = 0; }\nmessage M {\n" + declaration + "\n}");
  EXPECT_EQ(compilation.errors(), "") << declaration;
  return compilation.message(0).fields.empty() ? "" : compilation.message(0).fields[0]->accessor;
}

TEST(NamesTest, Accessors) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"optional int32 value = 1;", "value"},
      {"optional int32 opengl_es_1x_supported = 1;", "openglEs1XSupported"},
      {"optional string remote_host6 = 1;", "remoteHost6"},
      {"optional string logged_ue3 = 1;", "loggedUe3"},
      {"optional int32 ue3interval = 1;", "ue3Interval"},
      {"optional fixed32 lat_e7 = 1;", "latE7"},
      {"repeated int32 experiment_id = 1;", "experimentIdArray"},
      {"repeated group Response = 1 {}", "responseArray"},
      {"optional group MyThing = 1 {}", "myThing"},
      {"optional int32 fooBar = 1;", "fooBar"},
      {"optional int32 FOO_BAR = 1;", "fooBar"},
      {"optional int32 _x_ = 1;", "x"},
      {"optional int32 _1 = 1;", "_1"},
      // What every message, C++ or the platform has taken.
      {"optional fixed64 hash = 1;", "hash_p"},
      {"optional int32 id = 1;", "id_p"},
      {"optional bytes data = 1;", "data_p"},
      {"optional bool new = 1;", "new_p"},
      {"optional string description = 1;", "description_p"},
      {"optional bool class = 1;", "class_p"},
      {"optional int32 errno = 1;", "errno_p"},
      {"optional int32 extension = 1;", "extension_p"},
      {"optional bytes unknown_fields = 1;", "unknownFields_p"},
      // A name that only collides without its ending is free.
      {"repeated int32 hash = 1;", "hashArray"},
      // Words of the schema's own language are names too.
      {"optional int32 optional = 1;", "optional"},
      {"optional int32 message = 1;", "message_p"},
      {"optional int32 to = 1;", "to"},
      {"optional E option = 1;", "option"},
      {"optional int32 a = 1 [(nvxcore.accessor) = \"otherArray\"];", "otherArray"},
  };
  for (const auto& [declaration, accessor] : cases)
    EXPECT_EQ(accessorOf(declaration), accessor) << declaration;
}

TEST(NamesTest, NoFieldOfTheCatalogueIsRenamed) {
  // Names that logic of the library uses as they are: no later word of the lists may take them.
  for (const char* name :
       {"cohort",  "url",    "referer", "body",        "type",      "navigation", "search",   "api",
        "logging", "promo",  "suggest", "country",     "model",     "count",      "base",     "lo",
        "hi",      "loc",    "radius",  "confidence",  "language",  "mid",        "producer", "timestamp",
        "tag",     "store",  "event",   "visible",     "style",     "ei",         "ved",      "oq",
        "ve",      "ad",     "status",  "reference",   "action",    "params",     "debug",    "response",
        "nid",     "fprint", "latlng",  "impressions", "appearance"}) {
    EXPECT_FALSE(accessorCollides(name)) << name;
  }
}

TEST(NamesTest, OperationsOfEveryMessageAreKnown) {
  // Each function that the base classes declare, but for what accessors forward to.
  size_t count = 0;
  for (const char* header : {"NVXx_PBGeneratedMessage.h", "NVXx_PBRootObject.h"}) {
    std::ifstream in(NVXCORE_SOURCE_DIR "/nvxcore/message/"s + header);
    for (std::string line; std::getline(in, line);) {
      // Two spaces, a type, and the word before the first bracket.
      const size_t end = std::min(line.find('('), line.size());
      const size_t start =
          line.find_last_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ_", end - 1) + 1;
      const bool declares = line.size() > 2 && end < line.size() && line[1] == ' ' && std::isalpha(line[2]) &&
                            start > 2 && start < end && std::islower(line[start]);
      if (!declares || line.compare(2, 6, "return") == 0) continue;
      const std::string name = line.substr(start, end - start);
      if (name.substr(0, 3) == "pb_") continue;
      ++count;
      EXPECT_TRUE(isMessageOperation(name)) << name;
    }
  }
  EXPECT_GT(count, 40u);
}

TEST(NamesTest, ReservedWordsArePublished) {
  std::ifstream in(NVXCORE_SOURCE_DIR "/docs/messagegen.md");
  const std::string published((std::istreambuf_iterator<char>(in)), {});
  const auto expectPublished = [&](std::string_view word) {
    EXPECT_NE(published.find("`" + std::string(word) + "`"), std::string::npos) << word;
  };
  for (std::string_view word : kReservedWords) expectPublished(word);
  for (std::string_view word : kMessageOperations) expectPublished(word);
  for (std::string_view word : kRootOperations) expectPublished(word);
}

TEST(NamesTest, SchemasWithoutNamesOfValuesCanBeSaid) {
  const Compilation compilation(std::map<std::string, std::string>{
      {"a.proto",
       "import 'log.proto'; option (nvxcore.class_prefix) = 'NVXx_ZLC'; option (nvxcore.enum_prefix) = "
       "'ZLC';\n"
       "message ResourceResponseProto { repeated group Response = 1 { required fixed64 hash = 4; } }\n"
       "message UserEvent3 { extensions 100 to 199; optional LogEvent event = 1;\n"
       "  enum Appearance { option (nvxcore.valid) = '1 to 6, 9 to 31'; } repeated Appearance appearance = "
       "2; }\n"
       "message VisualElementLiteProto { option (nvxcore.class_name) = 'NVXx_LOGVisualElementLiteProto';\n"
       "  extensions 67, 259, 270, 271; repeated string mid = 260; }"},
      {"log.proto",
       "option (nvxcore.class_prefix) = 'NVXx_'; option (nvxcore.enum_prefix) = '';\n"
       "message LogEvent { optional sint64 timezone_offset_seconds = 15 [default = 180000]; }\n"
       "message LogRequest { enum LogSource { option (nvxcore.valid) = '-1 to 400, 410'; NVX_SOURCE = 77; }\n"
       "  optional LogSource log_source = 2 [default = -1]; extensions 1000 to max; }"}});
  ASSERT_EQ(compilation.errors(), "");
  const Message& response = *compilation.message(0).messages[0];
  EXPECT_EQ(response.className, "NVXx_ZLCResourceResponseProto_Response");
  EXPECT_EQ(response.fields[0]->accessor, "hash_p");
  EXPECT_EQ(compilation.message(0).fields[0]->accessor, "responseArray");
  const Enum& appearance = *compilation.message(1).enums[0];
  EXPECT_EQ(appearance.emittedName, "ZLCUserEvent3_Appearance");
  EXPECT_TRUE(listsValidNumbers(appearance));
  EXPECT_EQ(compilation.message(2).className, "NVXx_LOGVisualElementLiteProto");
  EXPECT_EQ(compilation.message(2).extensionRanges.size(), 4u);
  const Message& request = *compilation.main->imports[0].file->messages[1];
  EXPECT_EQ(request.enums[0]->emittedName, "LogRequest_LogSource");
  EXPECT_EQ(request.fields[0]->defaultBits, UINT64_MAX);
}

TEST(NamesTest, ClassesAndEnums) {
  const Compilation compilation(std::map<std::string, std::string>{
      {"a.proto",
       "import 'x/client_parameters.proto';\n"
       "option (nvxcore.class_prefix) = 'NVXx_ZLC'; option (nvxcore.enum_prefix) = 'ZLC';\n"
       "option (nvxcore.root) = 'NVXx_Root';\n"
       "message GroupProto { enum Type { A = 0; } message Inner { enum T { B = 0; } } }\n"
       "message Other { option (nvxcore.class_name) = 'NVXx_Plain'; enum T { C = 0; } message In {} }\n"
       "message Mine { option (nvxcore.class_name) = 'NVXx_ZLCMy'; enum T { D = 0; } }\n"
       "enum Action { E = 0; }"},
      {"x/client_parameters.proto",
       "option (nvxcore.class_prefix) = 'P_'; enum Color { RED = 0; }\n"
       "message class {} "}});
  ASSERT_EQ(compilation.errors(), "");
  const File& file = *compilation.main;
  const Message& group = compilation.message(0);
  EXPECT_EQ(file.rootName, "NVXx_Root");
  EXPECT_EQ(group.className, "NVXx_ZLCGroupProto");
  EXPECT_EQ(group.enums[0]->emittedName, "ZLCGroupProto_Type");
  EXPECT_EQ(group.messages[0]->className, "NVXx_ZLCGroupProto_Inner");
  EXPECT_EQ(group.messages[0]->enums[0]->emittedName, "ZLCGroupProto_Inner_T");
  EXPECT_EQ(compilation.message(1).className, "NVXx_Plain");
  EXPECT_EQ(compilation.message(1).messages[0]->className, "NVXx_Plain_In");
  EXPECT_EQ(compilation.message(1).enums[0]->emittedName, "NVXx_Plain_T");
  EXPECT_EQ(compilation.message(2).enums[0]->emittedName, "ZLCMy_T");
  EXPECT_EQ(file.enums[0]->emittedName, "ZLCAction");
  // Where nothing is told: the file's name, and one prefix for all.
  const File& other = *file.imports[0].file;
  EXPECT_EQ(other.rootName, "P_ClientParametersRoot");
  EXPECT_EQ(other.enums[0]->emittedName, "P_Color");
}

/// Reads text-format information step by step, as the runtime is told to.
std::optional<std::string> decoded(const std::string& info, uint32_t key, std::string_view input) {
  size_t at = 0;
  const auto varint = [&] {
    uint32_t value = 0;
    for (int shift = 0;; shift += 7) {
      const auto byte = static_cast<uint8_t>(info.at(at++));
      value |= static_cast<uint32_t>(byte & 0x7F) << shift;
      if (byte < 0x80) return value;
    }
  };
  for (uint32_t left = varint(); left > 0; --left) {
    if (varint() != key) {
      at = info.find('\0', at) + 1;
      continue;
    }
    if (info.at(at) == 0) return info.c_str() + at + 1;
    std::string result;
    for (; info.at(at) != 0; ++at) {
      const auto step = static_cast<uint8_t>(info[at]);
      if (step & 0x80) result += '_';
      for (int i = 0; i < (step & 0x1F); ++i) {
        char c = input.at(0);
        input.remove_prefix(1);
        const int how = step & 0x60;
        if (how == 0x60 || (how == 0x40 && i == 0)) c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 32 : c);
        if (how == 0x20 && i == 0) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
        result += c;
      }
    }
    return result;
  }
  return std::nullopt;
}

TEST(NamesTest, TextFormatInformation) {
  // The example that is told: "opengl", "_e" "s", "_1", "x", "_s" "upported".
  EXPECT_EQ(textFormatSteps("openglEs1XSupported", "opengl_es_1x_supported"), "\x06\xA2\x81\x21\xA9");
  EXPECT_EQ(textFormatSteps("myGroup", "MyGroup"), "\x47");
  EXPECT_EQ(textFormatSteps("fooBar", "FOO_BAR"), "\x63\xE3");
  EXPECT_EQ(textFormatSteps("name", "other"), std::nullopt);

  const Compilation compilation(
      "message M {\n"
      "optional int32 a1x = 1; optional int32 plain_name = 2; optional int32 fooBar = 3; optional int32 "
      "a__b_ = 4;\n"
      "optional int32 hash_1 = 300; repeated group HTMLBody = 6 {} optional group Plain = 7 {}\n"
      "repeated int32 " +
      std::string(40, 'q') +
      "9a_b = 8;\n"
      // As they stand: the letters b, a and z are 98, 97 and 122.
      "optional int32 b = 97 [(nvxcore.accessor) = 'x97'];\n"
      "optional int32 cc = 98 [(nvxcore.accessor) = 'x98'];\n"
      "optional int32 zz = 122 [(nvxcore.accessor) = 'x122'];\n"
      "optional int32 aa = 9 [(nvxcore.accessor) = 'x9'];\n}");
  ASSERT_EQ(compilation.errors(), "");
  const Message& message = compilation.message(0);
  for (size_t i = 0; i < message.sortedFields.size(); ++i) {
    const Field& field = *message.sortedFields[i];
    const std::string name = textFormatName(field);
    const bool isFlagged = message.textFormatFlags[i];
    EXPECT_EQ(isFlagged, name != "plain_name" && name != "Plain") << name;
    const auto key = static_cast<uint32_t>(field.number);
    if (isFlagged) {
      EXPECT_EQ(decoded(message.textFormatInfo, key, field.accessor), name);
    } else {
      EXPECT_EQ(rebuiltTextFormatName(field.accessor, field), name);
    }
  }
  // Each hides the other: no order serves.
  EXPECT_EQ(Compilation("message M {\noptional int32 b_ = 97 [(nvxcore.accessor) = 'x'];\n"
                        "optional int32 a_ = 98 [(nvxcore.accessor) = 'y'];\n}")
                .errors(),
            "a.proto:1:9: expected other (nvxcore.accessor)s: which text-format name belongs to which field "
            "cannot be "
            "told\n");
}

TEST(NamesTest, HasIndexesAndPlaces) {
  const Compilation compilation(
      "message M {\n"
      "option (nvxcore.retired) = { number: 2 }; option (nvxcore.retired) = { number: 90, has_index: 33 };\n"
      "optional int64 e = 5; optional bool a = 1; optional string c = 3; optional bool d = 4;\n"
      "optional float f = 6 [(nvxcore.has_index) = 1]; repeated bool g = 7;\n}\n"
      "message Empty {}");
  ASSERT_EQ(compilation.errors(), "");
  const Message& message = compilation.message(0);
  std::string places;
  for (const Field* field : message.sortedFields) {
    places +=
        field->name.text + " " + std::to_string(field->hasIndex) + " " + std::to_string(field->offset) + ", ";
  }
  // The retired 2 takes the second free index; two words of has-bits; bools, then the float, then the wide
  // ones.
  EXPECT_EQ(places, "a 0 8, c 3 16, d 4 9, e 5 24, f 1 12, g 6 32, ");
  EXPECT_EQ(message.storageSize, 40u);
  EXPECT_EQ(compilation.message(1).storageSize, 0u);
}

TEST(NamesTest, CommentsGoWithTheirDeclarations) {
  const Compilation compilation(
      "// A licence.\n\n// The file.\nsyntax = \"proto2\";  // told apart\n\n// Not here.\n\n/// Of M.\n// "
      "More.\n"
      "message M {  // and behind\n  /* Block\n   * comment. */\n  optional int32 a = 1;  // Of a.\n  // Of "
      "b.\n"
      "  optional int32 b = 2; /* c */ optional int32 c = 3;\n  // Of nothing.\n}\n\r\n// Of E.\r\nenum E { "
      "A = 0; // Of A.\r\n }");
  ASSERT_EQ(compilation.errors(), "");
  const Message& message = compilation.message(0);
  EXPECT_EQ(compilation.main->comment, Comment{"The file."});
  EXPECT_EQ(message.comment, (Comment{"Of M.", "More.", "and behind"}));
  EXPECT_EQ(message.fields[0]->comment, (Comment{"Block", "comment.", "Of a."}));
  EXPECT_EQ(message.fields[1]->comment, Comment{"Of b."});
  EXPECT_EQ(message.fields[2]->comment, Comment{"c"});
  EXPECT_EQ(compilation.main->enums[0]->comment, Comment{"Of E."});
  EXPECT_EQ(compilation.main->enums[0]->values[0].comment, Comment{"Of A."});
}

TEST(NamesTest, DefaultsAndOptions) {
  const Compilation compilation(std::map<std::string, std::string>{
      {"a.proto",
       "\xEF\xBB\xBFimport 'nvxcore/message/schema/descriptor.proto';\r\n"
       "message M {\n"
       "optional int32 a = 1 [default = -0x80000000]; optional uint64 b = 2 [default = 0xFFFFFFFFFFFFFFFF];\n"
       "optional float c = 3 [default = -inf]; optional double d = 4 [default = 1]; optional float e = 5 "
       "[default = .5];\n"
       "optional string f = 6 [default = \"a\\0\" 'b\\x41\\101\\u00e9\\u20ac\\U0001F600\\n']; optional bytes "
       "g = 7 [default = "
       "\"\\377\"];\n"
       "optional V h = 8 [default = -3]; optional N i = 9 [default = Y]; optional int32 j = 10 [default = "
       "017];\n}\n"
       "enum V { option (nvxcore.valid) = '-5 to -1, 4'; } enum N { X = 3; Y = -7; }\n"
       "message O { optional sint32 s = 1; repeated string t = 2; optional O o = 3; optional group G = 4 { "
       "optional bool "
       "b = 1; } extensions 10; }\n"
       "extend O { optional fixed32 x = 10; }\n"
       "extend nvxcore.options.FieldOptions { optional O o = 1000; repeated fixed64 l = 1001 [packed = "
       "true]; optional N "
       "n = 1002; }\n"
       "message U {\n"
       "repeated int32 a = 1 [packed = true, deprecated = true, ctype = CORD];\n"
       "optional int32 b = 2 [(o) = { s: -1, t: ['a', 'b'] o < t: 'c' > G { b: true } [x]: 2 }];\n"
       "optional int32 c = 3 [(o).o.(x) = 5, (.l) = 1, (n) = Y];\n}\n"},
      {"nvxcore/message/schema/descriptor.proto",
       "package nvxcore.options; message FieldOptions { extensions 1000 to max; }"}});
  ASSERT_EQ(compilation.errors(), "");
  const auto& fields = compilation.message(0).fields;
  const std::vector<uint64_t> bits = {0xFFFFFFFF80000000,
                                      UINT64_MAX,
                                      0xFF800000,
                                      0x3FF0000000000000,
                                      0x3F000000,
                                      0,
                                      0,
                                      static_cast<uint64_t>(-3),
                                      static_cast<uint64_t>(-7),
                                      15};
  for (size_t i = 0; i < bits.size(); ++i) EXPECT_EQ(fields[i]->defaultBits, bits[i]) << fields[i]->name.text;
  EXPECT_EQ(fields[5]->defaultBytes, "a\0bAA\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\n"s);
  EXPECT_EQ(fields[6]->defaultBytes, "\xFF");

  const auto& users = compilation.message(2).fields;
  EXPECT_EQ(users[0]->serialisedOptions, "\x10\x01\x18\x01\x08\x01");
  // Field 1000: the tag is C2 3E; within: s 08 01, t 12 01 'a', 12 01 'b', o 1A 03 (12 01 'c'), the group 23
  // 08 01 24, and the extension 55 02 00 00 00.
  EXPECT_EQ(users[1]->serialisedOptions,
            "\xC2\x3E\x16\x08\x01\x12\x01"s + "a\x12\x01" + "b\x1A\x03\x12\x01" + "c#\x08\x01$U\x02\0\0\0"s);
  // o.o.x; one element of the packed 1001; and 1002, whose -7 takes five bytes, as the runtime has it.
  EXPECT_EQ(users[2]->serialisedOptions, "\xC2\x3E\x07\x1A\x05U\x05\0\0\0"s +
                                             "\xCA\x3E\x08\x01\0\0\0\0\0\0\0"s +
                                             "\xD0\x3E\xF9\xFF\xFF\xFF\x0F"s);
}

}  // namespace
}  // namespace nvxcore::messagegen
