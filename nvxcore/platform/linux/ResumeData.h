#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "nvxcore/platform/Data.h"
#include "nvxcore/platform/URLRequest.h"
#include "nvxcore/platform/URLResponse.h"

namespace nvxcore {

/// What it takes to go on with a download: the request, the part that is there, and the validator by which
/// the server tells whether the rest still belongs to it (RFC 9110, 13.1.5 and 14).
struct ResumeData {
  URLRequest request;     ///< URL and header fields as the host gave them.
  std::string validator;  ///< A strong ETag, or the date of the last change.
  std::string fileName;   ///< In the folder for temporary files.
  int64_t offset = 0;     ///< Bytes that the file has.

  Data encoded() const;
  /// Null for bytes that `encoded` has not made, or whose file is not there as it was left.
  static std::unique_ptr<ResumeData> decoded(const Data& bytes);

  /// The request for the rest.
  URLRequest rangeRequest() const;
  URL file() const;

  /// What lets a server say that its reply has not changed; empty when the reply can't be resumed.
  static std::string validatorOf(const URLResponse& response);
  /// A name that a kept part can have.
  static std::string newFileName();
};

}  // namespace nvxcore
