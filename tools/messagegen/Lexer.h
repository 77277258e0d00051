#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/messagegen/Diagnostics.h"

namespace nvxcore::messagegen {

/// The lines of a comment without its marks.
using Comment = std::vector<std::string>;

struct Token {
  enum class Kind : uint8_t { Identifier, Integer, Float, String, Symbol, End };

  Kind kind = Kind::End;
  Position at;
  /// As it stands in the source; a view into it.
  std::string_view spelling;
  /// The bytes of a string, its escapes resolved.
  std::string bytes;
  /// The value of an integer. With `overflow` it needs more than 64 bits.
  uint64_t integer = 0;
  bool overflow = false;
  /// The value of a float, or of an integer as one.
  double number = 0;

  bool is(std::string_view symbolOrWord) const {
    return (kind == Kind::Symbol || kind == Kind::Identifier) && spelling == symbolOrWord;
  }
  /// For messages: the token, or "end of file".
  std::string described() const;
};

/// Cuts a source into tokens, one at a time, and keeps the comments between them. `source` outlives it.
class Lexer {
 public:
  static constexpr size_t kLongestIdentifier = 200;

  Lexer(std::string_view source, uint32_t file, Diagnostics& diagnostics);

  /// The next token; after the last one, End for ever.
  Token next();

  /// The comment that stands right before the token that `next` gave last.
  const Comment& leadingComment() const { return _leading; }
  /// The comment that stood behind the token before that one, on its line.
  const Comment& trailingComment() const { return _trailing; }

 private:
  struct Block {
    uint32_t firstLine = 0;
    uint32_t lastLine = 0;
    /// Made of lines that begin with two slashes: the next such line joins it.
    bool ofLines = false;
    Comment lines;
  };

  char peek(size_t ahead = 0) const { return _at + ahead < _source.size() ? _source[_at + ahead] : '\0'; }
  bool atEnd() const { return _at >= _source.size(); }
  void advance();
  Position here() const { return {_file, _line, _column}; }

  void skipSpaceAndComments(std::vector<Block>& blocks);
  void lineComment(std::vector<Block>& blocks);
  void blockComment(std::vector<Block>& blocks);
  void keepComments(std::vector<Block>& blocks, uint32_t tokenLine, bool atEndOfFile);
  void identifier(Token& token);
  void number(Token& token);
  void string(Token& token);
  void escape(std::string& bytes);

  std::string_view _source;
  size_t _at = 0;
  uint32_t _file;
  uint32_t _line = 1;
  uint32_t _column = 1;
  uint32_t _lastTokenLine = 0;
  Diagnostics& _diagnostics;
  Comment _leading;
  Comment _trailing;
};

}  // namespace nvxcore::messagegen
