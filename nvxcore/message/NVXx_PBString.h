#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "nvxcore/platform/Data.h"
#include "nvxcore/platform/Export.h"

namespace nvxcore {

/// An immutable, shared string of valid UTF-8: a handle of 8 bytes. It can hold nothing, which is not the
/// empty string. Handles to one string may be used on several threads.
class NVXCORE_EXPORT NVXx_PBString {
 public:
  NVXx_PBString() = default;
  NVXx_PBString(std::nullptr_t) {}  // NOLINT(google-explicit-constructor)
  /// A copy of the text; the empty string where the bytes are no UTF-8.
  NVXx_PBString(std::string_view text);                                              // NOLINT
  NVXx_PBString(const char* text) : NVXx_PBString(std::string_view(text)) {}         // NOLINT
  NVXx_PBString(const std::string& text) : NVXx_PBString(std::string_view(text)) {}  // NOLINT

  /// Shares the bytes, which the caller knows to be UTF-8.
  static NVXx_PBString sharing(Data utf8) {
    NVXx_PBString string;
    string._bytes = std::move(utf8);
    return string;
  }

  explicit operator bool() const { return static_cast<bool>(_bytes); }
  std::string_view view() const { return _bytes.view(); }
  operator std::string_view() const { return view(); }  // NOLINT
  std::string string() const { return _bytes.string(); }
  size_t length() const { return _bytes.length(); }
  /// The UTF-8 bytes, shared.
  const Data& data() const { return _bytes; }

  friend bool operator==(const NVXx_PBString& a, const NVXx_PBString& b) { return a._bytes == b._bytes; }

 private:
  Data _bytes;
};

/// What a setter of a string takes, for the span of the call: a view, a handle, or nothing.
class PBStringArgument {
 public:
  PBStringArgument(std::nullptr_t) {}  // NOLINT(google-explicit-constructor)
  PBStringArgument(std::nullopt_t) {}  // NOLINT
  PBStringArgument(std::string_view text) : _view(text), _some(true) {}  // NOLINT
  PBStringArgument(const char* text) : _some(text != nullptr) {          // NOLINT
    if (text) _view = text;
  }
  PBStringArgument(const std::string& text) : _view(text), _some(true) {}  // NOLINT
  template <class Text>
  PBStringArgument(const std::optional<Text>& text) : _some(text.has_value()) {  // NOLINT
    if (text) _view = *text;
  }
  PBStringArgument(const NVXx_PBString& handle)
      : _handle(&handle), _some(static_cast<bool>(handle)) {}  // NOLINT

  bool some() const { return _some; }
  std::string_view view() const { return _handle ? _handle->view() : _view; }
  /// The handle that was given, or null.
  const NVXx_PBString* handle() const { return _handle; }

 private:
  std::string_view _view;
  const NVXx_PBString* _handle = nullptr;
  bool _some = false;
};

/// What a setter of bytes takes, for the span of the call: a buffer to share, bytes to copy, or nothing.
class PBDataArgument {
 public:
  PBDataArgument(std::nullptr_t) {}  // NOLINT(google-explicit-constructor)
  PBDataArgument(std::nullopt_t) {}  // NOLINT
  PBDataArgument(const Data& handle) : _handle(&handle), _some(static_cast<bool>(handle)) {}  // NOLINT
  PBDataArgument(std::string_view bytes) : _view(bytes), _some(true) {}                       // NOLINT
  PBDataArgument(const char* bytes) : PBDataArgument(std::string_view(bytes)) {}              // NOLINT
  PBDataArgument(const std::string& bytes) : _view(bytes), _some(true) {}                     // NOLINT
  template <class Bytes>
  PBDataArgument(const std::optional<Bytes>& bytes) : _some(bytes.has_value()) {  // NOLINT
    if (!bytes) return;
    if constexpr (std::is_same_v<Bytes, Data>) {
      _handle = &*bytes;
      _some = static_cast<bool>(*bytes);
    } else {
      _view = *bytes;
    }
  }

  bool some() const { return _some; }
  std::string_view view() const { return _handle ? _handle->view() : _view; }
  const Data* handle() const { return _handle; }

 private:
  std::string_view _view;
  const Data* _handle = nullptr;
  bool _some = false;
};

}  // namespace nvxcore
