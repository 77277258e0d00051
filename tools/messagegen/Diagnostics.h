#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

namespace nvxcore::messagegen {

/// A place in a source: the file's number in `Diagnostics`, line and column from 1. A column is a character,
/// not a byte.
struct Position {
  uint32_t file = 0;
  uint32_t line = 1;
  uint32_t column = 1;
};

/// The errors of a run, and the names of the files that they are found in. After `kMaximum` errors further
/// ones are only counted as being there.
class Diagnostics {
 public:
  static constexpr size_t kMaximum = 50;

  /// Answers the file's number.
  uint32_t addFile(std::string name);
  const std::string& fileName(uint32_t file) const { return _files[file]; }

  void error(Position at, std::string message);
  /// An error that has no place in a file.
  void error(std::string message);

  bool failed() const { return _failed; }
  /// True once there are so many errors that reading on helps nobody.
  bool full() const { return _errors.size() >= kMaximum; }
  /// Lines of the form `file:line:column: message`, in the order of files, lines and columns.
  std::vector<std::string> lines() const;

 private:
  using Key = std::tuple<uint32_t, uint32_t, uint32_t>;
  bool _failed = false;
  std::vector<std::string> _files;
  std::multimap<Key, std::string> _errors;
  std::vector<std::string> _placeless;
};

/// Text from a source as it stands in a message: cut where it is long, control characters and quotes made
/// visible.
std::string inQuotes(std::string_view text);

}  // namespace nvxcore::messagegen
