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
/// Takes the field away, whatever its type; a latent child stays.
NVXCORE_EXPORT void NVXx_PBSetHasIvarWithField(NVXx_PBGeneratedMessage& message,
                                               const NVXx_PBFieldDescriptor& field);

// Singular scalars, by the value type. Reading gives the default where the field is absent; setting checks no
// enum; the third takes the field away and tells no parent.
#define NVX_PB_IVAR(Name, type)                                                                         \
  NVXCORE_EXPORT type NVXx_PBGet##Name##IvarWithField(const NVXx_PBGeneratedMessage& message,           \
                                                      const NVXx_PBFieldDescriptor& field);             \
  NVXCORE_EXPORT void NVXx_PBSet##Name##IvarWithField(NVXx_PBGeneratedMessage& message,                 \
                                                      const NVXx_PBFieldDescriptor& field, type value); \
  NVXCORE_EXPORT void NVXx_PBSetHas##Name##IvarWithField(NVXx_PBGeneratedMessage& message,              \
                                                         const NVXx_PBFieldDescriptor& field);
NVX_PB_IVAR(Bool, bool)
NVX_PB_IVAR(Int32, int32_t)
NVX_PB_IVAR(UInt32, uint32_t)
NVX_PB_IVAR(Int64, int64_t)
NVX_PB_IVAR(UInt64, uint64_t)
NVX_PB_IVAR(Float, float)
NVX_PB_IVAR(Double, double)
#undef NVX_PB_IVAR

// Singular strings, data, messages and groups. Reading one that is absent gives its default, or a latent
// child that is created for it; nothing as a value takes the field away, an object of another kind or class
// throws NSInvalidArgumentException.
NVXCORE_EXPORT PBObject NVXx_PBGetObjectIvarWithField(const NVXx_PBGeneratedMessage& message,
                                                      const NVXx_PBFieldDescriptor& field);
/// What the slot holds, present or not.
NVXCORE_EXPORT PBObject NVXx_PBGetObjectIvarWithFieldNoAutocreate(const NVXx_PBGeneratedMessage& message,
                                                                  const NVXx_PBFieldDescriptor& field);
NVXCORE_EXPORT NVXx_PBGeneratedMessage& NVXx_PBGetMessageIvarWithField(const NVXx_PBGeneratedMessage& message,
                                                                       const NVXx_PBFieldDescriptor& field);
NVXCORE_EXPORT void NVXx_PBSetObjectIvarWithField(NVXx_PBGeneratedMessage& message,
                                                  const NVXx_PBFieldDescriptor& field, const PBObject& value);
/// The same, taking over the caller's reference.
NVXCORE_EXPORT void NVXx_PBSetRetainedObjectIvarWithField(NVXx_PBGeneratedMessage& message,
                                                          const NVXx_PBFieldDescriptor& field,
                                                          PBObject&& value);
/// For repeated fields too.
NVXCORE_EXPORT void NVXx_PBSetHasObjectIvarWithField(NVXx_PBGeneratedMessage& message,
                                                     const NVXx_PBFieldDescriptor& field);

// Repeated fields: the array, created where there is none; and one that is assigned as it is.
NVXCORE_EXPORT NVXx_PBMutableArray& NVXx_PBGetArrayIvarWithField(const NVXx_PBGeneratedMessage& message,
                                                                 const NVXx_PBFieldDescriptor& field);
NVXCORE_EXPORT void NVXx_PBSetArrayIvarWithField(NVXx_PBGeneratedMessage& message,
                                                 const NVXx_PBFieldDescriptor& field,
                                                 Ref<NVXx_PBMutableArray> value);

// The other types of fields by name.
#define NVX_PB_IVAR(Name, Other, type)                                                                  \
  inline type NVXx_PBGet##Name##IvarWithField(const NVXx_PBGeneratedMessage& message,                   \
                                              const NVXx_PBFieldDescriptor& field) {                    \
    return NVXx_PBGet##Other##IvarWithField(message, field);                                            \
  }                                                                                                     \
  inline void NVXx_PBSet##Name##IvarWithField(NVXx_PBGeneratedMessage& message,                         \
                                              const NVXx_PBFieldDescriptor& field, const type& value) { \
    NVXx_PBSet##Other##IvarWithField(message, field, value);                                            \
  }                                                                                                     \
  inline void NVXx_PBSetHas##Name##IvarWithField(NVXx_PBGeneratedMessage& message,                      \
                                                 const NVXx_PBFieldDescriptor& field) {                 \
    NVXx_PBSetHas##Other##IvarWithField(message, field);                                                \
  }
NVX_PB_IVAR(Fixed32, UInt32, uint32_t)
NVX_PB_IVAR(SFixed32, Int32, int32_t)
NVX_PB_IVAR(SInt32, Int32, int32_t)
NVX_PB_IVAR(Enum, Int32, int32_t)
NVX_PB_IVAR(Fixed64, UInt64, uint64_t)
NVX_PB_IVAR(SFixed64, Int64, int64_t)
NVX_PB_IVAR(SInt64, Int64, int64_t)
NVX_PB_IVAR(Data, Object, PBObject)
NVX_PB_IVAR(String, Object, PBObject)
NVX_PB_IVAR(Group, Object, PBObject)
#undef NVX_PB_IVAR
inline void NVXx_PBSetMessageIvarWithField(NVXx_PBGeneratedMessage& message,
                                           const NVXx_PBFieldDescriptor& field, const PBObject& value) {
  NVXx_PBSetObjectIvarWithField(message, field, value);
}
inline void NVXx_PBSetHasMessageIvarWithField(NVXx_PBGeneratedMessage& message,
                                              const NVXx_PBFieldDescriptor& field) {
  NVXx_PBSetHasObjectIvarWithField(message, field);
}

/// Any field, boxed: reads as valueForName of the message does.
NVXCORE_EXPORT PBBoxedValue NVXx_PBGetValueWithField(const NVXx_PBGeneratedMessage& message,
                                                     const NVXx_PBFieldDescriptor& field);
NVXCORE_EXPORT void NVXx_PBSetValueWithField(NVXx_PBGeneratedMessage& message,
                                             const NVXx_PBFieldDescriptor& field, const PBBoxedValue& value);
NVXCORE_EXPORT void NVXx_PBBecomeVisibleToAutocreator(NVXx_PBGeneratedMessage& message);
/// Drops a latent child, whose link is cut.
NVXCORE_EXPORT void NVXx_PBClearAutocreatedMessageIvarWithField(NVXx_PBGeneratedMessage& message,
                                                                const NVXx_PBFieldDescriptor& field);

}  // namespace nvxcore
