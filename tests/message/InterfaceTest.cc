#include <functional>
#include <vector>

#include "nvxcore/message/NVXx_PBCodedInputStream.h"
#include "nvxcore/message/NVXx_PBCodedOutputStream.h"
#include "nvxcore/message/NVXx_PBDescriptor.h"
#include "nvxcore/message/NVXx_PBExtensionRegistry.h"
#include "nvxcore/message/NVXx_PBIvars.h"
#include "nvxcore/message/NVXx_PBSizes.h"
#include "nvxcore/message/NVXx_PBUnknownFieldSet.h"
#include "nvxcore/platform/Dictionary.h"
#include "nvxcore/platform/Value.h"
#include "tests/message/MessageTest.h"
#include "tests/message/handwritten/Example.h"

// What generated accessors don't use: fields by descriptor, extensions by field, archives, the streams by
// themselves.

namespace nvxcore {
namespace {

using testing::bytesOf;
using testing::fromHex;
using testing::goldenBytes;
using testing::thrownBy;
using testing::toHex;
using InterfaceTest = testing::MessageTest;
using Root = NVXx_EXExampleRoot;

const NVXx_PBFieldDescriptor& singular(const char* name) {
  return *NVXx_EXSingular::descriptor().fieldWithName(name);
}

struct IvarCase {
  const char* field;
  std::function<void(NVXx_EXSingular&, const NVXx_PBFieldDescriptor&)> set;
  std::function<bool(const NVXx_EXSingular&, const NVXx_PBFieldDescriptor&)> isSet;  // reads what `set` set
  std::function<void(NVXx_EXSingular&, const NVXx_PBFieldDescriptor&)> clear;
  const char* written;
};

#define NVX_IVAR_CASE(field, Name, value, written)                                       \
  {                                                                                      \
    field, [](auto& m, auto& f) { NVXx_PBSet##Name##IvarWithField(m, f, value); },       \
        [](auto& m, auto& f) { return NVXx_PBGet##Name##IvarWithField(m, f) == value; }, \
        [](auto& m, auto& f) { NVXx_PBSetHas##Name##IvarWithField(m, f); }, written      \
  }

TEST_F(InterfaceTest, EachFieldByItsDescriptor) {
  const NVXx_PBString text("t");
  const Data blob = Data::copy("b");
  const IvarCase cases[] = {
      NVX_IVAR_CASE("flag", Bool, true, "08 01"),
      NVX_IVAR_CASE("fixed32", Fixed32, 7U, "15 07 00 00 00"),
      NVX_IVAR_CASE("sFixed32", SFixed32, -1, "1D FF FF FF FF"),
      NVX_IVAR_CASE("ratio", Float, 1.0F, "25 00 00 80 3F"),
      NVX_IVAR_CASE("fixed64", Fixed64, 7U, "29 07 00 00 00 00 00 00 00"),
      NVX_IVAR_CASE("sFixed64", SFixed64, -1, "31 FF FF FF FF FF FF FF FF"),
      NVX_IVAR_CASE("measure", Double, 1.0, "39 00 00 00 00 00 00 F0 3F"),
      NVX_IVAR_CASE("int32", Int32, 5, "40 05"),
      NVX_IVAR_CASE("int64", Int64, 5, "48 05"),
      NVX_IVAR_CASE("sInt32", SInt32, -1, "50 01"),
      NVX_IVAR_CASE("sInt64", SInt64, -1, "58 01"),
      NVX_IVAR_CASE("uInt32", UInt32, 5U, "60 05"),
      NVX_IVAR_CASE("uInt64", UInt64, 5U, "68 05"),
      // No check: a number that the enum doesn't have is written as it is.
      NVX_IVAR_CASE("color", Enum, 77, "90 01 4D"),
      {"bytes", [&](auto& m, auto& f) { NVXx_PBSetDataIvarWithField(m, f, blob); },
       [](auto& m, auto& f) { return NVXx_PBGetDataIvarWithField(m, f).data().view() == "b"; },
       [](auto& m, auto& f) { NVXx_PBSetHasDataIvarWithField(m, f); }, "72 01 62"},
      {"text", [&](auto& m, auto& f) { NVXx_PBSetRetainedObjectIvarWithField(m, f, PBObject(text)); },
       [](auto& m, auto& f) { return NVXx_PBGetStringIvarWithField(m, f).string().view() == "t"; },
       [](auto& m, auto& f) { NVXx_PBSetHasStringIvarWithField(m, f); }, "7A 01 74"},
      {"child", [](auto& m, auto& f) { NVXx_PBSetMessageIvarWithField(m, f, NVXx_EXChild::message()); },
       [](auto& m, auto& f) {
         return &NVXx_PBGetMessageIvarWithField(m, f) == &const_cast<NVXx_EXSingular&>(m).child();
       },
       [](auto& m, auto& f) { NVXx_PBSetHasMessageIvarWithField(m, f); }, "82 01 00"},
      {"corner",
       [](auto& m, auto& f) { NVXx_PBSetGroupIvarWithField(m, f, NVXx_EXSingular_Corner::message()); },
       [](auto& m, auto& f) { return static_cast<bool>(NVXx_PBGetGroupIvarWithField(m, f)); },
       [](auto& m, auto& f) { NVXx_PBSetHasGroupIvarWithField(m, f); }, "8B 01 8C 01"},
  };
  EXPECT_EQ(std::size(cases), NVXx_EXSingular::descriptor().fields().size());
  for (const IvarCase& one : cases) {
    SCOPED_TRACE(one.field);
    const NVXx_PBFieldDescriptor& field = singular(one.field);
    auto m = NVXx_EXSingular::message();
    one.set(*m, field);
    EXPECT_TRUE(NVXx_PBGetHasIvar(*m, field.hasIndex()));
    EXPECT_TRUE(one.isSet(*m, field));
    EXPECT_EQ(toHex(m->data().view()), one.written);
    one.clear(*m, field);
    EXPECT_FALSE(NVXx_PBGetHasIvar(*m, field.hasIndex()));
    EXPECT_EQ(m->serializedSize(), 0U);
    // Another class's field, and one of another type.
    const std::string refused =
        thrownBy([&] { NVXx_PBSetHasIvarWithField(*m, *NVXx_EXChild::descriptor().fieldWithName("value")); });
    EXPECT_EQ(refused, "NSInvalidArgumentException: Field value is not one of NVXx_EXSingular");
    EXPECT_NE(thrownBy([&] { one.set(*m, singular(field.type() == NVXx_PBType::Bool ? "text" : "flag")); }),
              "");
  }
}

TEST_F(InterfaceTest, ObjectsByTheirDescriptors) {
  auto m = NVXx_EXSingular::message();
  EXPECT_FALSE(NVXx_PBGetObjectIvarWithFieldNoAutocreate(*m, singular("child")));
  const PBObject latent = NVXx_PBGetObjectIvarWithField(*m, singular("child"));
  EXPECT_EQ(NVXx_PBGetObjectIvarWithFieldNoAutocreate(*m, singular("child")).message(), latent.message());
  NVXx_PBSetHasObjectIvarWithField(*m, singular("child"));  // stays
  EXPECT_EQ(&m->child(), latent.message());
  NVXx_PBSetObjectIvarWithField(*m, singular("child"), nullptr);  // goes, and stands alone
  EXPECT_FALSE(NVXx_PBGetObjectIvarWithFieldNoAutocreate(*m, singular("child")));
  static_cast<NVXx_EXChild*>(latent.message())->setValue(1);
  EXPECT_FALSE(m->hasChild());
  m->child();
  NVXx_PBClearAutocreatedMessageIvarWithField(*m, singular("child"));
  EXPECT_FALSE(NVXx_PBGetObjectIvarWithFieldNoAutocreate(*m, singular("child")));
  EXPECT_NE(thrownBy([&] { NVXx_PBSetObjectIvarWithField(*m, singular("child"), NVXx_EXEmpty::message()); }),
            "");
  EXPECT_NE(thrownBy([&] { NVXx_PBSetObjectIvarWithField(*m, singular("text"), Data::copy("x")); }), "");
  EXPECT_NE(thrownBy([&] { NVXx_PBGetMessageIvarWithField(*m, singular("text")); }), "");

  auto r = NVXx_EXRepeated::message();
  const NVXx_PBFieldDescriptor& numbers = *NVXx_EXRepeated::descriptor().fieldWithName("int32Array");
  NVXx_PBMutableArray& made = NVXx_PBGetArrayIvarWithField(*r, numbers);
  EXPECT_EQ(&made, &r->int32Array());
  NVXx_PBSetArrayIvarWithField(*r, numbers, NVXx_PBMutableArray::arrayWithValueType(PBArrayValueTypeInt32));
  EXPECT_TRUE(r->hasInt32Array());
  NVXx_PBSetHasObjectIvarWithField(*r, numbers);
  EXPECT_FALSE(r->hasInt32Array());
  EXPECT_NE(thrownBy([&] { NVXx_PBGetObjectIvarWithField(*r, numbers); }), "");
  EXPECT_NE(thrownBy([&] { NVXx_PBGetInt32IvarWithField(*r, numbers); }), "");
  EXPECT_NE(thrownBy([&] { NVXx_PBGetArrayIvarWithField(*m, singular("text")); }), "");
}

TEST_F(InterfaceTest, ArchivesCarryTheSerialisedForm) {
  static_assert(NVXx_EXExtendable::supportsSecureCoding());
  Dictionary archive;
  EXPECT_FALSE(NVXx_EXExtendable::initWithCoder(archive));
  const auto m =
      NVXx_EXExtendable::parseFromData(Data::copy(goldenBytes("extensions.hex")), &Root::extensionRegistry());
  m->encodeWithCoder(archive);
  EXPECT_EQ(archive.size(), 1U);
  const auto again = NVXx_EXExtendable::initWithCoder(archive);
  EXPECT_EQ(again->first(), 1);
  EXPECT_FALSE(again->hasExtension(Root::extInt32()));
  EXPECT_EQ(again->unknownFields()->countOfFields(), 9U);
  NVXx_EXEmpty::message()->encodeWithCoder(archive);
  EXPECT_TRUE(NVXx_EXEmpty::initWithCoder(archive));
  archive.set(kPBCoderDataKey, bytesOf("0C"));
  EXPECT_EQ(thrownBy([&] { NVXx_EXEmpty::initWithCoder(archive); }),
            "NSParseErrorException: Last tag: 12 should be 0");
}

TEST_F(InterfaceTest, ExtensionsReadThemselves) {
  const auto read = [](const NVXx_PBExtensionField& field, const char* hex,
                       const PBBoxedValue& existing = {}) {
    NVXx_PBCodedInputStream stream(bytesOf(hex));
    const PBBoxedValue value = field.readSingleValueFromCodedInputStream(stream, nullptr, existing);
    EXPECT_EQ(stream.position(), fromHex(hex).size());
    return value;
  };
  EXPECT_TRUE(read(Root::extBool().field(), "02").boolValue());
  EXPECT_EQ(read(Root::extSInt32().field(), "03").int32Value(), -2);
  EXPECT_EQ(read(Root::extDouble().field(), "00 00 00 00 00 00 F0 3F").doubleValue(), 1);
  EXPECT_EQ(read(Root::extEnum().field(), "63").int32Value(), 99);
  EXPECT_EQ(read(Root::extString().field(), "01 61").object().string().view(), "a");
  EXPECT_EQ(read(Root::extData().field(), "01 FF").object().data().view(), "\xFF");
  EXPECT_FALSE(read(Root::extData().field(), "FF FF FF FF 0F"));
  EXPECT_EQ(read(Root::extInt32Packed().field(), "05").int32Value(), 5);  // one of its elements
  // A message is a copy of the existing one, merged.
  auto existing = NVXx_EXChild::message();
  existing->setValue(1);
  const PBBoxedValue merged = read(Root::extMessage().field(), "03 12 01 61", PBObject(existing));
  EXPECT_EQ(toHex(merged.object().message()->data().view()), "08 01 12 01 61");
  EXPECT_FALSE(existing->hasLabel());
  EXPECT_EQ(toHex(read(Root::extGroup().field(), "08 03 A4 07").object().message()->data().view()), "08 03");
  EXPECT_EQ(toHex(read(Root::childInSet().field(), "08 03").object().message()->data().view()), "08 03");

  auto m = NVXx_EXExtendable::message();
  const auto merge = [&](NVXx_PBExtensionField& field, const char* hex) {
    NVXx_PBCodedInputStream stream(bytesOf(hex));
    field.mergeFromCodedInputStream(stream, nullptr, *m);
  };
  merge(Root::extMessage().field(), "02 08 01");
  merge(Root::extMessage().field(), "03 12 01 61");
  merge(Root::extInt32Array().field(), "05");
  merge(Root::extInt32Packed().field(), "02 05 06");
  merge(Root::extString().field(), "01 61");
  EXPECT_EQ(toHex(m->data().view()), "92 07 01 61 9A 07 05 08 01 12 01 61 F8 07 05 9A 09 02 05 06");
  EXPECT_EQ(thrownBy([&] { merge(Root::childInSet().field(), "00"); }).substr(0, 26),
            "NSInvalidArgumentException");
  MutableData buffer;
  buffer.setLength(4);
  NVXx_PBCodedOutputStream output(buffer);
  m->writeExtensionsToCodedOutputStream(output, NVXx_PBExtensionRange(100, 115));
  EXPECT_EQ(toHex(buffer.view()), "92 07 01 61");
}

TEST_F(InterfaceTest, ExtensionsMeasureWhatTheyWrite) {
  const std::string golden = goldenBytes("extensions.hex");
  const auto m = NVXx_EXExtendable::parseFromData(Data::copy(golden), &Root::extensionRegistry());
  size_t total = 0;
  for (NVXx_PBExtensionField* field : m->sortedExtensionsInUse()) {
    SCOPED_TRACE(field->singletonName());
    const PBBoxedValue value = m->getExistingExtension(*field);
    const size_t size = field->computeSerializedSizeIncludingTag(value);
    MutableData buffer;
    buffer.setLength(size);
    NVXx_PBCodedOutputStream output(buffer);
    field->writeValueIncludingTag(value, output);
    EXPECT_EQ(output.position(), size);
    EXPECT_NE(golden.find(buffer.view()), std::string::npos);
    total += size;
    if (!field->isRepeated()) continue;
    EXPECT_EQ(field->computePBSerializedSizesIncludingTags(*value.array()), size);
    size_t parts = 0;
    for (size_t i = 0; i < value.array()->count(); ++i) {
      parts += field->isPackable()
                   ? field->computePBSerializedSizeNoTag(value.array()->valueAtIndex(i))
                   : field->computePBSerializedSizeIncludingTag(value.array()->valueAtIndex(i));
    }
    EXPECT_EQ(parts + (field->isPackable() ? NVXx_PBComputeTagSize(field->fieldNumber()) + 1 : 0), size);
  }
  EXPECT_EQ(total, m->extensionsSerializedSize());
  EXPECT_EQ(Root::extInt32().field().compareByFieldNumber(Root::extBool().field()), 1);
  const NVXx_PBExtensionDescriptor& told = Root::extEnumArray().field().descriptor();
  EXPECT_TRUE(told.isRepeated() && !told.isPackable() && !told.isMessage() && !told.msgClass());
  EXPECT_EQ(told.enumDescriptor(), &EXColorEnumDescriptor::enumDescriptor());
  EXPECT_EQ(NVXx_EXItem::descriptor().extensionWithNumber(1000), nullptr);  // descriptors list none
}

TEST_F(InterfaceTest, StreamsReadAndWriteEachKindOfValue) {
  const struct {
    const char* hex;
    std::function<bool(NVXx_PBCodedInputStream&)> holds;
  } cases[] = {
      {"80 80 80 80 10", [](auto& s) { return !s.readBool(); }},  // 2 to the 32: the low half counts
      {"FF FF FF FF FF FF FF FF FF 01", [](auto& s) { return s.readInt32() == -1; }},
      {"FF FF FF FF FF FF FF FF FF 01", [](auto& s) { return s.readUInt64() == UINT64_MAX; }},
      {"01", [](auto& s) { return s.readSInt64() == -1; }},
      {"FE FF FF FF 0F", [](auto& s) { return s.readEnum() == -2; }},
      {"00 00 C0 3F", [](auto& s) { return s.readFloat() == 1.5F; }},
      {"02 C0 80", [](auto& s) { return s.readString().view().empty(); }},  // no UTF-8
      {"01 61", [](auto& s) { return NVXx_PBReadRetainedString(s).view() == "a"; }},
      {"00",
       [](auto& s) {
         const Data d = NVXx_PBReadRetainedData(s);
         return d && d.length() == 0;
       }},
      {"FF FF FF FF 0F", [](auto& s) { return !s.readData(); }},
      {"08 0B 0B 08 01 0C",
       [](auto& s) {
         s.readTag();
         s.skipField(8);
         return s.skipField(s.readTag());
       }},
      {"0C", [](auto& s) { return !s.skipField(s.readTag()) && s.readTag() == 0 && s.lastTag() == 0; }},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.hex);
    NVXx_PBCodedInputStream stream = NVXx_PBCodedInputStream::streamWithData(bytesOf(one.hex));
    EXPECT_TRUE(one.holds(stream));
    EXPECT_TRUE(NVXx_PBIsAtEnd(stream));
  }
  NVXx_PBCodedInputStream odd(bytesOf("0E"));
  EXPECT_EQ(thrownBy([&] { odd.skipField(odd.readTag()); }), "NSParseErrorException: Invalid tag 14");
  auto set = NVXx_PBUnknownFieldSet::set();
  NVXx_PBCodedInputStream group(bytesOf("08 01 14 0C"));
  group.readUnknownGroup(2, *set);
  EXPECT_EQ(group.position(), 3U);
  EXPECT_TRUE(set->hasField(1));
  auto message = NVXx_EXChild::message();
  NVXx_PBCodedInputStream nested(bytesOf("02 08 05"));
  nested.readMessage(*message, nullptr);
  EXPECT_EQ(message->value(), 5);

  MutableData buffer;
  buffer.setLength(20);
  NVXx_PBCodedOutputStream output = NVXx_PBCodedOutputStream::streamWithData(buffer);
  output.writeInt32s(1, *NVXx_PBArray::arrayWithValueType(PBArrayValueTypeInt32), 10);  // nothing
  output.writeInt32s(1, *NVXx_PBArray::arrayWithInt32s({1, 300}), 0);
  output.writeRawMessageSetExtension(7, "x");
  output.writeUnknownGroup(2, *set);
  output.writeRawPtr("abc", 1, 2);
  EXPECT_EQ(toHex(buffer.view().substr(0, output.position())),
            "08 01 08 AC 02 0B 10 07 1A 01 78 0C 13 08 01 14 62 63");
  EXPECT_EQ(thrownBy([&] { output.writeUInt32s(1, *NVXx_PBArray::arrayWithInt32(1), 0); }).substr(0, 33),
            "NVXx_PBArrayTypeMismatchException");

  static_assert(NVXx_PBConvertInt64ToDouble(NVXx_PBConvertDoubleToInt64(-0.5)) == -0.5);
  static_assert(NVXx_PBConvertInt32ToFloat(0x3FC00000) == 1.5F &&
                NVXx_PBConvertFloatToInt32(1.5F) == 0x3FC00000);
  static_assert(NVXx_PBComputeRawVarint32Size(127) == 1 && NVXx_PBComputeRawVarint32Size(128) == 2 &&
                NVXx_PBComputeRawVarint32Size(16383) == 2 && NVXx_PBComputeRawVarint32Size(2097152) == 4 &&
                NVXx_PBComputeRawVarint32Size(268435455) == 4 &&
                NVXx_PBComputeRawVarint32Size(268435456) == 5);
  static_assert(NVXx_PBComputeRawVarint64Size(0) == 1 && NVXx_PBComputeRawVarint64Size(UINT64_MAX) == 10 &&
                NVXx_PBComputeRawVarint64Size(uint64_t{1} << 62) == 9);
  static_assert(NVXx_PBComputeSizeTSizeAsInt32NoTag(0x80000000) == 10 &&
                NVXx_PBComputeEnumSizeNoTag(-1) == 5);
  static_assert(NVXx_PBComputeTagSize(1 << 28) == 5 && NVXx_PBComputeTagSize(INT32_MAX) == 5 &&
                NVXx_PBComputeWireFormatTagSize(16, NVXx_PBType::Group) == 4);
  EXPECT_EQ(NVXx_PBEmptyNSData().view().data(), NVXx_PBEmptyNSData().view().data());
  EXPECT_TRUE(NVXx_PBEmptyNSData() && !EXColorEnumDescriptor::enumDescriptor().enumVerifier()(-1));
}

TEST_F(InterfaceTest, UnknownSetsAsDictionaries) {
  auto set = NVXx_PBUnknownFieldSet::set();
  auto other = NVXx_PBUnknownFieldSet::set();
  EXPECT_TRUE(set->sortedFields().empty() && set->isEqual(other.get()) && set->hash() == 0);
  for (int32_t number = 40; number > 0; --number) set->mergeVarintField(number, -number);
  other->mergeUnknownFields(*set);
  EXPECT_TRUE(other->isEqual(set.get()));
  other->getFieldBuilder(3, true)->addFixed32(1);  // shared with the set that it came from
  EXPECT_TRUE(set->getField(3)->fixed32List());
  auto replacement = NVXx_PBMutableField::fieldWithNumber(17);
  replacement->addFixed64(1);
  set->addField(replacement);
  EXPECT_EQ(set->countOfFields(), 40U);
  EXPECT_FALSE(set->getField(17)->varintList() || set->isEqual(other.get()));
  std::vector<int32_t> tags(40);
  set->getTags(tags.data());
  EXPECT_TRUE(tags.front() == 40 && set->sortedFields().front()->number() == 1);
  EXPECT_EQ(set->getFieldBuilder(99, false), nullptr);
  for (const auto& wrong :
       std::vector<std::function<void()>>{[&] { set->mergeVarintField(0, 1); },
                                          [&] { set->addField(NVXx_PBMutableField::fieldWithNumber(0)); },
                                          [&] { set->mergeField(NVXx_PBMutableField::fieldWithNumber(0)); },
                                          [&] { set->mergeFromData(bytesOf("02 00")); }}) {
    EXPECT_EQ(thrownBy(wrong), "NSInvalidArgumentException: Zero is not a valid field number.");
  }
  EXPECT_EQ(thrownBy([&] { set->mergeFromData(bytesOf("0C")); }),
            "NSParseErrorException: Last tag: 12 should be 0");
  // A message set's form has only what is length-delimited.
  auto items = NVXx_PBUnknownFieldSet::set();
  items->mergeFromData(bytesOf("3A 01 41 38 01"));
  EXPECT_EQ(items->serializedSizeAsMessageSet(), 7U);
  MutableData buffer;
  buffer.setLength(7);
  NVXx_PBCodedOutputStream output(buffer);
  items->writeAsMessageSetTo(output);
  EXPECT_EQ(toHex(buffer.view()), "0B 10 07 1A 01 41 0C");
}

}  // namespace
}  // namespace nvxcore
