#include <protozero/pbf_reader.hpp>
#include <protozero/pbf_writer.hpp>
#include <string>
#include <variant>
#include <vector>

#include "nvxcore/message/NVXx_PBDescriptor.h"
#include "nvxcore/message/NVXx_PBIvars.h"
#include "tests/message/MessageTest.h"
#include "tests/message/handwritten/Example.h"

// The golden bytes as protozero, which knows no groups, reads and writes them: field by field the same values
// as the message has, and from those values the same bytes.

namespace nvxcore {
namespace {

using protozero::pbf_reader;
using protozero::pbf_writer;
using GoldenPeerTest = testing::MessageTest;

// One element of a field, read by the one and the other, and written by the peer.
using Number = std::variant<int64_t, uint64_t, double, std::string>;

Number readByPeer(pbf_reader& reader, NVXx_PBType type) {
  switch (type) {
    case NVXx_PBType::Bool:
      return uint64_t{reader.get_bool()};
    case NVXx_PBType::Fixed32:
      return uint64_t{reader.get_fixed32()};
    case NVXx_PBType::SFixed32:
      return int64_t{reader.get_sfixed32()};
    case NVXx_PBType::Float:
      return double{reader.get_float()};
    case NVXx_PBType::Fixed64:
      return uint64_t{reader.get_fixed64()};
    case NVXx_PBType::SFixed64:
      return reader.get_sfixed64();
    case NVXx_PBType::Double:
      return reader.get_double();
    case NVXx_PBType::Int32:
      return int64_t{reader.get_int32()};
    case NVXx_PBType::Int64:
      return reader.get_int64();
    case NVXx_PBType::SInt32:
      return int64_t{reader.get_sint32()};
    case NVXx_PBType::SInt64:
      return reader.get_sint64();
    case NVXx_PBType::UInt32:
      return uint64_t{reader.get_uint32()};
    case NVXx_PBType::UInt64:
      return reader.get_uint64();
    case NVXx_PBType::Enum:
      // A negative one stands in five bytes, as a number without a sign.
      return int64_t{static_cast<int32_t>(reader.get_uint32())};
    default:
      return reader.get_string();
  }
}

Number readByMessage(const PBBoxedValue& value, NVXx_PBType type) {
  if (!value.isNumber()) {
    const PBObject& object = value.object();
    return object.message()              ? object.message()->data().string()
           : type == NVXx_PBType::String ? std::string(object.string().view())
                                         : object.data().string();
  }
  switch (NVXx_PBArrayValueTypeForPBType(type)) {
    case PBArrayValueTypeFloat:
    case PBArrayValueTypeDouble:
      return value.doubleValue();
    case PBArrayValueTypeInt32:
    case PBArrayValueTypeInt64:
      return value.int64Value();
    default:
      return value.uint64Value();
  }
}

void writeByPeer(pbf_writer& writer, uint32_t number, NVXx_PBType type, const Number& value) {
  const auto* text = std::get_if<std::string>(&value);
  const int64_t i = std::holds_alternative<int64_t>(value) ? std::get<int64_t>(value) : 0;
  const uint64_t u = std::holds_alternative<uint64_t>(value) ? std::get<uint64_t>(value) : 0;
  const double d = std::holds_alternative<double>(value) ? std::get<double>(value) : 0;
  switch (type) {
    case NVXx_PBType::Bool:
      return writer.add_bool(number, u != 0);
    case NVXx_PBType::Fixed32:
      return writer.add_fixed32(number, static_cast<uint32_t>(u));
    case NVXx_PBType::SFixed32:
      return writer.add_sfixed32(number, static_cast<int32_t>(i));
    case NVXx_PBType::Float:
      return writer.add_float(number, static_cast<float>(d));
    case NVXx_PBType::Fixed64:
      return writer.add_fixed64(number, u);
    case NVXx_PBType::SFixed64:
      return writer.add_sfixed64(number, i);
    case NVXx_PBType::Double:
      return writer.add_double(number, d);
    case NVXx_PBType::Int32:
      return writer.add_int32(number, static_cast<int32_t>(i));
    case NVXx_PBType::Int64:
      return writer.add_int64(number, i);
    case NVXx_PBType::SInt32:
      return writer.add_sint32(number, static_cast<int32_t>(i));
    case NVXx_PBType::SInt64:
      return writer.add_sint64(number, i);
    case NVXx_PBType::UInt32:
      return writer.add_uint32(number, static_cast<uint32_t>(u));
    case NVXx_PBType::UInt64:
      return writer.add_uint64(number, u);
    case NVXx_PBType::Enum:
      return writer.add_uint32(number, static_cast<uint32_t>(i));
    default:
      return writer.add_bytes(number, *text);
  }
}

// The elements of a packed run: protozero reads each as if it were alone.
std::vector<Number> packedByPeer(pbf_reader& reader, NVXx_PBType type) {
  const std::string run = reader.get_string();
  std::vector<Number> values;
  for (size_t at = 0; at < run.size();) {
    size_t length = 1;
    switch (NVXx_PBWireFormatForType(type, false)) {
      case PBWireTypeFixed32:
        length = 4;
        break;
      case PBWireTypeFixed64:
        length = 8;
        break;
      default:
        while (static_cast<uint8_t>(run[at + length - 1]) >= 0x80) ++length;
    }
    std::string alone(1, static_cast<char>(8 | NVXx_PBWireFormatForType(type, false)));
    alone += run.substr(at, length);
    at += length;
    pbf_reader one(alone);
    one.next();
    values.push_back(readByPeer(one, type));
  }
  return values;
}

template <class T>
void expectTheSame(const char* golden) {
  SCOPED_TRACE(golden);
  auto message = T::parseFromData(Data::copy(testing::goldenBytes(golden)));
  for (const auto& field : message->descriptorOfMessage().fields()) {
    if (field->type() == NVXx_PBType::Group) NVXx_PBSetHasObjectIvarWithField(*message, *field);
  }
  const std::string bytes = message->data().string();
  std::string written;
  pbf_writer writer(written);
  pbf_reader reader(bytes);
  bool isThere = reader.next();
  for (const auto& field : message->descriptorOfMessage().fields()) {
    if (field->type() == NVXx_PBType::Group) continue;
    SCOPED_TRACE(field->name());
    const PBBoxedValue value = NVXx_PBGetValueWithField(*message, *field);
    std::vector<Number> expected;
    if (field->isRepeated()) {
      for (const PBBoxedValue& one : value.array()->array())
        expected.push_back(readByMessage(one, field->type()));
    } else {
      expected.push_back(readByMessage(value, field->type()));
    }
    ASSERT_TRUE(isThere);
    if (field->isPackable()) {
      ASSERT_EQ(reader.tag_and_type(),
                protozero::tag_and_type(field->number(), protozero::pbf_wire_type::length_delimited));
      EXPECT_EQ(packedByPeer(reader, field->type()), expected);
      isThere = reader.next();
      std::string run;
      for (const Number& one : expected) {
        std::string alone;
        pbf_writer element(alone);
        writeByPeer(element, 1, field->type(), one);
        run += alone.substr(1);
      }
      writer.add_bytes(field->number(), run);
      continue;
    }
    for (const Number& one : expected) {
      ASSERT_TRUE(isThere);
      ASSERT_EQ(reader.tag(), field->number());
      EXPECT_EQ(readByPeer(reader, field->type()), one);
      writeByPeer(writer, field->number(), field->type(), one);
      isThere = reader.next();
    }
  }
  EXPECT_FALSE(isThere);
  EXPECT_EQ(testing::toHex(written), testing::toHex(bytes));
}

TEST_F(GoldenPeerTest, ReadsAndWritesTheSame) {
  expectTheSame<NVXx_EXSingular>("singular.hex");
  expectTheSame<NVXx_EXRepeated>("repeated.hex");
  expectTheSame<NVXx_EXPacked>("packed.hex");
}

}  // namespace
}  // namespace nvxcore
