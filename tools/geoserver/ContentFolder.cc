#include "tools/geoserver/ContentFolder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <system_error>
#include <utility>

#include "tools/geoserver/HeaderList.h"
#include "tools/geoserver/WireCodec.h"
#include "tools/geoserver/internal/Uri.h"
#include "tools/geoserver/messages/TextFormat.h"

namespace nvxcore::geoserver {
namespace {

constexpr const char* kResources = "resources/";
constexpr const char* kParameters = "parameters";

struct Descriptor {
  explicit Descriptor(int value) : number(value) {}
  ~Descriptor() {
    if (number >= 0) close(number);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  const int number;
};

// Where an open file lies, whatever links led to it.
std::string pathOf(const Descriptor& file) {
  char path[4096];
  const std::string link = "/proc/self/fd/" + std::to_string(file.number);
  const ssize_t length = readlink(link.c_str(), path, sizeof(path));
  return length < 0 ? std::string() : std::string(path, static_cast<size_t>(length));
}

std::vector<std::string> fileNames(const std::string& folder) {
  std::vector<std::string> names;
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(opendir(folder.c_str()), closedir);
  if (!stream) return names;
  while (const dirent* entry = readdir(stream.get())) {
    if (entry->d_name[0] != '.') names.emplace_back(entry->d_name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

WireMessage resource(const std::string& url, int code, uint64_t hash, const char* contentType) {
  WireMessage message(*schemas::resourceResponse.find("Response")->message);
  message.add("url", url).add("response_code", static_cast<uint64_t>(code)).add("hash", hash);
  return message.add("content_type", contentType);
}

WireMessage emptyGroup(uint64_t type) { return WireMessage(schemas::parameterGroup).add("type", type); }

}  // namespace

uint64_t contentHash(std::string_view bytes) {
  uint64_t hash = 0xCBF29CE484222325;
  for (const char c : bytes) hash = (hash ^ static_cast<uint8_t>(c)) * 0x100000001B3;
  return hash;
}

std::optional<std::string> resourcePath(std::string_view url) {
  if (const size_t scheme = url.find("://"); scheme != std::string_view::npos && scheme < url.find('/')) {
    url.remove_prefix(scheme + 3);
    url.remove_prefix(std::min(url.find_first_of("/?#"), url.size()));
  }
  url = url.substr(0, url.find_first_of("?#"));
  if (url.starts_with('/')) url.remove_prefix(1);
  // Decoded before it is looked at, since an escape can stand for a slash or a dot.
  std::string path = percentDecoded(url);
  if (path.find('\0') != std::string::npos) return std::nullopt;
  size_t start = 0;
  while (start <= path.size()) {
    const size_t end = std::min(path.find('/', start), path.size());
    const std::string_view part = std::string_view(path).substr(start, end - start);
    if (part.empty() || part == "." || part == "..") return std::nullopt;
    start = end + 1;
  }
  return path;
}

const char* contentTypeOf(std::string_view path) {
  static constexpr std::pair<const char*, const char*> kTypes[] = {
      {".png", "image/png"},         {".jpg", "image/jpeg"},         {".jpeg", "image/jpeg"},
      {".gif", "image/gif"},         {".webp", "image/webp"},        {".svg", "image/svg+xml"},
      {".html", "text/html"},        {".htm", "text/html"},          {".txt", "text/plain"},
      {".json", "application/json"}, {".bin", "application/binary"},
  };
  const size_t dot = path.rfind('.');
  if (dot == std::string_view::npos) return "application/octet-stream";
  for (const auto& [ending, type] : kTypes) {
    if (equalsIgnoringCase(path.substr(dot), ending)) return type;
  }
  return "application/octet-stream";
}

ContentFolder::ContentFolder(const std::string& path) {
  if (path.empty()) return;
  const std::unique_ptr<char, void (*)(void*)> resolved(realpath((path + "/.").c_str(), nullptr), std::free);
  if (!resolved) throw std::system_error(errno, std::generic_category(), path);
  _root = resolved.get();
  if (!_root.ends_with('/')) _root += '/';
}

ContentFolder::File ContentFolder::read(const std::string& relativePath,
                                        std::vector<std::string>& notes) const {
  File result;
  if (_root.empty()) return result;
  // Not to wait for whoever writes a named pipe, nor to become the owner of a terminal.
  const Descriptor file(open((_root + relativePath).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat facts {};
  if (file.number < 0 || fstat(file.number, &facts) < 0) return result;
  if (!pathOf(file).starts_with(_root)) {
    notes.push_back(relativePath + " leads out of the folder");
    return result;
  }
  if (!S_ISREG(facts.st_mode)) return result;
  if (static_cast<uint64_t>(facts.st_size) > kLargestFile) {
    notes.push_back(relativePath + " is too large");
    result.code = 413;
    return result;
  }
  std::string bytes(static_cast<size_t>(facts.st_size), '\0');
  size_t length = 0;
  while (length < bytes.size()) {
    const ssize_t count = ::read(file.number, bytes.data() + length, bytes.size() - length);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    length += static_cast<size_t>(count);
  }
  bytes.resize(length);
  result.code = 200;
  result.bytes = std::move(bytes);
  return result;
}

WireMessage ContentFolder::answerResource(const WireMessage& request, std::vector<std::string>& notes) const {
  const std::string url = request.text("url");
  const auto path = resourcePath(url);
  File file;
  if (path) {
    file = read(kResources + *path, notes);
  } else {
    notes.push_back("no path beneath the folder: " + url);
  }
  WireMessage answer(schemas::resourceResponse);
  if (file.code != 200) return answer.add("Response", resource(url, file.code, 0, "text/plain"));
  const uint64_t hash = contentHash(file.bytes);
  const char* contentType = contentTypeOf(*path);
  if (request.has("hash") && request.number("hash") == hash)
    return answer.add("Response", resource(url, 304, hash, contentType));
  return answer.add("Response", resource(url, 200, hash, contentType).add("body", file.bytes));
}

std::vector<WireMessage> ContentFolder::parameterGroups(std::vector<std::string>& notes) const {
  std::vector<WireMessage> groups;
  if (_root.empty()) return groups;
  for (const std::string& name : fileNames(_root + kParameters)) {
    const std::string path = std::string(kParameters) + "/" + name;
    const bool asText = name.ends_with(".txt");
    if (!asText && !name.ends_with(".pb")) continue;
    const File file = read(path, notes);
    if (file.code != 200) continue;
    try {
      WireMessage group = asText ? parseTextFormat(file.bytes, schemas::parameterGroup)
                                 : WireMessage::parse(file.bytes, schemas::parameterGroup);
      const std::string fault = group.fault();
      if (!fault.empty()) throw WireError(fault);
      if (group.number("type") == 0) throw WireError("no type");
      if (!group.has("hash")) group.add("hash", contentHash(group.serialised()));
      groups.push_back(std::move(group));
    } catch (const std::runtime_error& error) {
      notes.push_back(path + ": " + error.what());
    }
  }
  return groups;
}

WireMessage ContentFolder::answerParameters(const WireMessage& request,
                                            std::vector<std::string>& notes) const {
  WireMessage answer(schemas::clientParametersResponse);
  const std::vector<WireMessage> groups = parameterGroups(notes);
  const std::vector<WireMessage> wanted = request.messages("parameter_group");
  if (wanted.empty()) {
    for (const WireMessage& group : groups) answer.add("parameter_group", group);
  }
  for (const WireMessage& want : wanted) {
    const uint64_t type = want.number("type");
    const auto group = std::find_if(groups.begin(), groups.end(), [type](const WireMessage& candidate) {
      return candidate.number("type") == type;
    });
    const bool changed =
        group != groups.end() && !(want.has("hash") && want.number("hash") == group->number("hash"));
    answer.add("parameter_group", changed ? *group : emptyGroup(type));
  }
  return answer;
}

}  // namespace nvxcore::geoserver
