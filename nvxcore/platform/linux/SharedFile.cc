#include "nvxcore/platform/linux/SharedFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace nvxcore {

namespace {

std::string folderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : path.substr(0, std::max<size_t>(slash, 1));
}

bool syncFolderAt(const std::string& path) {
  const int folder = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) return false;
  const bool synced = ::fsync(folder) == 0;
  ::close(folder);
  return synced;
}

/// Makes a folder and those above it, for this user alone.
bool makeFolder(const std::string& path) {
  if (::mkdir(path.c_str(), 0700) == 0) return syncFolderAt(folderOf(path));
  if (errno == EEXIST) return true;
  if (errno != ENOENT || path == folderOf(path) || !makeFolder(folderOf(path))) return false;
  return ::mkdir(path.c_str(), 0700) == 0 ? syncFolderAt(folderOf(path)) : errno == EEXIST;
}

bool writeAll(int file, const Data& data) {
  for (size_t at = 0; at < data.length();) {
    const ssize_t written = ::write(file, data.bytes() + at, data.length() - at);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    at += static_cast<size_t>(written);
  }
  return true;
}

int takeLock(const std::string& path) {
  const int lock = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (lock < 0) return -1;
  while (::flock(lock, LOCK_EX) != 0) {
    if (errno == EINTR) continue;
    ::close(lock);
    return -1;
  }
  return lock;
}

}  // namespace

SharedFile::SharedFile(std::string path)
    : _path(std::move(path)),
      _folder(folderOf(_path)),
      _lock(makeFolder(_folder) ? takeLock(_path + ".lock") : -1) {}

SharedFile::~SharedFile() {
  if (_lock < 0) return;
  // Said aloud: a process that was forked off meanwhile holds the file open too.
  ::flock(_lock, LOCK_UN);
  ::close(_lock);
}

bool SharedFile::replace(const Data& bytes) {
  // Always the same name: whoever has the lock may overwrite what one that was killed has left.
  const std::string temporary = _path + ".new";
  const int file = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (file < 0) return false;
  const bool written = writeAll(file, bytes) && ::fsync(file) == 0;
  ::close(file);
  if (written && ::rename(temporary.c_str(), _path.c_str()) == 0) return syncFolder();
  ::unlink(temporary.c_str());
  return false;
}

bool SharedFile::keepAside() { return ::rename(_path.c_str(), (_path + ".damaged").c_str()) == 0; }

bool SharedFile::syncFolder() const { return syncFolderAt(_folder); }

SharedFile::Reading SharedFile::read(const std::string& path, size_t mostBytes) {
  // A pipe in the file's place must not keep anybody waiting.
  const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file < 0) return {errno == ENOENT ? Outcome::Missing : Outcome::Unreadable, {}};
  struct stat facts {};
  Reading reading;
  if (::fstat(file, &facts) == 0 && S_ISREG(facts.st_mode)) {
    const size_t room = std::min(static_cast<size_t>(facts.st_size), mostBytes) + 1;
    MutableData bytes(room);
    ssize_t count = 1;
    while (count > 0 && bytes.length() < room) {
      const size_t length = bytes.length();
      count = ::read(file, bytes.extend(room - length), room - length);
      bytes.setLength(length + static_cast<size_t>(std::max<ssize_t>(count, 0)));
      if (count < 0 && errno == EINTR) count = 1;
    }
    if (count >= 0) reading = {Outcome::Read, Data::take(std::move(bytes))};
  }
  ::close(file);
  return reading;
}

}  // namespace nvxcore
