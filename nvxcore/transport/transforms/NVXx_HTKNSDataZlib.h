#pragma once

#include <cstddef>
#include <cstdint>

#include "nvxcore/platform/Data.h"
#include "nvxcore/platform/Error.h"
#include "nvxcore/platform/Export.h"

/// Compression of byte buffers: gzip (RFC 1952), zlib (RFC 1950) and raw deflate (RFC 1951). Any thread.
///
/// The level goes from 1, the fastest, to 9, the smallest; -1 is zlib's own choice, and what lies outside is
/// brought into the range: nothing can be stored without compression.
///
/// All answer nothing, without an error, where there is no input or an empty one. Where `error` is given, it
/// tells of a failure, and is emptied otherwise.
namespace nvxcore {

inline constexpr char NVXx_HTKNSDataZlibErrorDomain[] = "com.ovrasoft.HTKNSDataZlibErrorDomain";
/// User-info of a failure of zlib: its return code.
inline constexpr char NVXx_HTKNSDataZlibErrorKey[] = "HTKNSDataZlibErrorKey";
/// User-info of bytes left over: how many.
inline constexpr char NVXx_HTKNSDataZlibRemainingBytesKey[] = "HTKNSDataZlibRemainingBytesKey";

/// The input of a compression is longer than 4,294,967,295 bytes.
inline constexpr int64_t kHTKNSDataZlibErrorInputTooLong = 1024;
/// zlib failed: on inflating, the input is damaged or ends early, or inflates past the limit.
inline constexpr int64_t kHTKNSDataZlibErrorFailed = 1025;
/// Bytes follow the end of the compressed stream.
inline constexpr int64_t kHTKNSDataZlibErrorRemainingBytes = 1026;

inline constexpr int kHTKDefaultCompressionLevel = -1;

enum class HTKCompressionMode { Zlib = 0, Gzip = 1, Raw = 2 };

NVXCORE_EXPORT Data NVXx_htk_dataByCompressingBytes(const void* bytes, size_t length, int compressionLevel,
                                                    HTKCompressionMode mode, Error* error);
NVXCORE_EXPORT Data NVXx_htk_dataByInflatingBytes(const void* bytes, size_t length, bool isRawData,
                                                  Error* error);

/// How many bytes one input may inflate to before that counts as a failure of zlib: 256 MiB at first. For the
/// whole process; inflating that has begun keeps to what it found.
NVXCORE_EXPORT void NVXx_htk_setInflatedLengthLimit(size_t bytes);
NVXCORE_EXPORT size_t NVXx_htk_inflatedLengthLimit();

// To gzip.
NVXCORE_EXPORT Data NVXx_htk_dataByGzippingBytes(const void* bytes, size_t length, Error* error);
NVXCORE_EXPORT Data NVXx_htk_dataByGzippingBytes(const void* bytes, size_t length,
                                                 int compressionLevel = kHTKDefaultCompressionLevel,
                                                 Error* error = nullptr);
NVXCORE_EXPORT Data NVXx_htk_dataByGzippingData(const Data& data, Error* error);
NVXCORE_EXPORT Data NVXx_htk_dataByGzippingData(const Data& data,
                                                int compressionLevel = kHTKDefaultCompressionLevel,
                                                Error* error = nullptr);

// To zlib's format.
NVXCORE_EXPORT Data NVXx_htk_dataByDeflatingBytes(const void* bytes, size_t length, Error* error);
NVXCORE_EXPORT Data NVXx_htk_dataByDeflatingBytes(const void* bytes, size_t length,
                                                  int compressionLevel = kHTKDefaultCompressionLevel,
                                                  Error* error = nullptr);
NVXCORE_EXPORT Data NVXx_htk_dataByDeflatingData(const Data& data, Error* error);
NVXCORE_EXPORT Data NVXx_htk_dataByDeflatingData(const Data& data,
                                                 int compressionLevel = kHTKDefaultCompressionLevel,
                                                 Error* error = nullptr);

// To raw deflate.
NVXCORE_EXPORT Data NVXx_htk_dataByRawDeflatingBytes(const void* bytes, size_t length, Error* error);
NVXCORE_EXPORT Data NVXx_htk_dataByRawDeflatingBytes(const void* bytes, size_t length,
                                                     int compressionLevel = kHTKDefaultCompressionLevel,
                                                     Error* error = nullptr);
NVXCORE_EXPORT Data NVXx_htk_dataByRawDeflatingData(const Data& data, Error* error);
NVXCORE_EXPORT Data NVXx_htk_dataByRawDeflatingData(const Data& data,
                                                    int compressionLevel = kHTKDefaultCompressionLevel,
                                                    Error* error = nullptr);

// From zlib's format or gzip, as the header tells. Nothing, without an error, for an input of more than
// 4,294,967,295 bytes.
NVXCORE_EXPORT Data NVXx_htk_dataByInflatingBytes(const void* bytes, size_t length, Error* error = nullptr);
NVXCORE_EXPORT Data NVXx_htk_dataByInflatingData(const Data& data, Error* error = nullptr);

// From raw deflate.
/// Unlike its siblings this one expects zlib's format or gzip; callers rely on it.
NVXCORE_EXPORT Data NVXx_htk_dataByRawInflatingBytes(const void* bytes, size_t length);
NVXCORE_EXPORT Data NVXx_htk_dataByRawInflatingBytes(const void* bytes, size_t length, Error* error);
NVXCORE_EXPORT Data NVXx_htk_dataByRawInflatingData(const Data& data, Error* error = nullptr);

}  // namespace nvxcore
