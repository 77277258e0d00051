#include "tools/geoserver/messages/TextFormat.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cinttypes>
#include <cstdio>

#include "tools/geoserver/WireCodec.h"

namespace nvxcore::geoserver {
namespace {

constexpr size_t kIndent = 2;

std::string fixedText(uint64_t value, int digits) {
  char text[32];
  std::snprintf(text, sizeof(text), "0x%0*" PRIx64, digits, value);
  return text;
}

std::string floatText(float value) {
  char text[32];
  return std::string(text, std::to_chars(text, text + sizeof(text), value).ptr);
}

std::string scalarText(FieldKind kind, uint64_t value) {
  switch (kind) {
    case FieldKind::boolean:
      return value ? "true" : "false";
    case FieldKind::uint64:
      return std::to_string(value);
    case FieldKind::fixed64:
      return fixedText(value, 16);
    case FieldKind::sfixed32:
      return std::to_string(static_cast<int32_t>(value));
    case FieldKind::floating:
      return floatText(std::bit_cast<float>(static_cast<uint32_t>(value)));
    default:
      return std::to_string(static_cast<int64_t>(value));
  }
}

std::string bytesText(std::string_view bytes, size_t atMost) {
  if (bytes.size() <= atMost) return quoted(bytes, true);
  return quoted(bytes.substr(0, atMost), true) + "  # the first of " + std::to_string(bytes.size()) +
         " bytes";
}

class Printer {
 public:
  explicit Printer(size_t bytesAtMost) : _bytesAtMost(bytesAtMost) {}

  void print(const WireMessage& message, size_t indent, int depth) {
    for (const WireMessage::Field& field : message.fields()) {
      const FieldSchema* known = message.schema().find(field.number);
      if (known && field.type != wireTypeOf(known->kind)) known = nullptr;
      _out.append(indent, ' ').append(known ? known->name : std::to_string(field.number));
      const bool nested = field.type == WireType::group || (known && known->message);
      if (nested) {
        printNested(field, known, indent, depth);
      } else {
        _out += ": " + value(field, known) + "\n";
      }
    }
  }

  std::string take() { return std::move(_out); }

 private:
  void printNested(const WireMessage::Field& field, const FieldSchema* known, size_t indent, int depth) {
    try {
      if (depth == WireMessage::kMaxDepth) throw WireError("too deep");
      const auto inner = WireMessage::parse(field.bytes, known ? *known->message : schemas::unknown);
      _out += known ? " {\n" : " group {\n";
      print(inner, indent + kIndent, depth + 1);
      _out.append(indent, ' ') += "}\n";
    } catch (const WireError& error) {
      _out += ": " + quoted(std::string_view(field.bytes).substr(0, _bytesAtMost), true) + "  # " +
              error.what() + "\n";
    }
  }

  std::string value(const WireMessage::Field& field, const FieldSchema* known) const {
    if (field.type == WireType::bytes) {
      const bool isText = known && known->kind == FieldKind::string;
      return isText ? quoted(field.bytes, false) : bytesText(field.bytes, _bytesAtMost);
    }
    if (known) return scalarText(known->kind, field.scalar);
    if (field.type == WireType::varint) return std::to_string(field.scalar);
    return fixedText(field.scalar, field.type == WireType::fixed64 ? 16 : 8);
  }

  const size_t _bytesAtMost;
  std::string _out;
};

}  // namespace

std::string quoted(std::string_view bytes, bool asBytes) {
  std::string out = "\"";
  for (const char c : bytes) {
    const auto byte = static_cast<uint8_t>(c);
    if (c == '\n') {
      out += "\\n";
    } else if (c == '\r') {
      out += "\\r";
    } else if (c == '\t') {
      out += "\\t";
    } else if (c == '"' || c == '\\') {
      out += {'\\', c};
    } else if (byte < 0x20 || byte == 0x7F || (asBytes && byte > 0x7F)) {
      char octal[8];
      std::snprintf(octal, sizeof(octal), "\\%03o", byte);
      out += octal;
    } else {
      out += c;
    }
  }
  return out += '"';
}

std::string textFormat(const WireMessage& message, size_t indent, size_t bytesAtMost) {
  Printer printer(bytesAtMost);
  printer.print(message, indent, 0);
  return printer.take();
}

}  // namespace nvxcore::geoserver
