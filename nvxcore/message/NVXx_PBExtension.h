#pragma once

#include <type_traits>

namespace nvxcore {

class NVXx_PBExtensionField;

/// The typed key of a singular extension: T is bool, int32_t, uint32_t, int64_t, uint64_t, float, double, an
/// enum, NVXx_PBString, Data, or a message class. A value of one word; any thread.
template <class T>
class Extension {
 public:
  explicit Extension(NVXx_PBExtensionField& field) : _field(&field) {}
  NVXx_PBExtensionField& field() const { return *_field; }

 private:
  NVXx_PBExtensionField* _field;
};

/// The typed key of a repeated extension; T is the type of an element.
template <class T>
class RepeatedExtension {
 public:
  explicit RepeatedExtension(NVXx_PBExtensionField& field) : _field(&field) {}
  NVXx_PBExtensionField& field() const { return *_field; }

 private:
  NVXx_PBExtensionField* _field;
};

}  // namespace nvxcore
