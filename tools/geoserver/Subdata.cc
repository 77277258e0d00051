#include "tools/geoserver/Subdata.h"

#include <limits>
#include <string>

#include "tools/geoserver/internal/Encoding.h"

namespace nvxcore::geoserver {
namespace {

constexpr size_t kInflatesAtMost = size_t{256} * 1024 * 1024;

}  // namespace

void writeSubdata(WireWriter& writer, std::string_view message, const Compression& options, bool compress) {
  if (!compress || message.empty() || message.size() < options.fromBytes)
    return writer.writeCountedBytes(message);
  const auto packed = encoded(options.format == Compression::Format::gzip ? "gzip" : "deflate", message);
  if (!packed || packed->size() > static_cast<size_t>(std::numeric_limits<int32_t>::max()))
    throw WireError("message can't be compressed");
  writer.writeInt(-static_cast<int32_t>(packed->size()));
  writer.writeBytes(*packed);
}

std::string readSubdata(WireReader& reader) {
  const int64_t length = reader.readInt();
  if (length >= 0) return std::string(reader.readBytes(static_cast<size_t>(length)));
  auto message = inflated(reader.readBytes(static_cast<size_t>(-length)), kInflatesAtMost);
  if (!message) throw WireError("compressed message can't be inflated");
  return std::move(*message);
}

}  // namespace nvxcore::geoserver
