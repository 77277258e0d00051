#include "tools/messagegen/Parser.h"

#include "tools/messagegen/Text.h"

namespace nvxcore::messagegen {

Parser::Parser(File& file, Diagnostics& diagnostics)
    : _file(file), _diagnostics(diagnostics), _lexer(file.source, file.number, diagnostics) {
  advance();
}

void Parser::advance() {
  _token = _diagnostics.full() ? Token{Token::Kind::End, _token.at, {}, {}} : _lexer.next();
}

bool Parser::accept(std::string_view text) {
  if (!is(text)) return false;
  advance();
  return true;
}

void Parser::expected(std::string_view what) {
  refuse(_token.at, "expected " + std::string(what) + ", found " + _token.described());
}

void Parser::refuse(Position at, std::string message) {
  _diagnostics.error(at, std::move(message));
  throw Failure();
}

void Parser::require(std::string_view symbol) {
  if (!accept(symbol)) expected("\"" + std::string(symbol) + "\"");
}

Name Parser::identifier(std::string_view what) {
  if (!isIdentifier()) expected(what);
  Name name{std::string(_token.spelling), _token.at};
  advance();
  return name;
}

Name Parser::dottedName(std::string_view what, bool mayLead) {
  Name name{"", _token.at};
  if (mayLead && accept(".")) name.text = ".";
  name.text += identifier(what).text;
  while (accept(".")) {
    name.text += "." + identifier("a name after \".\"").text;
    if (name.text.size() > 4 * Lexer::kLongestIdentifier) refuse(name.at, "expected a shorter name");
  }
  return name;
}

std::string Parser::joinedStrings() {
  if (_token.kind != Token::Kind::String) expected("a string in quotes");
  std::string bytes;
  for (; _token.kind == Token::Kind::String; advance()) bytes += _token.bytes;
  return bytes;
}

int64_t Parser::integer(std::string_view what, bool mayBeNegative, int64_t least, int64_t most) {
  const Position at = _token.at;
  const bool negative = mayBeNegative && accept("-");
  if (_token.kind != Token::Kind::Integer) expected(what);
  const bool fits = !_token.overflow && _token.integer <= static_cast<uint64_t>(INT64_MAX);
  const int64_t value = fits ? static_cast<int64_t>(_token.integer) * (negative ? -1 : 1) : 0;
  if (!fits || value < least || value > most) {
    _diagnostics.error(at, "expected " + std::string(what) + " from " + std::to_string(least) + " to " +
                               std::to_string(most) + ", found " +
                               inQuotes((negative ? "-" : "") + std::string(_token.spelling)));
    advance();
    return least;
  }
  advance();
  return value;
}

void Parser::addTrailing(Comment& comment) const {
  const Comment& trailing = _lexer.trailingComment();
  comment.insert(comment.end(), trailing.begin(), trailing.end());
}

/// Goes behind the end of the statement that failed: its ";" or its block, or before the "}" around it.
void Parser::recover() {
  while (!ended()) {
    if (is("}")) return;
    if (accept(";")) return;
    if (is("{")) {
      skipBlock();
      return;
    }
    advance();
  }
}

/// From its "{" behind its "}".
void Parser::skipBlock() {
  const Position start = _token.at;
  size_t open = 0;
  do {
    if (ended()) {
      if (!std::exchange(_endWasReported, true)) {
        _diagnostics.error(start, "expected \"}\" for this \"{\", found the end of the file");
      }
      return;
    }
    if (is("{")) ++open;
    if (is("}")) --open;
    advance();
  } while (open > 0);
}

/// The statements of a block, from behind its "{" to behind its "}".
void Parser::statements(const std::function<void()>& statement) {
  const Position start = _token.at;
  while (!accept("}")) {
    if (ended()) {
      // Told for the innermost block only.
      if (std::exchange(_endWasReported, true)) throw Failure();
      refuse(start, "expected \"}\" for the block that begins here, found the end of the file");
    }
    if (accept(";")) continue;
    try {
      statement();
    } catch (const Failure&) {
      recover();
    }
  }
}

void Parser::parse() {
  while (!ended()) {
    try {
      topLevel();
    } catch (const Failure&) {
      recover();
      // No block is open at the top.
      while (is("}")) advance();
    }
  }
}

void Parser::topLevel() {
  if (accept(";")) return;
  if (is("syntax")) return syntaxStatement();
  if (is("edition")) refuse(_token.at, "editions are not supported: expected syntax = \"proto2\"");
  if (is("import")) return importStatement();
  if (is("package")) return packageStatement();
  if (is("option")) return option(_file.options);
  if (is("message")) return message(_file.messages, nullptr);
  if (is("enum")) return enumeration(_file.enums, nullptr);
  if (is("extend")) return extend(_file.extensions, _file.messages, nullptr);
  if (is("service")) {
    // No remote calls are made from a schema.
    advance();
    identifier("the service's name");
    if (!is("{")) expected("\"{\"");
    return skipBlock();
  }
  expected(
      "\"message\", \"enum\", \"extend\", \"import\", \"option\", \"package\", \"service\" or \"syntax\"");
}

void Parser::syntaxStatement() {
  _file.comment = leading();
  const bool isFirst = _file.imports.empty() && _file.messages.empty() && _file.enums.empty() &&
                       _file.extensions.empty() && _file.options.empty() && !_sawPackage;
  const Position start = _token.at;
  advance();
  require("=");
  const Position at = _token.at;
  const std::string syntax = joinedStrings();
  if (syntax == "proto3") refuse(at, "proto3 is not supported: expected \"proto2\"");
  if (syntax != "proto2") refuse(at, "expected \"proto2\", found " + inQuotes(syntax));
  if (!isFirst) _diagnostics.error(start, "expected the syntax before everything else");
  require(";");
}

void Parser::importStatement() {
  advance();
  Import import;
  if (is("weak"))
    refuse(_token.at, "\"import weak\" is not supported: expected a string in quotes or \"public\"");
  import.isPublic = accept("public");
  import.path.at = _token.at;
  import.path.text = joinedStrings();
  require(";");
  _file.imports.push_back(std::move(import));
}

void Parser::packageStatement() {
  const Position at = _token.at;
  advance();
  Name package = dottedName("the package's name", false);
  if (_sawPackage) refuse(at, "expected one package in a file");
  _sawPackage = true;
  _file.package = std::move(package);
  require(";");
}

void Parser::extend(std::vector<std::unique_ptr<Field>>& fields,
                    std::vector<std::unique_ptr<Message>>& messages, Message* scope) {
  advance();
  const Name extendee = dottedName("the name of the message to extend", true);
  require("{");
  statements([&] { field(fields, messages, scope, &extendee); });
}

Range Parser::range(int64_t least, int64_t most) {
  Range range;
  range.at = _token.at;
  range.first = integer("a number", least < 0, least, most);
  range.last = range.first;
  if (accept("to")) {
    if (accept("max")) {
      range.last = most;
      range.toMax = true;
    } else {
      range.last = integer("a number or \"max\"", least < 0, least, most);
    }
    if (range.last < range.first) refuse(range.at, "expected the range's end not below its start");
  }
  return range;
}

/// What stands behind the word "reserved".
void Parser::reserved(std::vector<Range>& ranges, std::vector<Name>& names, int64_t least, int64_t most) {
  if (_token.kind == Token::Kind::String) {
    do {
      const Position at = _token.at;
      names.push_back({joinedStrings(), at});
      if (!nvxcore::messagegen::isIdentifier(names.back().text)) {
        _diagnostics.error(at, "expected a name, found " + inQuotes(names.back().text));
      }
    } while (accept(","));
  } else if (_token.kind == Token::Kind::Integer || is("-")) {
    do {
      ranges.push_back(range(least, most));
    } while (accept(","));
  } else {
    expected("numbers or names in quotes");
  }
  require(";");
}

void Parser::enumeration(std::vector<std::unique_ptr<Enum>>& enums, Message* parent) {
  auto result = std::make_unique<Enum>();
  result->comment = leading();
  result->file = &_file;
  result->parent = parent;
  advance();
  result->name = identifier("the enum's name");
  require("{");
  addTrailing(result->comment);
  Enum& enumeration = *result;
  enums.push_back(std::move(result));
  statements([&] { enumStatement(enumeration); });
}

void Parser::enumStatement(Enum& enumeration) {
  Comment comment = leading();
  const Token first = _token;
  // A value may bear the name of a statement: only its "=" tells.
  Name name = identifier("an enum value, \"option\" or \"reserved\"");
  if (!is("=")) {
    if (first.is("option")) {
      Option option;
      optionNameAndValue(option);
      require(";");
      enumeration.options.push_back(std::move(option));
      return;
    }
    if (first.is("reserved")) {
      return reserved(enumeration.reservedRanges, enumeration.reservedNames, INT32_MIN, INT32_MAX);
    }
    expected("\"=\" and the value's number");
  }
  advance();
  EnumValue value;
  value.name = std::move(name);
  value.comment = std::move(comment);
  value.number = static_cast<int32_t>(integer("the value's number", true, INT32_MIN, INT32_MAX));
  bracketedOptions(value.options);
  require(";");
  addTrailing(value.comment);
  enumeration.values.push_back(std::move(value));
}

}  // namespace nvxcore::messagegen
