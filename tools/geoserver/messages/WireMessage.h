// A message of the Protocol Buffers binary encoding, read and written by a schema's names.
//
// This is the server's own code on purpose: it must not share a slip with the client's.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/geoserver/messages/MessageSchema.h"

namespace nvxcore::geoserver {

// A value: the fields as they came, in their order, unknown ones too. A message within is kept as its bytes
// and read when it is asked for. Asking for a name that the schema does not have throws std::logic_error.
class WireMessage {
 public:
  struct Field {
    uint32_t number = 0;
    WireType type = WireType::varint;
    uint64_t scalar = 0;  // of a varint or a fixed field
    std::string bytes;    // of a length-delimited field; of a group what lies between its tags
  };

  // How deep groups and messages may lie in one another.
  static constexpr int kMaxDepth = 64;
  // A field takes many times the bytes that it came in.
  static constexpr size_t kMaxFields = 1 << 20;

  WireMessage() : WireMessage(schemas::unknown) {}
  explicit WireMessage(const MessageSchema& schema) : _schema(&schema) {}

  // Throws WireError when the bytes are no message. What lies in messages within is not looked at.
  static WireMessage parse(std::string_view bytes, const MessageSchema& schema = schemas::unknown);
  std::string serialised() const;

  const MessageSchema& schema() const { return *_schema; }
  const std::vector<Field>& fields() const { return _fields; }
  // What is wrong with the message, those within it included: a field that can't be read, text that is no
  // UTF-8, a required field that is missing. Empty when nothing is.
  std::string fault() const;

  bool has(std::string_view name) const;
  // The field's last value; 0, false or empty when it is absent. A signed one is read as int64_t.
  uint64_t number(std::string_view name) const;
  bool flag(std::string_view name) const { return number(name) != 0; }
  float real(std::string_view name) const;
  std::string text(std::string_view name) const;
  // Several in a field that is not repeated count as one, merged (as published). Throws WireError.
  WireMessage message(std::string_view name) const;
  std::vector<uint64_t> numbers(std::string_view name) const;
  std::vector<WireMessage> messages(std::string_view name) const;

  // Each appends a field of the schema's kind.
  WireMessage& add(std::string_view name, uint64_t value);
  WireMessage& add(std::string_view name, std::string_view value);
  WireMessage& add(std::string_view name, const char* value) { return add(name, std::string_view(value)); }
  WireMessage& add(std::string_view name, const WireMessage& value) { return add(name, value.serialised()); }
  WireMessage& add(Field field);

 private:
  const FieldSchema& schemaOf(std::string_view name) const;
  const Field* last(std::string_view name) const;
  std::string faultAtDepth(int depth) const;

  const MessageSchema* _schema;
  std::vector<Field> _fields;
};

}  // namespace nvxcore::geoserver
