#include "tools/messagegen/CodeWriter.h"

#include <cstdio>

#include "tools/messagegen/Text.h"

namespace nvxcore::messagegen {

namespace {

/// What a comment may hold: no byte that is no character, no control character, and none that turns the
/// direction of text around, which compilers warn of.
std::string cleaned(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const size_t length = utf8SequenceLength(text);
    if (length == 0) {
      result += '?';
      text.remove_prefix(1);
      continue;
    }
    const std::string_view one = text.substr(0, length);
    text.remove_prefix(length);
    const bool isControl = length == 1 && (static_cast<unsigned char>(one[0]) < 0x20 || one[0] == 0x7F);
    const bool turns = length == 3 && ((one >= "\xE2\x80\x8E" && one <= "\xE2\x80\x8F") ||
                                       (one >= "\xE2\x80\xA8" && one <= "\xE2\x80\xAE") ||
                                       (one >= "\xE2\x81\xA6" && one <= "\xE2\x81\xA9"));
    if (isControl) {
      result += ' ';
    } else if (!turns) {
      result += one;
    }
  }
  while (!result.empty() && result.back() == ' ') result.pop_back();
  // At the end of a line these would join the next one to it.
  if (!result.empty() &&
      (result.back() == '\\' || (result.size() > 2 && result.substr(result.size() - 3) == "?\?/"))) {
    result += '.';
  }
  return result;
}

}  // namespace

void CodeWriter::function(std::string_view signature, std::string_view body) {
  if (_indent + signature.size() + body.size() + 5 <= kWidth) {
    return line(std::string(signature) + " { " + std::string(body) + " }");
  }
  line(std::string(signature) + " {");
  indent();
  call(body);
  outdent();
  line("}");
}

/// Broken before an argument where it is too long, as the others then stand below the first.
void CodeWriter::call(std::string_view text) {
  if (_indent + text.size() <= kWidth) return line(text);
  const size_t comma = text.rfind(", ", kWidth - _indent - 1);
  std::vector<size_t> open;
  for (size_t i = 0; comma != std::string_view::npos && i < comma; ++i) {
    if (text[i] == '(') open.push_back(i);
    if (text[i] == ')' && !open.empty()) open.pop_back();
  }
  if (open.empty()) return line(text);
  line(text.substr(0, comma + 1));
  line(std::string(open.back() + 1, ' ') + std::string(text.substr(comma + 2)));
}

void CodeWriter::list(std::string_view before, const std::vector<std::string>& elements,
                      std::string_view after) {
  std::string text(_indent, ' ');
  text.append(before).append("{");
  const size_t column = text.size();
  size_t width = column;
  for (size_t i = 0; i < elements.size(); ++i) {
    const std::string element = elements[i] + (i + 1 < elements.size() ? "," : "}" + std::string(after));
    if (i > 0 && width + 1 + element.size() > kWidth) {
      text.append("\n").append(column, ' ');
      width = column;
    } else if (i > 0) {
      text += ' ';
      ++width;
    }
    text += element;
    width += element.size();
  }
  _text += text + "\n";
}

void CodeWriter::rows(std::string_view before, const std::vector<std::string>& elements,
                      std::string_view after) {
  size_t whole = _indent + before.size() + 2 + after.size();
  for (const std::string& element : elements) whole += element.size() + 2;
  if (whole - 2 <= kWidth) return list(before, elements, after);
  std::string text(_indent, ' ');
  text.append(before).append("{");
  const size_t column = text.size();
  for (size_t i = 0; i < elements.size(); ++i) {
    if (i > 0) text.append("\n").append(column, ' ');
    text += elements[i];
    text += i + 1 < elements.size() ? "," : "}" + std::string(after);
  }
  _text += text + "\n";
}

void CodeWriter::comment(const Comment& comment, std::string_view slashes) {
  for (const std::string& one : comment) {
    std::string rest = cleaned(one);
    const size_t room = kWidth - _indent - 4;
    while (rest.size() > room) {
      size_t space = rest.rfind(' ', room);
      if (space == std::string::npos || space == 0) space = rest.find(' ', room);
      if (space == std::string::npos) break;
      line(std::string(slashes) + " " + cleaned(rest.substr(0, space)));
      rest = rest.substr(space + 1);
    }
    line(std::string(slashes) + (rest.empty() ? "" : " " + rest));
  }
}

std::string escapedBytes(std::string_view bytes) {
  std::string result;
  for (char c : bytes) {
    if (c == '"' || c == '\\' || c == '?') {
      result += '\\';
      result += c;
    } else if (c >= 0x20 && c < 0x7F) {
      result += c;
    } else {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\%03o", static_cast<unsigned char>(c));
      result += escape;
    }
  }
  return result;
}

}  // namespace nvxcore::messagegen
