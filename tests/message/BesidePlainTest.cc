#include <cstdio>
#include <map>
#include <random>

#include "nvxcore/message/NVXx_PBCodedInputStream.h"
#include "nvxcore/message/NVXx_PBDescriptor.h"
#include "nvxcore/message/NVXx_PBExtensionRegistry.h"
#include "nvxcore/message/NVXx_PBIvars.h"
#include "nvxcore/message/NVXx_PBUnknownFieldSet.h"
#include "tests/message/MessageTest.h"
#include "tests/message/PlainReader.h"
#include "tests/message/handwritten/Example.h"
#include "tests/support/Proof.h"

namespace nvxcore {
namespace {

namespace plain = testing::plain;
using plain::Kind;
using BesidePlainTest = testing::MessageTest;

enum Class { Child, Corner, MessageSet, Item, Extendable };

// By the fields' types as the wire format numbers them: bool, fixed32, sfixed32, float, fixed64, sfixed64,
// double, int32, int64, sint32, sint64, uint32, uint64, bytes, string, message, group, enum.
Kind kindOf(int type) {
  const Kind kinds[] = {Kind::Varint32, Kind::Fixed32,  Kind::Fixed32,  Kind::Fixed32,  Kind::Fixed64,
                        Kind::Fixed64,  Kind::Fixed64,  Kind::Varint32, Kind::Varint64, Kind::Varint32,
                        Kind::Varint64, Kind::Varint32, Kind::Varint64, Kind::Bytes,    Kind::Text,
                        Kind::Message,  Kind::Group,    Kind::Varint32};
  return kinds[type];
}

std::vector<plain::Class> schema() {
  std::vector<plain::Class> classes(5);
  const plain::Field number{Kind::Varint32, false, false, 0, false};
  const plain::Field text{Kind::Text, false, false, 0, false};
  const auto message = [](int of, bool isRepeated = false, bool isItem = false) {
    return plain::Field{Kind::Message, isRepeated, false, of, isItem};
  };
  classes[Child].fields = {{1, number},
                           {2, text},
                           {3, message(Child)},
                           {4, {Kind::Varint32, true, true, 0, false}},
                           {5, message(Child, true)}};
  classes[Corner].fields = {{1, number}, {2, number}, {3, {Kind::Group, false, false, Corner, false}}};
  classes[MessageSet].isMessageSet = true;
  classes[MessageSet].extensions = {{1000, message(Item, false, true)},
                                    {1001, message(Child, false, true)},
                                    {1002, message(MessageSet, false, true)}};
  classes[Item].fields = {{1, text}, {2, message(MessageSet)}};
  classes[Extendable].fields = {{1, number}, {200, number}};
  auto& extensions = classes[Extendable].extensions;
  for (int type = 0; type < 18; ++type) {
    const Kind kind = kindOf(type);
    const int of = kind == Kind::Group ? Corner : Child;
    extensions[100 + type] = {kind, false, false, of, false};
    extensions[120 + type] = {kind, true, false, of, false};
    if (type < 13 || type == 17) extensions[140 + type] = {kind, true, true, of, false};
  }
  extensions[170] = text;
  extensions[171] = {Kind::Bytes, false, false, 0, false};
  extensions[172] = {Kind::Varint64, false, false, 0, false};
  extensions[173] = number;
  extensions[1000] = message(Item);
  return classes;
}

size_t countOf(const NVXx_PBUnknownFieldSet& fields) {
  size_t total = 0;
  for (const NVXx_PBField* field : fields.sortedFields()) {
    for (const NVXx_PBArray* list :
         {field->varintList(), field->fixed32List(), field->fixed64List(), field->lengthDelimitedList()}) {
      total += NVXx_PBArrayCount(list);
    }
    for (size_t i = 0; i < NVXx_PBArrayCount(field->groupList()); ++i) {
      total += 1 + countOf(*field->groupList()->objectAtIndex(i).unknownFieldSet());
    }
  }
  return total;
}

size_t countOf(const NVXx_PBGeneratedMessage& message);

size_t countOf(const PBBoxedValue& value) {
  if (value.kind() == PBBoxedValue::Kind::Array) {
    size_t total = 0;
    for (const PBBoxedValue& element : value.array()->array()) total += countOf(element);
    return total;
  }
  const NVXx_PBGeneratedMessage* message = value.object().message();
  return message ? 1 + countOf(*message) : 1;
}

size_t countOf(const NVXx_PBGeneratedMessage& message) {
  size_t total = 0;
  for (const auto& field : message.descriptorOfMessage().fields()) {
    if (!NVXx_PBGetHasIvar(message, field->hasIndex())) continue;
    total += countOf(NVXx_PBGetValueWithField(message, *field));
  }
  for (const NVXx_PBExtensionField* field : message.extensionsCurrentlySet()) {
    total += countOf(message.getExistingExtension(*field));
  }
  if (const auto unknown = message.unknownFields()) total += countOf(*unknown);
  return total;
}

class Maker {
 public:
  explicit Maker(uint32_t seed) : _random(seed) {}
  uint32_t below(uint32_t bound) { return _random() % bound; }

