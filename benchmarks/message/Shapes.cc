#include "benchmarks/message/Shapes.h"

namespace shapes {

using namespace nvxcore;

void fail(const char* what) {
  std::fprintf(stderr, "contents differ: %s\n", what);
  std::exit(1);
}

namespace {

bool same(const NVXx_BMNode& node, const peer::Node& other) {
  if (node.name() != other.name || node.title() != other.title || node.key() != other.id) return false;
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

}  // namespace

const EventShape& events(bool isMixed) {
  static const auto make = [](uint32_t count, bool mixed) {
    auto* shape = new EventShape;
    for (uint32_t i = 0; i < count; ++i) shape->add(peer::makeEvent(i + 1, mixed));
    return shape;
  };
  static const EventShape* const shapes[2] = {make(1, false), make(256, true)};
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
      shape->add(peer::makeNode(i + 1));
      // Reading fills no array that wasn't there: what is measured stays as it was parsed.
      if (!same(*shape->messages.back()->deepCopy(), shape->structs.back())) fail("tree");
    }
    return shape;
  };
  static const TreeShape* const shapes[2] = {make(1), make(64)};
  return *shapes[isMixed];
}

}  // namespace shapes
