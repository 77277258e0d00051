#include "tools/geoserver/internal/Encoding.h"

#include <brotli/encode.h>
#include <zlib.h>

namespace nvxcore::geoserver {
namespace {

constexpr int kGzipFormat = MAX_WBITS + 16;
constexpr int kEitherFormat = MAX_WBITS + 32;
constexpr int kBrotliQuality = 5;
constexpr int kMemoryLevel = 8;

std::optional<std::string> deflated(std::string_view bytes, int windowBits) {
  z_stream stream{};
  if (deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, windowBits, kMemoryLevel,
                   Z_DEFAULT_STRATEGY) != Z_OK) {
    return std::nullopt;
  }
  std::string out(deflateBound(&stream, bytes.size()), '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
  stream.avail_in = static_cast<uInt>(bytes.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  const int outcome = deflate(&stream, Z_FINISH);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  if (outcome != Z_STREAM_END) return std::nullopt;
  return out;
}

}  // namespace

std::optional<std::string> encoded(std::string_view coding, std::string_view bytes) {
  if (coding == "gzip") return deflated(bytes, kGzipFormat);
  if (coding == "deflate") return deflated(bytes, MAX_WBITS);
  if (coding != "br") return std::nullopt;
  size_t length = BrotliEncoderMaxCompressedSize(bytes.size());
  std::string out(length, '\0');
  if (!BrotliEncoderCompress(kBrotliQuality, BROTLI_DEFAULT_WINDOW, BROTLI_MODE_GENERIC, bytes.size(),
                             reinterpret_cast<const uint8_t*>(bytes.data()), &length,
                             reinterpret_cast<uint8_t*>(out.data()))) {
    return std::nullopt;
  }
  out.resize(length);
  return out;
}

std::optional<std::string> inflated(std::string_view bytes, size_t atMost) {
  z_stream stream{};
  if (inflateInit2(&stream, kEitherFormat) != Z_OK) return std::nullopt;
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
  stream.avail_in = static_cast<uInt>(bytes.size());
  std::string out;
  char piece[16 * 1024];
  int outcome = Z_OK;
  while (outcome == Z_OK && out.size() <= atMost) {
    stream.next_out = reinterpret_cast<Bytef*>(piece);
    stream.avail_out = sizeof(piece);
    outcome = inflate(&stream, Z_NO_FLUSH);
    out.append(piece, sizeof(piece) - stream.avail_out);
  }
  const bool whole = outcome == Z_STREAM_END && stream.avail_in == 0 && out.size() <= atMost;
  inflateEnd(&stream);
  if (!whole) return std::nullopt;
  return out;
}

}  // namespace nvxcore::geoserver
