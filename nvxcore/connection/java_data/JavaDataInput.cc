#include "nvxcore/connection/java_data/JavaDataInput.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <memory>
#include <type_traits>

#include "nvxcore/connection/java_data/ModifiedUTF8.h"
#include "nvxcore/foundation/base/NVXLog.h"
#include "nvxcore/platform/internal/UTF8.h"

namespace nvxcore::utils {

namespace {

static_assert(std::endian::native == std::endian::little || std::endian::native == std::endian::big);

constexpr bool kSwaps = std::endian::native == std::endian::little;
constexpr size_t kStackLimit = 150;
/// Elements of an array that are set aside on the word of its count alone; more only as their bytes arrive.
constexpr size_t kTrustedElements = 4096;

uint16_t fromBigEndian(uint16_t value) { return kSwaps ? __builtin_bswap16(value) : value; }
uint32_t fromBigEndian(uint32_t value) { return kSwaps ? __builtin_bswap32(value) : value; }
uint64_t fromBigEndian(uint64_t value) { return kSwaps ? __builtin_bswap64(value) : value; }

template <class T>
void swapAll(T* values, size_t count) {
  using Unsigned = std::make_unsigned_t<T>;
  for (size_t i = 0; i < count; ++i)
    values[i] = static_cast<T>(fromBigEndian(static_cast<Unsigned>(values[i])));
}

/// Reads `count` values in pieces, so that a count that nothing stands behind takes no memory.
template <class T>
std::vector<T> readValues(DataInputProvider& provider, size_t count) {
  std::vector<T> values;
  while (values.size() < count) {
    const size_t done = values.size();
    const size_t piece = std::min(count - done, std::max(done, kTrustedElements));
    values.resize(done + piece);
    provider.ReadBytes(values.data() + done, piece * sizeof(T));
  }
  swapAll(values.data(), values.size());
  return values;
}

}  // namespace

int16_t JavaDataInput::ReadShort() { return static_cast<int16_t>(ReadUnsignedShort()); }
uint16_t JavaDataInput::ReadUnsignedShort() { return fromBigEndian(_provider->ReadBEUnsignedShort()); }
int32_t JavaDataInput::ReadInt() { return static_cast<int32_t>(fromBigEndian(_provider->ReadBEInt())); }
int64_t JavaDataInput::ReadLong() { return static_cast<int64_t>(fromBigEndian(_provider->ReadBELong())); }
float JavaDataInput::ReadFloat() { return std::bit_cast<float>(fromBigEndian(_provider->ReadBEInt())); }
double JavaDataInput::ReadDouble() { return std::bit_cast<double>(fromBigEndian(_provider->ReadBELong())); }

void JavaDataInput::ReadShorts(int16_t* destination, size_t count) {
  _provider->ReadBytes(destination, count * sizeof(int16_t));
  swapAll(destination, count);
}

std::vector<int16_t> JavaDataInput::ReadShorts() { return readValues<int16_t>(*_provider, ParseVarInt32()); }
std::vector<uint32_t> JavaDataInput::ReadUnsignedInts() {
  return readValues<uint32_t>(*_provider, ParseVarInt32());
}

uint32_t JavaDataInput::ParseVarInt32() {
  uint32_t value = 0;
  for (unsigned shift = 0; shift < 28; shift += 7) {
    const uint32_t byte = _provider->ReadUnsignedByte();
    value |= (byte & 0x7F) << shift;
    if (byte < 0x80) return value;
  }
  uint32_t byte = _provider->ReadUnsignedByte();
  value |= byte << 28;
  // A 64-bit value has more bytes; they are dropped.
  while (byte >= 0x80) byte = _provider->ReadUnsignedByte();
  return value;
}

int32_t JavaDataInput::ParseZigZag32() {
  const uint32_t value = ParseVarInt32();
  return static_cast<int32_t>((value >> 1) ^ (0u - (value & 1)));
}

std::optional<std::string> JavaDataInput::ReadUTF() {
  const size_t byteCount = ReadUnsignedShort();
  if (byteCount == 0) return std::string();
  char small[kStackLimit];
  std::unique_ptr<char[]> large;
  char* buffer = small;
  if (byteCount > kStackLimit) {
    large.reset(new char[byteCount]);
    buffer = large.get();
  }
  const size_t length = ReadModifiedJavaUTF8AndConvertToUTF8(buffer, byteCount);
  if (length == kBadModifiedUTF8) {
    NVXCLog("Bad UTF 8 String");
    return std::nullopt;
  }
  if (!isUTF8(reinterpret_cast<const uint8_t*>(buffer), length)) return std::nullopt;
  return std::string(buffer, length);
}

std::string JavaDataInput::ReadUTF8() {
  const size_t byteCount = ReadUnsignedShort();
  std::string text;
  if (byteCount == 0) return text;
  text.resize(byteCount);
  const size_t length = ReadModifiedJavaUTF8AndConvertToUTF8(text.data(), byteCount);
  if (length == kBadModifiedUTF8) {
    NVXCLog("Bad UTF 8 String");
    return {};
  }
  text.resize(length);
  return text;
}

size_t JavaDataInput::ReadModifiedJavaUTF8AndConvertToUTF8(char* destination, size_t byteCount) {
  if (byteCount == 0) return 0;
  size_t length = 0;
  _provider->ReadBytesRaw(byteCount, [&](const void* bytes) {
    length = convertModifiedUTF8(static_cast<const uint8_t*>(bytes), byteCount, destination);
  });
  return length;
}

Data JavaDataInput::ReadDataOfLength(size_t count) {
  Data data;
  _provider->ReadBytesRaw(count, [&](const void* bytes) { data = Data::copy(bytes, count); });
  return data;
}

}  // namespace nvxcore::utils