  std::string bytes(const std::vector<plain::Class>& schema, int message) {
    std::string result;
    fields(schema, message, 0, result);
    if (below(12) == 0 && !result.empty())
      result[below(static_cast<uint32_t>(result.size()))] ^= 1 << below(8);
    if (below(25) == 0) result.resize(result.size() - below(static_cast<uint32_t>(result.size()) + 1) / 2);
    return result;
  }

 private:
  static void varint(std::string& to, uint64_t value) {
    for (; value >= 0x80; value >>= 7) to += static_cast<char>(value | 0x80);
    to += static_cast<char>(value);
  }
  // Mostly what lies there, now and then a way back.
  void text(std::string& to) {
    if (below(5) < 2) {
      varint(to,
             static_cast<uint32_t>(-static_cast<int32_t>(1 + below(static_cast<uint32_t>(to.size()) + 8))));
      return;
    }
    const uint32_t length = below(4);
    varint(to, length);
    for (uint32_t i = 0; i < length; ++i)
      to += static_cast<char>(below(100) ? 8 * (1 + below(5)) + below(6) : below(256));
  }
  void fields(const std::vector<plain::Class>& schema, int message, int depth, std::string& to) {
    const plain::Class& own = schema[static_cast<size_t>(message)];
    for (uint32_t left = 1 + below(5); left; --left) {
      if (own.isMessageSet && below(3)) {
        item(schema, message, depth, to);
        continue;
      }
      std::vector<std::pair<uint32_t, plain::Field>> known(own.fields.begin(), own.fields.end());
      if (below(2)) known.insert(known.end(), own.extensions.begin(), own.extensions.end());
      if (known.empty() || below(6) == 0) {
        unknown(to, depth);
        continue;
      }
      if (below(2) == 0 && (message == Child || message == Item)) {
        const uint32_t text = message == Child ? 2 : 1;
        value(schema, own.fields.at(text), text, depth, to);
        continue;
      }
      const auto& [number, field] = known[below(static_cast<uint32_t>(known.size()))];
      value(schema, field, number, depth, to);
    }
  }
  void value(const std::vector<plain::Class>& schema, const plain::Field& field, uint32_t number, int depth,
             std::string& to) {
    if (field.isPacked) {
      varint(to, number * 8 + 2);
      const uint32_t length = below(3) * 8;
      varint(to, length);
      for (uint32_t i = 0; i < length; ++i) to += static_cast<char>(below(30) ? below(128) : below(256));
      return;
    }
    switch (field.kind) {
      case Kind::Varint32:
      case Kind::Varint64:
        varint(to, number * 8);
        return varint(to, below(3) ? below(300) : uint64_t{_random()} << below(33));
      case Kind::Fixed32:
        varint(to, number * 8 + 5);
        to.append("\1\2\3\4");
        return;
      case Kind::Fixed64:
        varint(to, number * 8 + 1);
        to.append("\1\2\3\4\5\6\7\10");
        return;
      case Kind::Bytes:
      case Kind::Text:
        varint(to, number * 8 + 2);
        return text(to);
      case Kind::Group:
        varint(to, number * 8 + 3);
        if (depth < 5) fields(schema, field.message, depth + 1, to);
        if (below(20)) varint(to, number * 8 + 4);
        return;
      case Kind::Message: {
        varint(to, number * 8 + 2);
        std::string inner;
        if (depth < 5) fields(schema, field.message, depth + 1, inner);
        const uint32_t odd = below(24);
        const auto size = static_cast<int32_t>(inner.size());
        varint(to, static_cast<uint32_t>(odd == 0   ? -static_cast<int32_t>(below(20))
                                         : odd == 1 ? size + 1
                                                    : size));
        to += inner;
      }
    }
  }
  void item(const std::vector<plain::Class>& schema, int message, int depth, std::string& to) {
    to += '\x0B';
    for (uint32_t left = 1 + below(4); left; --left) {
      switch (below(5)) {
        case 0:
        case 1:
          varint(to, 16);
          varint(to, below(5) ? 1000 + below(4) : below(3));
          break;
        case 2:
        case 3: {
          const auto& extensions = schema[static_cast<size_t>(message)].extensions;
          auto one = extensions.begin();
          std::advance(one, below(static_cast<uint32_t>(extensions.size())));
          std::string inner;
          if (depth < 5) fields(schema, one->second.message, depth + 1, inner);
          varint(to, 26);
          varint(to, inner.size());
          to += inner;
          break;
        }
        default:
          unknown(to, depth);
          if (below(3) == 0) {
            varint(to, 34);
            text(to);
          }
      }
    }
    if (below(15)) to += '\x0C';
  }
  void unknown(std::string& to, int depth) {
    const uint32_t number = below(40) ? 20 + below(3) : below(3);
    switch (below(6)) {
      case 0:
        varint(to, number * 8);
        return varint(to, below(200));
      case 1:
        varint(to, number * 8 + 1);
        to.append("\1\2\3\4\5\6\7\10");
        return;
      case 2:
        varint(to, number * 8 + 2);
        return text(to);
      case 3:
        varint(to, number * 8 + 3);
        if (depth < 5) {
          for (uint32_t left = below(3); left; --left) unknown(to, depth + 1);
        }
        if (below(30)) varint(to, number * 8 + 4);
        return;
      case 4:
        varint(to, number * 8 + 5);
        to.append("\1\2\3\4");
        return;
      default:
        varint(to, number * 8 + below(8));
        to += static_cast<char>(below(3));
    }
  }

