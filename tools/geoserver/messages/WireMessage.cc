#include "tools/geoserver/messages/WireMessage.h"

#include <algorithm>
#include <bit>
#include <stdexcept>
#include <tuple>
#include <utility>

#include "tools/geoserver/WireCodec.h"

namespace nvxcore::geoserver {
namespace {

constexpr uint32_t kGreatestNumber = (1u << 29) - 1;

// Goes through the bytes of a message; each take throws when what it takes is not there.
class Cursor {
 public:
  explicit Cursor(std::string_view bytes) : _bytes(bytes) {}

  bool atEnd() const { return _position == _bytes.size(); }
  size_t position() const { return _position; }
  std::string_view since(size_t start, size_t end) const { return _bytes.substr(start, end - start); }

  uint64_t takeVarint() {
    uint64_t value = 0;
    for (int shift = 0; shift < 70; shift += 7) {
      const auto byte = static_cast<uint8_t>(takeBytes(1).front());
      if (shift == 63 && byte > 1) break;
      value |= static_cast<uint64_t>(byte & 0x7F) << shift;
      if (byte < 0x80) return value;
    }
    throw WireError("message has a varint of more than 64 bits");
  }

  uint64_t takeFixed(size_t count) {
    uint64_t value = 0;
    const std::string_view bytes = takeBytes(count);
    for (size_t i = count; i-- > 0;) value = value << 8 | static_cast<uint8_t>(bytes[i]);
    return value;
  }

  std::string_view takeBytes(uint64_t count) {
    if (count > _bytes.size() - _position) throw WireError("message ends within a field");
    const std::string_view taken = _bytes.substr(_position, count);
    _position += count;
    return taken;
  }

  std::pair<uint32_t, WireType> takeTag() {
    const uint64_t tag = takeVarint();
    const uint64_t number = tag >> 3;
    const auto type = static_cast<WireType>(tag & 7);
    if (number == 0 || number > kGreatestNumber)
      throw WireError("message has a field of number " + std::to_string(number));
    if (type > WireType::fixed32)
      throw WireError("message has a field of wire type " + std::to_string(tag & 7));
    return {static_cast<uint32_t>(number), type};
  }

  // Behind a field's tag: goes past its value. The start and end of a group's content come back.
  std::pair<size_t, size_t> skip(uint32_t number, WireType type, int depth) {
    const size_t start = _position;
    switch (type) {
      case WireType::varint:
        takeVarint();
        break;
      case WireType::fixed64:
        takeBytes(8);
        break;
      case WireType::fixed32:
        takeBytes(4);
        break;
      case WireType::bytes:
        takeBytes(takeVarint());
        break;
      case WireType::endGroup:
        throw WireError("message has the end of a group that did not begin");
      case WireType::group:
        if (depth == WireMessage::kMaxDepth) throw WireError("message is too deep");
        for (;;) {
          const size_t end = _position;
          const auto [inner, innerType] = takeTag();
          if (innerType != WireType::endGroup) {
            skip(inner, innerType, depth + 1);
          } else if (inner == number) {
            return {start, end};
          } else {
            throw WireError("message has a group that ends as another");
          }
        }
    }
    return {start, _position};
  }

