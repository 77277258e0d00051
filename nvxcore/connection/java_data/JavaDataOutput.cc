#include "nvxcore/connection/java_data/JavaDataOutput.h"

#include <bit>
#include <cstring>

#include "nvxcore/connection/java_data/ModifiedUTF8.h"
#include "nvxcore/foundation/base/NVXLog.h"
#include "nvxcore/platform/Exception.h"
#include "nvxcore/platform/Files.h"
#include "nvxcore/platform/Value.h"

namespace nvxcore::utils {

namespace {

template <class T>
void writeBigEndian(MutableData& data, T value) {
  uint8_t* to = data.extend(sizeof value);
  for (size_t i = 0; i < sizeof value; ++i)
    to[i] = static_cast<uint8_t>(value >> (8 * (sizeof value - 1 - i)));
}

constexpr size_t kMaximumUTFLength = 65535;

}  // namespace

void JavaDataOutput::WriteBoolean(bool value) { WriteByte(value); }
void JavaDataOutput::WriteByte(int8_t value) { *_data.extend(1) = static_cast<uint8_t>(value); }
void JavaDataOutput::WriteChar(uint16_t value) { writeBigEndian(_data, value); }
void JavaDataOutput::WriteShort(int16_t value) { writeBigEndian(_data, static_cast<uint16_t>(value)); }
void JavaDataOutput::WriteInt(int32_t value) { writeBigEndian(_data, static_cast<uint32_t>(value)); }
void JavaDataOutput::WriteLong(int64_t value) { writeBigEndian(_data, static_cast<uint64_t>(value)); }
void JavaDataOutput::WriteFloat(float value) { writeBigEndian(_data, std::bit_cast<uint32_t>(value)); }
void JavaDataOutput::WriteDouble(double value) { writeBigEndian(_data, std::bit_cast<uint64_t>(value)); }

void JavaDataOutput::WriteUTF(std::string_view text) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
  // No text takes fewer bytes than it has in UTF-8, so that a long one need not be tried.
  size_t length = text.size() > kMaximumUTFLength ? modifiedUTF8Length(bytes, text.size()) : 0;
  if (length <= kMaximumUTFLength) {
    const size_t start = _data.length();
    uint8_t* prefix = _data.extend(2 + 3 * text.size());
    length = static_cast<size_t>(writeModifiedUTF8(bytes, text.size(), prefix + 2) - (prefix + 2));
    if (length <= kMaximumUTFLength) {
      prefix[0] = static_cast<uint8_t>(length >> 8);
      prefix[1] = static_cast<uint8_t>(length);
      _data.setLength(start + 2 + length);
      return;
    }
    _data.setLength(start);
  }
  throw Exception(kJavaDataOutputErrorStringTooLong,
                  formattedString("String generated %zu bytes, 65535 is the limit", length));
}

void JavaDataOutput::WriteVarInt32(int32_t value) {
  uint32_t rest = static_cast<uint32_t>(value);
  uint8_t bytes[5];
  size_t count = 0;
  for (; rest >= 0x80; rest >>= 7) bytes[count++] = static_cast<uint8_t>(rest | 0x80);
  bytes[count++] = static_cast<uint8_t>(rest);
  _data.append(bytes, count);
}

void JavaDataOutput::WriteZigZag32(int32_t value) {
  WriteVarInt32(
      static_cast<int32_t>((static_cast<uint32_t>(value) << 1) ^ static_cast<uint32_t>(value >> 31)));
}

void JavaDataOutput::WriteBytes(const void* bytes, size_t length) { _data.append(bytes, length); }
void JavaDataOutput::WriteData(const Data& data) { _data.append(data.bytes(), data.length()); }

bool JavaDataOutput::WriteToURL(const URL& url, bool append, Error* error) const {
  const Data bytes = Data::copy(_data.view());
  if (!append) {
    const Error failure = writeFile(url, bytes);
    if (error) *error = failure;
    return !failure;
  }
  if (!url) {
    throw Exception(kInvalidArgumentException,
                    "*** -[NVXJavaDataOutput writeToURL:append:error:]: nil URL argument");
  }
  if (!url.isFileURL()) {
    if (error) *error = Error(kCocoaErrorDomain, kFileWriteUnsupportedSchemeError, {{kURLErrorKey, url}});
    return false;
  }
  bool missing = false;
  const Error failure = appendToFile(url, bytes, &missing);
  if (missing) return WriteToURL(url, false, error);
  if (error && failure) {
    *error = Error(kCocoaErrorDomain, kFileWriteUnknownError,
                   {{kLocalizedDescriptionKey, "NSFileHandleOperationException"},
                    {kLocalizedFailureReasonErrorKey, failure.userInfo().get(kLocalizedDescriptionKey)},
                    {kURLErrorKey, url}});
  }
  return !failure;
}

}  // namespace nvxcore::utils
