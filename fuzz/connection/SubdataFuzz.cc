// Subdata and what inflates: any bytes give data or one of the told errors, the same as zlib gives in small
// steps, wherever they are cut on their way in, and leave the stream in step. The first byte says how the
// rest is to be understood.

#include <zlib.h>

#include <algorithm>
#include <string>

#include "fuzz/support/FuzzInput.h"
#include "nvxcore/connection/DASHDataInputProvider.h"
#include "nvxcore/connection/JavaDataInputPBSupport.h"
#include "nvxcore/message/schema/resource.pb.h"
#include "nvxcore/platform/Console.h"
#include "nvxcore/platform/Value.h"
#include "nvxcore/transport/transforms/NVXx_HTKNSDataZlib.h"

namespace {

using namespace nvxcore;

constexpr size_t kLimit = 1 << 18;

struct Inflated {
  int64_t code = 0;  // 0 for data
  int64_t detail = 0;
  std::string bytes;
};

/// By zlib, 1,024 bytes at a time.
Inflated inflatedPlainly(const uint8_t* bytes, size_t length, bool isRaw) {
  Inflated result;
  z_stream stream{};
  NVX_MUST_HOLD(inflateInit2(&stream, isRaw ? -15 : 47) == Z_OK);
  stream.next_in = const_cast<Bytef*>(bytes);
  stream.avail_in = static_cast<uInt>(length);
  int state = Z_OK;
  while (state == Z_OK) {
    uint8_t room[1024];
    stream.next_out = room;
    stream.avail_out = sizeof room;
    state = inflate(&stream, Z_NO_FLUSH);
    result.bytes.append(reinterpret_cast<char*>(room), sizeof room - stream.avail_out);
    if (result.bytes.size() > kLimit) state = Z_MEM_ERROR;
  }
  if (state != Z_STREAM_END) {
    result = {kHTKNSDataZlibErrorFailed, state, ""};
  } else if (stream.avail_in) {
    result = {kHTKNSDataZlibErrorRemainingBytes, stream.avail_in, ""};
  }
  inflateEnd(&stream);
  return result;
}

Inflated resultOf(const Data& data, const Error& error) {
  NVX_MUST_HOLD(!data == static_cast<bool>(error));
  if (!error) return {0, 0, data.string()};
  NVX_MUST_HOLD(error.domain() == NVXx_HTKNSDataZlibErrorDomain);
  const char* key = error.code() == kHTKNSDataZlibErrorFailed ? NVXx_HTKNSDataZlibErrorKey
                                                              : NVXx_HTKNSDataZlibRemainingBytesKey;
  return {error.code(), error.userInfo().get(key).integerValue(), ""};
}

bool same(const Inflated& a, const Inflated& b) {
  return a.code == b.code && a.detail == b.detail && a.bytes == b.bytes;
}

/// True when it was there whole.
bool readSubdata(utils::DataInputProvider& provider, Inflated& result) {
  utils::JavaDataInput input(&provider);
  try {
    Error error;
    const Data data = dash::JavaDataInputPBSupport(&input).DataForSubdata(&error);
    result = resultOf(data, error);
    return true;
  } catch (const utils::DataInputProvider::NotEnoughDataException&) {
    NVX_MUST_HOLD(provider.BytesConsumed() == 0 || provider.BytesConsumed() == 4);
    return false;
  }
}

void checkSubdata(std::string_view bytes, size_t piece) {
  utils::PtrDataInputProvider fixed(bytes.data(), bytes.size());
  Inflated expected, arrived;
  const bool isWhole = readSubdata(fixed, expected);
  DASHDataInputProvider arriving;
  for (size_t at = 0; at < bytes.size(); at += piece) arriving.AddData(Data::copy(bytes.substr(at, piece)));
  arriving.DoneAdding();
  NVX_MUST_HOLD(readSubdata(arriving, arrived) == isWhole && same(arrived, expected));
  if (!isWhole) return;

  utils::PtrDataInputProvider skipped(bytes.data(), bytes.size()), parsed(bytes.data(), bytes.size());
  utils::JavaDataInput skippedInput(&skipped), parsedInput(&parsed);
  dash::JavaDataInputPBSupport(&skippedInput).SkipSubdata();
  Error error;
  const auto message =
      dash::JavaDataInputPBSupport(&parsedInput)
          .ReadProtocolBufferOfClass(NVXx_ZLCResourceResponseProto::messageClass(), nullptr, &error);
  NVX_MUST_HOLD(skipped.BytesConsumed() == fixed.BytesConsumed() &&
                parsed.BytesConsumed() == fixed.BytesConsumed());
  NVX_MUST_HOLD(!message == static_cast<bool>(error));
  if (expected.code) NVX_MUST_HOLD(error.is(NVXx_HTKNSDataZlibErrorDomain, expected.code));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool ready =
      (setConsoleLineHandler([](std::string_view) {}), NVXx_htk_setInflatedLengthLimit(kLimit), true);
  NVX_MUST_HOLD(ready);
  if (size < 4) return 0;
  const uint8_t how = data[0];
  const size_t where = static_cast<size_t>(data[1]) << 8 | data[2], piece = 1 + data[3];
  const uint8_t* bytes = data + 4;
  const size_t length = size - 4;

  if (how & 1) return checkSubdata({reinterpret_cast<const char*>(bytes), length}, piece), 0;
  // A stream as it stands, or one made of the bytes and then damaged.
  std::string stream(reinterpret_cast<const char*>(bytes), length);
  const bool isRaw = how & 2;
  if (how & 4) {
    const auto mode = isRaw     ? HTKCompressionMode::Raw
                      : how & 8 ? HTKCompressionMode::Gzip
                                : HTKCompressionMode::Zlib;
    const Data made =
        NVXx_htk_dataByCompressingBytes(bytes, length, static_cast<int>(how >> 5), mode, nullptr);
    NVX_MUST_HOLD(!made == (length == 0));
    if (!made) return 0;
    NVX_MUST_HOLD(NVXx_htk_dataByInflatingBytes(made.bytes(), made.length(), isRaw, nullptr).view() ==
                  stream);
    stream = made.string();
    if (how & 16) stream[where % stream.size()] = static_cast<char>(piece);
  }
  if (stream.empty()) return 0;
  const auto* at = reinterpret_cast<const uint8_t*>(stream.data());
  Error error;
  const Data inflated = NVXx_htk_dataByInflatingBytes(at, stream.size(), isRaw, &error);
  NVX_MUST_HOLD(same(resultOf(inflated, error), inflatedPlainly(at, stream.size(), isRaw)));
  if (!isRaw) {
    std::string subdata;
    const int64_t negative = -static_cast<int64_t>(stream.size());
    for (int shift : {24, 16, 8, 0}) subdata += static_cast<char>(negative >> shift);
    checkSubdata(subdata + stream, piece);
  }
  return 0;
}
