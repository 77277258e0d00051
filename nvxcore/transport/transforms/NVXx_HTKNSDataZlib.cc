#include "nvxcore/transport/transforms/NVXx_HTKNSDataZlib.h"

#include <zlib.h>

#include <algorithm>
#include <atomic>
#include <new>
#include <string>
#include <utility>

#include "nvxcore/platform/Value.h"

namespace nvxcore {

namespace {

constexpr size_t kLongestInput = 4294967295u;
constexpr int kMemoryLevel = 8;
constexpr int kGzipWindowBits = 31;
constexpr int kZlibWindowBits = 15;
constexpr int kRawWindowBits = -15;
constexpr int kGzipOrZlibWindowBits = 47;

std::atomic<size_t> inflatedLengthLimit{size_t{256} << 20};

Data fail(Error* error, int64_t code, Dictionary userInfo = {}) {
  if (error) *error = Error(NVXx_HTKNSDataZlibErrorDomain, code, std::move(userInfo));
  return {};
}

Data failWithResult(Error* error, int result, std::string_view message = {}) {
  Dictionary userInfo{{NVXx_HTKNSDataZlibErrorKey, result}};
  if (!message.empty()) userInfo.set(kLocalizedDescriptionKey, message);
  return fail(error, kHTKNSDataZlibErrorFailed, std::move(userInfo));
}

/// zlib's state, ended with the scope.
struct Stream {
  Stream(const void* bytes, size_t length, int (*end)(z_streamp)) : endFunction(end) {
    stream.next_in = static_cast<Bytef*>(const_cast<void*>(bytes));
    stream.avail_in = static_cast<uInt>(length);
  }
  ~Stream() {
    if (endFunction) endFunction(&stream);
  }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  /// Runs `step` once into the free room of `output`, of which it makes some where there is none.
  template <class Step>
  int into(MutableData& output, size_t limit, Step step) {
    if (output.length() == output.capacity()) output.reserve(std::min(limit, output.capacity() * 2));
    const size_t before = output.length();
    const size_t room = std::min({output.capacity(), limit}) - before;
    stream.next_out = output.bytes() + before;
    stream.avail_out = static_cast<uInt>(std::min(room, kLongestInput));
    const auto given = stream.avail_out;
    const int result = step(&stream);
    output.setLength(before + (given - stream.avail_out));
    return result;
  }

