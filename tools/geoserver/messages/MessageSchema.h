// The messages that the server knows: for each the numbers, kinds and names of its fields.
//
// A catalogue of its own on purpose: it must not share a slip with the client's.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace nvxcore::geoserver {

struct MessageSchema;

enum class FieldKind {
  int32,
  int64,
  uint64,
  boolean,
  enumeration,  // its numbers have no names
  fixed64,
  sfixed32,
  floating,
  string,
  bytes,
  message,
  group,
};

struct FieldSchema {
  uint32_t number = 0;
  FieldKind kind = FieldKind::int32;
  const char* name = "";
  const MessageSchema* message = nullptr;  // of a message or a group
  bool required = false;
};

struct MessageSchema {
  const char* name = "";
  std::span<const FieldSchema> fields;

  // Nothing when the message has no such field.
  const FieldSchema* find(uint32_t number) const;
  const FieldSchema* find(std::string_view fieldName) const;
};

// The wire types of the published encoding.
enum class WireType : uint8_t { varint = 0, fixed64 = 1, bytes = 2, group = 3, endGroup = 4, fixed32 = 5 };

WireType wireTypeOf(FieldKind kind);

namespace schemas {

// Knows no field: every field of such a message is shown by its number.
extern const MessageSchema unknown;
extern const MessageSchema clientPropertiesRequest;
extern const MessageSchema clientPropertiesResponse;
extern const MessageSchema resourceRequest;
extern const MessageSchema resourceResponse;
extern const MessageSchema clientParametersRequest;
extern const MessageSchema clientParametersResponse;
extern const MessageSchema parameterGroup;
extern const MessageSchema userEvent3Request;
extern const MessageSchema userEvent3Response;
extern const MessageSchema locationDescriptor;

}  // namespace schemas
}  // namespace nvxcore::geoserver
