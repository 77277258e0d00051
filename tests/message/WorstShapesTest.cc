#include <time.h>

#include <algorithm>
#include <cstdio>
#include <vector>

#include "nvxcore/message/NVXx_PBUnknownFieldSet.h"
#include "tests/message/MessageTest.h"
#include "tests/message/handwritten/Example.h"
#include "tests/support/Proof.h"

// Inputs made to be slow, at growing sizes: the time for a byte must not grow with them.

namespace nvxcore {
namespace {

using testing::fromHex;

const NVXx_PBExtensionRegistry* registry() { return &NVXx_EXExampleRoot::extensionRegistry(); }

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

std::string jumpBack(size_t distance) {
  return varint(static_cast<uint32_t>(-static_cast<int64_t>(distance)));
}

template <class T>
void parse(const std::string& bytes) {
  Error error;
  T::parseFromData(Data::copy(bytes), registry(), &error);
}

struct Shape {
  const char* name;
  std::string (*make)(size_t size);
  void (*read)(const std::string& bytes);
};

const Shape kShapes[] = {
    {"a singular message again and again", [](size_t size) { return repeated("1A 04 22 02 01 02", size); },
     parse<NVXx_EXChild>},
    {"a singular message extension again and again",
     [](size_t size) { return repeated("9A 07 04 22 02 01 02", size); }, parse<NVXx_EXExtendable>},
    {"items of one message again and again",
     [](size_t size) { return repeated("0B 10 E9 07 1A 02 20 01 0C", size); }, parse<NVXx_EXMessageSet>},
    {"start-groups", [](size_t size) { return "\x0B" + std::string(size, '\x0B'); },
     parse<NVXx_EXMessageSet>},
    {"groups within an item, their ends, and a jump among them",
     [](size_t size) {
       const size_t half = size / 2;
       return "\x0B" + std::string(half, '\x0B') + std::string(half, '\x0C') + "\x12" +
              jumpBack(2 * half + 5) + "\x0C";
     },
     parse<NVXx_EXMessageSet>},
    {"a descent that jumps back to its beginning",
     [](size_t size) {
       const std::string filling = repeated("08 01", size);
       std::string inner = filling + "\x12";
       inner += jumpBack(inner.size() + 5 + 1 + 4);
       return "\x1A" + varint(inner.size() + 2) + inner + fromHex("08 01");
     },
     parse<NVXx_EXChild>},
    {"distinct unknown numbers",
     [](size_t size) {
       std::string bytes;
       for (uint32_t number = 20; bytes.size() < size; ++number) bytes += varint(number * 8) + "\x01";
       return bytes;
     },
     parse<NVXx_EXEmpty>},
    {"elements that are not packed", [](size_t size) { return repeated("40 01", size); },
     parse<NVXx_EXRepeated>},
    {"packed runs of one", [](size_t size) { return repeated("42 01 01", size); }, parse<NVXx_EXPacked>},
    {"strings of an array", [](size_t size) { return repeated("7A 01 41", size); }, parse<NVXx_EXRepeated>},
    {"empty messages", [](size_t size) { return repeated("2A 00", size); }, parse<NVXx_EXChild>},
    {"undefined enum values", [](size_t size) { return repeated("90 01 63", size); }, parse<NVXx_EXRepeated>},
    {"extension elements", [](size_t size) { return repeated("F8 07 01", size); }, parse<NVXx_EXExtendable>},
};

double processorSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

class WorstShapesTest : public testing::MessageTest, public ::testing::WithParamInterface<Shape> {};

TEST_P(WorstShapesTest, TimeGrowsWithTheBytesOnly) {
  const Shape& shape = GetParam();
  const size_t base = testing::proofCount(size_t{1} << 17, size_t{1} << 20);
  std::vector<double> spent;
  for (const size_t size : {base, base * 2, base * 4}) {
    const std::string bytes = shape.make(size);
    double best = 1e9;
    for (int round = 0; round < 3; ++round) {
      const double start = processorSeconds();
      shape.read(bytes);
      best = std::min(best, processorSeconds() - start);
    }
    std::printf("%s: %zu bytes, %.1f ns a byte\n", shape.name, bytes.size(), best * 1e9 / bytes.size());
    spent.push_back(best);
    EXPECT_LE(best * 1e9 / bytes.size(), testing::runsWholeProofs() ? 100 : 1000);
  }
  // Four times the bytes take four times as long. On a busy machine caches come and go; a square is still
  // caught.
  const double most = testing::runsWholeProofs() ? 2.3 * 2.3 : 10;
  EXPECT_LE(spent[2] / spent[0], most);
}

INSTANTIATE_TEST_SUITE_P(Shapes, WorstShapesTest, ::testing::ValuesIn(kShapes));

}  // namespace
}  // namespace nvxcore
