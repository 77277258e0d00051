#include "tools/messagegen/Diagnostics.h"

#include <cstdio>
#include <utility>

namespace nvxcore::messagegen {

uint32_t Diagnostics::addFile(std::string name) {
  _files.push_back(std::move(name));
  return static_cast<uint32_t>(_files.size() - 1);
}

void Diagnostics::error(Position at, std::string message) {
  _failed = true;
  if (full()) return;
  const Key key{at.file, at.line, at.column};
  // One place needs saying once: what follows from an error is mostly found where the error is.
  if (_errors.count(key) == 0) _errors.emplace(key, std::move(message));
}

void Diagnostics::error(std::string message) {
  _failed = true;
  if (_placeless.size() < kMaximum) _placeless.push_back(std::move(message));
}

std::vector<std::string> Diagnostics::lines() const {
  std::vector<std::string> lines;
  for (const auto& [key, message] : _errors) {
    const auto& [file, line, column] = key;
    lines.push_back(_files[file] + ":" + std::to_string(line) + ":" + std::to_string(column) + ": " +
                    message);
  }
  if (full()) lines.push_back("more errors than " + std::to_string(kMaximum) + ": the rest is not shown");
  lines.insert(lines.end(), _placeless.begin(), _placeless.end());
  return lines;
}

std::string inQuotes(std::string_view text) {
  constexpr size_t kLongest = 60;
  std::string result = "\"";
  for (size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    // Not within a character.
    if (i >= kLongest && (byte & 0xC0) != 0x80) {
      result += "...";
      break;
    }
    if (byte == '"' || byte == '\\') {
      result += '\\';
      result += text[i];
    } else if (byte < 0x20 || byte == 0x7F) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\x%02x", byte);
      result += escaped;
    } else {
      result += text[i];
    }
    if (i >= kLongest + 3) break;
  }
  return result + "\"";
}

}  // namespace nvxcore::messagegen
