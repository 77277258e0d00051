#include "nvxcore/message/NVXProtoFunctions.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include "nvxcore/message/NVXx_PBUnknownFieldSet.h"
#include "nvxcore/platform/Files.h"
#include "nvxcore/platform/Value.h"
#include "tests/message/MessageTest.h"
#include "tests/message/handwritten/Example.h"

namespace nvxcore::testing {
namespace {

class ProtoFunctionsTest : public MessageTest {
 protected:
  ProtoFunctionsTest() { EXPECT_FALSE(createDirectoryWithIntermediates(_folder)); }
  ~ProtoFunctionsTest() override { removeFile(_folder); }

  std::string pathOf(const std::string& name) {
    return _folder.appendingPathComponent(name).fileSystemPath();
  }
  void write(const std::string& path, std::string_view bytes) {
    std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  }
  std::string read(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  static Ref<NVXx_EXChild> childLabelled(std::string_view name) {
    auto child = NVXx_EXChild::message();
    child->setLabel(name);
    return child;
  }

  const URL _folder = uniqueTemporaryFile("nvxcore-proto-test");
};

TEST_F(ProtoFunctionsTest, WhatIsSavedIsLoadedAgainWithTheFilesDate) {
  // One that goes through the stream's buffer many times, over one that is longer.
  const std::string path = pathOf("message");
  write(path, std::string(1 << 20, 'x'));
  const auto message = childLabelled(std::string(100000, 'n'));
  ASSERT_TRUE(NVXSaveProto(*message, path));
  EXPECT_EQ(read(path), message->data().view());
  EXPECT_TRUE(NVXLoadProto<NVXx_EXChild>(path)->isEqual(message.get()));

  struct timespec times[2] = {{1000000000, 0}, {1000000000, 500000000}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  Date date;
  EXPECT_TRUE(NVXLoadProtoModTime<NVXx_EXChild>(path, &date));
  EXPECT_EQ(date, Date::withTimeIntervalSince1970(1000000000.5));
  EXPECT_TRUE(NVXLoadProtoModTime<NVXx_EXChild>(path, nullptr));

  // Garbage has a date too.
  write(path, "\xFF\xFF");
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  date = Date();
  EXPECT_FALSE(NVXLoadProtoModTime<NVXx_EXChild>(path, &date));
  EXPECT_EQ(date, Date::withTimeIntervalSince1970(1000000000.5));

  write(path, "");
  EXPECT_TRUE(NVXLoadProto<NVXx_EXChild>(path)->isEqual(NVXx_EXChild::message().get()));
}

TEST_F(ProtoFunctionsTest, WhereNoFileIsNothingIsLoaded) {
  Date date;
  for (const std::string& path : {std::string(), pathOf("missing"), pathOf("missing/too"), pathOf("")}) {
    EXPECT_FALSE(NVXLoadProtoModTime<NVXx_EXChild>(path, &date)) << path;
    EXPECT_EQ(date, Date());
  }
  // Nobody, not even root, reads from its start.
  const auto unreadable = NVXLoadProto<NVXx_EXChild>("/proc/self/mem");
  ASSERT_TRUE(unreadable);
  EXPECT_TRUE(unreadable->isEqual(NVXx_EXChild::message().get()));
}

TEST_F(ProtoFunctionsTest, SavingFailsWhenTheBytesDoNotGetOut) {
  const auto message = childLabelled("x");
  const auto empty = NVXx_EXChild::message();
  for (const std::string& path :
       {std::string(), pathOf("missing/message"), pathOf(""), std::string("/dev/full")}) {
    EXPECT_FALSE(NVXSaveProto(*message, path)) << path;
    // One without bytes has nothing that could fail, once there is a stream.
    EXPECT_EQ(NVXSaveProto(*empty, path), !path.empty()) << path;
  }
  EXPECT_FALSE(NVXSaveProto(*childLabelled(std::string(100000, 'n')), "/dev/full"));
  const std::string path = pathOf("empty");
  EXPECT_TRUE(NVXSaveProto(*empty, path));
  EXPECT_EQ(fileSize(URL::fileURLWithPath(path)), 0);
}

TEST_F(ProtoFunctionsTest, MergingReplacesListsAllTheWayDown) {
  const auto make = [](const std::string& mark, int count, int innerCount) {
    auto message = childLabelled(mark);
    for (int i = 0; i < count; ++i) message->childArray().addObject(childLabelled(mark + std::to_string(i)));
    auto& inner = message->child();
    inner.setLabel(mark + "-inner");
    for (int i = 0; i < innerCount; ++i) inner.childArray().addObject(childLabelled(mark));
    return message;
  };
  const auto destination = make("d", 3, 2), source = make("s", 1, 0);
  source->child().child().setLabel("new");
  source->mutableUnknownFields();
  source->mergeFromData(bytesOf("C8 3E 05"));  // an unknown field
  const auto before = destination->copy();
  NVXMergeProtoIntoProto(*source, *destination);
  EXPECT_EQ(destination->label(), "s");
  ASSERT_EQ(destination->childArray().count(), 1u);
  EXPECT_EQ(destination->child().label(), "s-inner");
  EXPECT_EQ(destination->child().childArray().count(), 2u);
  EXPECT_EQ(destination->child().child().label(), "new");
  EXPECT_FALSE(destination->unknownFields());

  // The two share no list and no message that the merge has touched, nor has an earlier copy changed.
  destination->childArray().addObject(childLabelled("more"));
  destination->child().setLabel("changed");
  destination->child().child().setLabel("changed");
  EXPECT_EQ(source->childArray().count(), 1u);
  EXPECT_EQ(source->child().label(), "s-inner");
  EXPECT_EQ(source->child().child().label(), "new");
  EXPECT_EQ(before->child().label(), "d-inner");
  EXPECT_EQ(before->childArray().count(), 3u);

  // An inner list with elements replaces the one there.
  source->child().childArray().addObject(childLabelled("one"));
  NVXMergeProtoIntoProto(*source, *destination);
  EXPECT_EQ(destination->child().childArray().count(), 1u);

  const auto other = NVXx_EXEmpty::message();
  const Data untouched = destination->data();
  NVXMergeProtoIntoProto(*other, *destination);
  NVXMergeProtoIntoProto(*destination, *other);
  EXPECT_EQ(destination->data(), untouched);
  EXPECT_TRUE(other->data().empty());
  NVXMergeProtoIntoProto(*destination, *destination);
  EXPECT_EQ(destination->data(), untouched);
}

TEST_F(ProtoFunctionsTest, EveryKindOfFieldIsMerged) {
  const auto source = NVXx_EXSingular::parseFromData(Data::copy(goldenBytes("singular.hex")));
  const auto destination = NVXx_EXSingular::message();
  NVXMergeProtoIntoProto(*source, *destination);
  EXPECT_TRUE(destination->isEqual(source.get()));
  const auto lists = NVXx_EXRepeated::parseFromData(Data::copy(goldenBytes("repeated.hex")));
  const auto merged = lists->copy();
  NVXMergeProtoIntoProto(*lists, *merged);
  EXPECT_TRUE(merged->isEqual(lists.get()));
}

TEST_F(ProtoFunctionsTest, TheWebsafeFormHasNoCharacterThatAURLWouldEscape) {
  struct {
    const char* bytes;
    const char* text;
  } cases[] = {{"08 01", "CAE"},  // two bytes: no padding at the end
               {"08 FB EF BE 07", "CPvvvgc"},
               {"12 04 7F 7F 7F 3E", "EgR_f38-"}};
  for (const auto& c : cases) {
    const auto message = NVXx_EXChild::parseFromData(bytesOf(c.bytes));
    ASSERT_TRUE(message) << c.bytes;
    EXPECT_EQ(NVXWebsafeEncodeProto(message.get()), c.text);
    EXPECT_EQ(NVXWebsafeEncodeAndPrefixProto(*message), std::string("0") + c.text);
    Error error("before", 1);
    EXPECT_TRUE(NVXWebsafeDecodeProto<NVXx_EXChild>(c.text, &error)->isEqual(message.get()));
    EXPECT_FALSE(error);
  }
  EXPECT_FALSE(NVXWebsafeEncodeProto(nullptr));
  EXPECT_TRUE(
      thrownBy([] { NVXWebsafeEncodeProto(NVXx_EXChild::message().get()); }).starts_with("NSRangeException"));

  // The usual alphabet is read as well, and padding that is there.
  EXPECT_EQ(NVXWebsafeDecodeProto<NVXx_EXChild>("EgR/f38+", nullptr)->data(), bytesOf("12 04 7F 7F 7F 3E"));
  for (const char* text : {"CAE", "CAE="})
    EXPECT_EQ(NVXWebsafeDecodeProto<NVXx_EXChild>(text, nullptr)->data(), bytesOf("08 01"));
  // What is no Base64 is no bytes: one character too many, too much padding, a blank, another alphabet.
  for (const char* text : {"", "CAECA", "CAE==", "CAECA===", "====", "CA E", "CAE\n", "C=AE",
                           "\xC3\xA9"
                           "aa"}) {
    Error error("before", 1);
    const auto message = NVXWebsafeDecodeProto<NVXx_EXChild>(text, &error);
    ASSERT_TRUE(message) << text;
    EXPECT_TRUE(message->data().empty()) << text;
    EXPECT_FALSE(error);
  }
  Error error;
  EXPECT_FALSE(NVXWebsafeDecodeProto<NVXx_EXChild>("____", &error));
  EXPECT_TRUE(error.is(kPBGeneratedMessageErrorDomain, kPBGeneratedMessageErrorCode));
  EXPECT_EQ(thrownBy([] { NVXDeprecatedWebsafeDecodeProto<NVXx_EXChild>("____"); }),
            "NSInternalInconsistencyException: " + error.description());
  EXPECT_TRUE(NVXDeprecatedWebsafeDecodeProto<NVXx_EXChild>("CAE"));
  EXPECT_TRUE(NVXRaiseExceptionOnParseError(NVXx_EXChild::message(), error));
  EXPECT_FALSE(NVXRaiseExceptionOnParseError(nullptr, Error()));
}

}  // namespace
}  // namespace nvxcore::testing
