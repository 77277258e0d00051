#pragma once

#include <cstddef>
#include <string>
#include <utility>

#include "nvxcore/message/NVXx_PBArray.h"
#include "nvxcore/message/NVXx_PBValue.h"

namespace nvxcore {

/// The inside of object handles.
struct PBObjectAccess {
  static PBObject adopt(PBObjectKind kind, void* object) {
    PBObject result;
    result._kind = object ? kind : PBObjectKind::None;
    result._object = object;
    return result;
  }
  static PBObject share(PBObjectKind kind, void* object);
  static void* take(PBObject&& object) {
    object._kind = PBObjectKind::None;
    return std::exchange(object._object, nullptr);
  }
  static void* borrow(const PBObject& object) { return object._object; }
  static bool isEqual(PBObjectKind kind, void* a, void* b);
};

PBBoxedValue pbBoxedElement(const NVXx_PBArray& array, size_t index);
/// Adds a number, converted, or an object.
void pbAddBoxed(NVXx_PBMutableArray& array, const PBBoxedValue& value);
/// A scalar of a field's type as a number, and back.
PBBoxedValue pbBoxedScalar(NVXx_PBType type, PBValue value);
PBValue pbScalarOf(NVXx_PBType type, const PBBoxedValue& value);
/// An address as descriptions print it: 0x and hexadecimal digits.
std::string pbAddress(const void* object);
/// "%f" and "%.*g", whatever the locale.
std::string pbFixed(double value);
std::string pbGeneral(double value, int precision);
/// "%d" and its like, whatever the locale.
std::string pbFormat(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace nvxcore
