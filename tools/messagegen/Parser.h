#pragma once

#include <functional>
#include <string_view>
#include <utility>

#include "tools/messagegen/Model.h"

namespace nvxcore::messagegen {

/// Reads one source of the proto2 language. What it cannot read it tells, and reads on behind it.
class Parser {
 public:
  /// Of messages within messages, and of values in braces.
  static constexpr int kDeepest = 32;

  Parser(File& file, Diagnostics& diagnostics);
  void parse();

 private:
  /// Ends the statement that is being read.
  struct Failure {};

  bool is(std::string_view text) const { return _token.is(text); }
  bool isIdentifier() const { return _token.kind == Token::Kind::Identifier; }
  bool ended() const { return _token.kind == Token::Kind::End; }
  void advance();
  bool accept(std::string_view text);
  [[noreturn]] void expected(std::string_view what);
  [[noreturn]] void refuse(Position at, std::string message);
  void require(std::string_view symbol);
  Name identifier(std::string_view what);
  /// Joined by ".", with a leading one where `mayLead`.
  Name dottedName(std::string_view what, bool mayLead);
  std::string joinedStrings();
  int64_t integer(std::string_view what, bool mayBeNegative, int64_t least, int64_t most);
  /// The comment of the declaration that begins at the current token.
  Comment leading() const { return _lexer.leadingComment(); }
  /// Adds the comment behind the token that was read last.
  void addTrailing(Comment& comment) const;

  void recover();
  void skipBlock();
  void statements(const std::function<void()>& statement);

  void topLevel();
  void syntaxStatement();
  void importStatement();
  void packageStatement();
  void option(std::vector<Option>& options);
  void bracketedOptions(std::vector<Option>& options);
  void optionNameAndValue(Option& option);
  OptionValue optionValue();
  void aggregate(OptionValue& value, int depth);
  OptionValue aggregateScalar(int depth);

  void message(std::vector<std::unique_ptr<Message>>& messages, Message* parent);
  void messageBody(Message& message);
  void messageStatement(Message& message);
  void field(std::vector<std::unique_ptr<Field>>& fields, std::vector<std::unique_ptr<Message>>& messages,
             Message* scope, const Name* extendee);
  void group(Field& field, std::vector<std::unique_ptr<Message>>& messages, Message* scope);
  void mapField(Message& message);
  void extend(std::vector<std::unique_ptr<Field>>& fields, std::vector<std::unique_ptr<Message>>& messages,
              Message* scope);
  void extensionRanges(Message& message);
  void reserved(std::vector<Range>& ranges, std::vector<Name>& names, int64_t least, int64_t most);
  Range range(int64_t least, int64_t most);
  void enumeration(std::vector<std::unique_ptr<Enum>>& enums, Message* parent);
  void enumStatement(Enum& enumeration);

  File& _file;
  Diagnostics& _diagnostics;
  Lexer _lexer;
  Token _token;
  int _depth = 0;
  bool _sawPackage = false;
  bool _endWasReported = false;
};

}  // namespace nvxcore::messagegen
