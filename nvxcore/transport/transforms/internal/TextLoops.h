#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

/// The loops of text encodings that are used most, for what is regular: each moves `in` and `out` on as far
/// as it comes, by whole groups.
namespace nvxcore {

/// Three bytes as four characters of an alphabet of 64, two bits of a byte at most before its neighbours'.
void htkEncodeSixBits(const uint8_t*& in, const uint8_t* end, const uint8_t* alphabet, char*& out);
/// A byte as two characters of an alphabet of 16.
void htkEncodeFourBits(const uint8_t*& in, const uint8_t* end, const uint8_t* alphabet, char*& out);

/// Backwards, by the values of ASCII characters, up to a group with one that stands for none.
void htkDecodeSixBits(const uint8_t*& in, const uint8_t* end, const int32_t* values, uint8_t*& out);
void htkDecodeFourBits(const uint8_t*& in, const uint8_t* end, const int32_t* values, uint8_t*& out);

bool htkIsASCII(std::string_view text);

}  // namespace nvxcore
