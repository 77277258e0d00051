#include <algorithm>
#include <bit>
#include <charconv>
#include <optional>

#include "tools/geoserver/messages/TextFormat.h"

namespace nvxcore::geoserver {
namespace {

bool isWordCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-' ||
         c == '+' || c == '.';
}

class Parser {
 public:
  explicit Parser(std::string_view text) : _text(text) {}

  WireMessage parse(const MessageSchema& schema) {
    WireMessage message = fields(schema, 0);
    if (_at != _text.size()) fail("a brace closes that was not opened");
    return message;
  }

 private:
  [[noreturn]] void fail(const std::string& what) const {
    const auto line = 1 + std::count(_text.begin(), _text.begin() + static_cast<std::ptrdiff_t>(_at), '\n');
    throw TextFormatError("line " + std::to_string(line) + ": " + what);
  }

  // Goes past blanks and comments; gives what comes then, 0 at the end.
  char peek() {
    while (_at < _text.size()) {
      const char c = _text[_at];
      if (c == '#') {
        _at = std::min(_text.find('\n', _at), _text.size());
      } else if (c == ' ' || c == '\t' || c == '\r' || c == '\n') {
        ++_at;
      } else {
        return c;
      }
    }
    return 0;
  }

  bool take(char c) {
    if (peek() != c) return false;
    ++_at;
    return true;
  }

  std::string_view word() {
    peek();
    const size_t start = _at;
    while (_at < _text.size() && isWordCharacter(_text[_at])) ++_at;
    return _text.substr(start, _at - start);
  }

  // To the closing brace, or the end, of which neither is taken.
  WireMessage fields(const MessageSchema& schema, int depth) {
    if (depth == WireMessage::kMaxDepth) fail("too deep");
    WireMessage message(schema);
    while (peek() != 0 && peek() != '}') {
      const std::string_view name = word();
      if (name.empty()) fail("a field's name is missing");
      const FieldSchema* known = schema.find(name);
      WireMessage::Field field;
      if (known) {
        field.number = known->number;
        field.type = wireTypeOf(known->kind);
      } else {
        const auto end = std::from_chars(name.data(), name.data() + name.size(), field.number);
        if (end.ec != std::errc() || end.ptr != name.data() + name.size() || field.number == 0 ||
            field.number >= 1u << 29)
          fail(std::string(schema.name) + " has no field " + std::string(name));
      }
      value(field, known, depth);
      message.add(std::move(field));
      if (!take(',')) take(';');
    }
    return message;
  }

  void value(WireMessage::Field& field, const FieldSchema* known, int depth) {
    const bool colon = take(':');
    const bool group = !known && !colon && peek() == 'g' && word() == "group";
    if (peek() == '{') {
      if (known && !known->message) fail(std::string(known->name) + " is no message");
      if (!known) field.type = group ? WireType::group : WireType::bytes;
      ++_at;
      field.bytes = fields(known ? *known->message : schemas::unknown, depth + 1).serialised();
      if (!take('}')) fail("a closing brace is missing");
    } else if (!colon || group) {
      fail(group ? "a brace is missing" : "a colon is missing");
    } else if (peek() == '"' || peek() == '\'') {
      // Of a message its bytes: such a one may be no message.
      if (known && field.type != WireType::bytes && field.type != WireType::group)
        fail(std::string(known->name) + " is no string");
      if (!known) field.type = WireType::bytes;
      while (peek() == '"' || peek() == '\'') field.bytes += literal();
    } else {
      const std::string_view text = word();
      const auto scalar = known ? knownScalar(known->kind, text) : unknownScalar(text, field.type);
      if (!scalar)
        fail(std::string(text) + " is no value" + (known ? " for " + std::string(known->name) : ""));
      field.scalar = *scalar;
    }
  }

  std::string literal() {
    const char quote = _text[_at++];
    std::string bytes;
    for (;;) {
      if (_at == _text.size() || _text[_at] == '\n') fail("a string does not end");
      const char c = _text[_at++];
      if (c == quote) return bytes;
      bytes.push_back(c == '\\' ? escaped() : c);
    }
  }

  char escaped() {
    if (_at == _text.size()) fail("a string does not end");
    const char c = _text[_at++];
    switch (c) {
      case 'n':
        return '\n';
      case 'r':
        return '\r';
      case 't':
        return '\t';
      case '"':
      case '\'':
      case '\\':
        return c;
      case 'x':
        return digits(16, 2);
      default:
        --_at;
        return digits(8, 3);
    }
  }

  char digits(int base, size_t atMost) {
    unsigned value = 0;
    const char* start = _text.data() + _at;
    const auto end = std::from_chars(start, start + std::min(atMost, _text.size() - _at), value, base);
    if (end.ec != std::errc() || value > 0xFF) fail("no such escape in a string");
    _at += static_cast<size_t>(end.ptr - start);
    return static_cast<char>(value);
  }

  template <class Number>
  static std::optional<Number> whole(std::string_view text, int base = 10) {
    Number value{};
    const auto end = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (end.ec != std::errc() || end.ptr != text.data() + text.size()) return std::nullopt;
    return value;
  }

  static std::optional<uint64_t> unsignedNumber(std::string_view text) {
    return text.starts_with("0x") ? whole<uint64_t>(text.substr(2), 16) : whole<uint64_t>(text);
  }

  template <class Number>
  static std::optional<uint64_t> signedNumber(std::string_view text) {
    const auto value = whole<Number>(text);
    if (!value) return std::nullopt;
    return static_cast<uint64_t>(static_cast<int64_t>(*value));
  }

  static std::optional<uint64_t> knownScalar(FieldKind kind, std::string_view text) {
    switch (kind) {
      case FieldKind::boolean:
        if (text == "true" || text == "1") return 1;
        if (text == "false" || text == "0") return 0;
        return std::nullopt;
      case FieldKind::int32:
      case FieldKind::enumeration:
        return signedNumber<int32_t>(text);
      case FieldKind::int64:
        return signedNumber<int64_t>(text);
      case FieldKind::uint64:
      case FieldKind::fixed64:
        return unsignedNumber(text);
      case FieldKind::sfixed32: {
        const auto value = whole<int32_t>(text);
        if (!value) return std::nullopt;
        return static_cast<uint32_t>(*value);
      }
      case FieldKind::floating: {
        float value = 0;
        const auto end = std::from_chars(text.data(), text.data() + text.size(), value);
        if (end.ec != std::errc() || end.ptr != text.data() + text.size()) return std::nullopt;
        return std::bit_cast<uint32_t>(value);
      }
      default:
        return std::nullopt;
    }
  }

  // The form of the text tells the wire type.
  static std::optional<uint64_t> unknownScalar(std::string_view text, WireType& type) {
    if (text == "true" || text == "false") return text == "true";
    if (text.starts_with("-")) return signedNumber<int64_t>(text);
    if (text.starts_with("0x")) type = text.size() > 10 ? WireType::fixed64 : WireType::fixed32;
    return unsignedNumber(text);
  }

  std::string_view _text;
  size_t _at = 0;
};

}  // namespace

WireMessage parseTextFormat(std::string_view text, const MessageSchema& schema) {
  return Parser(text).parse(schema);
}

}  // namespace nvxcore::geoserver
