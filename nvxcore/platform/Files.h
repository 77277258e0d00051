#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "nvxcore/platform/Data.h"
#include "nvxcore/platform/Date.h"
#include "nvxcore/platform/Error.h"
#include "nvxcore/platform/Export.h"
#include "nvxcore/platform/URL.h"

/// Work on files by file URL. Errors are of kCocoaErrorDomain, with the system's own as the underlying error.
/// Any thread; these operations block.
namespace nvxcore {

/// No error when something is there that this process can reach.
NVXCORE_EXPORT Error checkFileIsReachable(const URL& file);
struct FileAttributes {
  bool isDirectory = false;
  int64_t size = 0;
  Date modificationDate;
};
/// Nothing when there is no such file.
NVXCORE_EXPORT std::optional<FileAttributes> fileAttributes(const URL& file);
NVXCORE_EXPORT std::optional<int64_t> fileSize(const URL& file);
NVXCORE_EXPORT Data readFile(const URL& file, Error* error);
/// Writes beside the file, syncs, and moves it into place, so that a reader sees the old bytes or the new
/// ones.
NVXCORE_EXPORT Error writeFileAtomically(const URL& file, const Data& data);
/// Writes into the file as it is, from its start.
NVXCORE_EXPORT Error writeFile(const URL& file, const Data& data);
/// Writes behind what the file has. Sets `cannotOpen` when the file can't be opened for that: it is missing,
/// say.
NVXCORE_EXPORT Error appendToFile(const URL& file, const Data& data, bool* cannotOpen);
/// A file, or a folder with all that is in it.
NVXCORE_EXPORT Error removeFile(const URL& file);
/// Nothing must be at `to`.
NVXCORE_EXPORT Error moveFile(const URL& from, const URL& to);
NVXCORE_EXPORT Error createDirectoryWithIntermediates(const URL& directory);
/// A name that no other file has, in the folder for temporary files.
NVXCORE_EXPORT URL uniqueTemporaryFile(const std::string& prefix);

}  // namespace nvxcore
