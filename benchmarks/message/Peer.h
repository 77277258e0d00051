#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// The peer: plain structs, read and written with protozero as a user would by hand, nothing reserved.
namespace peer {

struct Event {
  uint32_t present = 0;  // bit n: field n + 1
  int32_t value1 = 0;
  int32_t value2 = 0;
  uint32_t value3 = 0;
  int64_t value4 = 0;
  int64_t value5 = 0;
  uint64_t value6 = 0;
  int32_t value7 = 0;
  int64_t value8 = 0;
  bool value9 = false;
  bool value10 = false;
  int32_t value11 = 0;
  uint32_t value12 = 0;
  uint64_t value13 = 0;
  float value14 = 0;
  double value15 = 0;
  std::string text1;
  std::string text2;
  std::string text3;
  std::string text4;
  std::string payload;
};

struct Element {
  std::string url;
  int32_t code = 0;
  uint64_t stamp = 0;
  std::string contentType;
  std::string body;
};

struct Reply {
  std::vector<Element> elements;
  int32_t status = 0;
};

struct Node {
  std::string name;
  int64_t id = 0;
  std::vector<int32_t> packed;
  std::vector<int32_t> plain;
  std::vector<Node> children;
  std::string title;
};

Event readEvent(std::string_view bytes);
Reply readReply(std::string_view bytes);
Node readNode(std::string_view bytes);
std::string write(const Event& event);
std::string write(const Reply& reply);
std::string write(const Node& node);

// What is sent, from a seed.
Event makeEvent(uint32_t seed, bool isMixed);
Reply makeReply(uint32_t seed);
Node makeNode(uint32_t seed);
size_t countOf(const Node& node);

}  // namespace peer
