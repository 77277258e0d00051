// Messages beside protozero with plain structs: the same bytes, read into and written from what each side's
// user holds. Contents are compared before anything is timed.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "benchmarks/message/Peer.h"
#include "benchmarks/message/Shapes.h"
#include "nvxcore/message/NVXx_PBCodedInputStream.h"
#include "nvxcore/message/NVXx_PBTextFormat.h"
#include "nvxcore/message/NVXx_PBUnknownFieldSet.h"

namespace {

using namespace nvxcore;

[[noreturn]] void fail(const char* what) {
  std::fprintf(stderr, "contents differ: %s\n", what);
  std::exit(1);
}

template <class Message, class Struct>
struct Shape {
  std::vector<Struct> structs;
  std::vector<Data> bytes;
  std::vector<Ref<Message>> messages;

  void add(Struct value) {
    const std::string written = peer::write(value);
    bytes.push_back(Data::copy(written));
    messages.push_back(Message::parseFromData(bytes.back()));
    if (messages.back()->data().view() != written) fail("written by us");
    if (messages.back()->unknownFields()) fail("unknown fields");
    structs.push_back(std::move(value));
  }
};

using EventShape = Shape<NVXx_BMEvent, peer::Event>;
using ReplyShape = Shape<NVXx_BMReply, peer::Reply>;
using TreeShape = Shape<NVXx_BMNode, peer::Node>;

bool same(const NVXx_BMNode& node, const peer::Node& other) {
  if (node.name() != other.name || node.title() != other.title || node.id() != other.id) return false;
  if (node.packedArray().count() != other.packed.size() || node.plainArray().count() != other.plain.size() ||
      node.childArray().count() != other.children.size()) {
    return false;
  }
  for (size_t i = 0; i < other.packed.size(); ++i) {
    if (node.packedArray().int32AtIndex(i) != other.packed[i]) return false;
  }
  for (size_t i = 0; i < other.plain.size(); ++i) {
    if (node.plainArray().int32AtIndex(i) != other.plain[i]) return false;
  }
  for (size_t i = 0; i < other.children.size(); ++i) {
    if (!same(node.childArray().messageAtIndex<NVXx_BMNode>(i), other.children[i])) return false;
  }
  return true;
}

const EventShape& events(bool isMixed) {
  static const EventShape* const shapes[2] = {[] {
                                                auto* shape = new EventShape;
                                                shape->add(peer::makeEvent(1, false));
                                                return shape;
                                              }(),
                                              [] {
                                                auto* shape = new EventShape;
                                                for (uint32_t i = 0; i < 256; ++i)
                                                  shape->add(peer::makeEvent(i, true));
                                                return shape;
                                              }()};
  return *shapes[isMixed];
}

const ReplyShape& replies() {
  static const ReplyShape* const shape = [] {
    auto* made = new ReplyShape;
    made->add(peer::makeReply(1));
    return made;
  }();
  return *shape;
}

const TreeShape& trees(bool isMixed) {
  static const auto make = [](uint32_t count) {
    auto* shape = new TreeShape;
    for (uint32_t i = 0; i < count; ++i) {
      shape->add(peer::makeNode(i));
      if (!same(*shape->messages.back(), shape->structs.back())) fail("tree");
    }
    return shape;
  };
  static const TreeShape* const shapes[2] = {make(1), make(64)};
  return *shapes[isMixed];
}

peer::Event readPeer(const peer::Event&, std::string_view bytes) { return peer::readEvent(bytes); }
peer::Reply readPeer(const peer::Reply&, std::string_view bytes) { return peer::readReply(bytes); }
peer::Node readPeer(const peer::Node&, std::string_view bytes) { return peer::readNode(bytes); }

template <class Message, class Struct>
void parsePeer(benchmark::State& state, const Shape<Message, Struct>& shape) {
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(readPeer(shape.structs[0], shape.bytes[i].view()));
    if (++i == shape.bytes.size()) i = 0;
  }
}

template <class Message, class Struct>
void parse(benchmark::State& state, const Shape<Message, Struct>& shape, bool copies) {
  size_t i = 0;
  for (auto _ : state) {
    if (copies) {
      NVXx_PBCodedInputStream stream(shape.bytes[i]);
      stream.setCopiesBytes(true);
      benchmark::DoNotOptimize(Message::parseFromCodedInputStream(stream, nullptr).get());
    } else {
      benchmark::DoNotOptimize(Message::parseFromData(shape.bytes[i]).get());
    }
    if (++i == shape.bytes.size()) i = 0;
  }
}

template <class Message, class Struct>
void writePeer(benchmark::State& state, const Shape<Message, Struct>& shape) {
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(peer::write(shape.structs[i]).data());
    if (++i == shape.structs.size()) i = 0;
  }
}

template <class Message, class Struct>
void write(benchmark::State& state, const Shape<Message, Struct>& shape) {
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(shape.messages[i]->data().bytes());
    if (++i == shape.messages.size()) i = 0;
  }
}

BENCHMARK_CAPTURE(parsePeer, event, events(false))->Name("event/parse/peer");
BENCHMARK_CAPTURE(parse, event, events(false), false)->Name("event/parse/ours");
BENCHMARK_CAPTURE(writePeer, event, events(false))->Name("event/write/peer");
BENCHMARK_CAPTURE(write, event, events(false))->Name("event/write/ours");
BENCHMARK_CAPTURE(parsePeer, eventmix, events(true))->Name("event mix/parse/peer");
BENCHMARK_CAPTURE(parse, eventmix, events(true), false)->Name("event mix/parse/ours");
BENCHMARK_CAPTURE(writePeer, eventmix, events(true))->Name("event mix/write/peer");
BENCHMARK_CAPTURE(write, eventmix, events(true))->Name("event mix/write/ours");
BENCHMARK_CAPTURE(parsePeer, reply, replies())->Name("reply/parse/peer");
BENCHMARK_CAPTURE(parse, reply, replies(), true)->Name("reply/parse/ours");
BENCHMARK_CAPTURE(parsePeer, reply, replies())->Name("reply sharing/parse/peer");
BENCHMARK_CAPTURE(parse, reply, replies(), false)->Name("reply sharing/parse/ours");
BENCHMARK_CAPTURE(writePeer, reply, replies())->Name("reply/write/peer");
BENCHMARK_CAPTURE(write, reply, replies())->Name("reply/write/ours");
BENCHMARK_CAPTURE(parsePeer, tree, trees(false))->Name("tree/parse/peer");
BENCHMARK_CAPTURE(parse, tree, trees(false), false)->Name("tree/parse/ours");
BENCHMARK_CAPTURE(writePeer, tree, trees(false))->Name("tree/write/peer");
BENCHMARK_CAPTURE(write, tree, trees(false))->Name("tree/write/ours");
BENCHMARK_CAPTURE(parsePeer, treemix, trees(true))->Name("tree mix/parse/peer");
BENCHMARK_CAPTURE(parse, treemix, trees(true), false)->Name("tree mix/parse/ours");
BENCHMARK_CAPTURE(writePeer, treemix, trees(true))->Name("tree mix/write/peer");
BENCHMARK_CAPTURE(write, treemix, trees(true))->Name("tree mix/write/ours");

}  // namespace

int main(int argc, char** argv) {
  std::fprintf(stderr, "event %zu bytes, reply %zu bytes, tree %zu bytes in %zu nodes\n",
               events(false).bytes[0].length(), replies().bytes[0].length(), trees(false).bytes[0].length(),
               peer::countOf(trees(false).structs[0]));
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