 private:
  std::string_view _bytes;
  size_t _position = 0;
};

void appendVarint(std::string& out, uint64_t value) {
  for (; value >= 0x80; value >>= 7) out.push_back(static_cast<char>(value | 0x80));
  out.push_back(static_cast<char>(value));
}

void appendTag(std::string& out, uint32_t number, WireType type) {
  appendVarint(out, static_cast<uint64_t>(number) << 3 | static_cast<uint64_t>(type));
}

bool isUtf8(std::string_view text) {
  for (size_t i = 0; i < text.size();) {
    const auto lead = static_cast<uint8_t>(text[i]);
    const size_t length = lead < 0x80   ? 1
                          : lead < 0xC2 ? 0
                          : lead < 0xE0 ? 2
                          : lead < 0xF0 ? 3
                          : lead < 0xF5 ? 4
                                        : 0;
    if (length == 0 || i + length > text.size()) return false;
    uint32_t codePoint = length == 1 ? lead : lead & (0xFF >> (length + 1));
    for (size_t j = 1; j < length; ++j) {
      const auto byte = static_cast<uint8_t>(text[i + j]);
      if ((byte & 0xC0) != 0x80) return false;
      codePoint = codePoint << 6 | (byte & 0x3F);
    }
    const bool surrogate = codePoint >= 0xD800 && codePoint < 0xE000;
    if (surrogate || (length == 3 && codePoint < 0x800) || (length == 4 && codePoint < 0x10000) ||
        codePoint > 0x10FFFF)
      return false;
    i += length;
  }
  return true;
}

}  // namespace

WireMessage WireMessage::parse(std::string_view bytes, const MessageSchema& schema) {
  WireMessage message(schema);
  Cursor cursor(bytes);
  while (!cursor.atEnd()) {
    if (message._fields.size() == kMaxFields) throw WireError("message has too many fields");
    Field field;
    std::tie(field.number, field.type) = cursor.takeTag();
    switch (field.type) {
      case WireType::varint:
        field.scalar = cursor.takeVarint();
        break;
      case WireType::fixed64:
        field.scalar = cursor.takeFixed(8);
        break;
      case WireType::fixed32:
        field.scalar = cursor.takeFixed(4);
        break;
      case WireType::bytes:
        field.bytes = cursor.takeBytes(cursor.takeVarint());
        break;
      case WireType::group:
      case WireType::endGroup: {
        const auto [start, end] = cursor.skip(field.number, field.type, 0);
        field.bytes = cursor.since(start, end);
        break;
      }
    }
    message._fields.push_back(std::move(field));
  }
  return message;
}

std::string WireMessage::serialised() const {
  std::string out;
  for (const Field& field : _fields) {
    appendTag(out, field.number, field.type);
    switch (field.type) {
      case WireType::varint:
        appendVarint(out, field.scalar);
        break;
      case WireType::fixed64:
      case WireType::fixed32:
        for (int shift = 0; shift < (field.type == WireType::fixed64 ? 64 : 32); shift += 8)
          out.push_back(static_cast<char>(field.scalar >> shift));
        break;
      case WireType::bytes:
        appendVarint(out, field.bytes.size());
        out += field.bytes;
        break;
      case WireType::group:
      case WireType::endGroup:
        out += field.bytes;
        appendTag(out, field.number, WireType::endGroup);
        break;
    }
  }
  return out;
}

std::string WireMessage::fault() const { return faultAtDepth(0); }

std::string WireMessage::faultAtDepth(int depth) const {
  if (depth == kMaxDepth) return "message is too deep";
  for (const FieldSchema& field : _schema->fields) {
    if (field.required && !has(field.name)) return std::string(field.name) + " is missing";
  }
  for (const Field& field : _fields) {
    const FieldSchema* known = _schema->find(field.number);
    if (!known || field.type != wireTypeOf(known->kind)) continue;
    if (known->kind == FieldKind::string && !isUtf8(field.bytes))
      return std::string(known->name) + " is no UTF-8";
    if (!known->message) continue;
    try {
      const std::string fault = parse(field.bytes, *known->message).faultAtDepth(depth + 1);
      if (!fault.empty()) return std::string(known->name) + ": " + fault;
    } catch (const WireError& error) {
      return std::string(known->name) + ": " + error.what();
    }
  }
  return {};
}

const FieldSchema& WireMessage::schemaOf(std::string_view name) const {
  if (const FieldSchema* field = _schema->find(name)) return *field;
  throw std::logic_error(std::string(_schema->name) + " has no field " + std::string(name));
}

const WireMessage::Field* WireMessage::last(std::string_view name) const {
  const FieldSchema& schema = schemaOf(name);
  const WireType type = wireTypeOf(schema.kind);
  const auto found = std::find_if(_fields.rbegin(), _fields.rend(), [&](const Field& field) {
    return field.number == schema.number && field.type == type;
  });
  return found == _fields.rend() ? nullptr : &*found;
}

bool WireMessage::has(std::string_view name) const { return last(name) != nullptr; }

uint64_t WireMessage::number(std::string_view name) const {
  const Field* field = last(name);
  return field ? field->scalar : 0;
}

float WireMessage::real(std::string_view name) const {
  return std::bit_cast<float>(static_cast<uint32_t>(number(name)));
}

std::string WireMessage::text(std::string_view name) const {
  const Field* field = last(name);
  return field ? field->bytes : std::string();
}

WireMessage WireMessage::message(std::string_view name) const {
  const FieldSchema& schema = schemaOf(name);
  std::string bytes;
  for (const Field& field : _fields) {
    if (field.number == schema.number && field.type == wireTypeOf(schema.kind)) bytes += field.bytes;
  }
  return parse(bytes, schema.message ? *schema.message : schemas::unknown);
}

std::vector<uint64_t> WireMessage::numbers(std::string_view name) const {
  const FieldSchema& schema = schemaOf(name);
  std::vector<uint64_t> values;
  for (const Field& field : _fields) {
    if (field.number == schema.number && field.type == wireTypeOf(schema.kind))
      values.push_back(field.scalar);
  }
  return values;
}

std::vector<WireMessage> WireMessage::messages(std::string_view name) const {
  const FieldSchema& schema = schemaOf(name);
  std::vector<WireMessage> values;
  for (const Field& field : _fields) {
    if (field.number == schema.number && field.type == wireTypeOf(schema.kind))
      values.push_back(parse(field.bytes, schema.message ? *schema.message : schemas::unknown));
  }
  return values;
}

WireMessage& WireMessage::add(std::string_view name, uint64_t value) {
  const FieldSchema& schema = schemaOf(name);
  return add(Field{schema.number, wireTypeOf(schema.kind), value, {}});
}

WireMessage& WireMessage::add(std::string_view name, std::string_view value) {
  const FieldSchema& schema = schemaOf(name);
  return add(Field{schema.number, wireTypeOf(schema.kind), 0, std::string(value)});
}

WireMessage& WireMessage::add(Field field) {
  _fields.push_back(std::move(field));
  return *this;
}

}  // namespace nvxcore::geoserver