  std::mt19937 _random;
};

struct Real {
  std::string failure;
  uint64_t position;
  size_t count;
};

template <class T>
Real readReal(const std::string& bytes, const NVXx_PBExtensionRegistry* registry) {
  NVXx_PBCodedInputStream stream(Data::copy(bytes));
  try {
    const Ref<T> message = T::parseFromCodedInputStream(stream, registry);
    stream.checkLastTagWas(0);
    const size_t count = countOf(*message);
    EXPECT_EQ(message->data().length(), message->serializedSize());
    return {"", stream.position(), count};
  } catch (const Exception& e) {
    return {e.name() + ": " + e.reason(), stream.position(), 0};
  }
}

std::string withoutNumbers(const std::string& text) {
  std::string result;
  for (const char c : text) {
    const bool isDigit = c >= '0' && c <= '9';
    if (!isDigit) result += c;
    if (isDigit && (result.empty() || result.back() != '#')) result += '#';
  }
  return result;
}

struct Both {
  plain::Outcome plain;
  Real real;
};

Both readBoth(int message, const std::string& bytes, bool knowsExtensions) {
  static const std::vector<plain::Class> classes = schema();
  using Read = Real (*)(const std::string&, const NVXx_PBExtensionRegistry*);
  const Read readers[] = {readReal<NVXx_EXChild>, readReal<NVXx_EXSingular_Corner>,
                          readReal<NVXx_EXMessageSet>, readReal<NVXx_EXItem>, readReal<NVXx_EXExtendable>};
  return {plain::read(classes, message, bytes, knowsExtensions, 3000),
          readers[message](bytes, knowsExtensions ? &NVXx_EXExampleRoot::extensionRegistry() : nullptr)};
}

void expectSame(const Both& both) {
  if (!both.plain.ended) {
    EXPECT_NE(both.real.failure, "");
    return;
  }
  EXPECT_EQ(both.real.failure, both.plain.failure);
  EXPECT_EQ(both.real.position, both.plain.position);
  EXPECT_EQ(both.real.count, both.plain.count);
}

TEST_F(BesidePlainTest, InputsThatAreEasilyTakenWrong) {
  struct Case {
    int message;
    const char* bytes;
    const char* outcome;  // "endless", or the failure, or "position, values"
  };
  const Case cases[] = {
      {Item, "0A FA FF FF FF 0F", "endless"},
      {Child, "12 FA FF FF FF 0F", "endless"},
      {MessageSet, "0B 0B 0B 0C 12 F9 FF FF FF 0F", "10, 1"},
      // The buffer ends before the message's limit: that is no failure.
      {Item, "12 05 1A 00", "4, 2"},
      {Child, "1A 05 08 01", "4, 2"},
      {Child, "1A 05 08 01 12", "NSParseErrorException: "},
      // A negative length of a message: at the buffer's end, before it, wrapped below zero, in a limit.
      {Child, "1A FF FF FF FF 0F", "6, 1"},
      {Child, "1A FF FF FF FF 0F 08 01", "NSParseErrorException: "},
      {Child, "1A 80 FF FF FF 0F 08 01", "8, 2"},
      {Child, "1A 06 1A FF FF FF FF 0F 08 01", "NSParseErrorException: "},
      {Item, "12 FA FF FF FF 0F", "6, 1"},
      {Item, "12 FA FF FF FF 0F 0A 00", "NSParseErrorException: "},
      {Child, "22 FF FF FF FF 0F 01", "NSParseErrorException: "},
      // Lengths at the very start, at the very end, and one too far.
      {Child, "12 FB FF FF FF 0F", "NSParseErrorException: Last tag: 0 should be -4"},
      {Child, "12 F9 FF FF FF 0F", "NSParseErrorException: "},
      {Item, "0A 02 1A 06 0A F8 FF FF FF 0F", "10, 2"},
      {MessageSet, "0B 10 E8 07 1A FF FF FF FF 0F 0C", "11, 0"},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.bytes);
    const Both both = readBoth(one.message, testing::fromHex(one.bytes), true);
    expectSame(both);
    EXPECT_EQ(!both.plain.ended ? "endless"
              : both.plain.failure.empty()
                  ? std::to_string(both.plain.position) + ", " + std::to_string(both.plain.count)
                  : both.plain.failure,
              one.outcome);
  }
}

TEST_F(BesidePlainTest, TheSameOutcomePositionAndValuesOverGeneratedInputs) {
  const std::vector<plain::Class> classes = schema();
  const auto [first, total] = testing::proofRange(testing::proofCount(100000, 10000000));
  size_t movedBack = 0;
  std::map<std::string, size_t> outcomes;
  for (size_t i = first; i < first + total; ++i) {
    Maker maker(static_cast<uint32_t>(i));
    const int kMostly[] = {Child,      Child,      Child,  Item,       Item,
                           MessageSet, MessageSet, Corner, Extendable, Extendable};
    const int message = kMostly[maker.below(10)];
    const bool knows = maker.below(4) != 0;
    const std::string bytes = maker.bytes(classes, message);
    const Both both = readBoth(message, bytes, knows);
    expectSame(both);
    ASSERT_FALSE(HasFailure()) << i << " class " << message << ": " << testing::toHex(bytes);
    movedBack += both.plain.movedBack;
    std::string outcome = !both.plain.ended            ? "never end"
                          : both.plain.failure.empty() ? "succeed"
                                                       : both.plain.failure;
    ++outcomes[withoutNumbers(outcome)];
  }
  const auto share = [count = total](size_t part) {
    return 100.0 * static_cast<double>(part) / static_cast<double>(count);
  };
  std::printf("%zu inputs from %zu on; %.1f%% move back\n", total, first, share(movedBack));
  for (const auto& [outcome, count] : outcomes) std::printf("  %6.2f%% %s\n", share(count), outcome.c_str());
  EXPECT_GE(share(outcomes["succeed"]), 30);
  EXPECT_GE(share(movedBack), 20);
  EXPECT_GE(share(outcomes["never end"]), 2);
}

}  // namespace
}  // namespace nvxcore
