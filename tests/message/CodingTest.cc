#include <array>
#include <cmath>
#include <limits>
#include <vector>

#include "nvxcore/message/NVXx_PBCodedInputStream.h"
#include "nvxcore/message/NVXx_PBCodedOutputStream.h"
#include "nvxcore/message/NVXx_PBDescriptor.h"
#include "nvxcore/message/NVXx_PBUnknownFieldSet.h"
#include "nvxcore/message/internal/PBWriter.h"
#include "nvxcore/platform/Value.h"
#include "tests/message/MessageTest.h"
#include "tests/message/handwritten/Example.h"

namespace nvxcore {
namespace {

using testing::bytesOf;
using testing::fromHex;
using testing::goldenBytes;
using testing::thrownBy;
using testing::toHex;
using CodingTest = testing::MessageTest;

const NVXx_PBExtensionRegistry* registry() { return &NVXx_EXExampleRoot::extensionRegistry(); }

template <class T>
Ref<T> roundTrip(const char* golden) {
  const std::string bytes = goldenBytes(golden);
  Ref<T> message = T::parseFromData(Data::copy(bytes), registry());
  EXPECT_EQ(toHex(message->data().view()), toHex(bytes)) << golden;
  EXPECT_EQ(message->serializedSize(), bytes.size()) << golden;
  // The same through a stream with a small buffer, and through an element-wise reader that copies.
  NVXx_PBCodedInputStream stream(Data::copy(bytes));
  stream.setCopiesBytes(true);
  EXPECT_TRUE(T::parseFromCodedInputStream(stream, registry())->isEqual(message.get())) << golden;
  EXPECT_EQ(stream.position(), bytes.size());
  MutableData exact;
  exact.setLength(bytes.size());
  NVXx_PBCodedOutputStream output(exact);
  message->writeToCodedOutputStream(output);
  EXPECT_EQ(toHex(exact.view()), toHex(bytes)) << golden;
  return message;
}

TEST_F(CodingTest, SingularFieldsOfEveryType) {
  const auto m = roundTrip<NVXx_EXSingular>("singular.hex");
  EXPECT_TRUE(m->flag());
  EXPECT_EQ(m->fixed32(), 0x12345678U);
  EXPECT_EQ(m->sFixed32(), -2);
  EXPECT_EQ(m->ratio(), 1.5F);
  EXPECT_EQ(m->fixed64(), 0x0102030405060708U);
  EXPECT_EQ(m->sFixed64(), -1);
  EXPECT_EQ(m->measure(), -2.25);
  EXPECT_EQ(m->int32(), -1);
  EXPECT_EQ(m->int64(), INT64_MIN);
  EXPECT_EQ(m->sInt32(), -2);
  EXPECT_EQ(m->sInt64(), INT64_MIN);
  EXPECT_EQ(m->uInt32(), UINT32_MAX);
  EXPECT_EQ(m->uInt64(), 300U);
  EXPECT_EQ(m->bytes(), std::string_view("\0\xFF\x7F", 3));
  EXPECT_EQ(m->text(), "a\xC3\xA9");
  EXPECT_EQ(m->child().value(), 7);
  EXPECT_EQ(m->corner().y(), 2);
  EXPECT_EQ(m->color(), EXColor_DarkBlue);
}

TEST_F(CodingTest, RepeatedFieldsOfEveryType) {
  const auto m = roundTrip<NVXx_EXRepeated>("repeated.hex");
  EXPECT_FALSE(m->flagArray().boolAtIndex(1));
  EXPECT_EQ(m->fixed32Array().uint32AtIndex(1), UINT32_MAX);
  EXPECT_TRUE(std::signbit(m->ratioArray().floatAtIndex(1)));
  EXPECT_EQ(m->int64Array().int64AtIndex(1), INT64_MAX);
  EXPECT_EQ(m->sInt32Array().int32AtIndex(0), -1);
  EXPECT_EQ(m->uInt64Array().uint64AtIndex(1), UINT64_MAX);
  EXPECT_EQ(m->bytesArray().dataAtIndex(1), "\x80");
  EXPECT_EQ(m->textArray().stringAtIndex(0), "A");
  EXPECT_EQ(m->childArray().messageAtIndex<NVXx_EXChild>(1).value(), 1);
  EXPECT_EQ(m->cornerArray().messageAtIndex<NVXx_EXSingular_Corner>(1).x(), 5);
  EXPECT_EQ(m->colorArray().int32AtIndex(1), EXColor_DarkBlue);
}

TEST_F(CodingTest, PackedFieldsOfEveryType) {
  const auto m = roundTrip<NVXx_EXPacked>("packed.hex");
  EXPECT_EQ(m->int32Array().count(), 3U);
  EXPECT_EQ(m->int32Array().int32AtIndex(2), -1);
  EXPECT_EQ(m->measureArray().doubleAtIndex(0), 1.0);
  EXPECT_EQ(m->sInt64Array().int64AtIndex(0), -2);
}

TEST_F(CodingTest, ExtensionsStandWhereTheirRangesDo) {
  using Root = NVXx_EXExampleRoot;
  const auto m = roundTrip<NVXx_EXExtendable>("extensions.hex");
  EXPECT_EQ(m->getExtension(Root::extInt32()), -1);
  EXPECT_EQ(m->getExtension(Root::extString()).view(), "a");
  EXPECT_EQ(m->getExtension(Root::extMessage())->value(), 7);
  EXPECT_EQ(m->getExtension(Root::extGroup())->x(), 3);
  EXPECT_EQ(m->getExtension(Root::extEnum()), static_cast<EXColor>(99));
  EXPECT_EQ(m->getExtension(Root::extInt32Packed())->int32AtIndex(1), 6);
  EXPECT_EQ(m->getExtension(NVXx_EXItem::item())->note(), "hi");
  EXPECT_EQ(m->extensionsSerializedSize(), m->serializedSize() - 5);

  // Without the registry they are unknown, and follow the fields.
  const auto plain = NVXx_EXExtendable::parseFromData(Data::copy(goldenBytes("extensions.hex")));
  EXPECT_FALSE(plain->hasExtension(Root::extInt32()));
  EXPECT_EQ(plain->unknownFields()->countOfFields(), 9U);
  EXPECT_EQ(toHex(plain->data().view()).substr(0, 14), "08 01 C0 0C 02");
}

TEST_F(CodingTest, MessageSets) {
  const std::string bytes = goldenBytes("messageset.hex");
  const auto m = NVXx_EXMessageSet::parseFromData(Data::copy(bytes), registry());
  EXPECT_EQ(m->getExtension(NVXx_EXItem::messageSetExtension())->note(), "A");
  const auto inner = m->getExtension(NVXx_EXExampleRoot::setInSet());
  EXPECT_EQ(inner->getExtension(NVXx_EXExampleRoot::childInSet())->value(), 5);
  EXPECT_TRUE(inner->unknownFields()->hasField(2));
  std::string written = bytes;
  const size_t dropped = written.find(fromHex("10 00"));
  written.erase(dropped, 2);
  written[written.find(fromHex("1A 0B")) + 1] = 9;
  EXPECT_EQ(toHex(m->data().view()), toHex(written));
  EXPECT_EQ(m->serializedSize(), written.size());
}

TEST_F(CodingTest, UnknownFieldsPassThroughInOrder) {
  const auto m = roundTrip<NVXx_EXEmpty>("unknown.hex");
  EXPECT_EQ(m->unknownFields()->getField(2)->varintList()->count(), 2U);
  // Whatever order they come in, and with a varint that is longer than it need be.
  const auto mixed =
      NVXx_EXEmpty::parseFromData(bytesOf("28 81 00  1A 01 41  4D 01 00 00 00  18 07  1D 02 00 00 00"));
  EXPECT_EQ(toHex(mixed->data().view()), "18 07 1D 02 00 00 00 1A 01 41 28 01 4D 01 00 00 00");
}

struct ParseCase {
  const char* what;
  const char* bytes;
  const char* outcome;  // the exception's text, or what is written back after "="
};

TEST_F(CodingTest, WhatTheParserMakesOfOddBytes) {
  const ParseCase cases[] = {
      {"end of input", "", "="},
      {"a zero tag", "00", "NSParseErrorException: Invalid last tag 0"},
      {"a long zero tag", "80 00", "NSParseErrorException: Invalid last tag 0"},
      {"an end-group tag at the top", "0C", "NSParseErrorException: Last tag: 12 should be 0"},
      {"wire type 6", "0E", "NSParseErrorException: Last tag: 14 should be 0"},
      {"a truncated varint", "40 80", "NSParseErrorException: "},
      {"a truncated fixed32", "15 01 02 03", "NSParseErrorException: "},
      {"a string past the end", "7A 02 41", "NSParseErrorException: "},
      {"eleven bytes of int32", "40 FF FF FF FF FF FF FF FF FF FF 01",
       "NSParseErrorException: Unable to read varint32"},
      {"eleven bytes of int64", "48 FF FF FF FF FF FF FF FF FF FF 01",
       "NSParseErrorException: Unable to read varint64"},
      {"2 to the 32 as bool", "08 80 80 80 80 10", "=08 00"},
      {"a wrong wire type stays unknown", "41 01 00 00 00 00 00 00 00", "=41 01 00 00 00 00 00 00 00"},
      {"a singular field twice", "40 01 40 02", "=40 02"},
      {"a message twice", "82 01 02 08 01 82 01 04 12 02 68 69", "=82 01 06 08 01 12 02 68 69"},
      {"an undefined enum value keeps the earlier one", "90 01 01 90 01 63", "=90 01 01 90 01 63"},
      {"a negative undefined one grows", "90 01 9D FF FF FF 0F", "=90 01 9D FF FF FF FF FF FF FF FF 01"},
      {"no UTF-8", "7A 02 C3 28", "=7A 00"},
      {"a negative string length that stays in the buffer", "40 01 7A FE FF FF FF 0F",
       "NSParseErrorException: Last tag: 2047 should be 0"},
      {"a negative data length clears", "72 01 41 72 FF FF FF FF 0F", "="},
      {"field number 0", "02 01 41", "NSInvalidArgumentException: Zero is not a valid field number."},
      {"a nested end-group tag", "82 01 01 0C", "NSParseErrorException: Last tag: 12 should be 0"},
      {"a nested limit beyond the outer one", "82 01 03 1A 05 08",
       "NSInvalidArgumentException: byteLimit > oldLimit: 10 > 6"},
      {"a group that doesn't end", "8B 01 08 01", "NSParseErrorException: Last tag: 0 should be 140"},
      {"a group with another's end", "8B 01 94 01", "NSParseErrorException: Last tag: 148 should be 140"},
      {"non-packed as packed is unknown", "0A 01 01", "=0A 01 01"},
  };
  for (const ParseCase& one : cases) {
    SCOPED_TRACE(one.what);
    std::string outcome;
    try {
      outcome = "=" + toHex(NVXx_EXSingular::parseFromData(bytesOf(one.bytes))->data().view());
    } catch (const Exception& e) {
      outcome = e.name() + ": " + e.reason();
    }
    EXPECT_EQ(outcome, one.outcome);
  }
}

TEST_F(CodingTest, PackedRunsThatAreNotWhole) {
  const ParseCase cases[] = {
      {"empty", "42 00", "="},
      {"an odd byte of fixed32", "12 05 01 00 00 00 02", "NSParseErrorException: "},
      {"a varint across the limit", "42 02 01 80 01", "NSParseErrorException: "},
      {"undefined enum values only", "92 01 02 63 62", "=90 01 63 90 01 62"},
      {"some undefined enum values", "92 01 03 01 63 03", "=92 01 02 01 03 90 01 63"},
      {"unpacked is unknown", "40 05", "=40 05"},
      {"two runs", "42 01 01 42 02 02 03", "=42 03 01 02 03"},
      {"a varint of eleven bytes", "42 0B FF FF FF FF FF FF FF FF FF FF 01",
       "NSParseErrorException: Unable to read varint32"},
      {"a run past the end", "42 05 01", "NSParseErrorException: "},
      {"a negative length", "42 FF FF FF FF 0F", "NSParseErrorException: "},
  };
  for (const ParseCase& one : cases) {
    SCOPED_TRACE(one.what);
    auto message = NVXx_EXPacked::message();
    const std::string failure = thrownBy([&] { message->mergeFromData(bytesOf(one.bytes)); });
    EXPECT_EQ(failure.empty() ? "=" + toHex(message->data().view()) : failure, one.outcome);
    // A run of which nothing is stored sets nothing.
    EXPECT_EQ(message->hasColorArray(), message->colorArray().count() != 0);
    EXPECT_EQ(message->hasInt32Array(), message->int32Array().count() != 0);
  }
}

TEST_F(CodingTest, DepthIsLimitedForMessagesAndGroups) {
  const auto nested = [](int levels) {
    std::string bytes;
    for (int i = 0; i < levels; ++i) {
      std::string outer;
      outer += '\x1A';
      size_t left = bytes.size();
      for (; left >= 0x80; left >>= 7) outer += static_cast<char>(left | 0x80);
      outer += static_cast<char>(left);
      bytes = outer + bytes;
    }
    return Data::copy(bytes);
  };
  EXPECT_EQ(thrownBy([&] { NVXx_EXChild::parseFromData(nested(64)); }), "");
  EXPECT_EQ(thrownBy([&] { NVXx_EXChild::parseFromData(nested(65)); }),
            "NSParseErrorException: recursionDepth(64) >= 64");
  const auto groups = [](int levels) {
    return Data::copy(std::string(levels, '\x1B') + std::string(levels, '\x1C'));
  };
  EXPECT_EQ(thrownBy([&] { NVXx_EXSingular_Corner::parseFromData(groups(64)); }), "");
  EXPECT_EQ(thrownBy([&] { NVXx_EXSingular_Corner::parseFromData(groups(65)); }),
            "NSParseErrorException: recursionDepth(64) >= 64");
  EXPECT_EQ(thrownBy([&] { NVXx_EXEmpty::parseFromData(groups(65)); }),
            "NSParseErrorException: recursionDepth(64) >= 64");
}

TEST_F(CodingTest, OneWalkMeasuresATreeOfAnyDepth) {
  const auto measured = [](int depth) {
    auto root = NVXx_EXChild::message();
    NVXx_EXChild* last = root.get();
    for (int i = 0; i < depth; ++i) last = &last->child();
    last->setValue(1);
    PBSizes sizes;
    EXPECT_EQ(root->data().length(), sizes.measure(*root));
    return sizes.measured();
  };
  EXPECT_EQ(measured(64) - measured(32), measured(33) - measured(1));
}

TEST_F(CodingTest, ErrorsAreValuesForThoseWhoAsk) {
  Error error("x", 1);
  EXPECT_TRUE(NVXx_EXSingular::parseFromData(Data(), &error));
  EXPECT_FALSE(error);
  EXPECT_FALSE(NVXx_EXSingular::parseFromData(bytesOf("0C"), &error));
  EXPECT_TRUE(error.is("NVXx_PBGeneratedMessageErrorDomain", -100));
  EXPECT_EQ(*error.userInfo().get("NVXx_PBErrorReasonKey").string(), "Last tag: 12 should be 0");
  EXPECT_FALSE(NVXx_EXSingular::parseFromData(bytesOf("0C"), static_cast<Error*>(nullptr)));
}

class Collector : public OutputStream {
 public:
  void open() override { events += "o"; }
  void close() override { events += "c"; }
  int64_t write(const uint8_t* bytes, size_t length) override {
    events += "w" + std::to_string(length);
    if (isShort) return static_cast<int64_t>(length) - 1;
    contents.append(reinterpret_cast<const char*>(bytes), length);
    return static_cast<int64_t>(length);
  }
  std::string events;
  std::string contents;
  bool isShort = false;
};

TEST_F(CodingTest, OutputStreamsEmptyTheirBufferIntoTheOutput) {
  auto collector = std::make_shared<Collector>();
  {
    NVXx_PBCodedOutputStream stream(collector, 8);
    stream.writeRawData("abcd");
    stream.writeRawData("efghijkl");            // fills the eight, and the rest fits
    stream.writeRawData(std::string(20, 'z'));  // fills, and the rest goes straight on
    stream.writeRawByte('!');
  }
  EXPECT_EQ(collector->events, "ow8w8w16w1c");
  EXPECT_EQ(collector->contents, "abcdefghijkl" + std::string(20, 'z') + "!");

  MutableData small;
  small.setLength(3);
  NVXx_PBCodedOutputStream full(small);
  EXPECT_EQ(thrownBy([&] { full.writeRawData("abcd"); }), "OutOfSpace: ");
  EXPECT_EQ(small.view(), "abc");

  collector->isShort = true;
  NVXx_PBCodedOutputStream failing(collector, 8);
  failing.writeRawByte('a');
  EXPECT_EQ(thrownBy([&] { failing.flush(); }), "WriteFailed: ");
}

TEST_F(CodingTest, DelimitedFormsAndPositionsOfTheStream) {
  auto message = NVXx_EXChild::message();
  message->setValue(5);
  const Data twice = Data::copy(message->delimitedData().string() + message->delimitedData().string());
  NVXx_PBCodedInputStream stream(twice);
  EXPECT_TRUE(NVXx_EXChild::parseDelimitedFromCodedInputStream(stream, nullptr)->isEqual(message.get()));
  EXPECT_EQ(stream.position(), 3U);
  EXPECT_EQ(stream.bytesUntilLimit(), UINT64_MAX);
  NVXx_EXChild::parseDelimitedFromCodedInputStream(stream, nullptr);
  EXPECT_TRUE(NVXx_PBIsAtEnd(stream));
  EXPECT_FALSE(NVXx_EXChild::parseDelimitedFromCodedInputStream(stream, nullptr)->hasValue());
  // A read that crosses a limit moves to it; one that crosses the end of the buffer stays.
  NVXx_PBCodedInputStream limited(bytesOf("01 02 03 04 05"));
  limited.pushLimit(2);
  EXPECT_EQ(thrownBy([&] { limited.readFixed32(); }), "NSParseErrorException: ");
  EXPECT_EQ(limited.position(), 2U);
  NVXx_PBCodedInputStream whole(bytesOf("01 02 03"));
  EXPECT_EQ(thrownBy([&] { whole.readFixed32(); }), "NSParseErrorException: ");
  EXPECT_EQ(whole.position(), 0U);
  EXPECT_EQ(thrownBy([&] { limited.pushLimit(9); }),
            "NSInvalidArgumentException: byteLimit > oldLimit: 11 > 2");
}

}  // namespace
}  // namespace nvxcore
