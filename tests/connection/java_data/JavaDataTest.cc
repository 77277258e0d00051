#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "nvxcore/connection/java_data/JavaDataInput.h"
#include "nvxcore/connection/java_data/JavaDataOutput.h"
#include "nvxcore/platform/Exception.h"
#include "nvxcore/platform/Files.h"
#include "nvxcore/platform/Value.h"
#include "tests/support/NVXTest.h"

namespace nvxcore::utils {
namespace {

using nvxcore::testing::NVXTest;
using namespace std::string_literals;

class JavaDataTest : public NVXTest {
 protected:
  /// Reads `bytes` with `read`, and checks that `consumed` of them were taken.
  template <class Read>
  auto reading(const std::string& bytes, size_t consumed, Read read) {
    PtrDataInputProvider provider(bytes.data(), bytes.size());
    JavaDataInput input(&provider);
    auto result = read(input);
    EXPECT_EQ(input.BytesConsumed(), consumed);
    EXPECT_EQ(input.IsAtEnd(), consumed == bytes.size());
    return result;
  }
  template <class Write>
  std::string written(Write write) {
    JavaDataOutput output;
    write(output);
    return std::string(output.data().view());
  }
  std::string utf(std::string_view text) {
    return written([&](JavaDataOutput& output) { output.WriteUTF(text); });
  }
  std::string readUTF8(const std::string& bytes) {
    return reading(bytes, bytes.size(), [](JavaDataInput& input) { return input.ReadUTF8(); });
  }
};

TEST_F(JavaDataTest, NumbersAreBigEndianBothWays) {
  const std::string bytes = written([](JavaDataOutput& output) {
    output.WriteBoolean(true);
    output.WriteByte(-2);
    output.WriteChar(0xFFFE);
    output.WriteShort(-2);
    output.WriteInt(-0x01020304);
    output.WriteLong(0x1122334455667788);
    output.WriteFloat(1.5f);
    output.WriteDouble(-2.5);
    output.WriteData(Data::copy("xy"));
  });
  EXPECT_EQ(
      bytes,
      "\x01\xFE\xFF\xFE\xFF\xFE\xFE\xFD\xFC\xFC\x11\x22\x33\x44\x55\x66\x77\x88\x3F\xC0\0\0\xC0\x04\0\0\0\0\0\0xy"s);
  PtrDataInputProvider provider(bytes.data(), bytes.size());
  JavaDataInput input(&provider);
  EXPECT_EQ(input.ReadUnsignedByte(), 1);
  EXPECT_EQ(input.ReadUnsignedByte(), 0xFE);
  EXPECT_EQ(input.ReadUnsignedShort(), 0xFFFE);
  EXPECT_EQ(input.ReadShort(), -2);
  EXPECT_EQ(input.ReadInt(), -0x01020304);
  EXPECT_EQ(input.ReadLong(), 0x1122334455667788);
  EXPECT_EQ(input.ReadFloat(), 1.5f);
  EXPECT_EQ(input.ReadDouble(), -2.5);
  EXPECT_EQ(input.ReadDataOfLength(2).view(), "xy");
  EXPECT_TRUE(input.IsAtEnd());
}

TEST_F(JavaDataTest, VarintsWrapAsTheWireHasThem) {
  auto varint = [&](int32_t value) {
    return written([&](JavaDataOutput& output) { output.WriteVarInt32(value); });
  };
  EXPECT_EQ(varint(0), "\0"s);
  EXPECT_EQ(varint(127), "\x7F");
  EXPECT_EQ(varint(128), "\x80\x01");
  EXPECT_EQ(varint(16383), "\xFF\x7F");
  EXPECT_EQ(varint(16384), "\x80\x80\x01");
  EXPECT_EQ(varint(0x200000), "\x80\x80\x80\x01");
  EXPECT_EQ(varint(268435456), "\x80\x80\x80\x80\x01");
  EXPECT_EQ(varint(-1), "\xFF\xFF\xFF\xFF\x0F");
  auto parsed = [&](const std::string& bytes, size_t consumed) {
    return reading(bytes, consumed, [](JavaDataInput& input) { return input.ParseVarInt32(); });
  };
  for (int32_t value : {0, 127, 128, 16384, 0x200000, 268435456, -1, INT32_MIN, INT32_MAX}) {
    EXPECT_EQ(parsed(varint(value), varint(value).size()), static_cast<uint32_t>(value));
    const std::string zigzag = written([&](JavaDataOutput& output) { output.WriteZigZag32(value); });
    EXPECT_EQ(reading(zigzag, zigzag.size(), [](JavaDataInput& input) { return input.ParseZigZag32(); }),
              value);
  }
  EXPECT_EQ(written([](JavaDataOutput& output) { output.WriteZigZag32(-3); }), "\x05");
  // What does not fit in 32 bits is read and dropped, however long it is.
  EXPECT_EQ(parsed("\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x01", 10), 0xFFFFFFFFu);
  EXPECT_EQ(parsed("\x80\x80\x80\x80\xF1" + std::string(40, '\x80') + "\0!"s, 46), 0x10000000u);
}

TEST_F(JavaDataTest, StringsTravelAsModifiedUTF8) {
  const std::pair<std::string, std::string> cases[] = {
      {"", "\0\0"s},
      {"A", "\0\x01\x41"s},
      {"\0"s, "\0\x02\xC0\x80"s},
      {"a\0b"s, "\0\x04\x61\xC0\x80\x62"s},
      {"\u00E9\u07FF", "\0\x04\xC3\xA9\xDF\xBF"s},
      {"\u0800\uFFFD", "\0\x06\xE0\xA0\x80\xEF\xBF\xBD"s},
      {"\U0001F600", "\0\x06\xED\xA0\xBD\xED\xB8\x80"s},
      {"0123456789abcdef0123\u00E9\U0010FFFFtail",
       "\0\x20"
       "0123456789abcdef0123\xC3\xA9\xED\xAF\xBF\xED\xBF\xBFtail"s},
  };
  for (const auto& [text, bytes] : cases) {
    EXPECT_EQ(utf(text), bytes);
    EXPECT_EQ(readUTF8(bytes), text);
    EXPECT_EQ(reading(bytes, bytes.size(), [](JavaDataInput& input) { return input.ReadUTF(); }), text);
  }
  // One that is missing is written as an empty one; one that is no UTF-8 with replacement characters.
  EXPECT_EQ(written([](JavaDataOutput& output) { output.WriteUTF(std::optional<std::string>()); }), "\0\0"s);
  EXPECT_EQ(utf("a\xFF\xE0\x80"),
            "\0\x0A"
            "a\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"s);
}

TEST_F(JavaDataTest, EveryPlaceInABlockIsLookedAt) {
  // The fast roads take blocks of 8 and 16 bytes: one odd character at each place, and each length, must come
  // through.
  for (const std::string& odd : {"\0"s, "\u00E9"s, "\u20AC"s, "\U0001F600"s}) {
    for (size_t length = 0; length <= 40; ++length) {
      for (size_t place = 0; place <= length; ++place) {
        std::string text(length, 'x');
        text.insert(place, odd);
        ASSERT_EQ(readUTF8(utf(text)), text) << length << " " << place;
      }
    }
  }
}

TEST_F(JavaDataTest, TheLongestStringIsFramedAndOneMoreUnitIsRefused) {
  std::string text;
  for (int i = 0; i < 21845; ++i) text += "\u0800";
  const std::string framed = utf(text);
  EXPECT_EQ(framed.size(), 65537u);
  EXPECT_EQ(framed.substr(0, 2), "\xFF\xFF");
  JavaDataOutput output;
  output.WriteByte(7);
  for (const std::string& tooLong : {text + "a", std::string(40000, '\0'), std::string(70000, 'a')}) {
    try {
      output.WriteUTF(tooLong);
      ADD_FAILURE() << "not refused";
    } catch (const Exception& thrown) {
      EXPECT_EQ(thrown.name(), kJavaDataOutputErrorStringTooLong);
      EXPECT_TRUE(thrown.reason().ends_with(" bytes, 65535 is the limit")) << thrown.reason();
    }
    EXPECT_EQ(output.data().length(), 1u);
  }
  try {
    output.WriteUTF(std::string(40000, '\0'));
  } catch (const Exception& thrown) {
    EXPECT_EQ(thrown.reason(), "String generated 80000 bytes, 65535 is the limit");
  }
}

TEST_F(JavaDataTest, BadStringsAreConsumedAndLogged) {
  expectConsoleLine("Bad UTF 8 String");
  const std::string bad[] = {
      "\xF0\x9F\x98\x80",  // standard UTF-8, which the format does not have
      "abc\xC3",           // ends within a pair
      "\xC3\x41",          // the second byte is none
      "\xE0\xA0",          // ends within three
      "\xE0\xA0\x41",
      "\xE0\x41\x80",
      "abc\xED\xA0\xBD",           // a high surrogate at the end
      "\xED\xA0\xBD\x41\x41\x41",  // followed by something else
      "\xED\xA0\xBD\xED\xA0\xBD",  // by another high one
      "\xED\xB8\x80",              // a low one on its own
  };
  for (std::string body : bad) {
    const std::string bytes = std::string(1, '\0') + static_cast<char>(body.size()) + body + "Z";
    EXPECT_EQ(reading(bytes, bytes.size() - 1, [](JavaDataInput& input) { return input.ReadUTF(); }),
              std::nullopt);
    EXPECT_EQ(reading(bytes, bytes.size() - 1, [](JavaDataInput& input) { return input.ReadUTF8(); }), "");
  }
}

TEST_F(JavaDataTest, StrayContinuationBytesAndOverlongPairsPassTheDecoder) {
  EXPECT_EQ(readUTF8("\0\x01\x80"s), "\x80");
  EXPECT_EQ(readUTF8("\0\x03"
                     "a\xBF"
                     "b"s),
            "a\xBF"
            "b");
  EXPECT_EQ(readUTF8("\0\x02\xC1\x81"s), "\xC1\x81");
  // The string type refuses what is no UTF-8.
  EXPECT_EQ(reading("\0\x01\x80"s, 3, [](JavaDataInput& input) { return input.ReadUTF(); }), std::nullopt);
  // On both sides of the length from which the decoder works in a block of the heap.
  for (size_t length : {150, 151}) {
    const std::string bytes = std::string(1, '\0') + static_cast<char>(length) + std::string(length, 'q');
    EXPECT_EQ(reading(bytes, bytes.size(), [](JavaDataInput& input) { return input.ReadUTF(); }),
              std::string(length, 'q'));
  }
}

TEST_F(JavaDataTest, ArraysAreReadInOnePieceAndSwapped) {
  const std::string shorts = "\x03\0\x01\xFF\xFE\x7F\xFF"s;
  EXPECT_EQ(reading(shorts, 7, [](JavaDataInput& input) { return input.ReadShorts(); }),
            (std::vector<int16_t>{1, -2, 32767}));
  const std::string ints = "\x02\0\0\0\x01\x80\0\0\0"s;
  EXPECT_EQ(reading(ints, 9, [](JavaDataInput& input) { return input.ReadUnsignedInts(); }),
            (std::vector<uint32_t>{1, 0x80000000u}));
  EXPECT_TRUE(reading("\0"s, 1, [](JavaDataInput& input) { return input.ReadShorts(); }).empty());
  // More elements than are set aside before their bytes have arrived.
  std::string many = written([](JavaDataOutput& output) {
    output.WriteVarInt32(20000);
    for (int i = 0; i < 20000; ++i) output.WriteShort(static_cast<int16_t>(i));
  });
  const auto read = reading(many, many.size(), [](JavaDataInput& input) { return input.ReadShorts(); });
  ASSERT_EQ(read.size(), 20000u);
  EXPECT_EQ(read[19999], 19999);
}

TEST_F(JavaDataTest, RunningShortThrowsAndMovesNothing) {
  expectConsoleLine("Needed 8 bytes, only 7 left");
  expectConsoleLine("Needed 4294967295 bytes, only 3 left");
  expectConsoleLine("Needed 18446744073709551615 bytes, only 3 left");
  const std::string seven(7, 'x');
  PtrDataInputProvider provider(seven.data(), seven.size());
  JavaDataInput input(&provider);
  EXPECT_THROW(input.ReadLong(), DataInputProvider::NotEnoughDataException);
  EXPECT_EQ(input.BytesConsumed(), 0u);
  input.ReadInt();
  EXPECT_THROW(input.ReadDataOfLength(4294967295u), DataInputProvider::NotEnoughDataException);
  EXPECT_EQ(input.BytesConsumed(), 4u);
  try {
    provider.SkipBytes(SIZE_MAX);
    ADD_FAILURE();
  } catch (const std::exception& thrown) {
    EXPECT_STREQ(thrown.what(), "DataInputProviderNotEnoughDataException");
  }
}

TEST_F(JavaDataTest, ACountThatNothingStandsBehindTakesNoMemory) {
  expectConsoleLine("Needed ");
  const std::string bytes =
      "\xFF\xFF\xFF\xFF\x0F"
      "ab"s;
  PtrDataInputProvider provider(bytes.data(), bytes.size());
  JavaDataInput input(&provider);
  EXPECT_THROW(input.ReadUnsignedInts(), DataInputProvider::NotEnoughDataException);
}

TEST_F(JavaDataTest, WritesToFiles) {
  const URL file = uniqueTemporaryFile("java-data");
  JavaDataOutput output;
  output.WriteShort(0x4142);
  Error error;
  EXPECT_TRUE(output.WriteToURL(file, true, &error)) << error.description();  // makes the missing file
  EXPECT_TRUE(output.WriteToURL(file, true, &error));
  EXPECT_EQ(readFile(file, nullptr).view(), "ABAB");
  EXPECT_TRUE(output.WriteToURL(file, false, &error));
  EXPECT_EQ(readFile(file, nullptr).view(), "AB");
  EXPECT_FALSE(error);
  removeFile(file);

  EXPECT_FALSE(output.WriteToURL(URL::fileURLWithPath("/nowhere/at/all"), true, &error));
  EXPECT_EQ(error.domain(), kCocoaErrorDomain);
  EXPECT_FALSE(output.WriteToURL(URL::withString("http://host/x"), true, &error));
  EXPECT_TRUE(error.is(kCocoaErrorDomain, 518));
  EXPECT_EQ(error.userInfo().get(kURLErrorKey).url().host(), "host");
  EXPECT_FALSE(output.WriteToURL(URL::fileURLWithPath("/dev/full"), true, &error));
  EXPECT_TRUE(error.is(kCocoaErrorDomain, 512));
  EXPECT_NE(error.userInfo().get(kLocalizedFailureReasonErrorKey).string(), nullptr);
  try {
    output.WriteToURL(URL(), true, &error);
    ADD_FAILURE();
  } catch (const Exception& thrown) {
    EXPECT_EQ(thrown.name(), kInvalidArgumentException);
    EXPECT_EQ(thrown.reason(), "*** -[NVXJavaDataOutput writeToURL:append:error:]: nil URL argument");
  }
}

}  // namespace
}  // namespace nvxcore::utils
