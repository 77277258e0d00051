#include <gtest/gtest.h>
#include <zlib.h>

#include <cstdint>
#include <random>
#include <string>

#include "nvxcore/platform/Value.h"
#include "nvxcore/transport/transforms/NVXx_HTKNSDataZlib.h"
#include "tests/support/NVXTest.h"

namespace nvxcore::testing {
namespace {

class ZlibTest : public NVXTest {
 protected:
  ~ZlibTest() override { NVXx_htk_setInflatedLengthLimit(size_t{256} << 20); }
};

/// Half words, half noise: neither side's buffer fits at the first guess for all lengths.
std::string sample(size_t length) {
  std::mt19937 random(7);
  std::string text;
  while (text.size() < length / 2) text += "and then some ";
  text.resize(length / 2);
  while (text.size() < length) text += static_cast<char>(random());
  return text;
}

/// By zlib itself, with the header that `windowBits` asks for.
std::string peerCompressed(const std::string& text, int level, int windowBits) {
  z_stream stream{};
  EXPECT_EQ(deflateInit2(&stream, level, Z_DEFLATED, windowBits, 8, Z_DEFAULT_STRATEGY), Z_OK);
  std::string out(deflateBound(&stream, text.size()), '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return out;
}

int64_t zlibResult(const Error& error) {
  return error.userInfo().get(NVXx_HTKNSDataZlibErrorKey).integerValue();
}

TEST_F(ZlibTest, EachFormatAndLevelGivesZlibsOwnBytesAndComesBack) {
  for (const size_t length : {size_t{1}, size_t{100}, size_t{5000}, size_t{300000}}) {
    const std::string text = sample(length);
    const Data data = Data::copy(text);
    Error error("before", 1);
    for (const int level : {-7, -1, 0, 1, 6, 9, 100}) {
      const int used = level == -1 ? -1 : level < 1 ? 1 : level > 9 ? 9 : level;
      const Data gzip = NVXx_htk_dataByGzippingData(data, level, &error);
      ASSERT_EQ(gzip.view(), peerCompressed(text, used, 31)) << length << " at " << level;
      EXPECT_FALSE(error);
      const Data zlib = NVXx_htk_dataByDeflatingData(data, level, &error);
      ASSERT_EQ(zlib.view(), peerCompressed(text, used, 15));
      const Data raw = NVXx_htk_dataByRawDeflatingData(data, level, &error);
      ASSERT_EQ(raw.view(), peerCompressed(text, used, -15));
      EXPECT_EQ(NVXx_htk_dataByInflatingData(gzip, &error), data);
      EXPECT_EQ(NVXx_htk_dataByInflatingData(zlib), data);
      EXPECT_EQ(NVXx_htk_dataByInflatingBytes(zlib.bytes(), zlib.length(), &error), data);
      EXPECT_EQ(NVXx_htk_dataByRawInflatingData(raw), data);
      EXPECT_EQ(NVXx_htk_dataByRawInflatingData(raw, &error), data);
      EXPECT_EQ(NVXx_htk_dataByRawInflatingBytes(raw.bytes(), raw.length(), &error), data);
      EXPECT_FALSE(error);
    }
    const Data byDefault = NVXx_htk_dataByGzippingBytes(data.bytes(), data.length());
    EXPECT_EQ(byDefault, NVXx_htk_dataByGzippingData(data, -1));
    EXPECT_EQ(byDefault, NVXx_htk_dataByGzippingBytes(data.bytes(), data.length(), &error));
    EXPECT_NE(byDefault, NVXx_htk_dataByDeflatingData(data));
  }
}

TEST_F(ZlibTest, RawInflatingOfPlainBytesWithoutAnErrorExpectsAHeader) {
  const Data data = Data::copy(sample(500));
  const Data raw = NVXx_htk_dataByRawDeflatingData(data), gzip = NVXx_htk_dataByGzippingData(data);
  EXPECT_FALSE(NVXx_htk_dataByRawInflatingBytes(raw.bytes(), raw.length()));
  EXPECT_EQ(NVXx_htk_dataByRawInflatingBytes(gzip.bytes(), gzip.length()), data);
  EXPECT_FALSE(NVXx_htk_dataByRawInflatingBytes(gzip.bytes(), gzip.length(), nullptr));
}

TEST_F(ZlibTest, NoInputIsNoErrorAndTooLongAnInputIsOneOfCompressionOnly) {
  Error error("before", 1);
  for (const Data& data : {Data(), Data::copy("")}) {
    EXPECT_FALSE(NVXx_htk_dataByGzippingData(data, &error) || error);
    error = Error("before", 1);
    EXPECT_FALSE(NVXx_htk_dataByInflatingData(data, &error) || error);
  }
  const char byte = 'x';
  constexpr size_t kTooLong = size_t{1} << 32;
  EXPECT_FALSE(NVXx_htk_dataByRawDeflatingBytes(&byte, kTooLong, 5, &error));
  EXPECT_TRUE(error.is(NVXx_HTKNSDataZlibErrorDomain, kHTKNSDataZlibErrorInputTooLong));
  EXPECT_TRUE(error.userInfo().empty());
  EXPECT_FALSE(NVXx_htk_dataByInflatingBytes(&byte, kTooLong, &error) || error);
}

TEST_F(ZlibTest, DamagedInputFailsWithZlibsCodeAndMessage) {
  const std::string text = sample(3000);
  const std::string gzip = peerCompressed(text, 6, 31);
  Error error;
  for (size_t length = 1; length < gzip.size(); ++length) {
    ASSERT_FALSE(NVXx_htk_dataByInflatingBytes(gzip.data(), length, &error)) << length;
    ASSERT_TRUE(error.is(NVXx_HTKNSDataZlibErrorDomain, kHTKNSDataZlibErrorFailed));
    ASSERT_EQ(zlibResult(error), Z_BUF_ERROR);
    ASSERT_FALSE(error.userInfo().contains(kLocalizedDescriptionKey));
  }
  std::string badSum = gzip;
  badSum[badSum.size() - 8] ^= 1;
  EXPECT_FALSE(NVXx_htk_dataByInflatingData(Data::copy(badSum), &error));
  EXPECT_EQ(zlibResult(error), Z_DATA_ERROR);
  EXPECT_EQ(*error.userInfo().get(kLocalizedDescriptionKey).string(), "incorrect data check");
  // A header that asks for a dictionary.
  EXPECT_FALSE(NVXx_htk_dataByInflatingData(Data::copy(std::string_view("\x78\xBB\0\0\0\1", 6)), &error));
  EXPECT_EQ(error.code(), kHTKNSDataZlibErrorFailed);
  EXPECT_EQ(zlibResult(error), Z_NEED_DICT);

  EXPECT_FALSE(NVXx_htk_dataByInflatingData(Data::copy(gzip + gzip), &error));
  EXPECT_TRUE(error.is(NVXx_HTKNSDataZlibErrorDomain, kHTKNSDataZlibErrorRemainingBytes));
  EXPECT_EQ(error.userInfo().get(NVXx_HTKNSDataZlibRemainingBytesKey).integerValue(),
            static_cast<int64_t>(gzip.size()));
}

TEST_F(ZlibTest, WhatInflatesPastTheLimitFailsAtIt) {
  const std::string zeros(5 << 20, '\0');
  const Data bomb = NVXx_htk_dataByDeflatingBytes(zeros.data(), zeros.size(), 9);
  ASSERT_LT(bomb.length(), 6000u);
  Error error;
  for (const size_t limit : {size_t{0}, size_t{1}, size_t{511}, zeros.size() - 1}) {
    NVXx_htk_setInflatedLengthLimit(limit);
    ASSERT_FALSE(NVXx_htk_dataByInflatingData(bomb, &error)) << limit;
    EXPECT_TRUE(error.is(NVXx_HTKNSDataZlibErrorDomain, kHTKNSDataZlibErrorFailed));
    EXPECT_EQ(*error.userInfo().get(kLocalizedDescriptionKey).string(),
              "inflates to more than " + std::to_string(limit) + " bytes");
  }
  for (const size_t limit : {zeros.size(), SIZE_MAX}) {
    NVXx_htk_setInflatedLengthLimit(limit);
    EXPECT_EQ(NVXx_htk_dataByInflatingData(bomb, &error).length(), zeros.size());
    EXPECT_FALSE(error);
  }
}

TEST_F(ZlibTest, WithoutASayTheLimitIs256MiB) {
  constexpr size_t kLimit = size_t{256} << 20;
  ASSERT_EQ(NVXx_htk_inflatedLengthLimit(), kLimit);
  // One block of a long run, again and again.
  z_stream stream{};
  ASSERT_EQ(deflateInit(&stream, 1), Z_OK);
  const std::string zeros(1 << 20, '\0');
  std::string bomb(4 << 20, '\0');
  stream.next_out = reinterpret_cast<Bytef*>(bomb.data());
  stream.avail_out = static_cast<uInt>(bomb.size());
  for (int i = 0; i <= 256; ++i) {
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(zeros.data()));
    stream.avail_in = i < 256 ? static_cast<uInt>(zeros.size()) : 1;
    ASSERT_EQ(deflate(&stream, i < 256 ? Z_NO_FLUSH : Z_FINISH), i < 256 ? Z_OK : Z_STREAM_END);
  }
  bomb.resize(stream.total_out);
  deflateEnd(&stream);
  Error error;
  EXPECT_FALSE(NVXx_htk_dataByInflatingData(Data::copy(bomb), &error));
  EXPECT_TRUE(error.is(NVXx_HTKNSDataZlibErrorDomain, kHTKNSDataZlibErrorFailed));
}

}  // namespace
}  // namespace nvxcore::testing
