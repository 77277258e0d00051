#include "nvxcore/platform/linux/LocalURLLoader.h"

#include <openssl/evp.h>
#include <strings.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "nvxcore/platform/Queue.h"
#include "nvxcore/platform/linux/HTTPTask.h"
#include "nvxcore/platform/linux/PercentEncoding.h"
#include "nvxcore/platform/linux/TransferErrors.h"

namespace nvxcore {

namespace {

constexpr size_t kPieceLength = 64 << 10;

/// Padding may be missing; anything else has to be as it should.
std::optional<std::string> base64Decoded(std::string text) {
  std::replace(text.begin(), text.end(), '-', '+');
  std::replace(text.begin(), text.end(), '_', '/');
  text.erase(text.find_last_not_of('=') + 1);
  if (text.find('=') != std::string::npos || text.size() % 4 == 1) return std::nullopt;
  const size_t length = text.size() * 3 / 4;
  text.resize((text.size() + 3) / 4 * 4, '=');
  std::string bytes(text.size() / 4 * 3, '\0');
  if (EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                      reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size())) < 0)
    return std::nullopt;
  bytes.resize(length);
  return bytes;
}

/// A media type for the commonest endings of file names.
std::string mimeTypeOf(const std::string& path) {
  static constexpr std::pair<std::string_view, std::string_view> kTypes[] = {
      {".txt", "text/plain"},  {".html", "text/html"},     {".json", "application/json"},
      {".png", "image/png"},   {".jpg", "image/jpeg"},     {".jpeg", "image/jpeg"},
      {".webp", "image/webp"}, {".xml", "application/xml"}};
  for (const auto& [ending, type] : kTypes) {
    if (path.size() > ending.size() &&
        ::strcasecmp(path.c_str() + path.size() - ending.size(), ending.data()) == 0)
      return std::string(type);
  }
  return "application/octet-stream";
}

URLErrorCode codeOfFile(int error) {
  switch (error) {
    case ENOENT:
    case ENOTDIR:
      return kURLErrorFileDoesNotExist;
    case EACCES:
    case EPERM:
      return kURLErrorNoPermissionsToReadFile;
    default:
      return kURLErrorCannotOpenFile;
  }
}

}  // namespace

std::optional<DataURLContents> readDataURL(const URL& url) {
  std::string_view text = url.absoluteString();
  text = text.substr(0, text.find('#'));
  const size_t comma = text.find(',');
  if (text.size() < 5 || ::strncasecmp(text.data(), "data:", 5) != 0 || comma == std::string_view::npos)
    return std::nullopt;
  std::string_view type = text.substr(5, comma - 5);
  std::string bytes = percentDecoded(text.substr(comma + 1));
  if (const size_t last = type.rfind(';'); last != std::string_view::npos && type.size() - last == 7 &&
                                           ::strncasecmp(type.data() + last, ";base64", 7) == 0) {
    type = type.substr(0, last);
    std::optional<std::string> decoded = base64Decoded(std::move(bytes));
    if (!decoded) return std::nullopt;
    bytes = std::move(*decoded);
  }
  DataURLContents contents;
  contents.mimeType = type.substr(0, type.find(';'));
  if (contents.mimeType.empty()) contents.mimeType = "text/plain";
  contents.bytes = Data::copy(bytes);
  return contents;
}

LocalURLLoader::LocalURLLoader(std::shared_ptr<HTTPTask> task, URL url)
    : _task(std::move(task)), _url(std::move(url)) {}

void LocalURLLoader::start() { post(&LocalURLLoader::begin); }

void LocalURLLoader::proceed() { post(&LocalURLLoader::load); }

void LocalURLLoader::post(void (LocalURLLoader::*step)()) {
  Queue::blocking()->post([self = shared_from_this(), step] { ((*self).*step)(); });
}

void LocalURLLoader::begin() {
  if (_url.isFileURL()) {
    struct stat facts {};
    if (::stat(_url.fileSystemPath().c_str(), &facts) != 0)
      return finish(transferError(codeOfFile(errno), _url));
    if (S_ISDIR(facts.st_mode)) return finish(transferError(kURLErrorFileIsDirectory, _url));
    _stream = InputStream::streamWithURL(_url);
    _stream->open();
    if (_stream->streamError())
      return finish(transferError(kURLErrorNoPermissionsToReadFile, _url, _stream->streamError()));
    _task->receivedHead(*this, URLResponse::withURL(_url, mimeTypeOf(_url.path()), facts.st_size));
  } else {
    const std::optional<DataURLContents> contents = readDataURL(_url);
    if (!contents) return finish(transferError(kURLErrorBadURL, _url));
    _stream = InputStream::streamWithData(contents->bytes);
    _task->receivedHead(*this, URLResponse::withURL(_url, contents->mimeType,
                                                    static_cast<int64_t>(contents->bytes.length())));
  }
  load();
}

void LocalURLLoader::load() {
  std::string piece = std::exchange(_refused, {});
  while (!_isStopped.load()) {
    if (piece.empty()) {
      piece.resize(kPieceLength);
      const int64_t count = _stream->read(reinterpret_cast<uint8_t*>(piece.data()), piece.size());
      if (count < 0) return finish(transferError(kURLErrorCannotOpenFile, _url, _stream->streamError()));
      if (count == 0) return finish({});
      piece.resize(static_cast<size_t>(count));
    }
    // The task may ask to proceed before this call has returned, so what it refuses is put aside first.
    _refused = piece;
    if (!_task->receivedBody(*this, piece.data(), piece.size())) return _task->flush();
    _refused.clear();
    piece.clear();
    _task->flush();
  }
}

void LocalURLLoader::finish(const Error& error) {
  if (_stream) _stream->close();
  _task->ended(*this, error);
  _task->flush();
}

}  // namespace nvxcore
