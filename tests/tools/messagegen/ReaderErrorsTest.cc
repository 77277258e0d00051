// What the reader refuses: a source, and the lines that it is refused with.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/tools/messagegen/Compilation.h"

namespace nvxcore::messagegen {
namespace {

using namespace std::string_literals;
using testing::Compilation;

struct Refusal {
  std::string source;
  /// Of "a.proto:", one for each error.
  std::vector<std::string> errors;
};

void expectRefusals(const std::vector<Refusal>& refusals) {
  for (const Refusal& refusal : refusals) {
    const Compilation compilation(refusal.source);
    std::string expected;
    for (const std::string& error : refusal.errors) expected += "a.proto:" + error + "\n";
    EXPECT_EQ(compilation.errors(), expected) << refusal.source;
  }
}

std::string inMessage(const std::string& body) { return "message M {\n" + body + "\n}"; }

TEST(ReaderErrorsTest, Tokens) {
  expectRefusals({
      {"message M { optional string s = 1 [default = \"abc];\n}",
       {"1:52: expected \" at the end of a string, found the end of the line",
        "2:1: expected \",\" or \"]\", found \"}\""}},
      {"option a = \"\\q\";",
       {"1:13: expected an escape: \\a \\b \\f \\n \\r \\t \\v \\\\ \\' \\\" \\? \\0 \\x \\u \\U"}},
      {"option a = '\\400';", {"1:13: expected an octal escape of at most \\377"}},
      {"option a = '\\x';", {"1:13: expected a hexadecimal digit after \"\\x\""}},
      {"option a = '\\u12';", {"1:13: expected 4 hexadecimal digits after \"\\u\""}},
      {"option a = '\\ud800';",
       {"1:13: expected the number of a character, at most 10FFFF and no surrogate"}},
      {"option a = '\0';"s, {"1:13: expected \"\\0\" where a string has a zero byte"}},
      {"option a = 09;", {"1:12: expected octal digits (0 to 7) after the leading \"0\""}},
      {"option a = 0x;", {"1:14: expected a hexadecimal digit after \"0x\""}},
      {"option a = 1e;", {"1:14: expected a digit after the exponent's \"e\""}},
      {"option a = 1.2.3;", {"1:15: expected one \".\" at most in a number"}},
      {"option a = 12abc;", {"1:14: expected a space or sign between a number and a name"}},
      {"/* never", {"1:1: expected \"*/\" after this comment's start, found the end of the file"}},
      // A column is a character; a run of bytes that begin nothing is told once.
      {"/* \xC3\xA9\xC3\xA9 */ \x01\x01\x02 message M {}",
       {"1:10: expected a letter, digit or sign, found \"\\x01\\x01\\x02\""}},
      {"message " + std::string(201, 'a') + " {}", {"1:9: expected a name of at most 200 characters"}},
  });
}

TEST(ReaderErrorsTest, RefusedByName) {
  expectRefusals({
      {"syntax = \"proto3\";", {"1:10: proto3 is not supported: expected \"proto2\""}},
      {"syntax = \"proto4\";", {"1:10: expected \"proto2\", found \"proto4\""}},
      {"edition = \"2023\";\nmessage M {}",
       {"1:1: editions are not supported: expected syntax = \"proto2\""}},
      {"import weak \"b.proto\";",
       {"1:8: \"import weak\" is not supported: expected a string in quotes or \"public\""}},
      {inMessage("oneof either { int32 a = 1; }\noptional int32 b = 1;\noptional nothing c = 2;"),
       {"2:1: oneof either is not supported: expected its fields as optional ones"}},
      {inMessage("option map_entry = true;"), {"2:8: expected a map, in place of the option \"map_entry\""}},
      {inMessage("repeated map<int32, int32> m = 1;"), {"2:10: expected no label before a map"}},
  });
}

TEST(ReaderErrorsTest, Grammar) {
  const std::string statements =
      "expected \"message\", \"enum\", \"extend\", \"import\", \"option\", \"package\", \"service\" or "
      "\"syntax\"";
  expectRefusals({
      {"messages M {}", {"1:1: " + statements + ", found \"messages\""}},
      {"message {}", {"1:9: expected the message's name, found \"{\""}},
      {"message M", {"1:10: expected \"{\", found the end of the file"}},
      // Told for the block that stands open, once.
      {"message M {\n message N {",
       {"2:13: expected \"}\" for the block that begins here, found the end of the file"}},
      {"message M {} }", {"1:14: " + statements + ", found \"}\""}},
      {inMessage("int32 a = 1;"),
       {"2:1: expected \"required\", \"optional\" or \"repeated\" before a field, or another declaration, "
        "found \"int32\""}},
      {inMessage("optional int32 = 1;"), {"2:16: expected the field's name, found \"=\""}},
      {inMessage("optional int32 a;"), {"2:17: expected \"=\" and the field's number, found \";\""}},
      {inMessage("optional int32 a = -1;"), {"2:20: expected the field's number, found \"-\""}},
      {inMessage("optional int32 a = 1"), {"3:1: expected \"[\" or \";\", found \"}\""}},
      {inMessage("optional int32 a = 1 [deprecated];"), {"2:33: expected \"=\", found \"]\""}},
      {inMessage("optional int32 a = 1 [deprecated = true;"), {"2:40: expected \",\" or \"]\", found \";\""}},
      {inMessage("optional group g = 1 {}"),
       {"2:16: expected a group's name to begin with a capital letter"}},
      {inMessage("optional group G = 1;"), {"2:21: expected \"[\" or \"{\", found \";\""}},
      {inMessage("map<double, int32> m = 1;"),
       {"2:5: expected an integer type, \"bool\" or \"string\" for a map's keys"}},
      {"enum E { A = 1 B = 2; }", {"1:16: expected \";\", found \"B\""}},
      {"enum E { A; }", {"1:11: expected \"=\" and the value's number, found \";\""}},
      {"enum E { A = 2147483648; }",
       {"1:14: expected the value's number from -2147483648 to 2147483647, found \"2147483648\""}},
      {inMessage("reserved a;"), {"2:10: expected numbers or names in quotes, found \"a\""}},
      {inMessage("reserved 5 to 4;"), {"2:10: expected the range's end not below its start"}},
      {inMessage("extensions 0;"), {"2:12: expected a number from 1 to 2147483646, found \"0\""}},
      {"extend M { required int32 a = 1; }",
       {"1:12: expected \"optional\" or \"repeated\": an extension is never required"}},
      {"message M {}\nsyntax = \"proto2\";", {"2:1: expected the syntax before everything else"}},
      {"package a;\npackage b;", {"2:1: expected one package in a file"}},
      {"option (a = 1;", {"1:11: expected \")\", found \"=\""}},
      {"option a = -\"x\";", {"1:13: expected a value, found the string \"x\""}},
      {"option a = { b 1 };", {"1:16: expected \":\" or \"{\", found \"1\""}},
      {"service S { rpc a(B) returns (C) { option x = { y: 1 }; } }\nmessage",
       {"2:8: expected the message's name, found the end of the file"}},
      // Three errors, each told: reading goes on behind a wrong statement.
      {"message M {\n optional int32 a 1;\n optional in32 b = 2;\n}\nenum E {\n A = x;\n}\nmessage 3 {}",
       {"2:19: expected \"=\" and the field's number, found \"1\"",
        "6:6: expected the value's number, found \"x\"", "8:9: expected the message's name, found \"3\""}},
  });
}

TEST(ReaderErrorsTest, NamesAndNumbers) {
  expectRefusals({
      {inMessage("optional int32 a = 1;\noptional int32 b = 1;"),
       {"3:20: expected another field number: \"a\" has 1 too"}},
      {inMessage("optional int32 a = 1;\noptional int32 a = 2;"),
       {"3:16: expected a new name: \"M.a\" is already a field at a.proto:2"}},
      {"message M {}\nenum M { A = 0; }",
       {"2:6: expected a new name: \"M\" is already a message at a.proto:1"}},
      // Values stand beside their enum.
      {"enum E { A = 0; }\nenum F { A = 0; }",
       {"2:10: expected a new name: \"A\" is already an enum value at a.proto:1"}},
      {"package p.q;\nmessage p {}\n", {}},
      {inMessage("optional int32 a = 0;"),
       {"2:20: expected the field's number from 1 to 2147483646, found \"0\""}},
      {inMessage("optional int32 a = 536870912;"),
       {"2:20: expected a field number from 1 to 536870911, found 536870912"}},
      {inMessage("optional int32 a = 19000; optional int32 b = 19999; optional int32 c = 18999; optional "
                 "int32 d = 20000;"),
       {"2:20: expected a field number outside 19000 to 19999, which the format keeps, found 19000",
        "2:46: expected a field number outside 19000 to 19999, which the format keeps, found 19999"}},
      {inMessage("reserved 2, 5 to 7; reserved \"b\";\noptional int32 a = 6;\noptional int32 b = 8;"),
       {"3:20: expected a number that is not reserved, found 6",
        "4:16: expected a name that is not reserved, found \"b\""}},
      {inMessage("extensions 100 to 199;\noptional int32 a = 199; optional int32 b = 200;"),
       {"3:20: expected a number that is not for extensions, found 199"}},
      {inMessage("extensions 5 to 9;\nextensions 9;"),
       {"3:12: expected no number in two places: 9 stands in another extension range too"}},
      {inMessage("extensions 5 to 9; reserved 7;"),
       {"2:29: expected no number in two places: 7 stands in another range, extensions or reserved, too"}},
      {inMessage("extensions 5 to 536870912;"), {"2:12: expected numbers up to 536870911"}},
      {"enum E {}", {"1:6: expected at least one value, or the option (nvxcore.valid), in enum \"E\""}},
      {"enum E { A = 0; B = 0; }",
       {"1:17: expected another number for \"B\", or the option allow_alias: \"A\" is 0 too"}},
      {"enum E { reserved -2 to 3; A = -2; }", {"1:28: expected a number that is not reserved, found -2"}},
      {"enum E { FOO_BAR = 0; FooBar = 1; }",
       {"1:23: expected another name: \"FooBar\" and \"FOO_BAR\" would both be FooBar"}},
      {"message A { message B {} }\nmessage A_B {}",
       {"2:9: expected another name: the class A_B would have the name of what stands at a.proto:1"}},
      {"enum E { A = 0; }\nmessage EEnumDescriptor {}",
       {"1:6: expected another name: the enum descriptor EEnumDescriptor would have the name of what stands "
        "at a.proto:2"}},
  });
}

TEST(ReaderErrorsTest, Types) {
  expectRefusals({
      {inMessage("optional Nothing a = 1;"),
       {"2:10: expected the name of a message or enum, found \"Nothing\""}},
      {inMessage("optional M.a a = 1;"),
       {"2:10: expected the name of a message or enum, found \"M.a\", which is a field"}},
      // The first scope that knows the first part must know the rest.
      {"message A { message B {} }\nmessage C { message A {}\n optional A.B b = 1; }",
       {"3:11: expected the name of a message or enum, found \"A.B\""}},
      {inMessage("map<int32, int32> some = 1;\noptional SomeEntry e = 2;"),
       {"3:10: expected a message that is not the entry of a map"}},
      {inMessage("optional int32 a = 1 [packed = true];"),
       {"2:23: expected a repeated field of numbers, bools or enums for \"packed\""}},
      {inMessage("repeated string a = 1 [packed = true];"),
       {"2:24: expected a repeated field of numbers, bools or enums for \"packed\""}},
      {"message M { extensions 5 to 9; }\nextend M { optional int32 a = 10; }\nextend M { optional int32 b = "
       "5; }\nextend M { optional int32 c = 5; }",
       {"2:31: expected a number in an extension range of \"M\" (5 to 9), found 10",
        "4:31: expected another number: \"b\" at a.proto:3 extends \"M\" with 5 too"}},
      {"enum E { A = 0; }\nextend E { optional int32 a = 10; }",
       {"2:8: expected the name of a message, found \"E\", which is an enum"}},
      {"message S { option message_set_wire_format = true; extensions 4 to max; }\nextend S { repeated S a = "
       "5; optional int32 b = 6; optional S c = 2147483646; }",
       {"2:12: expected an optional message: \"S\" is a message set",
        "2:30: expected an optional message: \"S\" is a message set"}},
      {"message S { option message_set_wire_format = true; optional int32 a = 1; }",
       {"1:9: expected \"extensions\" in the message set \"S\"",
        "1:67: expected no fields in a message set, only extensions"}},
  });
}

TEST(ReaderErrorsTest, Defaults) {
  const auto withDefault = [](const std::string& type, const std::string& value) {
    return "enum E { A = 0; }\nmessage M {\n" + type + " a = 1 [default = " + value + "];\n}";
  };
  expectRefusals({
      {withDefault("optional bool", "1"), {"3:32: expected \"true\" or \"false\" as the default"}},
      {withDefault("optional int32", "2147483648"),
       {"3:33: expected an integer from -2147483648 to 2147483647 as the default"}},
      {withDefault("optional uint32", "-1"),
       {"3:34: expected an integer from 0 to 4294967295 as the default"}},
      {withDefault("optional int64", "-9223372036854775809"),
       {"3:33: expected an integer from -9223372036854775808 to 9223372036854775807 as the default"}},
      {withDefault("optional uint64", "18446744073709551616"),
       {"3:34: expected an integer from 0 to 18446744073709551615 as the default"}},
      {withDefault("optional int32", "1.0"),
       {"3:33: expected an integer from -2147483648 to 2147483647 as the default"}},
      {withDefault("optional float", "1e39"), {"3:33: expected a number that a float holds as the default"}},
      {withDefault("optional double", "1e309"),
       {"3:34: expected a number that a double holds as the default"}},
      {withDefault("optional double", "infinite"),
       {"3:34: expected a number, \"inf\" or \"nan\" as the default"}},
      {withDefault("optional string", "5"), {"3:34: expected a string in quotes"}},
      {withDefault("optional string", "\"\\377\""), {"3:34: expected UTF-8 as the default of a string"}},
      {withDefault("optional E", "B"), {"3:29: expected a value of enum \"E\", found \"B\""}},
      {withDefault("optional E", "0"), {"3:29: expected the name of a value of enum \"E\""}},
      {withDefault("optional M", "0"), {"3:29: expected no default: a field of a message has none"}},
      {withDefault("repeated int32", "0"), {"3:33: expected no default: a repeated field has none"}},
  });
}

TEST(ReaderErrorsTest, Options) {
  const std::string fieldOptions =
      "expected an option of a field (accessor and has_index with (nvxcore.) around them, default, ctype, "
      "packed, "
      "deprecated, lazy, jstype, weak, unverified_lazy, debug_redact), found ";
  expectRefusals({
      {"option (nvxcore.prefix) = \"X\";",
       {"1:9: expected a built-in option of a file (nvxcore.class_prefix, nvxcore.enum_prefix, "
        "nvxcore.enum_value_names, "
        "nvxcore.namespace, nvxcore.root), found \"nvxcore.prefix\""}},
      {"option (nvxcore.class_prefix) = \"1X\";",
       {"1:33: expected a name of letters, digits and \"_\", found \"1X\""}},
      {"option (nvxcore.class_prefix) = X;", {"1:33: expected a string in quotes"}},
      {"option (nvxcore.class_prefix) = \"X\";\noption (nvxcore.class_prefix) = \"Y\";",
       {"2:9: expected the option \"nvxcore.class_prefix\" once"}},
      {"option (nvxcore.class_prefix).x = \"X\";",
       {"1:31: expected \"=\" after \"nvxcore.class_prefix\", which has no parts"}},
      {"option (nvxcore.namespace) = \"a.class\";",
       {"1:30: expected names joined by \".\", none of them a word of C++, found \"a.class\""}},
      {inMessage("option (nvxcore.class_name) = \"while\";"),
       {"2:31: expected no word of C++, found \"while\""}},
      {inMessage("option (nvxcore.retired) = 5;"),
       {"2:28: expected { number: ... } or { number: ... has_index: ... }"}},
      {inMessage("option (nvxcore.retired) = { number: 5, index: 3 };"),
       {"2:41: expected \"number\" or \"has_index\", found \"index\""}},
      {inMessage("option (nvxcore.retired) = { number: 5 };\noption (nvxcore.retired) = { number: 5 "
                 "};\noptional int32 a = 5;"),
       {"3:38: expected each retired number once, found 5",
        "4:20: expected a number that is not retired, found 5"}},
      {inMessage("optional int32 a = 1 [(nvxcore.has_index) = 3];\noptional int32 b = 2 [(nvxcore.has_index) "
                 "= 3];"),
       {"3:45: expected a has-index that is free: 3 is told at line 2 too"}},
      {inMessage("optional int32 a = 1 [(nvxcore.has_index) = 65536];"),
       {"2:45: expected a has-index from 0 to 65535"}},
      {inMessage("optional int32 a = 1 [pakced = true];"), {"2:23: " + fieldOptions + "\"pakced\""}},
      {inMessage("optional int32 a = 1 [deprecated = true, deprecated = true];"),
       {"2:42: expected the option \"deprecated\" once"}},
      {inMessage("optional string a = 1 [ctype = ROPE];"),
       {"2:32: expected one of STRING, CORD, STRING_PIECE"}},
      {inMessage("optional string a = 1 [(my.option) = 1];"),
       {"2:25: expected the name of an extension, found \"my.option\""}},
      {inMessage("option message_set = true;"),
       {"2:8: expected an option of a message (deprecated, map_entry, message_set_wire_format, "
        "no_standard_descriptor_accessor, deprecated_legacy_json_field_conflicts), found \"message_set\""}},
      {"enum E { option (nvxcore.valid) = \"1 to\"; }",
       {"1:35: expected ranges of 32-bit numbers as in \"1 to 6, 9\", found \"1 to\""}},
      {"enum E { option (nvxcore.valid) = \"1 to 6, 4\"; }",
       {"1:35: expected ranges that do not overlap: 4 stands in two"}},
      {"enum E { option (nvxcore.valid) = \"1 to 6\"; A = 7; }",
       {"1:45: expected a number within (nvxcore.valid), found 7"}},
      {"enum E { option (nvxcore.valid) = \"1 to 6\"; }\nmessage M { optional E e = 1 [default = 7]; }",
       {"2:41: expected a value of enum \"E\" or a number within its (nvxcore.valid)"}},
  });
}

TEST(ReaderErrorsTest, OptionsThatExtensionsDefine) {
  const auto errors = [](const std::string& options) {
    const std::string source =
        "import 'nvxcore/message/schema/descriptor.proto';\n"
        "message O { optional int32 i = 1; optional O o = 2; repeated O many = 3; extensions 10 to 11; }\n"
        "message Other { extensions 10; }\n"
        "enum E { A = 0; }\n"
        "extend Other { optional int32 x = 10; }\n"
        "extend nvxcore.options.FieldOptions { optional O o = 1000; optional E e = 1001; optional string s = "
        "1002; optional "
        "uint32 u = 1003; }\n"
        "message M {\noptional int32 a = 1 [" +
        options + "];\n}";
    return Compilation(std::map<std::string, std::string>{
                           {"a.proto", source},
                           {"nvxcore/message/schema/descriptor.proto",
                            "package nvxcore.options; message FieldOptions { extensions 1000 to max; }"}})
        .errors();
  };
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"(u) = 1, (u) = 2", "33: expected the option \"u\" once"},
      {"(x) = 1", "24: expected an extension of nvxcore.options.FieldOptions, found one of \"Other\""},
      {"(u).i = 1", "27: expected \"=\" after \"u\", which is no single message"},
      {"(o).many.i = 1", "32: expected \"=\" after \"many\", which is no single message"},
      {"(o).none = 1", "27: expected a field of \"O\", found \"none\""},
      {"(o).(x) = 1", "28: expected an extension of \"O\", found \"x\""},
      {"(o) = { i: 1 i: 2 }", "36: expected one value for \"i\""},
      {"(o) = { i: [] }", "31: expected one value for \"i\""},
      {"(o) = { o: 1 }", "34: expected a value in braces"},
      {"(o) = 1", "29: expected a value in braces"},
      {"(e) = B", "29: expected a value of enum \"E\""},
      {"(e) = 0", "29: expected a value of enum \"E\""},
      {"(s) = 5", "29: expected a string in quotes"},
      {"(s) = '\\377'", "29: expected UTF-8"},
      {"(u) = -1", "29: expected an integer from 0 to 4294967295"},
      {"deprecated.x = true", "34: expected \"=\" after \"deprecated\", which has no parts"},
      {"deprecated = 1", "36: expected \"true\" or \"false\" "},
  };
  for (const auto& [options, error] : cases) {
    const size_t end = error.back() == ' ' ? error.size() - 1 : error.size();
    EXPECT_EQ(errors(options), "a.proto:8:" + error.substr(0, end) + "\n") << options;
  }
}

