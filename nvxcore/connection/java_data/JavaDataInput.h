#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "nvxcore/connection/java_data/DataInputProvider.h"
#include "nvxcore/platform/Data.h"
#include "nvxcore/platform/Export.h"

namespace nvxcore::utils {

/// Typed reads of the format of java.io.DataInput: big-endian numbers, and modified UTF-8 behind a 16-bit
/// length. Every read that runs out of bytes lets `DataInputProvider::NotEnoughDataException` through. Copies
/// share the source.
class NVXCORE_EXPORT JavaDataInput {
 public:
  /// `provider` is not owned.
  explicit JavaDataInput(DataInputProvider* provider) : _provider(provider) {}

  DataInputProvider* provider() const { return _provider; }
  bool IsAtEnd() const { return _provider->IsAtEnd(); }
  size_t BytesConsumed() const { return _provider->BytesConsumed(); }

  uint8_t ReadUnsignedByte() { return _provider->ReadUnsignedByte(); }
  int16_t ReadShort();
  uint16_t ReadUnsignedShort();
  int32_t ReadInt();
  int64_t ReadLong();
  float ReadFloat();
  double ReadDouble();
  void ReadShorts(int16_t* destination, size_t count);
  /// A varint count, then that many values.
  std::vector<int16_t> ReadShorts();
  std::vector<uint32_t> ReadUnsignedInts();
  /// Little-endian base-128, of which the low 32 bits count. There is no limit to the bytes that follow the
  /// fifth.
  uint32_t ParseVarInt32();
  int32_t ParseZigZag32();
  /// Nothing when the bytes are bad, or are no UTF-8 once converted; they have been consumed all the same.
  std::optional<std::string> ReadUTF();
  /// As `ReadUTF`, but empty when the bytes are bad, and without a look at what the conversion let through.
  std::string ReadUTF8();
  /// Reads `byteCount` bytes of modified UTF-8 and writes them to `destination`, with room for as many, as
  /// standard UTF-8. Answers the bytes written, or SIZE_MAX when the bytes are bad.
  size_t ReadModifiedJavaUTF8AndConvertToUTF8(char* destination, size_t byteCount);
  Data ReadDataOfLength(size_t count);

 private:
  DataInputProvider* _provider;
};

}  // namespace nvxcore::utils
