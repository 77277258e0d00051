#include <utility>

#include "tools/messagegen/Parser.h"

namespace nvxcore::messagegen {

void Parser::option(std::vector<Option>& options) {
  advance();
  Option option;
  optionNameAndValue(option);
  require(";");
  options.push_back(std::move(option));
}

void Parser::bracketedOptions(std::vector<Option>& options) {
  if (!accept("[")) return;
  do {
    Option option;
    optionNameAndValue(option);
    options.push_back(std::move(option));
  } while (accept(","));
  if (!is("]")) expected("\",\" or \"]\"");
  advance();
}

void Parser::optionNameAndValue(Option& option) {
  do {
    OptionNamePart part;
    if (accept("(")) {
      part.isExtension = true;
      part.name = dottedName("an option's name", true);
      require(")");
    } else {
      part.name = identifier("an option's name");
    }
    if (option.name.size() >= kDeepest) refuse(part.name.at, "expected a shorter option name");
    option.name.push_back(std::move(part));
  } while (accept("."));
  require("=");
  option.value = optionValue();
}

OptionValue Parser::optionValue() {
  if (is("{")) {
    OptionValue value;
    aggregate(value, 1);
    return value;
  }
  return aggregateScalar(0);
}

/// A name, number or string. With a depth of 0 no value in braces may stand in its place.
OptionValue Parser::aggregateScalar(int depth) {
  OptionValue value;
  value.at = _token.at;
  if (depth > 0 && (is("{") || is("<"))) {
    aggregate(value, depth + 1);
    return value;
  }
  value.negative = accept("-");
  switch (_token.kind) {
    case Token::Kind::Identifier:
      if (value.negative && !is("inf") && !is("nan")) expected("a number, \"inf\" or \"nan\" after \"-\"");
      value.text = std::string(_token.spelling);
      advance();
      return value;
    case Token::Kind::Integer:
    case Token::Kind::Float:
      value.kind =
          _token.kind == Token::Kind::Integer ? OptionValue::Kind::Integer : OptionValue::Kind::Float;
      value.integer = _token.integer;
      value.overflow = _token.overflow;
      value.number = _token.number;
      value.text = std::string(_token.spelling);
      advance();
      return value;
    case Token::Kind::String:
      if (value.negative) break;
      value.kind = OptionValue::Kind::String;
      value.text = joinedStrings();
      return value;
    default:
      break;
  }
  expected("a value");
}

/// Entries in braces, in the published text format: `{ name: value, name { ... } [extension]: value }`.
void Parser::aggregate(OptionValue& value, int depth) {
  value.kind = OptionValue::Kind::Aggregate;
  value.at = _token.at;
  if (depth > kDeepest)
    refuse(_token.at, "expected values at most " + std::to_string(kDeepest) + " deep in each other");
  const std::string_view close = is("<") ? ">" : "}";
  advance();
  while (!accept(close)) {
    if (!isIdentifier() && !is("[")) expected("a name or \"" + std::string(close) + "\"");
    AggregateField field;
    if (accept("[")) {
      field.isExtension = true;
      field.name = dottedName("an extension's name", false);
      require("]");
    } else {
      field.name = identifier("a name");
    }
    const bool colon = accept(":");
    if (!colon && !is("{") && !is("<")) expected("\":\" or \"{\"");
    if (colon && accept("[")) {
      if (!accept("]")) {
        do {
          field.values.push_back(aggregateScalar(depth));
        } while (accept(","));
        if (!is("]")) expected("\",\" or \"]\"");
        advance();
      }
    } else {
      field.values.push_back(aggregateScalar(depth));
    }
    value.fields.push_back(std::move(field));
    if (!accept(",")) accept(";");
  }
}

}  // namespace nvxcore::messagegen
