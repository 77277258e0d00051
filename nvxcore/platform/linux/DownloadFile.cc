#include "nvxcore/platform/linux/DownloadFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "nvxcore/platform/Files.h"
#include "nvxcore/platform/Value.h"

namespace nvxcore {

namespace {

Error fileError(int number, const URL& file) {
  const int64_t code = number == ENOSPC                      ? kFileWriteOutOfSpaceError
                       : number == EACCES || number == EPERM ? kFileWriteNoPermissionError
                                                             : kFileWriteUnknownError;
  return Error(kCocoaErrorDomain, code,
               {{kURLErrorKey, file}, {kLocalizedFailureReasonErrorKey, std::strerror(number)}});
}

}  // namespace

void DownloadFile::discard() {
  close();
  if (_location) ::unlink(std::exchange(_location, {}).fileSystemPath().c_str());
}

Error DownloadFile::open() {
  for (int attempt = 0; attempt < 100; ++attempt) {
    const URL location = uniqueTemporaryFile("nvxcore-download");
    _descriptor = ::open(location.fileSystemPath().c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (_descriptor >= 0) {
      _location = location;
      return {};
    }
    if (errno != EEXIST) return fileError(errno, location);
  }
  return fileError(EEXIST, uniqueTemporaryFile("nvxcore-download"));
}

Error DownloadFile::take(const URL& kept) {
  if (Error error = open()) return error;
  close();
  // The name of its own makes it this download's alone, however many try to go on with it.
  if (::rename(kept.fileSystemPath().c_str(), _location.fileSystemPath().c_str()) != 0)
    return fileError(errno, kept);
  _descriptor = ::open(_location.fileSystemPath().c_str(), O_WRONLY | O_APPEND | O_NOFOLLOW | O_CLOEXEC);
  struct stat facts {};
  if (_descriptor < 0 || ::fstat(_descriptor, &facts) != 0) return fileError(errno, _location);
  _length = facts.st_size;
  return {};
}

Error DownloadFile::restart() {
  _length = 0;
  if (_descriptor < 0) return open();
  return ::ftruncate(_descriptor, 0) == 0 && ::lseek(_descriptor, 0, SEEK_SET) == 0
             ? Error()
             : fileError(errno, _location);
}

Error DownloadFile::append(const Data& bytes) {
  size_t done = 0;
  while (done < bytes.length()) {
    const ssize_t count = ::write(_descriptor, bytes.bytes() + done, bytes.length() - done);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return fileError(errno, _location);
    done += static_cast<size_t>(count);
    _length += count;
  }
  return {};
}

void DownloadFile::close() {
  if (_descriptor >= 0) ::close(std::exchange(_descriptor, -1));
}

Error DownloadFile::keepAs(const URL& place) {
  close();
  if (::rename(_location.fileSystemPath().c_str(), place.fileSystemPath().c_str()) != 0)
    return fileError(errno, place);
  _location = {};
  return {};
}

}  // namespace nvxcore
