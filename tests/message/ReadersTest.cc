#include <barrier>
#include <thread>
#include <vector>

#include "nvxcore/message/NVXx_PBDescriptor.h"
#include "nvxcore/message/NVXx_PBExtensionRegistry.h"
#include "nvxcore/message/NVXx_PBIvars.h"
#include "nvxcore/message/NVXx_PBTextFormat.h"
#include "nvxcore/message/NVXx_PBUnknownFieldSet.h"
#include "tests/message/MessageTest.h"
#include "tests/message/handwritten/Example.h"
#include "tests/support/Proof.h"

namespace nvxcore {
namespace {

using testing::bytesOf;
using ReadersTest = testing::MessageTest;
using Root = NVXx_EXExampleRoot;

constexpr int kThreads = 8;

// All threads begin each message at about the same time, so that they meet in what reading creates.
template <class T, class Read>
void readByAll(const std::vector<Ref<T>>& messages, Read read) {
  std::barrier start(kThreads);
  std::vector<std::vector<const void*>> seen(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (size_t i = 0; i < messages.size(); ++i) {
        if (i % 100 == 0) start.arrive_and_wait();
        read(*messages[i], seen[static_cast<size_t>(t)]);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (const auto& one : seen) EXPECT_EQ(one, seen[0]);
}

TEST_F(ReadersTest, FindTheSameLatentChildrenAndArrays) {
  std::vector<Ref<NVXx_EXHolder>> messages;
  for (size_t i = 0; i < testing::proofCount(1000, 10000); ++i) messages.push_back(NVXx_EXHolder::message());
  const NVXx_PBFieldDescriptor& set = *NVXx_EXHolder::descriptor().fieldWithName("set");
  readByAll(messages, [&](const NVXx_EXHolder& message, std::vector<const void*>& seen) {
    seen.push_back(&const_cast<NVXx_EXHolder&>(message).extendable());
    seen.push_back(&message.defaults().codeArray());
    seen.push_back(message.extendable().getExtension(Root::extMessage()).get());
    seen.push_back(&NVXx_PBGetMessageIvarWithField(message, set));
    seen.push_back(message.valueForName("defaults").object().message());
    EXPECT_FALSE(message.hasExtendable() || message.extendable().hasExtension(Root::extMessage()));
    const auto own = NVXx_EXHolder::message();
    own->mergeFrom(message);
    EXPECT_TRUE(message.copy()->isEqual(&message) && message.deepCopy()->isEqual(own.get()));
    EXPECT_EQ(message.data().length() + message.serializedSize(), 0U);
    EXPECT_EQ(NVXx_PBTextFormatForMessage(&message), "");
    EXPECT_FALSE(message.description().empty() || message.unknownFields());
  });
}

TEST_F(ReadersTest, SeeTheSameValues) {
  // Strings, arrays, extensions and unknown fields of a parse, which all share one buffer.
  const Data bytes = bytesOf(
      "08 01  92 07 01 73  9A 07 0B 12 01 61 22 02 01 02 2A 02 08 07  F8 07 01 F8 07 02  C0 0C 03  C8 0C 01 "
      "CB 0C 08 01 CC 0C");
  std::vector<Ref<NVXx_EXExtendable>> messages;
  for (size_t i = 0; i < testing::proofCount(1000, 10000); ++i) {
    messages.push_back(NVXx_EXExtendable::parseFromData(bytes, &Root::extensionRegistry()));
  }
  const std::string text = NVXx_PBTextFormatForMessage(messages[0].get()).value();
  const Data written = messages[0]->data();
  readByAll(messages, [&](const NVXx_EXExtendable& message, std::vector<const void*>& seen) {
    const Ref<NVXx_EXChild> child = message.getExtension(Root::extMessage());
    seen.push_back(child.get());
    seen.push_back(child->label().data());
    seen.push_back(&child->stepArray());
    seen.push_back(&child->child());
    seen.push_back(message.unknownFields().get());
    EXPECT_EQ(message.getExtension(Root::extString()).view(), "s");
    const auto copy = message.copy();
    const auto own = NVXx_EXExtendable::message();
    own->mergeFrom(message);
    EXPECT_TRUE(copy->isEqual(&message) && message.isEqual(own.get()));
    EXPECT_TRUE(message.data() == written && message.serializedSize() == written.length());
    EXPECT_TRUE(NVXx_PBTextFormatForMessage(&message) == text && message.isInitialized());
    const NVXx_PBString label = child->label_handle();
    EXPECT_EQ(label.view(), "a");
  });
}

}  // namespace
}  // namespace nvxcore
