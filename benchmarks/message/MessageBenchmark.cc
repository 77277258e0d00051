// Messages beside protozero with plain structs: the same bytes, read into and written from what each side's
// user holds.

#include <benchmark/benchmark.h>

#include <cstdio>

#include "benchmarks/message/Rows.h"
#include "benchmarks/message/Shapes.h"
#include "nvxcore/message/NVXx_PBCodedInputStream.h"

namespace {

using namespace nvxcore;
using shapes::Shape;

peer::Event readPeer(const peer::Event&, std::string_view bytes) { return peer::readEvent(bytes); }
peer::Reply readPeer(const peer::Reply&, std::string_view bytes) { return peer::readReply(bytes); }
peer::Node readPeer(const peer::Node&, std::string_view bytes) { return peer::readNode(bytes); }

template <class Message, class Struct>
void addParse(const std::string& name, double bar, const Shape<Message, Struct>& shape, bool copies = false) {
  rows::peer(name, [&shape](benchmark::State& state) {
    size_t i = 0;
    for (auto _ : state) {
      benchmark::DoNotOptimize(readPeer(shape.structs[0], shape.bytes[i].view()));
      if (++i == shape.bytes.size()) i = 0;
    }
  });
  rows::ours(name, bar, [&shape, copies](benchmark::State& state) {
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
  });
}

template <class Message, class Struct>
void addWrite(const std::string& name, double bar, const Shape<Message, Struct>& shape) {
  rows::peer(name, [&shape](benchmark::State& state) {
    size_t i = 0;
    for (auto _ : state) {
      benchmark::DoNotOptimize(peer::write(shape.structs[i]).data());
      if (++i == shape.structs.size()) i = 0;
    }
  });
  rows::ours(name, bar, [&shape](benchmark::State& state) {
    size_t i = 0;
    for (auto _ : state) {
      benchmark::DoNotOptimize(shape.messages[i]->data().bytes());
      if (++i == shape.messages.size()) i = 0;
    }
  });
}

}  // namespace

int main(int argc, char** argv) {
  using namespace shapes;
  std::fprintf(stderr, "event %zu bytes, reply %zu bytes, tree %zu bytes in %zu nodes\n",
               events(false).bytes[0].length(), replies().bytes[0].length(), trees(false).bytes[0].length(),
               peer::countOf(trees(false).structs[0]));
  addParse("event/parse", 0.65, events(false));
  addParse("event mix/parse", 0.60, events(true));
  addParse("reply/parse", 0.75, replies(), true);
  addParse("reply sharing/parse", 0.35, replies());
  addParse("tree/parse", 0.32, trees(false));
  addParse("tree mix/parse", 0.32, trees(true));
  addWrite("event/write", 0.35, events(false));
  addWrite("event mix/write", 0.50, events(true));
  addWrite("reply/write", 0.42, replies());
  addWrite("tree/write", 0.45, trees(false));
  addWrite("tree mix/write", 0.32, trees(true));
  rows::addFreedElsewhere();
  rows::addOthers();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
