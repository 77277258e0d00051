// The form in which a reply carries a message: a signed 32-bit length and that many bytes, plain when it is
// positive, compressed when it is negative.
#pragma once

#include <cstdint>
#include <string_view>

#include "tools/geoserver/WireCodec.h"

namespace nvxcore::geoserver {

// Which messages of an answer are compressed, and how. One without bytes never is.
struct Compression {
  enum class Format { gzip, zlib };

  static constexpr uint64_t kNever = UINT64_MAX;

  uint64_t fromBytes = kNever;  // messages of that size and above; 0 is all of them
  Format format = Format::gzip;
  bool onlyWhenAsked = true;  // for clients whose properties say gzip_enabled
};

// Writes it compressed when `compress` and the options say so, and the size reaches what they ask for.
void writeSubdata(WireWriter& writer, std::string_view message, const Compression& options, bool compress);

// Reads it in either form. Throws WireError when it is cut short, can't be inflated, or inflates to more than
// 256 MiB.
std::string readSubdata(WireReader& reader);

}  // namespace nvxcore::geoserver
