#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "nvxcore/platform/Export.h"

namespace nvxcore {

/// A URL (RFC 3986): an immutable, shared handle; an empty one is "no URL". Any thread.
class NVXCORE_EXPORT URL {
 public:
  URL() = default;
  /// No URL when `text` is no URL: it is empty, has a blank or a control character, or a bad host or port.
  /// A text without a scheme is a relative URL, all of it path, query and fragment.
  static URL withString(std::string_view text);
  /// The URL of a file. A path that does not begin with "/" is taken from the working directory.
  static URL fileURLWithPath(std::string_view path);

  explicit operator bool() const { return _parts != nullptr; }

  /// As it was given. So do all the getters below answer: as it stands in the text, empty when missing.
  const std::string& absoluteString() const;
  const std::string& scheme() const;
  const std::string& user() const;
  const std::string& password() const;
  /// Without the brackets of an IPv6 address.
  const std::string& host() const;
  std::optional<uint16_t> port() const;
  /// Percent escapes are decoded, and a slash at the end is kept.
  const std::string& path() const;
  const std::string& encodedPath() const;
  /// Empty both when missing and when empty.
  const std::string& query() const;
  const std::string& fragment() const;
  bool isFileURL() const;
  /// The decoded path of a file URL, else empty; empty too when it can't be the name of a file.
  std::string fileSystemPath() const;

  /// The URL that `reference` names when it stands in a document at this URL (RFC 3986, 5.2).
  URL resolving(std::string_view reference) const;
  /// The same URL with another scheme.
  URL withScheme(std::string_view scheme) const;
  URL appendingPathComponent(std::string_view component) const;
  /// The last component taken off.
  URL deletingLastPathComponent() const;
  std::string lastPathComponent() const;

  friend NVXCORE_EXPORT bool operator==(const URL& a, const URL& b);

 private:
  struct Parts;
  std::shared_ptr<const Parts> _parts;
};

}  // namespace nvxcore
