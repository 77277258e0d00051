#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tools/messagegen/Model.h"

namespace nvxcore::messagegen {

/// Lines of C++ at most `kWidth` columns wide, wherever a break is possible.
class CodeWriter {
 public:
  static constexpr size_t kWidth = 110;

  void line(std::string_view text = "") {
    if (!text.empty()) _text.append(_indent, ' ').append(text);
    _text += '\n';
  }
  void indent() { _indent += 2; }
  void outdent() { _indent -= 2; }
  /// A function on one line, or with its body on lines of its own.
  void function(std::string_view signature, std::string_view body);
  /// `{a, b, c}` with what stands before and behind it; as many elements to a line as it holds.
  void list(std::string_view before, const std::vector<std::string>& elements, std::string_view after);
  /// A list of lists: all on one line, or each element on a line of its own.
  void rows(std::string_view before, const std::vector<std::string>& elements, std::string_view after);
  /// With slashes before each line, broken between words.
  void comment(const Comment& comment, std::string_view slashes = "///");

  std::string take() { return std::move(_text); }

 private:
  void call(std::string_view text);

  std::string _text;
  size_t _indent = 0;
};

/// A string literal's inside: printable ASCII, all else as octal escapes of three digits.
std::string escapedBytes(std::string_view bytes);

}  // namespace nvxcore::messagegen