  z_stream stream{};
  int (*endFunction)(z_streamp);
};

/// Without much room that nobody uses. A large buffer is copied rather than shrunk, or its pages would be
/// given back to the system each time; what is spare at its end was never touched.
Data fitted(MutableData&& output) {
  constexpr size_t kLarge = 64 << 10;
  const size_t spare = output.capacity() - output.length();
  if (output.length() < kLarge) {
    output.shrinkToFit();
  } else if (spare > output.length()) {
    return Data::copy(output.view());
  }
  return Data::take(std::move(output));
}

/// How much room to begin with. Gzip ends with the plain length, which is believed where it is likely.
size_t guessedLength(const uint8_t* bytes, size_t length, bool isRawData) {
  const size_t likely = length * 4;
  if (isRawData || length < 18 || bytes[0] != 0x1F || bytes[1] != 0x8B) return likely;
  const uint8_t* end = bytes + length;
  const size_t claimed = end[-4] | end[-3] << 8 | end[-2] << 16 | static_cast<size_t>(end[-1]) << 24;
  return claimed <= length * 8 ? claimed : likely;
}

Data compress(const void* bytes, size_t length, int level, int windowBits, Error* error) {
  Stream state(bytes, length, &deflateEnd);
  const int started =
      deflateInit2(&state.stream, level, Z_DEFLATED, windowBits, kMemoryLevel, Z_DEFAULT_STRATEGY);
  if (started != Z_OK) {
    state.endFunction = nullptr;
    return failWithResult(error, started);
  }
  // Small inputs have room for the worst case at once.
  MutableData output(length < 16384 ? length + length / 1024 + 64 : length / 4);
  for (;;) {
    const int result =
        state.into(output, SIZE_MAX, [](z_streamp stream) { return deflate(stream, Z_FINISH); });
    if (result == Z_STREAM_END) break;
    if (result != Z_OK) return failWithResult(error, result);
  }
  return fitted(std::move(output));
}

Data inflateAll(const void* bytes, size_t length, bool isRawData, size_t limit, Error* error) {
  Stream state(bytes, length, &inflateEnd);
  const int started = inflateInit2(&state.stream, isRawData ? kRawWindowBits : kGzipOrZlibWindowBits);
  if (started != Z_OK) {
    state.endFunction = nullptr;
    return failWithResult(error, started);
  }
  // With one byte more than the limit it shows that there is more.
  const size_t end = limit == SIZE_MAX ? limit : limit + 1;
  const size_t guess = guessedLength(static_cast<const uint8_t*>(bytes), length, isRawData);
  MutableData output(std::clamp(guess, std::min<size_t>(end, 64), end));
  for (;;) {
    // Z_FINISH spares zlib its window where all fits at once. Then Z_BUF_ERROR alone does not say that the
    // input has ended early: there may have been no room.
    const int result = state.into(output, end, [](z_streamp stream) { return inflate(stream, Z_FINISH); });
    if (output.length() > limit)
      return failWithResult(error, Z_MEM_ERROR, "inflates to more than " + std::to_string(limit) + " bytes");
    if (result == Z_STREAM_END) break;
    if (result == Z_BUF_ERROR && state.stream.avail_out == 0) continue;
    if (result != Z_OK) return failWithResult(error, result, state.stream.msg ? state.stream.msg : "");
  }
  if (state.stream.avail_in) {
    return fail(error, kHTKNSDataZlibErrorRemainingBytes,
                {{NVXx_HTKNSDataZlibRemainingBytesKey, state.stream.avail_in}});
  }
  return fitted(std::move(output));
}

}  // namespace

Data NVXx_htk_dataByCompressingBytes(const void* bytes, size_t length, int compressionLevel,
                                     HTKCompressionMode mode, Error* error) {
  if (error) *error = Error();
  if (!bytes || length == 0) return {};
  if (length > kLongestInput) return fail(error, kHTKNSDataZlibErrorInputTooLong);
  const int level = compressionLevel == Z_DEFAULT_COMPRESSION
                        ? compressionLevel
                        : std::clamp(compressionLevel, Z_BEST_SPEED, Z_BEST_COMPRESSION);
  const int windowBits = mode == HTKCompressionMode::Gzip   ? kGzipWindowBits
                         : mode == HTKCompressionMode::Zlib ? kZlibWindowBits
                                                            : kRawWindowBits;
  try {
    return compress(bytes, length, level, windowBits, error);
  } catch (const std::bad_alloc&) {
    return failWithResult(error, Z_MEM_ERROR);
  }
}

Data NVXx_htk_dataByInflatingBytes(const void* bytes, size_t length, bool isRawData, Error* error) {
  if (error) *error = Error();
  if (!bytes || length == 0 || length > kLongestInput) return {};
  try {
    return inflateAll(bytes, length, isRawData, NVXx_htk_inflatedLengthLimit(), error);
  } catch (const std::bad_alloc&) {
    return failWithResult(error, Z_MEM_ERROR);
  }
}

void NVXx_htk_setInflatedLengthLimit(size_t bytes) {
  inflatedLengthLimit.store(bytes, std::memory_order_relaxed);
}

size_t NVXx_htk_inflatedLengthLimit() { return inflatedLengthLimit.load(std::memory_order_relaxed); }

#define NVX_HTK_COMPRESSION(name, mode)                                                            \
  Data NVXx_htk_dataBy##name##Bytes(const void* bytes, size_t length, Error* error) {              \
    return NVXx_htk_dataBy##name##Bytes(bytes, length, kHTKDefaultCompressionLevel, error);        \
  }                                                                                                \
  Data NVXx_htk_dataBy##name##Bytes(const void* bytes, size_t length, int level, Error* error) {   \
    return NVXx_htk_dataByCompressingBytes(bytes, length, level, HTKCompressionMode::mode, error); \
  }                                                                                                \
  Data NVXx_htk_dataBy##name##Data(const Data& data, Error* error) {                               \
    return NVXx_htk_dataBy##name##Bytes(data.bytes(), data.length(), error);                       \
  }                                                                                                \
  Data NVXx_htk_dataBy##name##Data(const Data& data, int level, Error* error) {                    \
    return NVXx_htk_dataBy##name##Bytes(data.bytes(), data.length(), level, error);                \
  }

NVX_HTK_COMPRESSION(Gzipping, Gzip)
NVX_HTK_COMPRESSION(Deflating, Zlib)
NVX_HTK_COMPRESSION(RawDeflating, Raw)
#undef NVX_HTK_COMPRESSION

Data NVXx_htk_dataByInflatingBytes(const void* bytes, size_t length, Error* error) {
  return NVXx_htk_dataByInflatingBytes(bytes, length, false, error);
}
Data NVXx_htk_dataByInflatingData(const Data& data, Error* error) {
  return NVXx_htk_dataByInflatingBytes(data.bytes(), data.length(), false, error);
}

Data NVXx_htk_dataByRawInflatingBytes(const void* bytes, size_t length) {
  return NVXx_htk_dataByInflatingBytes(bytes, length, false, nullptr);
}
Data NVXx_htk_dataByRawInflatingBytes(const void* bytes, size_t length, Error* error) {
  return NVXx_htk_dataByInflatingBytes(bytes, length, true, error);
}
Data NVXx_htk_dataByRawInflatingData(const Data& data, Error* error) {
  return NVXx_htk_dataByInflatingBytes(data.bytes(), data.length(), true, error);
}

}  // namespace nvxcore
