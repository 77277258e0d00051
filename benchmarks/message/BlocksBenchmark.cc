// Counts the blocks that the system is asked for while a message is parsed by a thread whose pool has
// nothing, the thread's part of the pool among them. A program of its own: what counts stands in the way of
// malloc.

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <thread>

#include "benchmarks/message/Peer.h"
#include "benchmarks/message/Shapes.pb.h"
#include "nvxcore/message/NVXx_PBCodedInputStream.h"

extern "C" void* __libc_malloc(size_t size);
extern "C" void* __libc_calloc(size_t count, size_t size);

namespace {

constinit thread_local bool tCounts = false;
constinit thread_local size_t tBlocks = 0;

}  // namespace

extern "C" void* malloc(size_t size) {
  tBlocks += tCounts;
  return __libc_malloc(size);
}

extern "C" void* calloc(size_t count, size_t size) {
  tBlocks += tCounts;
  return __libc_calloc(count, size);
}

namespace {

using namespace nvxcore;

template <class Message>
Ref<Message> parsed(const Data& bytes, bool copies) {
  NVXx_PBCodedInputStream stream(bytes);
  stream.setCopiesBytes(copies);
  return Message::parseFromCodedInputStream(stream, nullptr);
}

template <class Message>
size_t blocksOf(const Data& bytes, bool copies) {
  // What is built once in a process is built by another thread, whose pool goes with it.
  std::thread([&] { parsed<Message>(bytes, copies); }).join();
  tBlocks = 0;
  tCounts = true;
  const auto message = parsed<Message>(bytes, copies);
  tCounts = false;
  return tBlocks;
}

}  // namespace

// Its argument names the shape; prints the blocks and how many there may be.
int main(int, char** argv) {
  const std::string_view shape = argv[1] ? argv[1] : "";
  size_t blocks = 0;
  size_t bar = 0;
  if (shape == "event") {
    blocks = blocksOf<NVXx_BMEvent>(Data::copy(peer::write(peer::makeEvent(1, false))), false);
    bar = 3;
  } else if (shape == "reply") {
    blocks = blocksOf<NVXx_BMReply>(Data::copy(peer::write(peer::makeReply(1))), true);
    bar = 12;
  } else if (shape == "tree") {
    blocks = blocksOf<NVXx_BMNode>(Data::copy(peer::write(peer::makeNode(1))), false);
    bar = 200;
  } else {
    std::fprintf(stderr, "usage: %s event|reply|tree\n", argv[0]);
    return 2;
  }
  std::printf("   %-28s %14zu %38s %.3g\n", (std::string(shape) + "/blocks to parse").c_str(), blocks, "bar",
              static_cast<double>(bar));
  return 0;
}