TEST(ReaderErrorsTest, NamesThatAreTooLongOrTaken) {
  const std::string name(150, 'a');
  expectRefusals({
      {"message " + name + " {\nmessage " + name + " {}\nenum " + name + "b { A = 0; }\n}",
       {"2:9: expected a class name of at most 250 characters",
        "3:6: expected an enum name of at most 250 characters"}},
      {"enum E { reserved 'B'; B = 0; __ = 1; }",
       {"1:24: expected a name that is not reserved, found \"B\"",
        "1:31: expected a letter or digit in the name \"__\""}},
      {inMessage("reserved 'a', 'a';"), {"2:15: expected each reserved name once, found \"a\""}},
      {inMessage("reserved 'a b';"), {"2:10: expected a name, found \"a b\""}},
      {inMessage("option (nvxcore.retired) = { number: 7 };\nextensions 7;"),
       {"2:38: expected a retired number that is not for extensions, found 7"}},
      {"message M { extensions 5, 19000; }\nextend M { optional int32 __ = 5; optional int32 b = 19000; }\n"
       "message N { extensions 1 to 9; extend N { optional int32 c = 1 [(nvxcore.accessor) = \"file\"]; } }",
       {"2:27: expected a letter or digit in the name \"__\"",
        "2:54: expected a number outside 19000 to 19999, which the format keeps, found 19000",
        "3:58: expected another (nvxcore.accessor): \"file\" is a reserved word, or hides an operation"}},
      {"package a.b;\nmessage M { optional a.b c = 1; optional e d = 2; }\nmessage G {}\nextend G { optional "
       "int32 e = 1; }",
       {"2:22: expected the name of a message or enum, found \"a.b\", which is a package",
        "2:42: expected the name of a message or enum, found \"e\"",
        "4:31: expected a number in an extension range of \"a.b.G\" (it has none), found 1"}},
  });
}

