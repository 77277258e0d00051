#pragma once

#include <cstddef>
#include <cstdint>

/// The modified UTF-8 of the Java platform (java.io.DataInput): U+0000 is C0 80, and a supplementary
/// character is a pair of 3-byte sequences, one for each surrogate.
namespace nvxcore::utils {

inline constexpr size_t kBadModifiedUTF8 = SIZE_MAX;

/// Turns `byteCount` bytes of modified UTF-8 into standard UTF-8. Answers how many bytes it has written,
/// never more than `byteCount`, or `kBadModifiedUTF8`. A continuation byte that stands alone and an overlong
/// pair are passed through.
size_t convertModifiedUTF8(const uint8_t* bytes, size_t byteCount, char* destination);

/// How many bytes `byteCount` bytes of UTF-8 take as modified UTF-8: one sequence for each UTF-16 unit. A
/// byte that is no part of a UTF-8 sequence counts as U+FFFD.
size_t modifiedUTF8Length(const uint8_t* bytes, size_t byteCount);

/// Writes them, and answers where they end. `destination` has room for 3 times `byteCount`.
uint8_t* writeModifiedUTF8(const uint8_t* bytes, size_t byteCount, uint8_t* destination);

}  // namespace nvxcore::utils
