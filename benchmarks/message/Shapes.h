#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "benchmarks/message/Peer.h"
#include "benchmarks/message/Shapes.pb.h"
#include "nvxcore/message/NVXx_PBUnknownFieldSet.h"

// What is measured: the same contents as bytes, as the peer's structs and as our messages.

namespace shapes {

[[noreturn]] void fail(const char* what);

template <class Message, class Struct>
struct Shape {
  std::vector<Struct> structs;
  std::vector<nvxcore::Data> bytes;
  std::vector<nvxcore::Ref<Message>> messages;

  /// Compares what each side reads and writes.
  void add(Struct value) {
    const std::string written = peer::write(value);
    bytes.push_back(nvxcore::Data::copy(written));
    messages.push_back(Message::parseFromData(bytes.back()));
    if (messages.back()->data().view() != written) fail("written by us");
    if (messages.back()->unknownFields()) fail("unknown fields");
    structs.push_back(std::move(value));
  }
};

using EventShape = Shape<nvxcore::NVXx_BMEvent, peer::Event>;
using ReplyShape = Shape<nvxcore::NVXx_BMReply, peer::Reply>;
using TreeShape = Shape<nvxcore::NVXx_BMNode, peer::Node>;

/// One event, or 256 that differ in what they have and in widths.
const EventShape& events(bool isMixed);
const ReplyShape& replies();
/// One tree, or 64 that differ.
const TreeShape& trees(bool isMixed);

}  // namespace shapes