TEST(ReaderErrorsTest, Accessors) {
  expectRefusals({
      {inMessage("optional int32 foo_bar = 1;\noptional int32 foo__bar = 2;"),
       {"3:16: expected another name or (nvxcore.accessor): \"foo_bar\" and \"foo__bar\" would both have the "
        "accessor fooBar"}},
      // One field's has accessor is another's getter.
      {inMessage("optional int32 fix = 1;\noptional bool has_fix = 2;"),
       {"3:15: expected another name or (nvxcore.accessor): \"fix\" and \"has_fix\" would both have the "
        "accessor hasFix"}},
      {inMessage("repeated int32 a = 1;\noptional int32 a_array = 2;"),
       {"3:16: expected another name or (nvxcore.accessor): \"a\" and \"a_array\" would both have the "
        "accessor aArray"}},
      {inMessage("optional int32 a = 1 [(nvxcore.accessor) = \"data\"];"),
       {"2:16: expected another (nvxcore.accessor): \"data\" is a reserved word, or hides an operation of "
        "every message"}},
      {inMessage("optional int32 __ = 1;"), {"2:16: expected a letter or digit in the name \"__\""}},
      {"message M { extensions 5 to 9; }\nextend M { optional int32 a_b = 5; optional int32 aB = 6; }",
       {"2:51: expected another name or (nvxcore.accessor): \"a_b\" and \"aB\" would both have the accessor "
        "aB"}},
  });
}

