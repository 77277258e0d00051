#include "tools/messagegen/Loader.h"

#include <algorithm>
#include <set>
#include <utility>

#include "tools/messagegen/Parser.h"
#include "tools/messagegen/Text.h"

namespace nvxcore::messagegen {

bool isImportPath(std::string_view path) {
  if (path.empty() || path.size() > 1000 || !isUTF8(path)) return false;
  for (char c : path) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F || c == '\\' || c == '"' || c == ':') return false;
  }
  for (size_t start = 0; start <= path.size();) {
    const size_t end = std::min(path.find('/', start), path.size());
    const std::string_view part = path.substr(start, end - start);
    if (part.empty() || part == "." || part == "..") return false;
    start = end + 1;
  }
  return true;
}

File* Loader::load(const std::string& path) { return load(path, nullptr); }

File* Loader::load(const std::string& path, const Position* importedAt) {
  const auto refuse = [&](const std::string& message) -> File* {
    if (importedAt) {
      _diagnostics.error(*importedAt, message);
    } else {
      _diagnostics.error(path + ": " + message);
    }
    return nullptr;
  };
  if (!isImportPath(path)) return refuse("expected a path below an import folder, found " + inQuotes(path));
  if (const auto open = std::find(_open.begin(), _open.end(), path); open != _open.end()) {
    std::string cycle;
    for (auto file = open; file != _open.end(); ++file) cycle += *file + " -> ";
    return refuse("import cycle: " + cycle + path);
  }
  if (const auto known = _byPath.find(path); known != _byPath.end()) {
    if (!known->second) return refuse("expected a file that can be read: " + inQuotes(path));
    return known->second;
  }
  if (_open.size() >= kDeepestImport) {
    return refuse("expected imports at most " + std::to_string(kDeepestImport) + " deep");
  }
  if (_byPath.size() >= kMostFiles)
    return refuse("expected at most " + std::to_string(kMostFiles) + " files");
  _byPath[path] = nullptr;
  std::optional<std::string> source = _reader(path);
  if (!source) return refuse("no file " + inQuotes(path) + " is in an import folder");
  if (source->size() > kLargestFile) {
    return refuse("expected a file of at most " + std::to_string(kLargestFile >> 20) +
                  " MiB: " + inQuotes(path));
  }
  auto owned = std::make_unique<File>();
  File& file = *owned;
  file.path = path;
  file.number = _diagnostics.addFile(path);
  file.source = std::move(*source);
  Parser(file, _diagnostics).parse();
  _open.push_back(path);
  std::set<std::string_view> seen;
  for (Import& import : file.imports) {
    if (!seen.insert(import.path.text).second) {
      _diagnostics.error(import.path.at, "expected each import once: " + inQuotes(import.path.text));
      continue;
    }
    import.file = load(import.path.text, &import.path.at);
  }
  _open.pop_back();
  _byPath[path] = &file;
  _files.push_back(std::move(owned));
  return &file;
}

}  // namespace nvxcore::messagegen
