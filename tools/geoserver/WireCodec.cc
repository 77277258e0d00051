#include "tools/geoserver/WireCodec.h"

#include <limits>

namespace nvxcore::geoserver {
namespace {

void appendUtf8(std::string& out, uint32_t codePoint) {
  if (codePoint < 0x80) {
    out.push_back(static_cast<char>(codePoint));
    return;
  }
  const int continuations = codePoint < 0x800 ? 1 : codePoint < 0x10000 ? 2 : 3;
  const uint32_t lead = continuations == 1 ? 0xC0 : continuations == 2 ? 0xE0 : 0xF0;
  out.push_back(static_cast<char>(lead | codePoint >> (6 * continuations)));
  for (int i = continuations - 1; i >= 0; --i) {
    out.push_back(static_cast<char>(0x80 | ((codePoint >> (6 * i)) & 0x3F)));
  }
}

// Takes one sequence of up to three bytes, which is one UTF-16 unit in the modified form.
uint32_t takeUnit(std::string_view& bytes) {
  const auto at = [&bytes](size_t i) { return static_cast<uint8_t>(bytes[i]); };
  const uint8_t lead = at(0);
  const size_t length = lead < 0x80 ? 1 : (lead & 0xE0) == 0xC0 ? 2 : (lead & 0xF0) == 0xE0 ? 3 : 0;
  if (length == 0 || length > bytes.size()) throw WireError("string is no modified UTF-8");
  uint32_t unit = length == 1 ? lead : lead & (length == 2 ? 0x1F : 0x0F);
  for (size_t i = 1; i < length; ++i) {
    if ((at(i) & 0xC0) != 0x80) throw WireError("string is no modified UTF-8");
    unit = unit << 6 | (at(i) & 0x3F);
  }
  bytes.remove_prefix(length);
  return unit;
}

void appendModified(std::string& out, uint32_t codePoint) {
  if (codePoint == 0) {
    out.append("\xC0\x80", 2);
  } else if (codePoint < 0x10000) {
    appendUtf8(out, codePoint);
  } else {
    appendUtf8(out, 0xD800 + ((codePoint - 0x10000) >> 10));
    appendUtf8(out, 0xDC00 + ((codePoint - 0x10000) & 0x3FF));
  }
}

}  // namespace

uint64_t WireReader::readUnsigned(size_t count) {
  const std::string_view bytes = readBytes(count);
  uint64_t value = 0;
  for (const char byte : bytes) value = value << 8 | static_cast<uint8_t>(byte);
  return value;
}

std::string_view WireReader::readBytes(size_t count) {
  if (count > remaining()) {
    throw WireError("needed " + std::to_string(count) + " bytes, only " + std::to_string(remaining()) +
                    " left");
  }
  const std::string_view bytes = _bytes.substr(_position, count);
  _position += count;
  return bytes;
}

std::string_view WireReader::readCountedBytes() {
  const size_t start = _position;
  const int32_t length = readInt();
  try {
    if (length < 0) throw WireError("negative length " + std::to_string(length));
    return readBytes(static_cast<size_t>(length));
  } catch (const WireError&) {
    _position = start;
    throw;
  }
}

std::string WireReader::readUtf() {
  const size_t start = _position;
  try {
    std::string_view bytes = readBytes(readShort());
    std::string out;
    out.reserve(bytes.size());
    while (!bytes.empty()) {
      uint32_t unit = takeUnit(bytes);
      if (unit >= 0xD800 && unit < 0xDC00 && !bytes.empty()) {
        const uint32_t low = takeUnit(bytes);
        if (low < 0xDC00 || low > 0xDFFF) throw WireError("string has a surrogate on its own");
        unit = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
      } else if (unit >= 0xD800 && unit <= 0xDFFF) {
        throw WireError("string has a surrogate on its own");
      }
      appendUtf8(out, unit);
    }
    return out;
  } catch (const WireError&) {
    _position = start;
    throw;
  }
}

void WireWriter::writeUnsigned(uint64_t value, size_t count) {
  char bytes[8];
  for (size_t i = 0; i < count; ++i) bytes[i] = static_cast<char>(value >> (8 * (count - 1 - i)));
  _out.append(bytes, count);
}

void WireWriter::writeCountedBytes(std::string_view bytes) {
  if (bytes.size() > static_cast<size_t>(std::numeric_limits<int32_t>::max()))
    throw WireError("too many bytes");
  writeInt(static_cast<int32_t>(bytes.size()));
  writeBytes(bytes);
}

void WireWriter::writeUtf(std::string_view utf8) {
  std::string modified;
  modified.reserve(utf8.size());
  for (size_t i = 0; i < utf8.size();) {
    const auto lead = static_cast<uint8_t>(utf8[i]);
    const size_t length = lead < 0x80 ? 1 : (lead & 0xE0) == 0xC0 ? 2 : (lead & 0xF0) == 0xE0 ? 3 : 4;
    if (i + length > utf8.size()) throw WireError("string is no UTF-8");
    uint32_t codePoint = length == 1 ? lead : lead & (0xFF >> (length + 1));
    for (size_t j = 1; j < length; ++j)
      codePoint = codePoint << 6 | (static_cast<uint8_t>(utf8[i + j]) & 0x3F);
    appendModified(modified, codePoint);
    i += length;
  }
  if (modified.size() > std::numeric_limits<uint16_t>::max()) throw WireError("string too long to frame");
  writeShort(static_cast<uint16_t>(modified.size()));
  writeBytes(modified);
}

}  // namespace nvxcore::geoserver
