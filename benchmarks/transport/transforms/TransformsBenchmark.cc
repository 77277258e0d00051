// Text encodings beside libmodpbase64 and a table loop, compression beside plain zlib:
//
//   base64web:  a string of the URL-safe base 64 of 1 KB; the peer is modp::b64w_encode
//   hex:        a string of the hexadecimal of 1 KB, and back; the peer looks each half byte up in a table
//   deflate:    at zlib's own level; the peer's buffer is as deflateBound says
//   inflate:    the peer knows the length and sets just that aside

#include <benchmark/benchmark.h>
#include <modp_b64w.h>
#include <zlib.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

#include "benchmarks/message/Rows.h"
#include "nvxcore/transport/transforms/NVXx_HTKNSDataZlib.h"
#include "nvxcore/transport/transforms/NVXx_HTKStringEncoding.h"

namespace {

using namespace nvxcore;

void require(bool held, const char* what) {
  if (held) return;
  std::fprintf(stderr, "the two sides differ: %s\n", what);
  std::exit(1);
}

std::string noise(size_t length) {
  std::mt19937 random(5);
  std::string bytes;
  while (bytes.size() < length) bytes += static_cast<char>(random());
  return bytes;
}

/// Texts and numbers, as records have them.
std::string records(size_t length) {
  std::mt19937 random(5);
  std::string text;
  while (text.size() < length) {
    text += "{\"id\": " + std::to_string(random()) + ", \"name\": \"place " +
            std::to_string(random() % 1000) + "\", \"score\": 0." + std::to_string(random() % 10000) + "},\n";
  }
  text.resize(length);
  return text;
}

std::string peerHex(const std::string& bytes) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text(bytes.size() * 2, '\0');
  for (size_t i = 0; i < bytes.size(); ++i) {
    text[2 * i] = kDigits[static_cast<unsigned char>(bytes[i]) >> 4];
    text[2 * i + 1] = kDigits[bytes[i] & 0xF];
  }
  return text;
}

struct HexTable {
  HexTable() {
    for (signed char& value : values) value = -1;
    for (int i = 0; i < 10; ++i) values['0' + i] = static_cast<signed char>(i);
    for (int i = 10; i < 16; ++i) values['A' + i - 10] = values['a' + i - 10] = static_cast<signed char>(i);
  }
  signed char values[256];
};

std::string peerUnhex(const std::string& text) {
  static const HexTable table;
  std::string bytes(text.size() / 2, '\0');
  for (size_t i = 0; i < bytes.size(); ++i) {
    const int high = table.values[static_cast<unsigned char>(text[2 * i])];
    const int low = table.values[static_cast<unsigned char>(text[2 * i + 1])];
    if (high < 0 || low < 0) return {};
    bytes[i] = static_cast<char>(high << 4 | low);
  }
  return bytes;
}

Data peerDeflated(const std::string& bytes) {
  z_stream stream{};
  deflateInit2(&stream, -1, Z_DEFLATED, 15, 8, Z_DEFAULT_STRATEGY);
  MutableData out(deflateBound(&stream, bytes.size()));
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
  stream.avail_in = static_cast<uInt>(bytes.size());
  stream.next_out = out.extend(out.capacity());
  stream.avail_out = static_cast<uInt>(out.capacity());
  deflate(&stream, Z_FINISH);
  out.setLength(stream.total_out);
  deflateEnd(&stream);
  return Data::take(std::move(out));
}

Data peerInflated(const Data& bytes, size_t length) {
  z_stream stream{};
  inflateInit2(&stream, 47);
  MutableData out(length);
  stream.next_in = const_cast<Bytef*>(bytes.bytes());
  stream.avail_in = static_cast<uInt>(bytes.length());
  stream.next_out = out.extend(length);
  stream.avail_out = static_cast<uInt>(length);
  inflate(&stream, Z_NO_FLUSH);
  inflateEnd(&stream);
  return Data::take(std::move(out));
}

/// Both sides, over and over, after a look that they agree.
template <class Ours, class Peer>
void addRow(const std::string& name, double bar, Ours ours, Peer peer) {
  rows::peer(name, [peer](benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(peer());
  });
  rows::ours(name, bar, [ours](benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(ours());
  });
}

void addEncodings() {
  const std::string bytes = noise(1024), hex = peerHex(bytes);
  const Data data = Data::copy(bytes);
  const auto base64 = NVXx_HTKStringEncoding::rfc4648Base64WebsafeStringEncoding();
  base64->setDoPad(false);
  const auto base16 = NVXx_HTKStringEncoding::hexStringEncoding();
  const std::string text = *base64->encode(data);
  require(modp::b64w_encode(bytes).starts_with(text), "base 64");
  require(*base16->encode(data) == hex && peerUnhex(hex) == bytes, "hexadecimal");
  require(base16->decode(hex).view() == bytes && base64->decode(text).view() == bytes, "decoding");

  addRow(
      "base64web/encode_1k", 0.65, [=] { return *base64->encode(data); },
      [=] { return modp::b64w_encode(bytes); });
  addRow(
      "hex/encode_1k", 1.05, [=] { return *base16->encode(data); }, [=] { return peerHex(bytes); });
  addRow(
      "hex/decode_1k", 1.05, [=] { return base16->decode(hex); }, [=] { return peerUnhex(hex); });
}

void addCompression() {
  for (const auto& [name, length] :
       {std::pair("1k", 1 << 10), std::pair("64k", 64 << 10), std::pair("1m", 1 << 20)}) {
    const std::string bytes = records(static_cast<size_t>(length));
    const Data plain = Data::copy(bytes), compressed = peerDeflated(bytes);
    require(NVXx_htk_dataByDeflatingData(plain) == compressed, "deflating");
    require(NVXx_htk_dataByInflatingData(compressed) == plain, "inflating");
    require(peerInflated(compressed, bytes.size()) == plain, "inflating");
    addRow(
        std::string("deflate/") + name, 1.05, [=] { return NVXx_htk_dataByDeflatingData(plain); },
        [=] { return peerDeflated(bytes); });
    addRow(
        std::string("inflate/") + name, 1.05, [=] { return NVXx_htk_dataByInflatingData(compressed); },
        [=] { return peerInflated(compressed, bytes.size()); });
  }
}

}  // namespace

int main(int argc, char** argv) {
  addEncodings();
  addCompression();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
