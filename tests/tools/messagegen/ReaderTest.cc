// What the reader takes, and what it takes it for.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/tools/messagegen/Compilation.h"
#include "tools/messagegen/CodeWriter.h"

namespace nvxcore::messagegen {
namespace {

using testing::Compilation;

/// "optional int32 a 1", one for each field.
std::vector<std::string> described(const std::vector<std::unique_ptr<Field>>& fields) {
  static const char* const kLabels[] = {"optional", "required", "repeated"};
  static const char* const kTypes[] = {"bool",   "fixed32", "sfixed32", "float",   "fixed64", "sfixed64",
                                       "double", "int32",   "int64",    "sint32",  "sint64",  "uint32",
                                       "uint64", "bytes",   "string",   "message", "group",   "enum"};
  std::vector<std::string> result;
  for (const auto& field : fields) {
    std::string text =
        kLabels[static_cast<int>(field->label)] + std::string(" ") + kTypes[static_cast<int>(field->type)];
    if (field->message) text += " " + field->message->className;
    if (field->enumeration) text += " " + field->enumeration->emittedName;
    text += " " + field->name.text + " " + std::to_string(field->number);
    if (field->extendee) text += " of " + field->extendee->className;
    if (field->isPacked) text += " packed";
    result.push_back(text);
  }
  return result;
}

using Lines = std::vector<std::string>;

TEST(ReaderTest, EachTypeAndLabel) {
  const Compilation compilation(
      "message M { required bool a = 1; optional fixed32 b = 2; repeated sfixed32 c = 3 [packed = true];\n"
      "optional float d = 4; optional fixed64 e = 5; optional sfixed64 f = 6; optional double g = 7;\n"
      "optional int32 h = 8; optional int64 i = 9; optional sint32 j = 10; optional sint64 k = 0x0B;\n"
      "optional uint32 l = 014; optional uint64 m = 13; optional bytes n = 14; optional string o = 15;\n"
      "optional M p = 16; repeated group Q = 17 { optional E in = 1; } repeated E r = 18 [packed = false]; "
      "}\n"
      "enum E { ZERO = 0; }");
  ASSERT_EQ(compilation.errors(), "");
  EXPECT_EQ(
      described(compilation.message(0).fields),
      (Lines{"required bool a 1", "optional fixed32 b 2", "repeated sfixed32 c 3 packed",
             "optional float d 4", "optional fixed64 e 5", "optional sfixed64 f 6", "optional double g 7",
             "optional int32 h 8", "optional int64 i 9", "optional sint32 j 10", "optional sint64 k 11",
             "optional uint32 l 12", "optional uint64 m 13", "optional bytes n 14", "optional string o 15",
             "optional message M p 16", "repeated group M_Q q 17", "repeated enum E r 18"}));
  EXPECT_EQ(described(compilation.message(0).messages[0]->fields), Lines{"optional enum E in 1"});
}

TEST(ReaderTest, WordsOfTheLanguageAsNames) {
  const Compilation compilation(
      "package package.message; import 'import.proto'; option optimize_for = SPEED; option (my.own) = 5;\n"
      "message message { optional message message = 1; optional option option = 2; repeated group Group = 3 "
      "{}\n"
      "  message map { optional int32 repeated = 1; } optional map map = 4; enum enum { reserved = 0; option "
      "= 1; "
      "to = 2; }\n"
      "  optional enum enum_ = 5 [default = to]; optional .package.message.message.map max = 6; extensions "
      "10 to max; }\n"
      "message option { reserved 5; reserved 'a'; } message inf {} message optional {}\n"
      "extend message { optional optional extend = 10; }");
  // A file by that name is not there; all else is in order.
  EXPECT_EQ(compilation.errors(), "a.proto:1:33: no file \"import.proto\" is in an import folder\n");
  const Compilation alone(
      "message message { optional message message = 1; enum enum { reserved = 0; option = 1; to = 2; }\n"
      "  message map { optional int32 repeated = 1; } optional map map_ = 4; optional enum e = 5 [default = "
      "to];\n"
      "  extensions 10 to max; }\n"
      "message optional {} extend message { optional optional extend = 10; }");
  ASSERT_EQ(alone.errors(), "");
  EXPECT_EQ(described(alone.message(0).fields),
            (Lines{"optional message message message 1", "optional message message_map map_ 4",
                   "optional enum message_enum e 5"}));
  EXPECT_EQ(described(alone.main->extensions), Lines{"optional message optional extend 10 of message"});
}

TEST(ReaderTest, NamesAreLookedForFromTheInside) {
  const Compilation compilation(std::map<std::string, std::string>{
      {"a.proto",
       "package one.two; import 'b.proto';\n"
       "message A { message B { optional A a = 1; optional B b = 2; optional two.A c = 3; optional "
       ".one.two.C d = 4;\n"
       "    optional C e = 5; optional three.T f = 6; optional one.three.T g = 7; optional A.B.D h = 8; "
       "message D {} }\n"
       "  optional B a = 1; message C {}\n"
       // A field of the name of a type does not stand in its way.
       "  optional C C2 = 2; optional int32 T = 3; optional three.T u = 4; }\n"
       "message C { optional A.C x = 1; }"},
      {"b.proto", "package one.three; option (nvxcore.class_prefix) = 'X'; message T {}"}});
  ASSERT_EQ(compilation.errors(), "");
  EXPECT_EQ(described(compilation.message(0).messages[0]->fields),
            (Lines{"optional message A a 1", "optional message A_B b 2", "optional message A c 3",
                   "optional message C d 4", "optional message A_C e 5", "optional message XT f 6",
                   "optional message XT g 7", "optional message A_B_D h 8"}));
  EXPECT_EQ(described(compilation.message(0).fields),
            (Lines{"optional message A_B a 1", "optional message A_C C2 2", "optional int32 T 3",
                   "optional message XT u 4"}));
  EXPECT_EQ(described(compilation.message(1).fields), Lines{"optional message A_C x 1"});
}

TEST(ReaderTest, MapsAreRepeatedEntries) {
  const Compilation compilation(
      "message M { map<string, .M> by_full_name = 3 [deprecated = true]; map<sint64, E> e = 4; }\n"
      "enum E { A = 0; }");
  ASSERT_EQ(compilation.errors(), "");
  EXPECT_EQ(described(compilation.message(0).fields),
            (Lines{"repeated message M_ByFullNameEntry by_full_name 3", "repeated message M_EEntry e 4"}));
  EXPECT_EQ(described(compilation.message(0).messages[0]->fields),
            (Lines{"optional string key 1", "optional message M value 2"}));
  EXPECT_EQ(described(compilation.message(0).messages[1]->fields),
            (Lines{"optional sint64 key 1", "optional enum E value 2"}));
}

TEST(ReaderTest, ExtensionsStandWhereTheyAreDeclared) {
  const Compilation compilation(
      "message M { extensions 5, 10 to 20, 1000 to max; extend M { repeated group InM = 5 { optional M m = "
      "1; } } }\n"
      "message S { option message_set_wire_format = true; extensions 4 to max; }\n"
      "extend .M { optional int32 low = 10; optional M high = 536870911; optional group Top = 20 {} }\n"
      "extend S { optional M far = 2147483646; }");
  ASSERT_EQ(compilation.errors(), "");
  EXPECT_EQ(described(compilation.message(0).extensions), Lines{"repeated group M_InM inm 5 of M"});
  EXPECT_EQ(described(compilation.main->extensions),
            (Lines{"optional int32 low 10 of M", "optional message M high 536870911 of M",
                   "optional group Top top 20 of M", "optional message M far 2147483646 of S"}));
  std::string ranges;
  for (size_t i : {0, 1}) {
    for (const Range& range : compilation.message(i).extensionRanges) {
      ranges += std::to_string(range.first) + "-" + std::to_string(range.last) + " ";
    }
  }
  EXPECT_EQ(ranges, "5-5 10-20 1000-536870911 4-2147483646 ");
}

TEST(ReaderTest, OptionsOfOthersAreReadOver) {
  EXPECT_EQ(
      Compilation(
          "option java_package = 'a' \"b\"; option (own).part.(other.one) = { a: 1, b < c: [x, 'y'], >; "
          "[d.e] { } "
          "f: -inf g: [] h: -1.5e-3 };\n"
          "message M { option (own) = true; option deprecated = true; optional int32 a = 1 [json_name = 'b', "
          "jstype = JS_STRING, lazy = true]; extensions 5 to 6 [declaration = { number: 5 }]; ;; }\n"
          "enum E { option (own) = -5; A = 0 [(own) = 1, deprecated = true]; reserved 'X'; reserved -3, 5 to "
          "max; }\n"
          "service S { option x = 1; rpc A (M) returns (M); rpc B (stream M) returns (M) { option y = { } ; "
          "} }\n;")
          .errors(),
      "");
}

TEST(ReaderTest, CommentsBecomeCommentsThatChangeNothing) {
  CodeWriter out;
  out.indent();
  out.comment({"", "a\tb", "ends in \\", "or in ?\?/", "not \xFF UTF-8", "\xE2\x80\xAEturned\xE2\x80\xAC",
               "*/ // /*", std::string(60, 'x') + " " + std::string(60, 'y') + " z", std::string(150, 'w')});
  EXPECT_EQ(out.take(),
            "  ///\n  /// a b\n  /// ends in \\.\n  /// or in ?\?/.\n  /// not ? UTF-8\n  /// turned\n  /// "
            "*/ // /*\n"
            "  /// " +
                std::string(60, 'x') + "\n  /// " + std::string(60, 'y') + " z\n  /// " +
                std::string(150, 'w') + "\n");
}

TEST(ReaderTest, ErrorsComeInTheOrderOfTheirPlaces) {
  Diagnostics diagnostics;
  const uint32_t first = diagnostics.addFile("a");
  const uint32_t second = diagnostics.addFile("b");
  diagnostics.error({second, 1, 1}, "fourth");
  diagnostics.error({first, 10, 2}, "third");
  diagnostics.error({first, 9, 12}, "second");
  diagnostics.error({first, 9, 2}, "first");
  // What follows from an error is found where that is, and is not told.
  diagnostics.error({first, 9, 2}, "follows");
  diagnostics.error("last");
  EXPECT_EQ(diagnostics.lines(),
            (Lines{"a:9:2: first", "a:9:12: second", "a:10:2: third", "b:1:1: fourth", "last"}));
  EXPECT_EQ(inQuotes("a\"\\\n\x7F"), "\"a\\\"\\\\\\x0a\\x7f\"");
  EXPECT_EQ(inQuotes(std::string(100, 'a')), "\"" + std::string(60, 'a') + "...\"");
}

}  // namespace
}  // namespace nvxcore::messagegen
