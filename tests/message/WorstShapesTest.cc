#include <malloc.h>
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <ostream>
#include <string>
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

  friend void PrintTo(const Shape& shape, std::ostream* out) { *out << shape.name; }
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
       const std::string inner = repeated("08 01", size) + "\x12";
       const std::string header = "\x1A" + varint(inner.size() + 5 + 2);
       return header + inner + jumpBack(header.size() + inner.size() + 5) + fromHex("08 01");
     },
     parse<NVXx_EXChild>},
    {"300,000 distinct unknown numbers for each MiB",
     [](size_t size) {
       std::string bytes;
       for (uint32_t i = 0; i < size / 1048576.0 * 300000; ++i) bytes += varint((20 + i) * 8) + "\x01";
       return bytes;
     },
     parse<NVXx_EXEmpty>},
    {"distinct unknown numbers, far from each other",
     [](size_t size) {
       std::string bytes;
       for (uint32_t i = 1; bytes.size() < size; ++i) bytes += varint(i * 512 * 8) + "\x01";
       return bytes;
     },
     parse<NVXx_EXEmpty>},
    {"unknown groups", [](size_t size) { return repeated("13 14", size); }, parse<NVXx_EXEmpty>},
    {"items in items",
     [](size_t size) {
       // Each 400 deep, with something to skip at each level.
       std::string nest;
       for (int i = 0; i < 400; ++i) {
         nest = fromHex("0B 10 EA 07 1A") + varint(nest.size()) + nest + fromHex("23 24 0C");
       }
       std::string bytes;
       while (bytes.size() + nest.size() <= size) bytes += nest;
       return bytes;
     },
     parse<NVXx_EXMessageSet>},
    {"sets that each go back over the sets before them",
     [](size_t size) {
       // What lies at position 2 ends an item: from there on a set takes the others for unknown fields.
       std::string bytes = fromHex("22 01 0C");
       while (bytes.size() < size) {
         const std::string jump = jumpBack(bytes.size() + 9 - 2);
         bytes += fromHex("12 07 0B 22") + jump;
       }
       return bytes;
     },
     parse<NVXx_EXItem>},
    {"sets that skip groups once the position has moved back",
     [](size_t size) {
       std::string bytes = fromHex("0A 02 1A 06 0A F8 FF FF FF 0F");
       while (bytes.size() < size) bytes += fromHex("12 04 0B 13 14 0C");
       return bytes;
     },
     parse<NVXx_EXItem>},
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

class WorstShapesTest : public testing::MessageTest, public ::testing::WithParamInterface<Shape> {
 protected:
  // What a round gives back is there for the next, so that page faults aren't what is measured.
  void SetUp() override {
    mallopt(M_MMAP_THRESHOLD, 1 << 30);
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
  }
};

TEST_P(WorstShapesTest, TimeGrowsWithTheBytesOnly) {
  const Shape& shape = GetParam();
  // The short form, which also runs under sanitizers and on busy machines, tells a square alone: that would
  // be sixteen times as slow by the byte at its second size.
  const bool isWhole = testing::runsWholeProofs();
  const std::vector<size_t> sizes =
      isWhole ? std::vector<size_t>{1 << 20, 2 << 20, 4 << 20} : std::vector<size_t>{1 << 14, 1 << 18};
  const double mostNanos = isWhole ? 100 : 20'000;
  const double mostGrowth = isWhole ? 2.3 / 2 : 6;  // of the time for each byte, from size to size
  std::vector<std::string> inputs;
  for (const size_t size : sizes) inputs.push_back(shape.make(size));
  // All sizes in each round, so that a spell in which the machine is slow befalls them alike.
  std::vector<double> best(sizes.size(), 1e9);
  for (int round = 0; round < (isWhole ? 15 : 5); ++round) {
    for (size_t i = 0; i < inputs.size(); ++i) {
      const double start = processorSeconds();
      shape.read(inputs[i]);
      best[i] = std::min(best[i], processorSeconds() - start);
    }
  }
  double former = 0;
  std::printf("%-62s", shape.name);
  for (size_t i = 0; i < inputs.size(); ++i) {
    const double each = best[i] * 1e9 / static_cast<double>(inputs[i].size());
    std::printf(" %8zu B %6.1f ns/B", inputs[i].size(), each);
    EXPECT_LE(each, mostNanos);
    if (former != 0) {
      std::printf(" x%.2f", each / former);
      EXPECT_LE(each, mostGrowth * former);
    }
    former = each;
  }
  std::printf("\n");
}

INSTANTIATE_TEST_SUITE_P(Shapes, WorstShapesTest, ::testing::ValuesIn(kShapes));

}  // namespace
}  // namespace nvxcore
