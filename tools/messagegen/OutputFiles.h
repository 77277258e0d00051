#pragma once

#include <map>
#include <string>

namespace nvxcore::messagegen {

/// Files to write: all of them, or none.
class OutputFiles {
 public:
  /// `path` is that of the file itself.
  void add(std::string path, std::string content) { _files[std::move(path)] = std::move(content); }

  /// Writes each file under a temporary name beside it, and renames them once all are there. A file that has
  /// its content already is left alone, so that what depends on it is not built anew. Answers what went
  /// wrong, or nothing.
  std::string write() const;

 private:
  std::map<std::string, std::string> _files;
};

/// The bytes of a file of at most `largest` bytes, and one more where it is larger. False where it cannot be
/// read.
bool readFile(const std::string& path, size_t largest, std::string& content);

}  // namespace nvxcore::messagegen
