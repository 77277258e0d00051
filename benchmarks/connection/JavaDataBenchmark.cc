// Modified UTF-8 beside a plain loop that goes a unit at a time:
//
//   writing: decode a code point of the UTF-8 text; for each of its UTF-16 units append 1, 2 or 3 bytes
//   reading: look at the lead byte; copy 1, 2 or 3 bytes, joining a pair of surrogates into 4
//
// Both sides begin with a buffer of the same size, and frame the bytes behind a 16-bit length.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "nvxcore/connection/java_data/JavaDataInput.h"
#include "nvxcore/connection/java_data/JavaDataOutput.h"

namespace {

using namespace nvxcore::utils;

constexpr size_t kCapacity = 4096;

void appendUnit(std::string& bytes, uint32_t unit) {
  if (unit != 0 && unit < 0x80) {
    bytes += static_cast<char>(unit);
  } else if (unit < 0x800) {
    bytes += static_cast<char>(0xC0 | (unit >> 6));
    bytes += static_cast<char>(0x80 | (unit & 0x3F));
  } else {
    bytes += static_cast<char>(0xE0 | (unit >> 12));
    bytes += static_cast<char>(0x80 | ((unit >> 6) & 0x3F));
    bytes += static_cast<char>(0x80 | (unit & 0x3F));
  }
}

std::string peerWrite(const std::string& text) {
  std::string bytes;
  bytes.reserve(kCapacity);
  bytes += "  ";
  for (size_t i = 0; i < text.size();) {
    const unsigned char lead = static_cast<unsigned char>(text[i]);
    const size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    uint32_t point = length == 1 ? lead : lead & (0xFF >> (length + 1));
    for (size_t k = 1; k < length; ++k) point = point << 6 | (static_cast<unsigned char>(text[i + k]) & 0x3F);
    i += length;
    if (point < 0x10000) {
      appendUnit(bytes, point);
    } else {
      appendUnit(bytes, 0xD800 + ((point - 0x10000) >> 10));
      appendUnit(bytes, 0xDC00 + ((point - 0x10000) & 0x3FF));
    }
  }
  bytes[0] = static_cast<char>((bytes.size() - 2) >> 8);
  bytes[1] = static_cast<char>(bytes.size() - 2);
  return bytes;
}

std::string peerRead(const std::string& bytes) {
  const size_t end = 2 + (static_cast<unsigned char>(bytes[0]) << 8 | static_cast<unsigned char>(bytes[1]));
  std::string text;
  text.reserve(end - 2);
  for (size_t i = 2; i < end;) {
    const unsigned char lead = static_cast<unsigned char>(bytes[i]);
    if (lead < 0x80) {
      text += bytes[i++];
    } else if (lead < 0xE0) {
      if (lead == 0xC0 && static_cast<unsigned char>(bytes[i + 1]) == 0x80) {
        text += '\0';
      } else {
        text += bytes[i];
        text += bytes[i + 1];
      }
      i += 2;
    } else {
      auto unitAt = [&](size_t at) {
        return static_cast<uint32_t>(bytes[at] & 0x0F) << 12 |
               static_cast<uint32_t>(bytes[at + 1] & 0x3F) << 6 | static_cast<uint32_t>(bytes[at + 2] & 0x3F);
      };
      const uint32_t unit = unitAt(i);
      if (unit >= 0xD800 && unit < 0xDC00) {
        const uint32_t point = 0x10000 + ((unit - 0xD800) << 10) + (unitAt(i + 3) - 0xDC00);
        text += static_cast<char>(0xF0 | (point >> 18));
        text += static_cast<char>(0x80 | ((point >> 12) & 0x3F));
        text += static_cast<char>(0x80 | ((point >> 6) & 0x3F));
        text += static_cast<char>(0x80 | (point & 0x3F));
        i += 6;
      } else {
        text += bytes[i];
        text += bytes[i + 1];
        text += bytes[i + 2];
        i += 3;
      }
    }
  }
  return text;
}

std::string ourWrite(const std::string& text) {
  JavaDataOutput output(kCapacity);
  output.WriteUTF(text);
  return std::string(output.data().view());
}

std::string ourRead(const std::string& bytes) {
  PtrDataInputProvider provider(bytes.data(), bytes.size());
  return JavaDataInput(&provider).ReadUTF8();
}

std::string sample(int kind) {
  std::string text;
  switch (kind) {
    case 0:
      while (text.size() < 1024) text += "The quick brown fox jumps over the lazy dog. ";
      text.resize(1024);
      break;
    case 1:
      while (text.size() < 1024) text += "Grüße aus Zürich, Привет из Москвы, 東京からこんにちは, 😀! ";
      break;
    default:
      text = "distribution channel";
  }
  return text;
}

const char* const kKinds[] = {"ascii_1k", "mixed_1k", "ascii_20"};

void compareContents(const std::string& text) {
  const std::string bytes = peerWrite(text);
  if (ourWrite(text) == bytes && ourRead(bytes) == text && peerRead(bytes) == text) return;
  std::fprintf(stderr, "the two sides differ\n");
  std::exit(1);
}

void writeOurs(benchmark::State& state, const std::string& text) {
  for (auto _ : state) {
    JavaDataOutput output(kCapacity);
    output.WriteUTF(text);
    benchmark::DoNotOptimize(output.data().bytes());
  }
}

void writePeer(benchmark::State& state, const std::string& text) {
  for (auto _ : state) benchmark::DoNotOptimize(peerWrite(text));
}

void readOurs(benchmark::State& state, const std::string& bytes) {
  for (auto _ : state) benchmark::DoNotOptimize(ourRead(bytes));
}

void readPeer(benchmark::State& state, const std::string& bytes) {
  for (auto _ : state) benchmark::DoNotOptimize(peerRead(bytes));
}

}  // namespace

int main(int argc, char** argv) {
  for (int kind = 0; kind < 3; ++kind) {
    const std::string text = sample(kind);
    compareContents(text);
    const std::string bytes = peerWrite(text), name = kKinds[kind];
    benchmark::RegisterBenchmark(("write/" + name + "/ours").c_str(), writeOurs, text);
    benchmark::RegisterBenchmark(("write/" + name + "/peer").c_str(), writePeer, text);
    benchmark::RegisterBenchmark(("read/" + name + "/ours").c_str(), readOurs, bytes);
    benchmark::RegisterBenchmark(("read/" + name + "/peer").c_str(), readPeer, bytes);
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
