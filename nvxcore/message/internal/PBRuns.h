#pragma once

#include <cstddef>
#include <cstdint>

#include "nvxcore/message/NVXx_PBTypes.h"

// Whole runs of varints, read and written. Where the processor has fast instructions that gather and scatter
// bits, they are used; whether it has is found out once.

namespace nvxcore {

/// Reads varints that fill [p, end), `count` of them, whose last byte ends the last one; up to `readable`
/// there is memory. False for one of more than ten bytes, with some of the values set. T is uint32_t or
/// uint64_t.
template <class T>
bool pbReadPacked(const uint8_t* p, const uint8_t* end, const uint8_t* readable, T* out, uint32_t count);

/// Reads elements of `tag` and a varint each, up to `room` of them (64 at least), as long as whole windows
/// lie ahead, and takes their count away from `room`; answers the position behind the last one.
template <class T>
const uint8_t* pbReadTagged(const uint8_t* p, const uint8_t* end, uint8_t tag, T* out, uint32_t& room);

/// Writes 32-bit values as varints, each behind `tag` where that isn't 0, and answers the end; there is room
/// for seven bytes more. Null for types that have other forms.
uint8_t* pbPutWords(uint8_t* p, NVXx_PBType type, const void* values, size_t count, uint8_t tag);

}  // namespace nvxcore
