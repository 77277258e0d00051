#pragma once

#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "nvxcore/platform/Export.h"

namespace nvxcore {

/// The header fields of a message, in order. Names compare without case (RFC 9110, 5.1). Copies share the
/// fields until one of them changes. One thread at a time for each copy.
class NVXCORE_EXPORT HTTPHeaders {
 public:
  using Field = std::pair<std::string, std::string>;

  HTTPHeaders() = default;
  HTTPHeaders(std::initializer_list<Field> fields);
  HTTPHeaders(const HTTPHeaders& other);
  HTTPHeaders(HTTPHeaders&& other) noexcept : _shared(std::exchange(other._shared, nullptr)) {}
  HTTPHeaders& operator=(HTTPHeaders other) noexcept {
    std::swap(_shared, other._shared);
    return *this;
  }
  ~HTTPHeaders();

  /// The value of the field; those of a repeated one joined with ", " (RFC 9110, 5.3). Nothing when it is
  /// missing.
  std::optional<std::string> value(std::string_view name) const;
  /// As `value`, but by a name that must have the same case.
  std::optional<std::string> valueForExactName(std::string_view name) const;
  bool contains(std::string_view name) const;
  /// Replaces all fields of that name by one; an empty optional removes them.
  void set(std::string_view name, std::optional<std::string_view> value);
  void add(std::string_view name, std::string_view value);
  /// Goes on with the value of the last field, behind a space (RFC 9112, 5.2). Nothing without a field.
  void continueLast(std::string_view value);

  size_t size() const { return fields().size(); }
  bool empty() const { return fields().empty(); }
  std::vector<Field>::const_iterator begin() const { return fields().begin(); }
  std::vector<Field>::const_iterator end() const { return fields().end(); }

  /// The usual spelling of a field name: "content-type" is "Content-Type", "etag" is "ETag".
  static std::string canonicalName(std::string_view name);
  friend bool operator==(const HTTPHeaders& a, const HTTPHeaders& b) {
    return a._shared == b._shared || a.fields() == b.fields();
  }

 private:
  struct Shared;
  const std::vector<Field>& fields() const;
  /// Its own, to change.
  std::vector<Field>& edit();

  Shared* _shared = nullptr;
};

}  // namespace nvxcore
