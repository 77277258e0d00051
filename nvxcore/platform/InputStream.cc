#include "nvxcore/platform/InputStream.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include "nvxcore/platform/Value.h"

namespace nvxcore {

namespace {

class DataInputStream final : public InputStream {
 public:
  explicit DataInputStream(Data data) : _data(std::move(data)) {}

  void open() override {}
  void close() override { _data = {}; }
  int64_t read(uint8_t* buffer, size_t maxLength) override {
    const size_t count = std::min(maxLength, _data.length() - _offset);
    if (count) std::memcpy(buffer, _data.bytes() + _offset, count);
    _offset += count;
    return static_cast<int64_t>(count);
  }
  bool hasBytesAvailable() const override { return true; }

 private:
  Data _data;
  size_t _offset = 0;
};

class FileInputStream final : public InputStream {
 public:
  explicit FileInputStream(URL file) : _file(std::move(file)) {}
  ~FileInputStream() override { close(); }

  void open() override {
    _descriptor = ::open(_file.fileSystemPath().c_str(), O_RDONLY | O_CLOEXEC);
    if (_descriptor < 0) fail(errno);
  }
  void close() override {
    if (_descriptor >= 0) ::close(std::exchange(_descriptor, -1));
  }
  int64_t read(uint8_t* buffer, size_t maxLength) override {
    ssize_t count;
    do {
      count = ::read(_descriptor, buffer, maxLength);
    } while (count < 0 && errno == EINTR);
    if (count < 0 && !_error) fail(errno);
    return count;
  }
  Error streamError() const override { return _error; }
  bool hasBytesAvailable() const override { return true; }

 private:
  void fail(int number) {
    const int64_t code = number == ENOENT                      ? kFileReadNoSuchFileError
                         : number == EACCES || number == EPERM ? kFileReadNoPermissionError
                                                               : kFileReadUnknownError;
    _error = Error(kCocoaErrorDomain, code,
                   {{kURLErrorKey, _file}, {kLocalizedFailureReasonErrorKey, std::strerror(number)}});
  }

  URL _file;
  int _descriptor = -1;
  Error _error;
};

}  // namespace

std::shared_ptr<InputStream> InputStream::streamWithData(Data data) {
  return std::make_shared<DataInputStream>(std::move(data));
}

std::shared_ptr<InputStream> InputStream::streamWithURL(const URL& fileURL) {
  return std::make_shared<FileInputStream>(fileURL);
}

}  // namespace nvxcore
