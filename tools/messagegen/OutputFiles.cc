#include "tools/messagegen/OutputFiles.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

#include <unistd.h>

namespace nvxcore::messagegen {

namespace {

bool writeFile(const std::string& path, const std::string& content) {
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (!file) return false;
  const bool written = std::fwrite(content.data(), 1, content.size(), file) == content.size();
  const bool flushed = std::fflush(file) == 0;
  const int failure = errno;
  const bool closed = std::fclose(file) == 0;
  if (!written || !flushed) errno = failure;
  return written && flushed && closed;
}

}  // namespace

bool readFile(const std::string& path, size_t largest, std::string& content) {
  std::error_code code;
  // Of a folder the first read would fail, of a pipe none would end.
  if (!std::filesystem::is_regular_file(path, code)) return false;
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (!file) return false;
  content.clear();
  char buffer[1 << 16];
  while (content.size() <= largest) {
    const size_t count = std::fread(buffer, 1, std::min(sizeof buffer, largest + 1 - content.size()), file);
    if (count == 0) break;
    content.append(buffer, count);
  }
  const bool good = std::ferror(file) == 0;
  std::fclose(file);
  return good;
}

std::string OutputFiles::write() const {
  std::vector<std::pair<std::string, std::string>> renames;
  const auto fail = [&](const std::string& path, const std::string& why) {
    for (const auto& [temporary, final] : renames) std::remove(temporary.c_str());
    return path + ": cannot be written: " + why;
  };
  for (const auto& [path, content] : _files) {
    std::string present;
    if (readFile(path, content.size(), present) && present == content) continue;
    // A rename onto it would fail, after others have been done.
    if (std::error_code ignored; std::filesystem::is_directory(path, ignored))
      return fail(path, "it is a folder");
    const std::filesystem::path folder = std::filesystem::path(path).parent_path();
    std::error_code code;
    if (!folder.empty()) std::filesystem::create_directories(folder, code);
    if (code) return fail(path, code.message());
    // Runs for other files may write here at the same time.
    const std::string temporary = path + "." + std::to_string(::getpid()) + ".tmp";
    renames.emplace_back(temporary, path);
    if (!writeFile(temporary, content)) return fail(path, std::strerror(errno));
  }
  for (const auto& [temporary, final] : renames) {
    if (std::rename(temporary.c_str(), final.c_str()) != 0) return fail(final, std::strerror(errno));
  }
  return "";
}

}  // namespace nvxcore::messagegen
