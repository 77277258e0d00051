#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/messagegen/Model.h"

namespace nvxcore::messagegen {

/// Reads the files that are asked for and all that they import.
class Loader {
 public:
  static constexpr size_t kLargestFile = size_t{4} << 20;
  static constexpr size_t kMostFiles = 1024;
  static constexpr size_t kDeepestImport = 100;

  /// Answers the bytes of the file at a path as imports write it; nothing where there is none.
  using Reader = std::function<std::optional<std::string>(const std::string& path)>;

  Loader(Reader reader, Diagnostics& diagnostics) : _reader(std::move(reader)), _diagnostics(diagnostics) {}

  /// Answers nothing where the file cannot be read, which is told.
  File* load(const std::string& path);

  /// Imported files before those that import them.
  const std::vector<std::unique_ptr<File>>& files() const { return _files; }

 private:
  File* load(const std::string& path, const Position* importedAt);

  Reader _reader;
  Diagnostics& _diagnostics;
  std::vector<std::unique_ptr<File>> _files;
  /// Nothing stands for a file that could not be read.
  std::map<std::string, File*> _byPath;
  /// The files whose imports are being read, outermost first.
  std::vector<std::string> _open;
};

/// True for a path below an import folder: relative, with "/" between names, without "." and "..".
bool isImportPath(std::string_view path);

}  // namespace nvxcore::messagegen
