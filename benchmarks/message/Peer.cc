#include "benchmarks/message/Peer.h"

#include <protozero/pbf_reader.hpp>
#include <protozero/pbf_writer.hpp>
#include <random>

namespace peer {

Event readEvent(std::string_view bytes) {
  Event e;
  protozero::pbf_reader r(bytes.data(), bytes.size());
  while (r.next()) {
    if (r.tag() <= 20) e.present |= 1U << (r.tag() - 1);
    switch (r.tag()) {
      case 1:
        e.value1 = r.get_int32();
        break;
      case 2:
        e.value2 = r.get_int32();
        break;
      case 3:
        e.value3 = r.get_uint32();
        break;
      case 4:
        e.value4 = r.get_int64();
        break;
      case 5:
        e.value5 = r.get_int64();
        break;
      case 6:
        e.value6 = r.get_uint64();
        break;
      case 7:
        e.value7 = r.get_sint32();
        break;
      case 8:
        e.value8 = r.get_sint64();
        break;
      case 9:
        e.value9 = r.get_bool();
        break;
      case 10:
        e.value10 = r.get_bool();
        break;
      case 11:
        e.value11 = r.get_enum();
        break;
      case 12:
        e.value12 = r.get_fixed32();
        break;
      case 13:
        e.value13 = r.get_fixed64();
        break;
      case 14:
        e.value14 = r.get_float();
        break;
      case 15:
        e.value15 = r.get_double();
        break;
      case 16:
        e.text1 = r.get_string();
        break;
      case 17:
        e.text2 = r.get_string();
        break;
      case 18:
        e.text3 = r.get_string();
        break;
      case 19:
        e.text4 = r.get_string();
        break;
      case 20:
        e.payload = r.get_bytes();
        break;
      default:
        r.skip();
    }
  }
  return e;
}

Element readElement(protozero::pbf_reader r) {
  Element e;
  while (r.next()) {
    switch (r.tag()) {
      case 1:
        e.url = r.get_string();
        break;
      case 2:
        e.code = r.get_int32();
        break;
      case 3:
        e.stamp = r.get_fixed64();
        break;
      case 4:
        e.contentType = r.get_string();
        break;
      case 5:
        e.body = r.get_bytes();
        break;
      default:
        r.skip();
    }
  }
  return e;
}

Reply readReply(std::string_view bytes) {
  Reply reply;
  protozero::pbf_reader r(bytes.data(), bytes.size());
  while (r.next()) {
    switch (r.tag()) {
      case 1:
        reply.elements.push_back(readElement(r.get_message()));
        break;
      case 2:
        reply.status = r.get_int32();
        break;
      default:
        r.skip();
    }
  }
  return reply;
}

static Node readNode(protozero::pbf_reader r) {
  Node node;
  while (r.next()) {
    switch (r.tag()) {
      case 1:
        node.name = r.get_string();
        break;
      case 2:
        node.id = r.get_int64();
        break;
      case 3:
        for (const int32_t value : r.get_packed_int32()) node.packed.push_back(value);
        break;
      case 4:
        node.plain.push_back(r.get_int32());
        break;
      case 5:
        node.children.push_back(readNode(r.get_message()));
        break;
      case 6:
        node.title = r.get_string();
        break;
      default:
        r.skip();
    }
  }
  return node;
}

Node readNode(std::string_view bytes) { return readNode(protozero::pbf_reader(bytes.data(), bytes.size())); }

std::string write(const Event& e) {
  std::string bytes;
  protozero::pbf_writer w(bytes);
  const auto has = [&](int field) { return e.present >> (field - 1) & 1; };
  if (has(1)) w.add_int32(1, e.value1);
  if (has(2)) w.add_int32(2, e.value2);
  if (has(3)) w.add_uint32(3, e.value3);
  if (has(4)) w.add_int64(4, e.value4);
  if (has(5)) w.add_int64(5, e.value5);
  if (has(6)) w.add_uint64(6, e.value6);
  if (has(7)) w.add_sint32(7, e.value7);
  if (has(8)) w.add_sint64(8, e.value8);
  if (has(9)) w.add_bool(9, e.value9);
  if (has(10)) w.add_bool(10, e.value10);
  if (has(11)) w.add_enum(11, e.value11);
  if (has(12)) w.add_fixed32(12, e.value12);
  if (has(13)) w.add_fixed64(13, e.value13);
  if (has(14)) w.add_float(14, e.value14);
  if (has(15)) w.add_double(15, e.value15);
  if (has(16)) w.add_string(16, e.text1);
  if (has(17)) w.add_string(17, e.text2);
  if (has(18)) w.add_string(18, e.text3);
  if (has(19)) w.add_string(19, e.text4);
  if (has(20)) w.add_bytes(20, e.payload);
  return bytes;
}

std::string write(const Reply& reply) {
  std::string bytes;
  protozero::pbf_writer w(bytes);
  for (const Element& e : reply.elements) {
    protozero::pbf_writer element(w, 1);
    element.add_string(1, e.url);
    element.add_int32(2, e.code);
    element.add_fixed64(3, e.stamp);
    element.add_string(4, e.contentType);
    element.add_bytes(5, e.body);
  }
  w.add_int32(2, reply.status);
  return bytes;
}

static void writeNode(protozero::pbf_writer& w, const Node& node) {
  w.add_string(1, node.name);
  w.add_int64(2, node.id);
  w.add_packed_int32(3, node.packed.begin(), node.packed.end());
  for (const int32_t value : node.plain) w.add_int32(4, value);
  for (const Node& child : node.children) {
    protozero::pbf_writer nested(w, 5);
    writeNode(nested, child);
  }
  w.add_string(6, node.title);
}

std::string write(const Node& node) {
  std::string bytes;
  protozero::pbf_writer w(bytes);
  writeNode(w, node);
  return bytes;
}

namespace {

std::string text(std::mt19937& random, size_t length) {
  std::string result;
  for (size_t i = 0; i < length; ++i) result += static_cast<char>('a' + random() % 26);
  return result;
}

// Up to 22 bits, small ones as often as large ones.
int32_t number(std::mt19937& random) { return static_cast<int32_t>(random() >> (10 + random() % 22)); }

}  // namespace

Event makeEvent(uint32_t seed, bool isMixed) {
  std::mt19937 random(seed);
  Event e;
  e.value1 = 17;
  e.value2 = isMixed ? number(random) : 300;
  e.value3 = isMixed ? static_cast<uint32_t>(number(random)) : 70000;
  e.value4 = isMixed ? number(random) : 5;
  e.value5 = 1234567890123;
  e.value6 = isMixed ? static_cast<uint64_t>(number(random)) : 1000;
  e.value7 = isMixed ? -number(random) : -3;
  e.value8 = isMixed ? number(random) : -40000;
  e.value9 = true;
  e.value11 = static_cast<int32_t>(random() % 4);
  e.value12 = 0x1234567;
  e.value13 = 0x123456789ABCDEF;
  e.value14 = 1.5F;
  e.value15 = 2.25;
  e.text1 = text(random, isMixed ? random() % 40 : 18);
  e.text2 = text(random, isMixed ? random() % 40 : 17);
  e.text3 = text(random, isMixed ? random() % 40 : 24);
  e.text4 = text(random, isMixed ? random() % 40 : 21);
  e.payload = text(random, 200);
  e.present = 0xFFFFF;
  if (isMixed) {
    for (int i = 0; i < 20; ++i) {
      if (random() % 10 >= 6) e.present &= ~(1U << i);
    }
  }
  return e;
}

Reply makeReply(uint32_t seed) {
  std::mt19937 random(seed);
  Reply reply;
  reply.status = 200;
  for (int i = 0; i < 4; ++i) {
    Element e;
    e.url = "https://example.invalid/tiles/" + text(random, 20);
    e.code = 200;
    e.stamp = 1700000000000;
    e.contentType = "image/png";
    e.body = text(random, 4096);
    reply.elements.push_back(std::move(e));
  }
  return reply;
}

namespace {

// What one level has below it, in turn: 1, 3, 6, 12, 18 and 36 nodes.
constexpr size_t kChildren[6][2] = {{3, 3}, {2, 2}, {2, 2}, {2, 1}, {2, 2}, {0, 0}};

Node grow(std::mt19937& random, size_t level, size_t turn) {
  Node node;
  node.name = "node-" + text(random, 6 + random() % 8);
  node.title = text(random, 10 + random() % 20);
  node.id = number(random);
  const size_t children = kChildren[level][turn % 2];
  for (size_t i = 0; i < children; ++i) node.children.push_back(grow(random, level + 1, i));
  if (children) return node;
  const size_t values = 60 + random() % 50;
  for (size_t i = 0; i < values; ++i) node.packed.push_back(number(random));
  for (size_t i = 0; i < values; ++i) node.plain.push_back(number(random));
  return node;
}

}  // namespace

Node makeNode(uint32_t seed) {
  std::mt19937 random(seed);
  return grow(random, 0, 0);
}

size_t countOf(const Node& node) {
  size_t count = 1;
  for (const Node& child : node.children) count += countOf(child);
  return count;
}

}  // namespace peer
