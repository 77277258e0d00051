#include "tools/messagegen/CppNames.h"

#include <charconv>
#include <cmath>
#include <cstring>

namespace nvxcore::messagegen {

namespace {

/// The shortest digits that read back as the same bits.
template <class T>
std::string floatLiteral(T value, std::string_view suffix) {
  const std::string sign = std::signbit(value) ? "-" : "";
  if (std::isinf(value)) return sign + "__builtin_inf" + std::string(suffix) + "()";
  if (std::isnan(value)) return sign + "__builtin_nan" + std::string(suffix) + "(\"\")";
  char digits[64];
  const auto result = std::to_chars(digits, digits + sizeof digits, value);
  std::string text(digits, result.ptr);
  if (text.find_first_of(".e") == std::string::npos) text += ".0";
  return text + std::string(suffix);
}

std::string integerLiteral(FieldType type, uint64_t bits) {
  const auto wide = static_cast<int64_t>(bits);
  switch (type) {
    case FieldType::UInt32:
    case FieldType::Fixed32:
      return std::to_string(static_cast<uint32_t>(bits)) + "U";
    case FieldType::UInt64:
    case FieldType::Fixed64:
      return "UINT64_C(" + std::to_string(bits) + ")";
    case FieldType::Int64:
    case FieldType::SInt64:
    case FieldType::SFixed64:
      // The least number is no literal with a sign before it.
      return wide == INT64_MIN ? "INT64_MIN" : "INT64_C(" + std::to_string(wide) + ")";
    default:
      return wide == INT32_MIN ? "INT32_MIN" : std::to_string(static_cast<int32_t>(wide));
  }
}

}  // namespace

std::string CppNames::valueType(const Field& field) const {
  switch (field.type) {
    case FieldType::Bool:
      return "bool";
    case FieldType::Fixed32:
    case FieldType::UInt32:
      return "uint32_t";
    case FieldType::SFixed32:
    case FieldType::Int32:
    case FieldType::SInt32:
      return "int32_t";
    case FieldType::Fixed64:
    case FieldType::UInt64:
      return "uint64_t";
    case FieldType::SFixed64:
    case FieldType::Int64:
    case FieldType::SInt64:
      return "int64_t";
    case FieldType::Float:
      return "float";
    case FieldType::Double:
      return "double";
    case FieldType::Data:
      return ofRuntime("Data");
    case FieldType::String:
      return ofRuntime("NVXx_PBString");
    case FieldType::Message:
    case FieldType::Group:
      return of(*field.message);
    case FieldType::Enum:
      return of(*field.enumeration);
  }
  return "";
}

std::string CppNames::defaultValue(const Field& field) const {
  if (!field.hasDefault || field.defaultBits == 0) return "";
  switch (field.type) {
    case FieldType::Bool:
      return "true";
    case FieldType::Float: {
      float value = 0;
      const auto bits = static_cast<uint32_t>(field.defaultBits);
      std::memcpy(&value, &bits, sizeof value);
      return floatLiteral(value, "f");
    }
    case FieldType::Double: {
      double value = 0;
      std::memcpy(&value, &field.defaultBits, sizeof value);
      return floatLiteral(value, "");
    }
    case FieldType::Enum:
      return "static_cast<" + of(*field.enumeration) + ">(" + integerLiteral(field.type, field.defaultBits) +
             ")";
    default:
      return integerLiteral(field.type, field.defaultBits);
  }
}

}  // namespace nvxcore::messagegen
