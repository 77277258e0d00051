#include <cmath>
#include <vector>

#include "nvxcore/message/NVXx_PBDescriptor.h"
#include "nvxcore/message/NVXx_PBExtensionRegistry.h"
#include "nvxcore/message/NVXx_PBTextFormat.h"
#include "nvxcore/message/NVXx_PBUnknownFieldSet.h"
#include "nvxcore/message/schema/descriptor.pb.h"
#include "tests/message/MessageTest.h"
#include "tests/message/handwritten/Example.h"

namespace nvxcore {
namespace {

using testing::bytesOf;
using testing::thrownBy;
using ValuesTest = testing::MessageTest;
using Root = NVXx_EXExampleRoot;

TEST_F(ValuesTest, EqualityGoesByWhatIsSet) {
  const auto equal = [](const char* a, const char* b) {
    return NVXx_EXSingular::parseFromData(bytesOf(a))
        ->isEqual(NVXx_EXSingular::parseFromData(bytesOf(b)).get());
  };
  EXPECT_TRUE(equal("", ""));
  EXPECT_FALSE(equal("40 00", ""));
  EXPECT_TRUE(equal("40 00 7A 01 41", "7A 01 41 40 00"));
  EXPECT_FALSE(equal("7A 01 41", "7A 01 42"));
  EXPECT_FALSE(equal("25 00 00 C0 7F", "25 00 00 C0 7F"));
  EXPECT_TRUE(equal("25 00 00 00 80", "25 00 00 00 00"));
  EXPECT_FALSE(equal("F8 01 01", ""));
  EXPECT_TRUE(equal("F8 01 01 F0 01 02", "F0 01 02 F8 01 01"));
  // Latent children and arrays don't count, nor does an unknown set that nothing is in.
  auto a = NVXx_EXChild::message();
  auto b = NVXx_EXChild::message();
  a->child();
  a->stepArray();
  a->mutableUnknownFields();
  EXPECT_TRUE(a->isEqual(b.get()) && b->isEqual(a.get()));
  b->child().setValue(1);
  EXPECT_FALSE(a->isEqual(b.get()));
  EXPECT_EQ(a->hash(), b->hash());
  EXPECT_NE(a->hash(), NVXx_EXEmpty::message()->hash());
  // Extensions compare as values of a dictionary do.
  auto x = NVXx_EXExtendable::message();
  auto y = NVXx_EXExtendable::message();
  x->setExtension(Root::extDouble(), std::nan(""));
  y->setExtension(Root::extDouble(), std::nan(""));
  EXPECT_TRUE(x->isEqual(y.get()));
  y->addExtension(Root::extInt32Array(), 1);
  EXPECT_FALSE(x->isEqual(y.get()));
}

TEST_F(ValuesTest, MergingReplacesScalarsJoinsMessagesAndAppends) {
  auto into = NVXx_EXChild::message();
  into->setValue(1);
  into->child().setValue(1);
  into->stepArray().addInt32(1);
  auto from = NVXx_EXChild::message();
  from->setLabel("from");
  from->child().setLabel("inner");
  from->stepArray().addInt32(2);
  NVXx_EXChild* former = &into->child();
  Ref<NVXx_EXChild> kept = former;
  into->mergeFrom(*from);
  EXPECT_EQ(into->value(), 1);
  EXPECT_EQ(into->label(), "from");
  EXPECT_NE(&into->child(), former);
  EXPECT_EQ(into->child().value(), 1);
  EXPECT_EQ(into->child().label(), "inner");
  EXPECT_FALSE(kept->hasLabel());
  EXPECT_EQ(into->stepArray().count(), 2U);
  EXPECT_EQ(thrownBy([&] { into->mergeFrom(*NVXx_EXEmpty::message()); }),
            "NSInvalidArgumentException: Classes must match NVXx_EXChild != NVXx_EXEmpty");

  auto a = NVXx_EXExtendable::message();
  auto b = NVXx_EXExtendable::message();
  a->getExtension(Root::extMessage())->setValue(1);
  b->getExtension(Root::extMessage())->setLabel("b");
  b->addExtension(Root::extInt32Array(), 1);
  b->mergeUnknownFields(NVXx_EXEmpty::parseFromData(bytesOf("08 01"))->unknownFields().get());
  const auto own = a->getExtension(Root::extMessage());
  a->mergeFrom(*b);
  a->mergeFrom(*b);
  EXPECT_NE(a->getExtension(Root::extMessage()).get(), own.get());
  EXPECT_EQ(a->getExtension(Root::extMessage())->value(), 1);
  EXPECT_EQ(a->getExtension(Root::extMessage())->label(), "b");
  EXPECT_EQ(a->getExtension(Root::extInt32Array())->count(), 2U);
  EXPECT_EQ(a->unknownFields()->getField(1)->varintList()->count(), 2U);
}

TEST_F(ValuesTest, ExtensionsRefuseWhatIsNotTheirs) {
  auto message = NVXx_EXExtendable::message();
  EXPECT_EQ(thrownBy([&] { NVXx_EXEmpty::message()->getExtension(Root::extBool()); }),
            "NSInvalidArgumentException: Extension NVXx_EXExampleRoot_extBool used on wrong class "
            "(NVXx_EXEmpty instead "
            "of NVXx_EXExtendable)");
  EXPECT_EQ(thrownBy([&] { message->setExtensionValue(Root::extInt32Array().field(), int32_t{1}); }),
            "NSInvalidArgumentException: Must call addExtension() for repeated types.");
  EXPECT_EQ(thrownBy([&] { message->addExtensionValue(Root::extInt32().field(), int32_t{1}); }),
            "NSInvalidArgumentException: Must call setExtension() for singular types.");
  EXPECT_EQ(thrownBy([&] { message->setExtension(Root::extInt32Array(), 0, 1); }).substr(0, 16),
            "NSRangeException");
  EXPECT_EQ(thrownBy([&] { Root::extMessage().field().defaultValue(); }),
            "NSInternalInconsistencyException: -defaultValue called for a message extension");
  EXPECT_EQ(message->getExtension(Root::extBig()), -5);
  EXPECT_EQ(message->getExtension(Root::extName()).view(), "none");
  EXPECT_EQ(message->getExtension(Root::extTint()), EXColor_Green);
  EXPECT_FALSE(message->getExtension(Root::extInt32Array()));
  EXPECT_FALSE(NVXx_EXEmpty::message()->hasExtension(Root::extBool()));

  const auto latent = message->getExtension(Root::extMessage());
  EXPECT_FALSE(message->hasExtension(Root::extMessage()));
  message->setExtension(Root::extMessage(), NVXx_EXChild::message());
  latent->setValue(1);
  EXPECT_FALSE(message->getExtension(Root::extMessage())->hasValue());
  message->setExtension(Root::extMessage(), nullptr);
  EXPECT_FALSE(message->hasExtension(Root::extMessage()));

  // A packed one without values writes its tag and a length of 0.
  message->addExtension(Root::extInt32Packed(), 1);
  message->getExtension(Root::extInt32Packed())->removeAllValues();
  EXPECT_EQ(testing::toHex(message->data().view()), "9A 09 00");
  EXPECT_EQ(message->serializedSize(), 3U);
}

TEST_F(ValuesTest, RootsFindTheirExtensionsByName) {
  EXPECT_EQ(Root::extensionNamed("extBig"), &Root::extBig().field());
  EXPECT_EQ(Root::extensionNamed("nobody"), nullptr);
  EXPECT_EQ(Root::extensionRegistry().getExtension(NVXx_EXExtendable::descriptor(), 1000),
            &NVXx_EXItem::item().field());
  EXPECT_EQ(Root::extensionRegistry().getExtension(NVXx_EXEmpty::descriptor(), 1000), nullptr);
}

TEST_F(ValuesTest, DescriptorsTellTheTables) {
  const NVXx_PBDescriptor& d = NVXx_EXDefaults::descriptor();
  EXPECT_EQ(d.name(), "NVXx_EXDefaults");
  const NVXx_PBFieldDescriptor& hash = *d.fieldWithName("hash_p");
  EXPECT_EQ(hash.setSel() + " " + hash.hasSel() + " " + hash.setHasSel(),
            "setHash_p: hasHash_p setHasHash_p:");
  EXPECT_EQ(hash.textFormatName(), "hash");
  EXPECT_EQ(d.fieldWithName("openglEs1XSupported")->textFormatName(), "opengl_es_1x_supported");
  EXPECT_EQ(d.fieldWithName("oddName")->textFormatName(), "odd_NAME");
  EXPECT_EQ(d.fieldWithName("codeArray")->textFormatName(), "code");
  EXPECT_EQ(NVXx_EXRepeated::descriptor().fieldWithName("cornerArray")->textFormatName(), "Corner");
  EXPECT_EQ(d.fieldWithNumber(536870911)->name(), "far");
  EXPECT_EQ(d.fieldWithNumber(70000)->tag(), 560000U);
  EXPECT_EQ(d.fieldWithName("id_p")->flags(), 0x2U);
  EXPECT_EQ(d.fieldWithName("color")->flags(), 0x500010U);
  EXPECT_EQ(d.fieldWithName("codeArray")->flags(), 0x4U);
  EXPECT_EQ(NVXx_EXPacked::descriptor().fieldWithNumber(8)->flags(), 0xCU);
  EXPECT_EQ(d.fieldWithName("codeArray")->enumDescriptor(), nullptr);
  EXPECT_TRUE(d.fieldWithName("codeArray")->isValidEnumValue(-3));
  EXPECT_FALSE(d.fieldWithName("codeArray")->isValidEnumValue(0));
  EXPECT_TRUE(d.fieldWithName("zero")->hasDefaultValue());
  EXPECT_EQ(thrownBy([] { NVXx_EXChild::descriptor().fieldWithName("child")->defaultValue(); }),
            "NSInternalInconsistencyException: -defaultValue called for a message field");
  const NVXx_PBFieldOptions* options = d.fieldWithName("pieceArray")->fieldOptions();
  ASSERT_TRUE(options);
  EXPECT_EQ(options->ctype(), NVXx_PBFieldOptions_CType_StringPiece);
  EXPECT_TRUE(options->deprecated());
  EXPECT_EQ(d.fieldWithName("name")->fieldOptions(), nullptr);
  EXPECT_TRUE(NVXx_EXEmpty::descriptor().fields().empty());
  EXPECT_TRUE(NVXx_EXMessageSet::descriptor().isWireFormat());

  const NVXx_PBEnumDescriptor& color = EXColorEnumDescriptor::enumDescriptor();
  EXPECT_EQ(NVXx_PBEnumDescriptor::descriptorForName("EXColor"), &color);
  EXPECT_EQ(color.enumValueWithNumber(1)->name(), "EXColorGreen");
  EXPECT_EQ(color.textFormatNameForEnumValue(3), "STRING_PIECE");
  EXPECT_EQ(color.textFormatNameForEnumValue(77), "");
  EXPECT_TRUE(EXColorIsValidValue(-2));
  EXPECT_FALSE(EXColorIsValidValue(-1));
  for (const int32_t valid : {-5, -1, 1, 3, 100}) EXPECT_TRUE(EXCodeIsValidValue(valid)) << valid;
  for (const int32_t invalid : {-6, 0, 4, 99, 101}) EXPECT_FALSE(EXCodeIsValidValue(invalid)) << invalid;
}

TEST_F(ValuesTest, TextFormatLineByLine) {
  auto m = NVXx_EXSingular::message();
  m->setFlag(true);
  m->setRatio(0.1F);
  m->setMeasure(0.1);
  m->setInt64(INT64_MIN);
  m->setBytes(std::string_view("a\0\"\xC3", 4));
  m->setText("tab\t quote' \x01 \xC3\xA9");
  m->child().child();
  m->setChild(NVXx_EXChild::message());
  m->corner().setX(1);
  m->setColor(static_cast<EXColor>(9));
  m->mergeUnknownFields(NVXx_EXEmpty::parseFromData(bytesOf("F8 01 01 FD 01 FF 00 00 00 FB 01 08 01 FC 01"))
                            ->unknownFields()
                            .get());
  EXPECT_EQ(NVXx_PBTextFormatForMessage(m.get(), "  ").value(),
            "  flag: true\n"
            "  ratio: 0.1\n"
            "  measure: 0.1\n"
            "  int64: -9223372036854775808\n"
            "  bytes: \"a\\000\\\"\\303\"\n"
            "  text: \"tab\\t quote\\' \\001 \xC3\xA9\"\n"
            "  child {\n"
            "  }\n"
            "  Corner {\n"
            "    x: 1\n"
            "  }\n"
            "  color: 9  # EnumValueDescriptor names not generated\n"
            "  # --- Unknown fields ---\n"
            "  31: 1\n"
            "  31: 0xFF\n"
            "  31: {\n"
            "    1: 1\n"
            "  }\n");
  EXPECT_EQ(NVXx_PBTextFormatForMessage(nullptr), std::nullopt);
  EXPECT_EQ(NVXx_PBTextFormatForMessage(NVXx_EXSingular::message().get()), "");

  auto x = NVXx_EXExtendable::message();
  x->addExtension(Root::extInt32Array(), 1);
  x->addExtension(Root::extInt32Array(), 2);
  x->setExtension(Root::extString(), "s");
  x->getExtension(Root::extGroup())->setX(1);
  x->setLast(3);
  EXPECT_EQ(NVXx_PBTextFormatForMessage(x.get()).value(),
            "114: \"s\"  # [NVXx_EXExampleRoot_extString]\n"
            "116 {  # [NVXx_EXExampleRoot_extGroup]\n"
            "  x: 1\n"
            "}\n"
            "# [NVXx_EXExampleRoot_extInt32Array]\n"
            "127: 1127: 2\n"
            "last: 3\n");

  auto d = NVXx_EXDefaults::message();
  d->codeArray().addInt32(1);
  d->setColor(EXColor_AlsoGreen);
  EXPECT_EQ(NVXx_PBTextFormatForMessage(d.get()).value(),
            "color: GREEN\ncode: 1  # EnumDescriptors not generated\n");
}

}  // namespace
}  // namespace nvxcore
