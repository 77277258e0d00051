#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "nvxcore/platform/Dictionary.h"
#include "nvxcore/platform/Export.h"

namespace nvxcore {

/// An error value: an immutable, shared handle. An empty one is "no error". Any thread.
class NVXCORE_EXPORT Error {
 public:
  Error() = default;
  Error(std::string_view domain, int64_t code);
  Error(std::string_view domain, int64_t code, Dictionary userInfo);

  explicit operator bool() const { return _contents != nullptr; }
  /// Empty without an error.
  const std::string& domain() const;
  /// 0 without an error.
  int64_t code() const;
  const Dictionary& userInfo() const;
  bool is(std::string_view domain, int64_t code) const {
    return this->code() == code && this->domain() == domain;
  }
  /// For people: domain, code and the texts of the user-info.
  std::string description() const;

 private:
  struct Contents;
  std::shared_ptr<const Contents> _contents;
};

/// Keys of the platform's user-info dictionaries.
inline constexpr char kUnderlyingErrorKey[] = "NSUnderlyingError";
inline constexpr char kLocalizedDescriptionKey[] = "NSLocalizedDescription";
inline constexpr char kLocalizedFailureReasonErrorKey[] = "NSLocalizedFailureReason";
inline constexpr char kURLErrorKey[] = "NSURL";
inline constexpr char kFilePathErrorKey[] = "NSFilePath";

/// Errors of files.
inline constexpr char kCocoaErrorDomain[] = "NSCocoaErrorDomain";
inline constexpr int64_t kFileNoSuchFileError = 4;
inline constexpr int64_t kFileReadUnknownError = 256;
inline constexpr int64_t kFileReadNoPermissionError = 257;
inline constexpr int64_t kFileReadNoSuchFileError = 260;
inline constexpr int64_t kFileWriteUnknownError = 512;
inline constexpr int64_t kFileWriteNoPermissionError = 513;
inline constexpr int64_t kFileWriteUnsupportedSchemeError = 518;
inline constexpr int64_t kFileWriteOutOfSpaceError = 640;

}  // namespace nvxcore
