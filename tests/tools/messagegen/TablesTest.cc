// The tables' rules, held against tables of schemas that a seed makes up.

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <string>
#include <vector>

#include "tests/tools/messagegen/Compilation.h"
#include "tools/messagegen/Names.h"
#include "tools/messagegen/Tables.h"

namespace nvxcore::messagegen {
namespace {

using testing::Compilation;

/// A schema of a few messages whose fields are of all kinds.
std::string madeUp(std::mt19937& random) {
  const auto below = [&](int bound) { return static_cast<int>(random() % static_cast<unsigned>(bound)); };
  static const char* const kTypes[] = {"bool",   "fixed32", "sfixed32", "float",  "fixed64", "sfixed64",
                                       "double", "int32",   "int64",    "sint32", "sint64",  "uint32",
                                       "uint64", "bytes",   "string",   "E",      "M0",      "M1"};
  static const char* const kDefaults[] = {"true",         "7",       "-7",  "-inf", "8",  "0",
                                          "nan",          "-1",      "-9",  "5",    "-5", "4000000000",
                                          "0xFFFFFFFFFF", "'\\377'", "'x'", "B"};
  std::string source = below(2) ? "option (nvxcore.enum_value_names) = true;\n" : "";
  source += "enum E { A = 0; B = -1; cD = 70000; }\n";
  for (int m = 0; m < 4; ++m) {
    const std::string name = "M" + std::to_string(m);
    source += "message " + name + " {\n";
    std::set<int> numbers;
    const int count = below(40);
    for (int f = 0; f < count; ++f) {
      const int number = below(4) == 0 ? 60000 + below(10000) : 1 + below(300);
      if (!numbers.insert(number).second) continue;
      const int type = below(18);
      const bool repeated = below(4) == 0;
      std::string options;
      if (repeated && type != 13 && type != 14 && type < 16 && below(2)) options = "packed = true";
      if (!repeated && type < 16 && below(2)) options = std::string("default = ") + kDefaults[type];
      if (below(8) == 0) options += std::string(options.empty() ? "" : ", ") + "deprecated = true";
      if (below(16) == 0) {
        options +=
            std::string(options.empty() ? "" : ", ") + "(nvxcore.has_index) = " + std::to_string(100 + f);
      }
      source += std::string(repeated   ? "repeated "
                            : below(3) ? "optional "
                                       : "required ") +
                kTypes[type] + " f" + std::string(below(2), '_') + std::to_string(number) +
                (options.empty() ? "" : " [" + options + "]") + ".";
      // The parts were easier to write in another order.
      const size_t bracket = source.rfind(options.empty() ? "." : " [");
      source.insert(bracket, " = " + std::to_string(number));
      source.back() = ';';
      source += "\n";
    }
    source +=
        "extensions " + std::to_string(80000 + m) + " to " + std::to_string(80000 + m + below(5)) + ";\n}\n";
  }
  source += "extend M0 { optional int64 big = 80000 [default = -3]; }\n";
  return source;
}

struct Reading {
  const Tables& tables;
  std::string names;
  std::string bytes;