TEST(ReaderErrorsTest, Imports) {
  const std::string other = "package p; message N {} ";
  const auto errors = [](std::map<std::string, std::string> sources) {
    return Compilation(std::move(sources)).errors();
  };
  EXPECT_EQ(errors({{"a.proto", "import \"b.proto\";"}}),
            "a.proto:1:8: no file \"b.proto\" is in an import folder\n");
  EXPECT_EQ(errors({{"a.proto", "import \"b.proto\";"},
                    {"b.proto", "import \"c.proto\";"},
                    {"c.proto", "import \"b.proto\";"}}),
            "c.proto:1:8: import cycle: b.proto -> c.proto -> b.proto\n");
  EXPECT_EQ(errors({{"a.proto", "import \"a.proto\";"}}), "a.proto:1:8: import cycle: a.proto -> a.proto\n");
  EXPECT_EQ(errors({{"a.proto", "import \"b.proto\";\nimport 'b.proto';"}, {"b.proto", ""}}),
            "a.proto:2:8: expected each import once: \"b.proto\"\n");
  for (const char* path : {"../b.proto", "/b.proto", "x//b.proto", "./b.proto", ""}) {
    EXPECT_EQ(errors({{"a.proto", "import \""s + path + "\";"}}),
              "a.proto:1:8: expected a path below an import folder, found \""s + path + "\"\n");
  }
  // An error in an imported file is told of that file, and nothing that follows from it.
  EXPECT_EQ(errors({{"a.proto", "import \"b.proto\"; message M { optional p.N n = 1; }"},
                    {"b.proto", "package p; mesage N {}"}})
                .substr(0, 13),
            "b.proto:1:12:");
  // Only what is imported is seen, and what that imports publicly.
  const std::string user = "message M { optional p.N n = 1; }";
  EXPECT_EQ(errors({{"a.proto", "import \"b.proto\";" + user},
                    {"b.proto", "import public \"c.proto\";"},
                    {"c.proto", other}}),
            "");
  EXPECT_EQ(errors({{"a.proto", "import \"b.proto\";\n" + user},
                    {"b.proto", "import \"c.proto\";"},
                    {"c.proto", other}}),
            "a.proto:2:22: expected the name of a message or enum, found \"p.N\"\n");
  EXPECT_EQ(errors({{"a.proto", "import \"b.proto\";\nmessage M { optional N n = 1; }"},
                    {"b.proto", "import \"c.proto\";"},
                    {"c.proto", "message N {}"}}),
            "a.proto:2:22: expected the name of a message or enum, found \"N\", which stands in \"c.proto\": "
            "expected an import "
            "of it\n");
  EXPECT_EQ(errors({{"a.proto", "import \"x/a.proto\";"}, {"x/a.proto", ""}}),
            "a.proto:1:1: expected another name: the root class ARoot would have the name of what stands at "
            "x/a.proto:1\n");
}

