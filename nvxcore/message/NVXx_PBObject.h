#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "nvxcore/message/NVXx_PBRef.h"
#include "nvxcore/message/NVXx_PBString.h"
#include "nvxcore/platform/Data.h"
#include "nvxcore/platform/Export.h"

namespace nvxcore {

class NVXx_PBGeneratedMessage;
class NVXx_PBUnknownFieldSet;

enum class PBObjectKind : uint8_t { None, String, Data, Message, UnknownFieldSet };

/// A counted handle to anything that an object array or an object field holds. It can hold nothing. As
/// thread-safe as what it refers to.
class NVXCORE_EXPORT PBObject {
 public:
  PBObject() = default;
  PBObject(std::nullptr_t) {}                  // NOLINT(google-explicit-constructor): so are the next ones
  PBObject(const NVXx_PBString& string);       // NOLINT
  PBObject(const Data& data);                  // NOLINT
  PBObject(NVXx_PBGeneratedMessage* message);  // NOLINT
  PBObject(NVXx_PBUnknownFieldSet* fields);    // NOLINT
  template <class T>
  PBObject(const Ref<T>& object) : PBObject(object.get()) {}  // NOLINT
  PBObject(const PBObject& other);
  PBObject(PBObject&& other) noexcept
      : _kind(std::exchange(other._kind, PBObjectKind::None)),
        _object(std::exchange(other._object, nullptr)) {}
  PBObject& operator=(PBObject other) noexcept {
    std::swap(_kind, other._kind);
    std::swap(_object, other._object);
    return *this;
  }
  ~PBObject();

  explicit operator bool() const { return _object != nullptr; }
  PBObjectKind kind() const { return _kind; }
  /// Nothing when it is of another kind; so are the next ones.
  NVXx_PBString string() const;
  Data data() const;
  NVXx_PBGeneratedMessage* message() const;
  NVXx_PBUnknownFieldSet* unknownFieldSet() const;

  /// Equal values; nothing equals nothing.
  bool isEqual(const PBObject& other) const;
  /// For people: a string as it stands, data as hexadecimal in angle brackets, "(null)" for nothing.
  std::string description() const;

 private:
  friend struct PBObjectAccess;
  PBObjectKind _kind = PBObjectKind::None;
  void* _object = nullptr;
};

}  // namespace nvxcore
