#include "nvxcore/platform/Files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "nvxcore/platform/Value.h"

namespace nvxcore {

namespace {

enum class Access { Read, Write };

Error fileError(int systemError, Access access, const URL& file) {
  const bool reads = access == Access::Read;
  int64_t code = reads ? kFileReadUnknownError : kFileWriteUnknownError;
  if (systemError == ENOENT) code = reads ? kFileReadNoSuchFileError : kFileNoSuchFileError;
  if (systemError == EACCES || systemError == EPERM)
    code = reads ? kFileReadNoPermissionError : kFileWriteNoPermissionError;
  if (systemError == ENOSPC || systemError == EDQUOT) code = kFileWriteOutOfSpaceError;
  Dictionary userInfo;
  userInfo.set(kURLErrorKey, file);
  userInfo.set(kFilePathErrorKey, file.fileSystemPath());
  userInfo.set(kUnderlyingErrorKey, Error("NSPOSIXErrorDomain", systemError));
  userInfo.set(kLocalizedDescriptionKey, std::generic_category().message(systemError));
  return Error(kCocoaErrorDomain, code, std::move(userInfo));
}

class Descriptor {
 public:
  explicit Descriptor(int number) : _number(number) {}
  ~Descriptor() {
    if (_number >= 0) ::close(_number);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  operator int() const { return _number; }  // NOLINT(google-explicit-constructor)

 private:
  int _number;
};

int writeAll(int file, const Data& data) {
  const uint8_t* bytes = data.bytes();
  size_t left = data.length();
  while (left) {
    const ssize_t written = ::write(file, bytes, left);
    if (written < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    bytes += written;
    left -= static_cast<size_t>(written);
  }
  return 0;
}

}  // namespace

Error checkFileIsReachable(const URL& file) {
  if (!file.isFileURL()) return fileError(EINVAL, Access::Read, file);
  struct stat facts;
  return ::stat(file.fileSystemPath().c_str(), &facts) == 0 ? Error() : fileError(errno, Access::Read, file);
}

std::optional<FileAttributes> fileAttributes(const URL& file) {
  struct stat facts;
  if (!file.isFileURL() || ::stat(file.fileSystemPath().c_str(), &facts) != 0) return std::nullopt;
  const timespec& time = facts.st_mtim;
  return FileAttributes{S_ISDIR(facts.st_mode), facts.st_size,
                        Date::withTimeIntervalSince1970(static_cast<double>(time.tv_sec) +
                                                        static_cast<double>(time.tv_nsec) / 1e9)};
}

std::optional<int64_t> fileSize(const URL& file) {
  const std::optional<FileAttributes> attributes = fileAttributes(file);
  return attributes ? std::optional(attributes->size) : std::nullopt;
}

Data readFile(const URL& file, Error* error) {
  auto fail = [&](int number) {
    if (error) *error = fileError(number, Access::Read, file);
    return Data();
  };
  if (!file.isFileURL()) return fail(EINVAL);
  Descriptor input(::open(file.fileSystemPath().c_str(), O_RDONLY | O_CLOEXEC));
  if (input < 0) return fail(errno);
  struct stat facts;
  if (::fstat(input, &facts) != 0) return fail(errno);
  MutableData bytes(static_cast<size_t>(facts.st_size) + 1);
  for (;;) {
    const size_t length = bytes.length();
    const size_t room = std::max<size_t>(bytes.capacity() - length, 4096);
    const ssize_t count = ::read(input, bytes.extend(room), room);
    bytes.setLength(length + static_cast<size_t>(std::max<ssize_t>(count, 0)));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return fail(errno);
    if (count == 0) break;
  }
  if (error) *error = Error();
  return Data::take(std::move(bytes));
}

Error writeFile(const URL& file, const Data& data) {
  if (!file.isFileURL()) return fileError(EINVAL, Access::Write, file);
  Descriptor output(::open(file.fileSystemPath().c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
  if (output < 0) return fileError(errno, Access::Write, file);
  const int failure = writeAll(output, data);
  return failure ? fileError(failure, Access::Write, file) : Error();
}

Error appendToFile(const URL& file, const Data& data, bool* cannotOpen) {
  Descriptor output(::open(file.fileSystemPath().c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
  *cannotOpen = output < 0;
  if (output < 0) return fileError(errno, Access::Write, file);
  const int failure = writeAll(output, data);
  return failure ? fileError(failure, Access::Write, file) : Error();
}

Error writeFileAtomically(const URL& file, const Data& data) {
  if (!file.isFileURL()) return fileError(EINVAL, Access::Write, file);
  const std::string path = file.fileSystemPath();
  std::string temporary = path + ".XXXXXX";
  int failure = 0;
  {
    Descriptor output(::mkostemp(temporary.data(), O_CLOEXEC));
    if (output < 0) return fileError(errno, Access::Write, file);
    failure = writeAll(output, data);
    if (!failure && (::fchmod(output, 0644) != 0 || ::fsync(output) != 0)) failure = errno;
  }
  if (!failure && ::rename(temporary.c_str(), path.c_str()) != 0) failure = errno;
  if (!failure) return {};
  ::unlink(temporary.c_str());
  return fileError(failure, Access::Write, file);
}

Error removeFile(const URL& file) {
  if (!file.isFileURL()) return fileError(EINVAL, Access::Write, file);
  std::error_code failure;
  const auto count = std::filesystem::remove_all(file.fileSystemPath(), failure);
  if (failure) return fileError(failure.value(), Access::Write, file);
  return count ? Error() : fileError(ENOENT, Access::Write, file);
}

Error moveFile(const URL& from, const URL& to) {
  if (!from.isFileURL() || !to.isFileURL()) return fileError(EINVAL, Access::Write, to);
  const std::string target = to.fileSystemPath();
  std::error_code failure;
  if (std::filesystem::exists(std::filesystem::symlink_status(target, failure))) {
    return fileError(EEXIST, Access::Write, to);
  }
  std::filesystem::rename(from.fileSystemPath(), target, failure);
  if (failure == std::errc::cross_device_link) {
    failure.clear();
    std::filesystem::copy_file(from.fileSystemPath(), target, failure);
    std::error_code ignored;
    std::filesystem::remove(failure ? target : from.fileSystemPath(), failure ? ignored : failure);
  }
  return failure ? fileError(failure.value(), Access::Write, to) : Error();
}

Error createDirectoryWithIntermediates(const URL& directory) {
  if (!directory.isFileURL()) return fileError(EINVAL, Access::Write, directory);
  std::error_code failure;
  std::filesystem::create_directories(directory.fileSystemPath(), failure);
  if (!failure && !std::filesystem::is_directory(directory.fileSystemPath(), failure)) {
    failure = std::make_error_code(std::errc::not_a_directory);
  }
  return failure ? fileError(failure.value(), Access::Write, directory) : Error();
}

URL uniqueTemporaryFile(const std::string& prefix) {
  static std::atomic<uint64_t> counter{0};
  std::error_code failure;
  std::filesystem::path folder = std::filesystem::temp_directory_path(failure);
  if (failure) folder = "/tmp";
  for (;;) {
    // A process of the same number may have left one.
    const std::string name =
        prefix + "-" + std::to_string(::getpid()) + "-" + std::to_string(counter.fetch_add(1));
    const std::filesystem::path path = folder / name;
    if (!std::filesystem::exists(std::filesystem::symlink_status(path, failure)))
      return URL::fileURLWithPath(path.string());
  }
}

}  // namespace nvxcore
