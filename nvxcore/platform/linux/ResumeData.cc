#include "nvxcore/platform/linux/ResumeData.h"

#include <openssl/rand.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "nvxcore/platform/Files.h"
#include "nvxcore/platform/linux/PreparedRequest.h"

namespace nvxcore {

namespace {

constexpr std::string_view kMagic = "NVXRSM\x01\n";
constexpr std::string_view kNamePrefix = "nvxcore-resume-";
constexpr size_t kNameLength = 32;

class Writer {
 public:
  Writer& number(uint64_t value) {
    for (int shift = 56; shift >= 0; shift -= 8) _bytes += static_cast<char>(value >> shift);
    return *this;
  }
  Writer& text(std::string_view value) {
    number(value.size());
    _bytes.append(value);
    return *this;
  }
  std::string& bytes() { return _bytes; }

 private:
  std::string _bytes{kMagic};
};

/// Reads what `Writer` wrote; once something is amiss, nothing more.
class Reader {
 public:
  explicit Reader(std::string_view bytes) : _bytes(bytes) {
    _isSound = _bytes.starts_with(kMagic);
    if (_isSound) _bytes.remove_prefix(kMagic.size());
  }
  uint64_t number() {
    const std::string_view part = take(8);
    uint64_t value = 0;
    for (char c : part) value = value << 8 | static_cast<unsigned char>(c);
    return value;
  }
  std::string text() { return std::string(take(number())); }
  bool isSound() const { return _isSound; }
  bool isAtEnd() const { return _isSound && _bytes.empty(); }

 private:
  std::string_view take(uint64_t length) {
    _isSound = _isSound && length <= _bytes.size();
    if (!_isSound) return {};
    const std::string_view part = _bytes.substr(0, length);
    _bytes.remove_prefix(length);
    return part;
  }

  std::string_view _bytes;
  bool _isSound;
};

/// The bytes may come from anywhere, and what they name is written to: only names that were made here pass.
bool isOwnName(const std::string& name) {
  return name.size() == kNamePrefix.size() + kNameLength && name.starts_with(kNamePrefix) &&
         std::all_of(name.begin() + kNamePrefix.size(), name.end(),
                     [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
}

bool isWebURL(const URL& url) {
  return url && !url.host().empty() &&
         (::strcasecmp(url.scheme().c_str(), "http") == 0 ||
          ::strcasecmp(url.scheme().c_str(), "https") == 0);
}

bool isVisibleText(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c < 0x7F; });
}

bool isKeptFile(const URL& file, int64_t size) {
  struct stat facts {};
  return ::lstat(file.fileSystemPath().c_str(), &facts) == 0 && S_ISREG(facts.st_mode) &&
         facts.st_uid == ::geteuid() && facts.st_size == size;
}

}  // namespace

Data ResumeData::encoded() const {
  Writer writer;
  writer.text(request.url.absoluteString())
      .text(validator)
      .text(fileName)
      .number(static_cast<uint64_t>(offset));
  writer.number(request.headers.size());
  for (const auto& [name, value] : request.headers) writer.text(name).text(value);
  return Data::copy(writer.bytes());
}

std::unique_ptr<ResumeData> ResumeData::decoded(const Data& bytes) {
  Reader reader(bytes.view());
  auto data = std::make_unique<ResumeData>();
  data->request = URLRequest(URL::withString(reader.text()));
  data->validator = reader.text();
  data->fileName = reader.text();
  data->offset = static_cast<int64_t>(reader.number());
  for (uint64_t fields = reader.number(); fields > 0 && reader.isSound(); --fields) {
    const std::string name = reader.text();
    const std::string value = reader.text();
    if (!isHTTPToken(name)) return nullptr;
    data->request.headers.add(name, value);
  }
  if (!reader.isAtEnd() || !isWebURL(data->request.url) || data->validator.empty() ||
      !isVisibleText(data->validator) || data->offset <= 0 || !isOwnName(data->fileName) ||
      !isKeptFile(data->file(), data->offset))
    return nullptr;
  return data;
}

URLRequest ResumeData::rangeRequest() const {
  URLRequest next = request;
  next.headers.set("Range", "bytes=" + std::to_string(offset) + "-");
  next.headers.set("If-Range", validator);
  next.headers.set("Accept-Encoding", "identity");  // The part that is there is not coded.
  return next;
}

URL ResumeData::file() const {
  return uniqueTemporaryFile("").deletingLastPathComponent().appendingPathComponent(fileName);
}

std::string ResumeData::validatorOf(const URLResponse& response) {
  const HTTPHeaders& headers = response.headers();
  const int status = response.statusCode();
  if ((status != 200 && status != 206) ||
      headers.value("Content-Encoding").value_or("identity") != "identity" ||
      headers.value("Accept-Ranges").value_or("") == "none")
    return {};
  const std::string tag = headers.value("ETag").value_or("");
  if (tag.size() > 2 && tag.front() == '"') return tag;  // A weak one does not vouch for every byte.
  return tag.empty() ? headers.value("Last-Modified").value_or("") : std::string();
}

std::string ResumeData::newFileName() {
  unsigned char random[kNameLength / 2];
  RAND_bytes(random, sizeof(random));
  std::string name(kNamePrefix);
  for (unsigned char byte : random) name += {"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]};
  return name;
}

}  // namespace nvxcore
