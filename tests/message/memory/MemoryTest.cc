#include <algorithm>
#include <cstdio>
#include <string>

#include "nvxcore/message/NVXx_PBDescriptor.h"
#include "nvxcore/message/NVXx_PBUnknownFieldSet.h"
#include "nvxcore/message/internal/PBClass.h"
#include "nvxcore/platform/internal/BlockPool.h"
#include "tests/message/MessageTest.h"
#include "tests/message/memory/CountingAllocator.h"
#include "tests/support/Proof.h"
#include "wide.pb.h"

// What a parse may take of memory: 1 MiB and a multiple of its input, whatever stands there.

namespace nvxcore {
namespace {

using testing::fromHex;

std::string repeated(std::string_view hex, size_t size) {
  const std::string one = fromHex(hex);
  std::string all;
  while (all.size() + one.size() <= size) all += one;
  return all;
}

std::string varint(uint64_t value) {
  std::string bytes;
  for (; value >= 0x80; value >>= 7) bytes += static_cast<char>(value | 0x80);
  return bytes + static_cast<char>(value);
}

std::string nested(std::string inner, int levels) {
  for (int i = 0; i < levels; ++i) inner = "\x3A" + varint(inner.size()) + inner;
  return inner;
}

struct Shape {
  const char* name;
  std::string (*make)(size_t size);

  friend void PrintTo(const Shape& shape, std::ostream* out) { *out << shape.name; }
};

const Shape kShapes[] = {
    {"empty messages of the largest class", [](size_t size) { return repeated("0A 00", size); }},
    {"the same, 60 levels down", [](size_t size) { return nested(repeated("0A 00", size), 60); }},
    {"messages with one byte of text", [](size_t size) { return repeated("0A 03 0A 01 41", size); }},
    {"empty groups", [](size_t size) { return repeated("13 14", size); }},
    {"groups with an empty message", [](size_t size) { return repeated("13 0A 00 14", size); }},
    {"groups with an empty text", [](size_t size) { return repeated("13 12 00 14", size); }},
    {"empty buffers", [](size_t size) { return repeated("1A 00", size); }},
    {"buffers of a byte", [](size_t size) { return repeated("1A 01 41", size); }},
    {"empty texts", [](size_t size) { return repeated("22 00", size); }},
    {"one packed run", [](size_t size) { return "\x2A" + varint(size) + std::string(size, '\1'); }},
    {"packed runs of one", [](size_t size) { return repeated("2A 01 01", size); }},
    {"single elements", [](size_t size) { return repeated("30 01", size); }},
    {"a message again and again", [](size_t size) { return repeated("3A 02 22 00", size); }},
    {"distinct unknown fields",
     [](size_t size) {
       std::string bytes;
       for (uint32_t number = 16; bytes.size() < size; ++number) bytes += varint(number * 8) + "\x01";
       return bytes;
     }},
    {"unknown varints of one number", [](size_t size) { return repeated("40 01", size); }},
    {"unknown empty buffers", [](size_t size) { return repeated("42 00", size); }},
    {"unknown empty groups", [](size_t size) { return repeated("43 44", size); }},
    {"unknown groups in groups", [](size_t size) { return repeated("43 0B 13 08 01 14 0C 44", size); }},
};

class MemoryTest : public testing::MessageTest, public ::testing::WithParamInterface<Shape> {};

TEST_P(MemoryTest, IsBoundedByTheInput) {
  if (!testing::allocationsAreCounted()) GTEST_SKIP() << "the sanitizer has the allocator";
  const Shape& shape = GetParam();
  const size_t block = std::max({MMWide::messageClass().parsedSize, MMHolder::messageClass().parsedSize,
                                 MMHolder_Part::messageClass().parsedSize});
  std::printf("%-36s", shape.name);
  const size_t largest = testing::proofCount(size_t{1} << 20, size_t{4} << 20);
  for (size_t size = 1024; size <= largest; size *= 8) {
    const Data bytes = Data::copy(shape.make(size));
    BlockPool::drain();
    const size_t before = testing::allocationCount().bytes;
    testing::resetAllocationPeak();
    Error error;
    const Ref<MMHolder> message = MMHolder::parseFromData(bytes, &error);
    EXPECT_TRUE(message) << error.description();
    const size_t taken = testing::allocationCount().peakBytes - before;
    const size_t bound = (size_t{1} << 20) + bytes.length() * std::max<size_t>(128, block / 2 + 32);
    std::printf("  %8zu: %6.1f a byte", bytes.length(),
                static_cast<double>(taken) / static_cast<double>(bytes.length()));
    EXPECT_LE(taken, bound) << bytes.length();
  }
  std::printf("  (largest block %zu)\n", block);
}

INSTANTIATE_TEST_SUITE_P(Shapes, MemoryTest, ::testing::ValuesIn(kShapes));

using AllocationTest = testing::MessageTest;

TEST_F(AllocationTest, SerialisingTakesOneHoweverDeepTheTree) {
  if (!testing::allocationsAreCounted()) GTEST_SKIP() << "the sanitizer has the allocator";
  for (const int depth : {1, 8, 64}) {
    const auto root = MMHolder::message();
    MMHolder* last = root.get();
    for (int i = 0; i < depth; ++i) {
      last->wideNumberArray().addInt64(i);
      last = &last->child();
    }
    last->blobArray().addObject(Data::copy(std::string(20000, 'x')));
    root->data();
    const size_t before = testing::allocationCount().calls;
    const Data bytes = root->data();
    EXPECT_EQ(testing::allocationCount().calls - before, 1U) << depth;
    EXPECT_TRUE(MMHolder::parseFromData(bytes)->isEqual(root.get()));
  }
}

}  // namespace
}  // namespace nvxcore
