// What else is done with messages, beside no peer.

#include <string>
#include <utility>
#include <vector>

#include "benchmarks/message/Rows.h"
#include "benchmarks/message/Shapes.h"
#include "nvxcore/message/NVXx_PBCodedInputStream.h"
#include "nvxcore/message/NVXx_PBTextFormat.h"
#include "nvxcore/message/NVXx_PBUnknownFieldSet.h"

namespace {

using namespace nvxcore;

// The fields of a message, the last one first.
Data reversed(const Data& bytes) {
  std::string turned;
  NVXx_PBCodedInputStream stream(bytes);
  for (;;) {
    const size_t start = stream.position();
    const int32_t tag = stream.readTag();
    if (!tag) return Data::copy(turned);
    stream.skipField(tag);
    turned.insert(0, bytes.view().substr(start, stream.position() - start));
  }
}

// The same elements between group tags, in place of their lengths.
Data asGroups(const Data& reply) {
  auto groups = NVXx_BMGroupReply::message();
  auto messages = NVXx_BMReply::parseFromData(reply);
  for (size_t i = 0; i < messages->elementArray().count(); ++i) {
    const auto& element = messages->elementArray().messageAtIndex<NVXx_BMElement>(i);
    groups->entryArray().addObject(NVXx_BMGroupReply_Entry::parseFromData(element.data()).get());
  }
  groups->setStatus(messages->status());
  return groups->data();
}

Data unknownFields(uint32_t count) {
  std::string bytes;
  for (uint32_t i = 0; i < count; ++i) {
    // Varints of the numbers 16 to 1039, whose tags have two bytes.
    const uint32_t tag = (16 + i % 1024) << 3;
    bytes += static_cast<char>((tag & 0x7F) | 0x80);
    bytes += static_cast<char>(tag >> 7);
    bytes += static_cast<char>(i & 0x7F);
  }
  return Data::copy(bytes);
}

template <class Message>
void addParse(const char* name, const Data& bytes) {
  rows::ours(name, 0, [bytes](benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(Message::parseFromData(bytes).get());
  });
}

template <class Work>
void addWork(const char* name, Work work) {
  rows::ours(name, 0, [work](benchmark::State& state) {
    for (auto _ : state) work();
  });
}

}  // namespace

void rows::addOthers() {
  const Data groups = asGroups(shapes::replies().bytes[0]);
  addParse<NVXx_BMGroupReply>("reply of groups/parse", groups);
  addWork("reply of groups/write", [message = NVXx_BMGroupReply::parseFromData(groups)] {
    benchmark::DoNotOptimize(message->data().bytes());
  });
  addParse<NVXx_BMEvent>("event reversed/parse", reversed(shapes::events(false).bytes[0]));
  addParse<NVXx_BMNothing>("10000 unknown fields/parse", unknownFields(10000));

  const Data& bytes = shapes::trees(false).bytes[0];
  const auto tree = NVXx_BMNode::parseFromData(bytes);
  const auto other = NVXx_BMNode::parseFromData(bytes);
  addWork("tree/merge", [tree] {
    const auto into = NVXx_BMNode::message();
    into->mergeFrom(*tree);
    benchmark::DoNotOptimize(into.get());
  });
  addWork("tree/copy", [tree] { benchmark::DoNotOptimize(tree->copy().get()); });
  addWork("tree/deep copy", [tree] { benchmark::DoNotOptimize(tree->deepCopy().get()); });
  addWork("tree/equality", [tree, other] {
    if (!tree->isEqual(other.get())) shapes::fail("equality");
  });
  addWork("tree/text format",
          [tree] { benchmark::DoNotOptimize(NVXx_PBTextFormatForMessage(tree.get(), "")->size()); });
}
