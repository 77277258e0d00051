// Reading and writing the binary format that the connection's POSTs are framed in: the published format of
// Java's DataInput and DataOutput. All integers are big-endian; a string is a 16-bit length and that many
// bytes of modified UTF-8 (NUL as C0 80, supplementary characters as two surrogates of three bytes each).
//
// This is the server's own code on purpose: it must not share a slip with the client's.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace nvxcore::geoserver {

// Thrown by WireReader when bytes are missing or are no modified UTF-8, by WireWriter when a string is too
// long.
class WireError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Reads from bytes that it does not own. One thread at a time. A read that throws has not moved.
class WireReader {
 public:
  explicit WireReader(std::string_view bytes) : _bytes(bytes) {}

  uint8_t readByte() { return static_cast<uint8_t>(readUnsigned(1)); }
  uint16_t readShort() { return static_cast<uint16_t>(readUnsigned(2)); }
  int32_t readInt() { return static_cast<int32_t>(readUnsigned(4)); }
  int64_t readLong() { return static_cast<int64_t>(readUnsigned(8)); }
  // A view into the source.
  std::string_view readBytes(size_t count);
  // A signed 32-bit length and that many bytes; a negative length throws.
  std::string_view readCountedBytes();
  // The string as UTF-8.
  std::string readUtf();

  size_t position() const { return _position; }
  size_t remaining() const { return _bytes.size() - _position; }
  bool atEnd() const { return remaining() == 0; }

 private:
  uint64_t readUnsigned(size_t count);

  std::string_view _bytes;
  size_t _position = 0;
};

// Appends to a string that it does not own. One thread at a time.
class WireWriter {
 public:
  explicit WireWriter(std::string& out) : _out(out) {}

  void writeByte(uint8_t value) { writeUnsigned(value, 1); }
  void writeShort(uint16_t value) { writeUnsigned(value, 2); }
  void writeInt(int32_t value) { writeUnsigned(static_cast<uint32_t>(value), 4); }
  void writeLong(int64_t value) { writeUnsigned(static_cast<uint64_t>(value), 8); }
  void writeBytes(std::string_view bytes) { _out.append(bytes); }
  void writeCountedBytes(std::string_view bytes);
  // `utf8` is well-formed UTF-8 whose modified form fits in 65535 bytes.
  void writeUtf(std::string_view utf8);

 private:
  void writeUnsigned(uint64_t value, size_t count);

  std::string& _out;
};

}  // namespace nvxcore::geoserver