TEST(ReaderErrorsTest, HostileSources) {
  // Each ends soon, with an error, whatever it repeats.
  const auto repeated = [](const std::string& text, size_t count) {
    std::string result;
    for (size_t i = 0; i < count; ++i) result += text;
    return result;
  };
  const std::string deep = repeated("message M {", 100000);
  EXPECT_EQ(Compilation(deep).errors().substr(0, 14), "a.proto:1:363:");
  EXPECT_NE(Compilation("option a = " + repeated("{ b ", 100000)).errors(), "");
  EXPECT_NE(Compilation("option a = " + repeated("{ b: [", 100000)).errors(), "");
  EXPECT_NE(Compilation("message M { optional " + repeated("a.", 100000) + "b c = 1; }").errors(), "");
  EXPECT_NE(Compilation("option " + repeated("(a).", 100000) + "b = 1;").errors(), "");
  EXPECT_NE(Compilation(repeated("}", 100000)).errors(), "");
  EXPECT_NE(Compilation(repeated("/* ", 100000)).errors(), "");
  EXPECT_NE(Compilation(std::string(1 << 20, '\xFF')).errors(), "");
  // A thousand errors are not all shown.
  const Compilation many(repeated("message 1 {}\n", 1000));
  EXPECT_EQ(many.diagnostics.lines().size(), Diagnostics::kMaximum + 1);
  EXPECT_EQ(many.diagnostics.lines().back(), "more errors than 50: the rest is not shown");

  // A chain of imports, and more in number than are read.
  std::map<std::string, std::string> chain{{"a.proto", "import \"0.proto\";"}};
  for (int i = 0; i < 200; ++i)
    chain[std::to_string(i) + ".proto"] = "import \"" + std::to_string(i + 1) + ".proto\";";
  EXPECT_EQ(Compilation(chain).errors(), "98.proto:1:8: expected imports at most 100 deep\n");

  // Counts of things that could be looked through for each other thing.
  std::string wide = "message M {\n";
  for (int i = 1; i < 20000; ++i) wide += "extensions " + std::to_string(30000 + 2 * i) + ";\n";
  wide += "}\nextend M {\n";
  for (int i = 1; i < 20000; ++i)
    wide += "optional int32 e" + std::to_string(i) + " = " + std::to_string(30000 + 2 * i) + ";\n";
  EXPECT_EQ(Compilation(wide + "}").errors(), "");
  std::string values = "enum E {\n";
  for (int i = 0; i < 30000; ++i) values += "V" + std::to_string(i) + " = " + std::to_string(i) + ";\n";
  values += "}\n";
  for (int i = 0; i < 3000; ++i) {
    const std::string one = std::to_string(i);
    values += "message M" + one + " { optional E e = 1 [default = V" + std::to_string(29999 - i) + "]; }\n";
  }
  EXPECT_EQ(Compilation(values).errors(), "");
  std::string fields = "message M {\n";
  for (int i = 1; i < 9000; ++i)
    fields += "optional int64 f" + std::to_string(i) + " = " + std::to_string(i) + ";\n";
  EXPECT_EQ(Compilation(fields + "}").errors(),
            "a.proto:1:9: expected fewer fields: the values take 73120 bytes, and at most 65535 have room\n");
}

}  // namespace
}  // namespace nvxcore::messagegen
