#include "nvxcore/platform/OutputStream.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>

namespace nvxcore {

namespace {

class FileOutputStream final : public OutputStream {
 public:
  FileOutputStream(std::string path, bool append) : _path(std::move(path)), _append(append) {}
  ~FileOutputStream() override { close(); }

  void open() override {
    close();
    _descriptor =
        ::open(_path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | (_append ? O_APPEND : O_TRUNC), 0666);
  }
  void close() override {
    if (_descriptor >= 0) ::close(std::exchange(_descriptor, -1));
  }
  int64_t write(const uint8_t* bytes, size_t maxLength) override {
    size_t done = 0;
    while (done < maxLength) {
      const ssize_t count = ::write(_descriptor, bytes + done, maxLength - done);
      if (count < 0 && errno != EINTR) return -1;
      if (count > 0) done += static_cast<size_t>(count);
    }
    return static_cast<int64_t>(done);
  }

 private:
  const std::string _path;
  const bool _append;
  int _descriptor = -1;
};

}  // namespace

std::shared_ptr<OutputStream> OutputStream::streamWithURL(const URL& fileURL, bool append) {
  std::string path = fileURL.isFileURL() ? fileURL.fileSystemPath() : std::string();
  if (path.empty()) return {};
  return std::make_shared<FileOutputStream>(std::move(path), append);
}

}  // namespace nvxcore
