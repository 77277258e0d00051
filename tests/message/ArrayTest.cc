#include <cmath>
#include <vector>

#include "nvxcore/message/NVXx_PBArray.h"
#include "tests/message/MessageTest.h"
#include "tests/message/handwritten/Example.h"

namespace nvxcore {
namespace {

using testing::thrownBy;
using ArrayTest = testing::MessageTest;

Ref<NVXx_PBMutableArray> arrayOf(PBArrayValueType type) {
  return NVXx_PBMutableArray::arrayWithValueType(type);
}

TEST_F(ArrayTest, CapacityGrowsInItsSteps) {
  auto array = arrayOf(PBArrayValueTypeInt32);
  const std::vector<std::pair<size_t, size_t>> told = {{1, 1},   {2, 32},  {32, 32},
                                                       {33, 64}, {64, 64}, {65, 96}};
  for (const auto& [count, capacity] : told) {
    while (array->count() < count) array->addInt32(static_cast<int32_t>(array->count()));
    EXPECT_EQ(array->capacity(), capacity) << count;
  }
  EXPECT_EQ(array->int32AtIndex(64), 64);
  array->removeAllValues();
  EXPECT_EQ(array->capacity(), 0U);
  array->addInt32(1);
  EXPECT_EQ(array->capacity(), 1U);
  // A parsed run ends up with the capacity of as many additions.
  EXPECT_EQ(NVXx_EXPacked::parseFromData(testing::bytesOf("42 02 01 02"))->int32Array().capacity(), 32U);
  auto exact = NVXx_PBMutableArray::arrayWithValueType(PBArrayValueTypeInt32, 31);
  exact->appendValues(std::vector<int32_t>(31).data(), PBArrayValueTypeInt32, 31);
  EXPECT_EQ(exact->capacity(), 31U);
  exact->addInt32(1);
  EXPECT_EQ(exact->capacity(), 64U);
}

TEST_F(ArrayTest, WrongTypesAndIndexesAreRefusedInOrder) {
  auto array = arrayOf(PBArrayValueTypeUInt32);
  array->addUInt32(1);
  const std::string mismatch = "NVXx_PBArrayTypeMismatchException: array value type mismatch (expected '";
  const std::vector<std::pair<std::function<void()>, std::string>> calls = {
      {[&] { array->addInt32(1); }, mismatch + "PBArrayValueTypeInt32')"},
      {[&] { array->int32AtIndex(0); }, mismatch + "PBArrayValueTypeInt32')"},
      {[&] { array->boolAtIndex(1); }, "NSRangeException: idx (1) beyond bounds (1)"},
      {[&] { array->replaceBoolAtIndex(1, true); }, mismatch + "PBArrayValueTypeBool')"},
      {[&] { array->replaceUInt32AtIndex(1, 1); }, "NSRangeException: idx (1) beyond bounds (1)"},
      {[&] { array->firstObject(); }, mismatch + "PBArrayValueTypeObject')"},
      {[&] { array->appendArray(NVXx_PBArray::arrayWithInt32(1).get()); }, mismatch + "array->_valueType')"},
      {[&] { array->appendValues("", PBArrayValueTypeBool, 1); }, mismatch + "valueType')"},
      {[&] { arrayOf(PBArrayValueTypeObject)->addObject(nullptr); },
       "NSInvalidArgumentException: Attempting to add nil to a PBArray"},
      {[&] {
         NVXx_PBArray::arrayWithArray({PBBoxedValue(int32_t{1}), PBBoxedValue(PBObject(NVXx_PBString("x")))},
                                      PBArrayValueTypeInt32);
       },
       "NVXx_PBArrayNumberExpectedException: NSNumber expected (got 'NSString')"},
  };
  for (const auto& [call, expected] : calls) EXPECT_EQ(thrownBy(call), expected);
  EXPECT_EQ(array->count(), 1U);
}

TEST_F(ArrayTest, EqualityLooksAtBytesAndTypes) {
  const auto doubles = [](double value) {
    auto array = arrayOf(PBArrayValueTypeDouble);
    array->addDouble(value);
    return array;
  };
  EXPECT_FALSE(doubles(0.0)->isEqual(doubles(-0.0).get()));
  EXPECT_TRUE(doubles(std::nan(""))->isEqual(doubles(std::nan("")).get()));
  EXPECT_TRUE(doubles(1)->isEqual(doubles(1)->copy().get()));
  EXPECT_FALSE(arrayOf(PBArrayValueTypeInt32)->isEqual(arrayOf(PBArrayValueTypeUInt32).get()));
  EXPECT_EQ(doubles(1)->hash(), 700001U);
  const auto strings = [](const char* text) { return NVXx_PBArray::arrayWithObject(NVXx_PBString(text)); };
  EXPECT_TRUE(strings("a")->isEqual(strings("a").get()));
  EXPECT_FALSE(strings("a")->isEqual(strings("b").get()));
}

struct CountingDelegate : PBMutableArrayDelegate {
  void pbMutableArrayWillAddElements(NVXx_PBMutableArray& array, size_t count) override {
    calls.emplace_back(array.count(), count);
  }
  std::vector<std::pair<size_t, size_t>> calls;
};

TEST_F(ArrayTest, TheDelegateIsToldOfEachGrowth) {
  CountingDelegate delegate;
  auto array = arrayOf(PBArrayValueTypeInt32);
  array->setDelegate(&delegate);
  array->addInt32(1);
  array->addInt32(2);
  array->ensureAdditionalCapacity(5);
  array->appendArray(arrayOf(PBArrayValueTypeInt32).get());
  array->appendArray(array.get());
  EXPECT_EQ(delegate.calls, (std::vector<std::pair<size_t, size_t>>{{0, 1}, {1, 1}, {2, 5}, {2, 2}}));
  EXPECT_EQ(array->mutableCopy()->delegate(), nullptr);
  EXPECT_EQ(array->int32AtIndex(3), 2);
}

TEST_F(ArrayTest, ListsEnumerationAndDescriptions) {
  EXPECT_EQ(NVXx_PBArray::arrayWithInt32s({1, 2, INT32_MAX, 3})->count(), 2U);
  auto array = NVXx_PBArray::arrayWithInt32s({1, -2});
  EXPECT_EQ(thrownBy([&] {
              array->enumerateInt32sUsingBlock([&](int32_t, size_t, bool&) { array->addInt32(1); });
            }).substr(0, 18),
            "NSGenericException");
  EXPECT_NE(array->description().find("> { 1, -2, 1 }"), std::string::npos) << array->description();
  auto objects = NVXx_PBArray::arrayWithObjects({NVXx_PBString("a\nb"), NVXx_PBString("c")});
  EXPECT_NE(objects->description().find("> { \n\ta\n\tb,\n\tc\n }"), std::string::npos)
      << objects->description();
  objects->setObjectAtIndexedSubscript(NVXx_PBString("d"), 2);
  EXPECT_EQ(objects->lastObject().string().view(), "d");
  EXPECT_EQ(objects
                ->arrayWithConversion([](const PBBoxedValue& v) {
                  return v.object().string().view() == "c" ? PBBoxedValue() : v;
                })
                .size(),
            2U);
  const auto messages = NVXx_PBArray::arrayWithObjects({PBObject(NVXx_EXChild::message())});
  messages->setValueForKey(int32_t{4}, "value");
  EXPECT_EQ(messages->valueForKey("value")[0].int32Value(), 4);
}

}  // namespace
}  // namespace nvxcore
