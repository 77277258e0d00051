#pragma once

#include <cstdint>

#include "nvxcore/message/NVXx_PBDescriptor.h"
#include "nvxcore/message/NVXx_PBGeneratedMessage.h"
#include "nvxcore/platform/Export.h"

// Fields by their descriptors: what the accessors do, for code that finds out at run time which field it
// means. A field of another class, or of another value type than the function's, throws
// NSInvalidArgumentException. Reads and writes in the sense of NVXx_PBGeneratedMessage.

namespace nvxcore {

NVXCORE_EXPORT bool NVXx_PBGetHasIvar(const NVXx_PBGeneratedMessage& message, uint32_t hasIndex);
NVXCORE_EXPORT void NVXx_PBSetHasIvar(NVXx_PBGeneratedMessage& message, uint32_t hasIndex, bool value);
/// Takes the field away; a latent child stays.
NVXCORE_EXPORT void NVXx_PBSetHasIvarWithField(NVXx_PBGeneratedMessage& message,
                                               const NVXx_PBFieldDescriptor& field);

#define NVX_PB_IVAR(Name, type)                                                               \
  NVXCORE_EXPORT type NVXx_PBGet##Name##IvarWithField(const NVXx_PBGeneratedMessage& message, \
                                                      const NVXx_PBFieldDescriptor& field);   \
  NVXCORE_EXPORT void NVXx_PBSet##Name##IvarWithField(NVXx_PBGeneratedMessage& message,       \
                                                      const NVXx_PBFieldDescriptor& field, type value);
NVX_PB_IVAR(Bool, bool)
NVX_PB_IVAR(Int32, int32_t)
NVX_PB_IVAR(UInt32, uint32_t)
NVX_PB_IVAR(Int64, int64_t)
NVX_PB_IVAR(UInt64, uint64_t)
NVX_PB_IVAR(Float, float)
NVX_PB_IVAR(Double, double)
#undef NVX_PB_IVAR

/// Any field, boxed: reads as valueForName of the message does.
NVXCORE_EXPORT PBBoxedValue NVXx_PBGetValueWithField(const NVXx_PBGeneratedMessage& message,
                                                     const NVXx_PBFieldDescriptor& field);
NVXCORE_EXPORT void NVXx_PBSetValueWithField(NVXx_PBGeneratedMessage& message,
                                             const NVXx_PBFieldDescriptor& field, const PBBoxedValue& value);
/// What the slot of a singular String, Data or message field holds, present or not.
NVXCORE_EXPORT PBObject NVXx_PBGetObjectIvarWithFieldNoAutocreate(const NVXx_PBGeneratedMessage& message,
                                                                  const NVXx_PBFieldDescriptor& field);

NVXCORE_EXPORT void NVXx_PBBecomeVisibleToAutocreator(NVXx_PBGeneratedMessage& message);
/// Drops a latent child, whose link is cut.
NVXCORE_EXPORT void NVXx_PBClearAutocreatedMessageIvarWithField(NVXx_PBGeneratedMessage& message,
                                                                const NVXx_PBFieldDescriptor& field);

}  // namespace nvxcore
