#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "nvxcore/platform/Data.h"
#include "nvxcore/platform/Error.h"
#include "nvxcore/platform/Export.h"
#include "nvxcore/platform/URL.h"

namespace nvxcore::utils {

inline constexpr char kJavaDataOutputErrorStringTooLong[] = "JavaDataOutput_Error_StringTooLong";

/// Writes the format of java.io.DataOutput into a growing buffer. One thread at a time.
class NVXCORE_EXPORT JavaDataOutput {
 public:
  JavaDataOutput() = default;
  /// `capacity` bytes are set aside.
  explicit JavaDataOutput(size_t capacity) : _data(capacity) {}

  const MutableData& data() const { return _data; }
  /// The buffer itself; nothing may be written afterwards.
  MutableData takeData() { return std::move(_data); }

  void WriteBoolean(bool value);
  void WriteByte(int8_t value);
  void WriteChar(uint16_t value);
  void WriteShort(int16_t value);
  void WriteInt(int32_t value);
  void WriteLong(int64_t value);
  void WriteFloat(float value);
  void WriteDouble(double value);
  /// UTF-8 as modified UTF-8 behind its 16-bit length. Raises `kJavaDataOutputErrorStringTooLong`, with
  /// nothing written, when that takes more than 65,535 bytes.
  void WriteUTF(std::string_view text);
  /// A missing string is written as an empty one.
  void WriteUTF(const std::optional<std::string>& text) {
    WriteUTF(text ? std::string_view(*text) : std::string_view());
  }
  void WriteUTF(const char* text) { WriteUTF(std::string_view(text)); }
  void WriteUTF(const std::string& text) { WriteUTF(std::string_view(text)); }
  /// Takes the value as unsigned: a negative one takes 5 bytes.
  void WriteVarInt32(int32_t value);
  void WriteZigZag32(int32_t value);
  void WriteBytes(const void* bytes, size_t length);
  void WriteData(const Data& data);

  /// Writes the buffer to a file: over it, or behind what it has when `append` is set; a missing file is
  /// made. False with `error` set (kCocoaErrorDomain) when that fails. Raises NSInvalidArgumentException when
  /// there is no URL to append to.
  bool WriteToURL(const URL& url, bool append, Error* error) const;

 private:
  MutableData _data;
};

}  // namespace nvxcore::utils
