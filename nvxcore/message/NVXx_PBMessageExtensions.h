#pragma once

#include <cstddef>
#include <type_traits>
#include <utility>

#include "nvxcore/message/NVXx_PBExtensionField.h"
#include "nvxcore/message/NVXx_PBGeneratedMessage.h"

namespace nvxcore {

/// How extensions of a type are read and written by name of their typed keys.
template <class T>
struct PBExtensionTraits {
  static constexpr bool isMessage = std::is_base_of_v<NVXx_PBGeneratedMessage, T>;
  using Read = std::conditional_t<isMessage, T&, T>;

  static Read unbox(const PBBoxedValue& value) {
    if constexpr (isMessage) {
      return *static_cast<T*>(value.object().message());  // the parent holds it
    } else if constexpr (std::is_same_v<T, NVXx_PBString>) {
      return value.object().string();
    } else if constexpr (std::is_same_v<T, Data>) {
      return value.object().data();
    } else if constexpr (std::is_enum_v<T>) {
      return static_cast<T>(value.int32Value());
    } else if constexpr (std::is_same_v<T, bool>) {
      return value.boolValue();
    } else if constexpr (std::is_same_v<T, int32_t>) {
      return value.int32Value();
    } else if constexpr (std::is_same_v<T, uint32_t>) {
      return value.uint32Value();
    } else if constexpr (std::is_same_v<T, int64_t>) {
      return value.int64Value();
    } else if constexpr (std::is_same_v<T, uint64_t>) {
      return value.uint64Value();
    } else if constexpr (std::is_same_v<T, float>) {
      return value.floatValue();
    } else {
      return value.doubleValue();
    }
  }
  static PBBoxedValue box(std::type_identity_t<std::conditional_t<isMessage, Ref<T>, T>> value) {
    if constexpr (isMessage || std::is_same_v<T, NVXx_PBString> || std::is_same_v<T, Data>) {
      return PBObject(value);
    } else if constexpr (std::is_enum_v<T>) {
      return static_cast<int32_t>(value);
    } else {
      return value;
    }
  }
};

/// The value, the default, or a latent message that becomes real when it is written.
template <class T>
auto NVXx_PBGeneratedMessage::getExtension(Extension<T> extension) const {
  if constexpr (PBExtensionTraits<T>::isMessage) {
    return Ref<T>(PBExtensionTraits<T>::unbox(getExtensionValue(extension.field())));
  } else {
    return PBExtensionTraits<T>::unbox(getExtensionValue(extension.field()));
  }
}

/// The array, or null while there is none.
template <class T>
auto NVXx_PBGeneratedMessage::getExtension(RepeatedExtension<T> extension) const {
  return Ref<NVXx_PBMutableArray>(getExtensionValue(extension.field()).array());
}

template <class T, class V>
void NVXx_PBGeneratedMessage::setExtension(Extension<T> extension, V&& value) {
  if constexpr (std::is_same_v<std::remove_cvref_t<V>, std::nullptr_t>) {
    clearExtensionField(extension.field());
  } else {
    setExtensionValue(extension.field(), PBExtensionTraits<T>::box(std::forward<V>(value)));
  }
}

template <class T, class V>
void NVXx_PBGeneratedMessage::addExtension(RepeatedExtension<T> extension, V&& value) {
  addExtensionValue(extension.field(), PBExtensionTraits<T>::box(std::forward<V>(value)));
}

template <class T, class V>
void NVXx_PBGeneratedMessage::setExtension(RepeatedExtension<T> extension, size_t index, V&& value) {
  setExtensionValue(extension.field(), index, PBExtensionTraits<T>::box(std::forward<V>(value)));
}

}  // namespace nvxcore
