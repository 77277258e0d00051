#include "nvxcore/message/NVXx_PBCodedInputStream.h"
#include "nvxcore/message/NVXx_PBUnknownFieldSet.h"
#include "tests/message/MessageTest.h"
#include "tests/message/handwritten/Example.h"

namespace nvxcore {
namespace {

using testing::bytesOf;
using testing::thrownBy;
using HostileTest = testing::MessageTest;

const NVXx_PBExtensionRegistry* registry() { return &NVXx_EXExampleRoot::extensionRegistry(); }

TEST_F(HostileTest, AStringThatLeadsBackToItselfEndsAsATruncatedOne) {
  NVXx_PBCodedInputStream stream(bytesOf("12 FA FF FF FF 0F"));
  EXPECT_EQ(thrownBy([&] { NVXx_EXChild::parseFromCodedInputStream(stream, nullptr); }),
            "NSParseErrorException: ");
  EXPECT_EQ(thrownBy([&] { NVXx_EXItem::parseFromData(bytesOf("0A FA FF FF FF 0F")); }),
            "NSParseErrorException: ");
}

TEST_F(HostileTest, AnItemThatJumpsBackIntoASkippedGroupEndsWell) {
  NVXx_PBCodedInputStream stream(bytesOf("0B 0B 0B 0C 12 F9 FF FF FF 0F"));
  const auto set = NVXx_EXMessageSet::parseFromCodedInputStream(stream, registry());
  EXPECT_EQ(stream.position(), 10U);
  const auto* list = set->unknownFields()->getField(2)->lengthDelimitedList();
  ASSERT_EQ(list->count(), 1U);
  EXPECT_FALSE(list->objectAtIndex(0));
  // The absent element is written as an empty one, and equals nothing.
  EXPECT_EQ(testing::toHex(set->unknownFields()->data().view()), "12 00");
  EXPECT_FALSE(set->isEqual(set->copy().get()) && !set->unknownFields()->getField(2)->isEqual(nullptr) &&
               false);
}

TEST_F(HostileTest, NegativeLengthsOfMessages) {
  // At the very end of the buffer the message is empty; before it, its limit lies behind the position.
  EXPECT_EQ(thrownBy([&] { NVXx_EXChild::parseFromData(bytesOf("1A FF FF FF FF 0F")); }), "");
  NVXx_PBCodedInputStream before(bytesOf("1A FF FF FF FF 0F 08 01"));
  EXPECT_EQ(thrownBy([&] { NVXx_EXChild::parseFromCodedInputStream(before, nullptr); }),
            "NSParseErrorException: ");
  EXPECT_EQ(before.position(), 5U);
  // One that wraps below zero is no limit at all.
  NVXx_PBCodedInputStream wrapped(bytesOf("1A 80 FF FF FF 0F 08 01"));
  EXPECT_EQ(thrownBy([&] { NVXx_EXChild::parseFromCodedInputStream(wrapped, nullptr); }), "");
  EXPECT_EQ(wrapped.position(), 8U);
}

TEST_F(HostileTest, SkippingGroupsByTheThousandNeedsNoStack) {
  const size_t count = 200000;
  NVXx_PBCodedInputStream deep(Data::copy(std::string(count, '\x0B') + std::string(count, '\x0C')));
  EXPECT_TRUE(deep.skipField(deep.readTag()));
  EXPECT_TRUE(deep.isAtEnd());
  // Groups, their ends, then a jump back among them: the end of the first one ends the whole.
  std::string bytes = std::string(count, '\x0B') + std::string(count, '\x0C') + "\x12";
  const auto back = static_cast<uint32_t>(1 - static_cast<int32_t>(2 * count + 6));
  for (int i = 0; i < 4; ++i) bytes += static_cast<char>((back >> (7 * i) & 0x7F) | 0x80);
  bytes += static_cast<char>(back >> 28);
  NVXx_PBCodedInputStream jumping(Data::copy(bytes));
  jumping.skipMessage();
  EXPECT_EQ(jumping.lastTag(), 12);
  EXPECT_EQ(jumping.position(), 2 * count);
  // A jump that leads to itself has no end.
  NVXx_PBCodedInputStream circle(bytesOf("0B 0B 12 FA FF FF FF 0F"));
  EXPECT_EQ(thrownBy([&] { circle.skipMessage(); }), "NSParseErrorException: ");
}

TEST_F(HostileTest, ADescentThatJumpsBackFailsByItsDepth) {
  // A child, whose label jumps back to the child's own tag.
  NVXx_PBCodedInputStream stream(bytesOf("1A 06 12 F8 FF FF FF 0F 08 01"));
  EXPECT_EQ(thrownBy([&] { NVXx_EXChild::parseFromCodedInputStream(stream, nullptr); }),
            "NSParseErrorException: recursionDepth(64) >= 64");
  EXPECT_EQ(stream.position(), 2U);
}

TEST_F(HostileTest, ChainsOfMessageSetItemsAreLimited) {
  std::string bytes;
  for (int i = 0; i < 1200; ++i) {
    std::string item = testing::fromHex("0B 10 EA 07 1A");
    size_t left = bytes.size();
    for (; left >= 0x80; left >>= 7) item += static_cast<char>(left | 0x80);
    item += static_cast<char>(left);
    bytes = item + bytes + "\x0C";
  }
  EXPECT_EQ(thrownBy([&] { NVXx_EXMessageSet::parseFromData(Data::copy(bytes), registry()); }),
            "NSParseErrorException: recursionDepth(1000) >= 1000");
  EXPECT_EQ(thrownBy([&] { NVXx_EXMessageSet::parseFromData(Data::copy(bytes)); }), "");
}

TEST_F(HostileTest, ItemsCountTheLevelsBetweenThem) {
  const auto nested = [](int levels) {
    const auto prefixed = [](const char* before, const std::string& inner) {
      std::string bytes = testing::fromHex(before);
      size_t left = inner.size();
      for (; left >= 0x80; left >>= 7) bytes += static_cast<char>(left | 0x80);
      return bytes + static_cast<char>(left) + inner;
    };
    std::string bytes;
    for (int i = 0; i < levels; ++i) bytes = prefixed("0B 10 E8 07 1A", prefixed("12", bytes)) + "\x0C";
    return Data::copy(bytes);
  };
  EXPECT_EQ(thrownBy([&] { NVXx_EXMessageSet::parseFromData(nested(300), registry()); }), "");
  EXPECT_EQ(thrownBy([&] { NVXx_EXMessageSet::parseFromData(nested(350), registry()); }).substr(0, 38),
            "NSParseErrorException: recursionDepth(");
}

TEST_F(HostileTest, GoingBackAgainAndAgainIsLimited) {
  // Each set leads to position 2, where an item ends, and from there over all the sets before it, which are
  // unknown fields of a set: a square of the input, if nobody stopped it.
  std::string bytes = testing::fromHex("22 01 0C");
  for (uint32_t i = 0; i < 4000; ++i) {
    const uint32_t back = 0U - static_cast<uint32_t>(bytes.size() + 9 - 2);
    bytes += testing::fromHex("12 07 0B 22");
    for (int shift = 0; shift < 28; shift += 7) bytes += static_cast<char>((back >> shift & 0x7F) | 0x80);
    bytes += static_cast<char>(back >> 28);
    if (i != 10) continue;
    EXPECT_EQ(thrownBy([&] { NVXx_EXItem::parseFromData(Data::copy(bytes), registry()); }), "");
  }
  const auto item = NVXx_EXItem::message();
  EXPECT_EQ(thrownBy([&] { item->mergeFromData(Data::copy(bytes), registry()); }), "NSParseErrorException: ");
  EXPECT_LT(item->serializedSize(), 20 * bytes.size());
}

TEST_F(HostileTest, AnAbsentElementStartsAListAndNoMore) {
  const auto once = NVXx_EXEmpty::parseFromData(bytesOf("12 FF FF FF FF 0F"));
  EXPECT_EQ(once->unknownFields()->getField(2)->lengthDelimitedList()->count(), 1U);
  EXPECT_NE(once->description().find("2: (null)"), std::string::npos);
  EXPECT_EQ(thrownBy([&] { NVXx_EXEmpty::parseFromData(bytesOf("12 01 41 12 FF FF FF FF 0F")); }),
            "NSInvalidArgumentException: Attempting to add nil to a PBArray");
}

}  // namespace
}  // namespace nvxcore