  explicit Reading(const Tables& read) : tables(read) {
    for (const std::string& run : tables.names) names += run;
    for (const std::string& block : tables.bytes) bytes += block;
  }
  /// The texts from a place on.
  std::vector<std::string> texts(uint32_t at, size_t count) const {
    std::vector<std::string> result;
    for (size_t i = 0; i < count; ++i) {
      result.emplace_back(names.c_str() + at);
      at += static_cast<uint32_t>(result.back().size() + 1);
    }
    EXPECT_LE(at, names.size());
    return result;
  }
  std::string block(uint32_t at) const {
    const auto byte = [&](uint32_t i) { return static_cast<uint8_t>(bytes.at(at + i)); };
    const uint32_t length = byte(0) << 24 | byte(1) << 16 | byte(2) << 8 | byte(3);
    EXPECT_LE(at + 4 + length, bytes.size());
    return bytes.substr(at + 4, length);
  }
  uint64_t wide(uint32_t at) const {
    uint64_t value = 0;
    for (uint32_t i = 0; i < 8; ++i) value |= uint64_t{static_cast<uint8_t>(bytes.at(at + i))} << (8 * i);
    return value;
  }
};

void expectMessage(const Reading& reading, const Message& message, const Tables::MessageEntry& entry) {
  const Tables& tables = reading.tables;
  ASSERT_EQ(entry.fieldCount, message.fields.size());
  const std::vector<std::string> names = reading.texts(entry.names, 1 + entry.fieldCount);
  EXPECT_EQ(names[0], message.className);
  std::vector<bool> taken(entry.storageSize);
  std::set<int64_t> hasIndexes;
  int64_t lastNumber = 0;
  uint32_t lastWidth = 0;
  std::vector<std::pair<uint32_t, uint32_t>> placesByWidth;
  for (size_t i = 0; i < entry.fieldCount; ++i) {
    const Field& field = *tables.fieldEntries[entry.firstField + i].field;
    EXPECT_EQ(names[1 + i], field.accessor);
    EXPECT_GT(field.number, lastNumber);
    lastNumber = field.number;
    EXPECT_TRUE(hasIndexes.insert(field.hasIndex).second);
    const bool isWide = field.isRepeated() || field.type == FieldType::Fixed64 ||
                        field.type == FieldType::SFixed64 || field.type == FieldType::Double ||
                        field.type == FieldType::Int64 || field.type == FieldType::SInt64 ||
                        field.type == FieldType::UInt64 ||
                        (field.type >= FieldType::Data && field.type <= FieldType::Group);
    const uint32_t width = isWide ? 8 : field.type == FieldType::Bool ? 1 : 4;
    EXPECT_EQ(field.offset % width, 0u);
    EXPECT_GE(field.offset, (*hasIndexes.rbegin() / 32 + 1) * 4);
    for (uint32_t byte = field.offset; byte < field.offset + width; ++byte) {
      ASSERT_LT(byte, taken.size());
      EXPECT_FALSE(taken[byte]);
      taken[byte] = true;
    }
    placesByWidth.emplace_back(width, field.offset);
  }
  // Narrow ones first, and within a width by number.
  std::stable_sort(placesByWidth.begin(), placesByWidth.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  for (const auto& [width, offset] : placesByWidth) {
    EXPECT_GE(offset, lastWidth);
    lastWidth = offset;
  }
  EXPECT_EQ(entry.storageSize % 8, 0u);

  // What stands beside: in order, each kind once for a field, and with the right content.
  std::pair<uint32_t, int> last{0, -1};
  std::set<std::pair<uint32_t, int>> seen;
  for (size_t i = 0; i < entry.sideCount; ++i) {
    const Tables::SideEntry& side = tables.sideEntries[entry.firstSide + i];
    const std::pair<uint32_t, int> place{side.field, static_cast<int>(side.kind)};
    EXPECT_LT(last, place);
    last = place;
    seen.insert(place);
    if (side.field == Tables::kSideOfMessage) continue;
    const Field& field = *message.sortedFields.at(side.field);
    switch (side.kind) {
      case Tables::SideKind::Number:
        EXPECT_EQ(side.value, field.number);
        break;
      case Tables::SideKind::Class:
        EXPECT_EQ(tables.messages.at(side.value), field.message);
        break;
      case Tables::SideKind::Enum:
        EXPECT_EQ(tables.enums.at(side.value), field.enumeration);
        break;
      case Tables::SideKind::Options:
        EXPECT_EQ(reading.block(side.value), field.serialisedOptions);
        break;
      case Tables::SideKind::Default:
        if (field.type == FieldType::String || field.type == FieldType::Data) {
          EXPECT_EQ(reading.block(side.value), field.defaultBytes);
        } else if (field.type >= FieldType::Fixed64 && field.type != FieldType::Int32 &&
                   field.type != FieldType::SInt32 && field.type != FieldType::UInt32 &&
                   field.type != FieldType::Enum) {
          EXPECT_EQ(reading.wide(side.value), field.defaultBits);
        } else {
          EXPECT_EQ(side.value, static_cast<uint32_t>(field.defaultBits));
        }
        break;
      default:
        ADD_FAILURE() << "a message's own entry at a field";
    }
  }
  for (uint32_t i = 0; i < entry.fieldCount; ++i) {
    const Field& field = *message.sortedFields[i];
    EXPECT_EQ(seen.count({i, 0}) == 1, field.number > 0xFFFF);
    EXPECT_EQ(seen.count({i, 1}) == 1, field.message != nullptr);
    EXPECT_EQ(seen.count({i, 2}) == 1, field.enumeration != nullptr);
    const bool isZero =
        field.defaultBits == 0 && field.type != FieldType::String && field.type != FieldType::Data;
    EXPECT_EQ(seen.count({i, 3}) == 1, field.hasDefault && !isZero) << field.name.text;
    EXPECT_EQ(seen.count({i, 4}) == 1, !field.serialisedOptions.empty());
  }
}

TEST(TablesTest, KeepTheRulesForSchemasThatASeedMakesUp) {
  for (unsigned seed = 0; seed < 200; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const std::string source = madeUp(random);
    Compilation compilation(source);
    ASSERT_EQ(compilation.errors(), "") << source;
    const Tables tables = buildTables(*compilation.main, compilation.diagnostics);
    const Reading reading(tables);
    EXPECT_EQ(reading.names.size(), tables.nameSize);
    EXPECT_EQ(reading.bytes.size(), tables.byteSize);
    EXPECT_EQ(reading.texts(0, 1)[0], "ARoot");
    ASSERT_EQ(tables.messageEntries.size(), 4u);
    for (size_t i = 0; i < 4; ++i) expectMessage(reading, *tables.messages[i], tables.messageEntries[i]);
    const Tables::EnumEntry& enumeration = tables.enumEntries.at(0);
    EXPECT_EQ(enumeration.hasNames, compilation.main->enumValueNames);
    if (enumeration.hasNames) {
      EXPECT_EQ(reading.texts(enumeration.names, 4), (std::vector<std::string>{"E", "A", "B", "CD"}));
      // Of the third, at position 2: its first character small, one taken as it is.
      EXPECT_EQ(reading.block(enumeration.textFormat), "\x01\x02\x22" + std::string(1, '\0'));
    } else {
      EXPECT_EQ(reading.texts(enumeration.names, 1)[0], "E");
      EXPECT_FALSE(enumeration.hasTextFormat);
    }
    EXPECT_EQ(tables.numbers, (std::vector<int32_t>{0, -1, 70000}));
    const Tables::ExtensionEntry& extension = tables.extensionEntries.at(0);
    EXPECT_EQ(reading.texts(extension.names, 1)[0], "ARoot_big");
    EXPECT_EQ(static_cast<int64_t>(reading.wide(extension.defaultValue)), -3);
    if (::testing::Test::HasFailure()) FAIL() << source;
  }
}

TEST(TablesTest, RefusesWhatItsNumbersDoNotHold) {
  std::string messages;
  for (int i = 0; i < 65536; ++i) messages += "message M" + std::to_string(i) + " {}\n";
  Compilation compilation(messages);
  ASSERT_EQ(compilation.errors(), "");
  buildTables(*compilation.main, compilation.diagnostics);
  EXPECT_EQ(compilation.errors(), "a.proto:1:1: expected at most 65535 messages in a file, found 65536\n");
}

}  // namespace
}  // namespace nvxcore::messagegen
