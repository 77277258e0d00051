#include "tools/messagegen/Lexer.h"

#include <cstdlib>
#include <utility>

#include "tools/messagegen/Text.h"

namespace nvxcore::messagegen {

namespace {

std::string_view trimmedRight(std::string_view text) {
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r'))
    text.remove_suffix(1);
  return text;
}

}  // namespace

std::string Token::described() const {
  if (kind == Kind::End) return "the end of the file";
  return kind == Kind::String ? "the string " + inQuotes(bytes) : inQuotes(spelling);
}

Lexer::Lexer(std::string_view source, uint32_t file, Diagnostics& diagnostics)
    : _source(source), _file(file), _diagnostics(diagnostics) {
  if (_source.substr(0, 3) == "\xEF\xBB\xBF") _at = 3;
}

void Lexer::advance() {
  const char c = _source[_at++];
  if (c == '\n') {
    ++_line;
    _column = 1;
  } else if ((static_cast<unsigned char>(peek()) & 0xC0) != 0x80 || atEnd()) {
    // The next byte begins a character.
    ++_column;
  }
}

Token Lexer::next() {
  std::vector<Block> blocks;
  Token token;
  while (true) {
    skipSpaceAndComments(blocks);
    token.at = here();
    if (atEnd()) break;
    const size_t start = _at;
    const char c = peek();
    if (isLetter(c)) {
      identifier(token);
    } else if (isDigit(c) || (c == '.' && isDigit(peek(1)))) {
      number(token);
    } else if (c == '"' || c == '\'') {
      string(token);
    } else if (c > ' ' && c < 0x7F) {
      token.kind = Token::Kind::Symbol;
      advance();
    } else {
      // A run of bytes that no token begins with is told once.
      while (!atEnd() && (peek() < ' ' || peek() == 0x7F) && peek() != '\n' && peek() != '\t' &&
             peek() != '\r') {
        advance();
      }
      _diagnostics.error(token.at, "expected a letter, digit or sign, found " +
                                       inQuotes(_source.substr(start, _at - start)));
      continue;
    }
    token.spelling = _source.substr(start, _at - start);
    break;
  }
  keepComments(blocks, token.at.line, token.kind == Token::Kind::End);
  _lastTokenLine = _line;
  return token;
}

void Lexer::skipSpaceAndComments(std::vector<Block>& blocks) {
  while (!atEnd()) {
    const char c = peek();
    if (c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v') {
      advance();
    } else if (c == '/' && peek(1) == '/') {
      lineComment(blocks);
    } else if (c == '/' && peek(1) == '*') {
      blockComment(blocks);
    } else {
      return;
    }
  }
}

void Lexer::lineComment(std::vector<Block>& blocks) {
  const uint32_t line = _line;
  const size_t start = _at + 2;
  while (!atEnd() && peek() != '\n') advance();
  std::string_view text = trimmedRight(_source.substr(start, _at - start));
  // Documentation tools take three slashes: the third is a mark too.
  if (!text.empty() && text[0] == '/') text.remove_prefix(1);
  if (!text.empty() && text[0] == ' ') text.remove_prefix(1);
  const bool joins = !blocks.empty() && blocks.back().ofLines && blocks.back().lastLine + 1 == line &&
                     blocks.back().firstLine != _lastTokenLine;
  if (!joins) blocks.push_back({line, line, true, {}});
  blocks.back().lastLine = line;
  blocks.back().lines.emplace_back(text);
}

void Lexer::blockComment(std::vector<Block>& blocks) {
  const Position start = here();
  Block block{_line, _line, false, {}};
  advance();
  advance();
  size_t lineStart = _at;
  bool closed = false;
  const auto keep = [&](size_t end) {
    std::string_view text = trimmedRight(_source.substr(lineStart, end - lineStart));
    // The column of stars that many put at the left.
    size_t indent = text.find_first_not_of(" \t");
    if (indent == std::string_view::npos) indent = text.size();
    const bool first = block.firstLine == _line;
    if (indent < text.size() && text[indent] == '*' && (!first || indent == 0)) ++indent;
    text.remove_prefix(indent);
    if (!text.empty() && text[0] == ' ') text.remove_prefix(1);
    if (!text.empty() || !block.lines.empty()) block.lines.emplace_back(text);
  };
  while (!atEnd()) {
    if (peek() == '*' && peek(1) == '/') {
      keep(_at);
      advance();
      advance();
      closed = true;
      break;
    }
    if (peek() == '\n') {
      keep(_at);
      lineStart = _at + 1;
    }
    advance();
  }
  if (!closed) {
    _diagnostics.error(start, "expected \"*/\" after this comment's start, found the end of the file");
    return;
  }
  block.lastLine = _line;
  while (!block.lines.empty() && block.lines.back().empty()) block.lines.pop_back();
  blocks.push_back(std::move(block));
}

void Lexer::keepComments(std::vector<Block>& blocks, uint32_t tokenLine, bool atEndOfFile) {
  _leading.clear();
  _trailing.clear();
  if (blocks.empty()) return;
  // What begins on the line of the token before is that one's, unless the next token stands there too.
  if (blocks.front().firstLine == _lastTokenLine && (blocks.front().lastLine != tokenLine || atEndOfFile)) {
    _trailing = std::move(blocks.front().lines);
    blocks.erase(blocks.begin());
  }
  if (!blocks.empty() && blocks.back().lastLine + 1 >= tokenLine) _leading = std::move(blocks.back().lines);
}

void Lexer::identifier(Token& token) {
  token.kind = Token::Kind::Identifier;
  const size_t start = _at;
  while (isLetter(peek()) || isDigit(peek())) advance();
  if (_at - start > kLongestIdentifier) {
    _diagnostics.error(token.at,
                       "expected a name of at most " + std::to_string(kLongestIdentifier) + " characters");
  }
}

void Lexer::number(Token& token) {
  token.kind = Token::Kind::Integer;
  const size_t start = _at;
  unsigned base = 10;
  bool digitsAreRight = true;
  if (peek() == '0' && (peek(1) == 'x' || peek(1) == 'X')) {
    base = 16;
    advance();
    advance();
    if (!isHexDigit(peek())) _diagnostics.error(here(), "expected a hexadecimal digit after \"0x\"");
    while (isHexDigit(peek())) advance();
  } else {
    while (isDigit(peek())) advance();
    if (peek() == '.' || peek() == 'e' || peek() == 'E') {
      token.kind = Token::Kind::Float;
      if (peek() == '.') advance();
      while (isDigit(peek())) advance();
      if (peek() == 'e' || peek() == 'E') {
        advance();
        if (peek() == '+' || peek() == '-') advance();
        if (!isDigit(peek())) _diagnostics.error(here(), "expected a digit after the exponent's \"e\"");
        while (isDigit(peek())) advance();
      }
    } else if (_source[start] == '0' && _at - start > 1) {
      base = 8;
    }
  }
  const std::string spelling(_source.substr(start, _at - start));
  if (token.kind == Token::Kind::Integer) {
    for (char c : std::string_view(spelling).substr(base == 16 ? 2 : 0)) {
      const unsigned digit = hexValue(c);
      if (digit >= base) digitsAreRight = false;
      const uint64_t longest = (UINT64_MAX - digit) / base;
      if (token.integer > longest) token.overflow = true;
      token.integer = token.integer * base + digit;
    }
    if (!digitsAreRight)
      _diagnostics.error(token.at, "expected octal digits (0 to 7) after the leading \"0\"");
  }
  // The program never leaves the C locale, so that the point is a point.
  token.number = std::strtod(spelling.c_str(), nullptr);
  if (!isLetter(peek()) && peek() != '.') return;
  _diagnostics.error(here(), isLetter(peek()) ? "expected a space or sign between a number and a name"
                                              : "expected one \".\" at most in a number");
  while (isLetter(peek()) || isDigit(peek()) || peek() == '.') advance();
}

void Lexer::string(Token& token) {
  token.kind = Token::Kind::String;
  const char quote = peek();
  advance();
  while (true) {
    if (atEnd() || peek() == '\n') {
      _diagnostics.error(here(), std::string("expected ") + quote +
                                     " at the end of a string, found the end of the " +
                                     (atEnd() ? "file" : "line"));
      return;
    }
    const char c = peek();
    if (c == quote) {
      advance();
      return;
    }
    if (c == '\\') {
      escape(token.bytes);
    } else {
      if (c == '\0') _diagnostics.error(here(), "expected \"\\0\" where a string has a zero byte");
      token.bytes += c;
      advance();
    }
  }
}

void Lexer::escape(std::string& bytes) {
  const Position start = here();
  advance();
  const char c = peek();
  const auto number = [&](unsigned base, size_t longest) {
    uint32_t value = 0;
    size_t count = 0;
    for (; count < longest && isHexDigit(peek()) && hexValue(peek()) < base; ++count) {
      value = value * base + hexValue(peek());
      advance();
    }
    return std::pair<uint32_t, size_t>(value, count);
  };
  static constexpr std::string_view kLetters = "abfnrtv\\'\"?";
  static constexpr std::string_view kMeanings = "\a\b\f\n\r\t\v\\'\"?";
  if (const size_t index = kLetters.find(c); c != '\0' && index != std::string_view::npos) {
    bytes += kMeanings[index];
    advance();
  } else if (c >= '0' && c <= '7') {
    const uint32_t value = number(8, 3).first;
    if (value > 0xFF) _diagnostics.error(start, "expected an octal escape of at most \\377");
    bytes += static_cast<char>(value);
  } else if (c == 'x' || c == 'X') {
    advance();
    const auto [value, count] = number(16, 2);
    if (count == 0) _diagnostics.error(start, "expected a hexadecimal digit after \"\\x\"");
    bytes += static_cast<char>(value);
  } else if (c == 'u' || c == 'U') {
    const size_t length = c == 'u' ? 4 : 8;
    advance();
    const auto [value, count] = number(16, length);
    if (count != length) {
      _diagnostics.error(start,
                         "expected " + std::to_string(length) + " hexadecimal digits after \"\\" + c + "\"");
    } else if (value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) {
      _diagnostics.error(start, "expected the number of a character, at most 10FFFF and no surrogate");
    } else {
      appendUTF8(value, bytes);
    }
  } else {
    _diagnostics.error(start,
                       "expected an escape: \\a \\b \\f \\n \\r \\t \\v \\\\ \\' \\\" \\? \\0 \\x \\u \\U");
    if (!atEnd() && c != '\n') advance();
  }
}

}  // namespace nvxcore::messagegen
