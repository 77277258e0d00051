#include <string>
#include <vector>

#include "nvxcore/message/NVXx_PBCodedInputStream.h"
#include "nvxcore/message/NVXx_PBDescriptor.h"
#include "nvxcore/message/NVXx_PBUnknownFieldSet.h"
#include "tests/message/MessageTest.h"
#include "tests/message/handwritten/Example.h"

namespace nvxcore {
namespace {

using testing::bytesOf;
using testing::thrownBy;
using StorageTest = testing::MessageTest;

TEST_F(StorageTest, ReadingThroughUnsetMessagesLeavesThemLatentAndWritingMakesTheChainReal) {
  auto root = NVXx_EXChild::message();
  NVXx_EXChild& child = root->child();
  NVXx_EXChild& grandchild = child.child();
  EXPECT_EQ(&root->child().child(), &grandchild);
  EXPECT_FALSE(root->hasChild());
  EXPECT_EQ(root->serializedSize(), 0U);
  EXPECT_TRUE(child.wasAutocreatedBy(*root));

  grandchild.setValue(5);
  EXPECT_TRUE(root->hasChild());
  EXPECT_TRUE(child.hasChild());
  EXPECT_FALSE(child.wasAutocreatedBy(*root));
  EXPECT_FALSE(grandchild.wasAutocreatedBy(child));
  EXPECT_EQ(testing::toHex(root->data().view()), "1A 04 1A 02 08 05");
}

TEST_F(StorageTest, EveryKindOfChangeToALatentChildShowsInItsParent) {
  const std::vector<std::pair<const char*, std::function<void(NVXx_EXExtendable&)>>> changes = {
      {"scalar", [](NVXx_EXExtendable& m) { m.setFirst(1); }},
      {"extension", [](NVXx_EXExtendable& m) { m.setExtension(NVXx_EXExampleRoot::extInt32(), 1); }},
      {"extension list",
       [](NVXx_EXExtendable& m) { m.addExtension(NVXx_EXExampleRoot::extInt32Array(), 1); }},
      {"extension message",
       [](NVXx_EXExtendable& m) { m.getExtension(NVXx_EXExampleRoot::extMessage())->setValue(1); }},
      {"unknown fields", [](NVXx_EXExtendable& m) { m.mutableUnknownFields(); }},
      {"merge", [](NVXx_EXExtendable& m) { m.mergeFrom(*NVXx_EXExtendable::message()); }},
      {"parse", [](NVXx_EXExtendable& m) { m.mergeFromData(bytesOf("08 01")); }},
  };
  for (const auto& [name, change] : changes) {
    SCOPED_TRACE(name);
    auto parent = NVXx_EXHolder::message();
    change(parent->extendable());
    EXPECT_TRUE(parent->hasExtendable());
  }
  // What changes nothing shows nothing.
  auto parent = NVXx_EXHolder::message();
  parent->extendable().setHasFirst(false);
  parent->extendable().clear();
  parent->extendable().clearExtension(NVXx_EXExampleRoot::extInt32());
  parent->extendable().mergeFromData(Data());
  EXPECT_FALSE(parent->hasExtendable());
}

TEST_F(StorageTest, CopiedBytesOutliveTheInputAndTheirMessage) {
  std::string input = bytesOf("3A 01 61 42 02 78 79 3A 03 62 63 64 70 07").string();
  bool isGone = false;
  NVXx_PBString name;
  {
    NVXx_PBCodedInputStream stream(Data::wrap(input.data(), input.size(), [&] { isGone = true; }));
    stream.setCopiesBytes(true);
    const auto message = NVXx_EXDefaults::parseFromCodedInputStream(stream, nullptr);
    name = message->name_handle();
    // The later of the two, in place; another one is a block of its own.
    EXPECT_EQ(message->name(), "bcd");
    message->setName("replaced");
    EXPECT_EQ(message->blob(), "xy");
  }
  EXPECT_TRUE(isGone);
  input.assign(input.size(), '?');
  EXPECT_EQ(name.view(), "bcd");
}

TEST_F(StorageTest, AReplacedOrOrphanedLatentChildStandsAlone) {
  auto root = NVXx_EXChild::message();
  Ref<NVXx_EXChild> latent = root->child();
  auto other = NVXx_EXChild::message();
  other->setValue(7);
  root->setChild(other);
  latent->setValue(3);
  EXPECT_EQ(root->child().value(), 7);
  EXPECT_EQ(&root->child(), other.get());

  Ref<NVXx_EXChild> orphan = other->child();
  Ref<NVXx_PBMutableArray> list = other->stepArray();
  root->setHasChild(false);
  other = nullptr;
  orphan->setValue(9);
  list->addInt32(1);
  EXPECT_EQ(orphan->value(), 9);
}

TEST_F(StorageTest, ClearingAChildDropsAPresentOneAndKeepsALatentOne) {
  auto root = NVXx_EXChild::message();
  NVXx_EXChild* latent = &root->child();
  root->setHasChild(false);
  EXPECT_EQ(&root->child(), latent);
  latent->setValue(1);
  root->setHasChild(false);
  EXPECT_FALSE(root->hasChild());
  EXPECT_FALSE(root->child().hasValue());
  EXPECT_EQ(thrownBy([&] { root->setHasValue(true); }),
            "NSInvalidArgumentException: has fields can only be set to NO");
}

TEST_F(StorageTest, ArraysTellTheirMessageOnce) {
  auto message = NVXx_EXChild::message();
  NVXx_PBMutableArray& steps = message->stepArray();
  EXPECT_FALSE(message->hasStepArray());
  steps.appendArray(NVXx_PBMutableArray::arrayWithValueType(PBArrayValueTypeInt32).get());
  EXPECT_FALSE(message->hasStepArray());
  steps.addInt32(4);
  EXPECT_TRUE(message->hasStepArray());
  steps.removeAllValues();
  EXPECT_TRUE(message->hasStepArray());
  EXPECT_EQ(message->serializedSize(), 0U);

  // An assigned one is held as it is, and an empty one counts as set.
  auto given = NVXx_PBMutableArray::arrayWithValueType(PBArrayValueTypeInt32);
  Ref<NVXx_PBMutableArray> former = steps;
  message->setStepArray(given);
  EXPECT_EQ(&message->stepArray(), given.get());
  EXPECT_TRUE(message->hasStepArray());
  message->setStepArray(nullptr);
  EXPECT_FALSE(message->hasStepArray());
  given->addInt32(1);
  EXPECT_FALSE(message->hasStepArray());
  EXPECT_EQ(
      thrownBy(
          [&] { message->setStepArray(NVXx_PBMutableArray::arrayWithValueType(PBArrayValueTypeUInt32)); }),
      "NVXx_PBArrayTypeMismatchException: array value type mismatch (expected 'PBArrayValueTypeInt32')");
}

TEST_F(StorageTest, DefaultsStandWhereNothingIsSet) {
  auto message = NVXx_EXDefaults::message();
  EXPECT_TRUE(message->flag());
  EXPECT_EQ(message->small(), -7);
  EXPECT_EQ(message->big(), INT64_MIN);
  EXPECT_EQ(message->huge(), UINT64_MAX);
  EXPECT_EQ(message->ratio(), __builtin_inff());
  EXPECT_EQ(message->name(), "quote \" and \xC3\xA9, tab\t");
  EXPECT_EQ(message->name_handle().view(), message->name());
  EXPECT_EQ(message->blob(), std::string_view("\0\1\xFF?", 4));
  EXPECT_EQ(message->color(), EXColor_DarkBlue);
  EXPECT_EQ(message->mid(), -3);
  EXPECT_EQ(message->far(), 0);

  message->setFlag(false);
  EXPECT_FALSE(message->flag());
  message->setHasFlag(false);
  EXPECT_TRUE(message->flag());
  message->setName("");
  EXPECT_TRUE(message->hasName());
  EXPECT_EQ(message->name(), "");
  message->setName(nullptr);
  EXPECT_FALSE(message->hasName());
  EXPECT_EQ(message->name(), "quote \" and \xC3\xA9, tab\t");
  message->setName("bad \xC0\x80");
  EXPECT_TRUE(message->hasName());
  EXPECT_EQ(message->name(), "");
}

TEST_F(StorageTest, ACopySharesChildrenAndNotArrays) {
  auto message = NVXx_EXChild::message();
  message->setLabel("shared");
  message->child().setValue(1);
  message->stepArray().addInt32(1);
  message->childArray().addObject(NVXx_EXChild::message());
  auto latentParent = NVXx_EXChild::message();
  latentParent->child();

  auto copy = message->copy();
  EXPECT_TRUE(copy->isEqual(message.get()));
  EXPECT_EQ(copy->label().data(), message->label().data());
  EXPECT_EQ(&copy->child(), &message->child());
  EXPECT_NE(&copy->stepArray(), &message->stepArray());
  copy->stepArray().addInt32(2);
  EXPECT_EQ(message->stepArray().count(), 1U);
  EXPECT_EQ(&copy->childArray().messageAtIndex<NVXx_EXChild>(0),
            &message->childArray().messageAtIndex<NVXx_EXChild>(0));
  EXPECT_NE(&latentParent->copy()->child(), &latentParent->child());

  auto deep = message->deepCopy();
  deep->child().setValue(2);
  deep->childArray().messageAtIndex<NVXx_EXChild>(0).setValue(3);
  EXPECT_EQ(message->child().value(), 1);
  EXPECT_FALSE(message->childArray().messageAtIndex<NVXx_EXChild>(0).hasValue());
}

TEST_F(StorageTest, HandlesOutliveTheMessageTheyWereReadWith) {
  NVXx_PBString text;
  Data blob;
  {
    auto message = NVXx_EXSingular::parseFromData(bytesOf("72 02 41 42  7A 03 61 62 63"));
    text = message->text_handle();
    blob = message->bytes_handle();
    message->setText("other");
    EXPECT_EQ(text.view(), "abc");
  }
  EXPECT_EQ(text.view(), "abc");
  EXPECT_EQ(blob.view(), "AB");
  blob = Data();
  EXPECT_EQ(text.view(), "abc");
}

TEST_F(StorageTest, RequiredFieldsAreLookedForEverywhere) {
  auto message = NVXx_EXDefaults::message();
  EXPECT_FALSE(message->isInitialized());
  message->setId_p(1);
  EXPECT_TRUE(message->isInitialized());
}

TEST_F(StorageTest, FieldsByNameDoWhatAccessorsDo) {
  auto message = NVXx_EXSingular::message();
  message->setValueForName("int32", int32_t{5});
  message->setValueForName("text", PBObject(NVXx_PBString("by name")));
  EXPECT_EQ(message->int32(), 5);
  EXPECT_EQ(message->text(), "by name");
  EXPECT_TRUE(message->hasValueForName("text"));
  message->setValueForName("text", {});
  EXPECT_FALSE(message->hasText());
  EXPECT_EQ(message->valueForName("child").object().message(), &message->child());
  EXPECT_NE(thrownBy([&] { message->setValueForName("child", PBObject(NVXx_EXEmpty::message())); }), "");
  EXPECT_NE(thrownBy([&] { message->setValueForName("text", int32_t{1}); }), "");
  EXPECT_NE(thrownBy([&] { message->valueForName("nobody"); }), "");
  auto repeated = NVXx_EXRepeated::message();
  EXPECT_EQ(thrownBy([&] { repeated->setValueForName("int32Array", int32_t{1}); }),
            "NSInvalidArgumentException: Trying to set array setInt32Array: to non mutable array");
}

}  // namespace
}  // namespace nvxcore
