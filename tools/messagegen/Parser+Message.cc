#include <array>
#include <optional>
#include <utility>

#include "tools/messagegen/Parser.h"
#include "tools/messagegen/Text.h"

namespace nvxcore::messagegen {

namespace {

std::optional<FieldType> builtInType(std::string_view word) {
  static constexpr std::array<std::pair<std::string_view, FieldType>, 15> kTypes{{
      {"bool", FieldType::Bool},
      {"fixed32", FieldType::Fixed32},
      {"sfixed32", FieldType::SFixed32},
      {"float", FieldType::Float},
      {"fixed64", FieldType::Fixed64},
      {"sfixed64", FieldType::SFixed64},
      {"double", FieldType::Double},
      {"int32", FieldType::Int32},
      {"int64", FieldType::Int64},
      {"sint32", FieldType::SInt32},
      {"sint64", FieldType::SInt64},
      {"uint32", FieldType::UInt32},
      {"uint64", FieldType::UInt64},
      {"bytes", FieldType::Data},
      {"string", FieldType::String},
  }};
  for (const auto& [name, type] : kTypes) {
    if (name == word) return type;
  }
  return std::nullopt;
}

/// `map<string, int32> by_name` has the entry ByNameEntry.
std::string entryName(std::string_view field) {
  std::string name;
  bool raise = true;
  for (char c : field) {
    if (c == '_') {
      raise = true;
    } else {
      name += raise ? toUpper(c) : c;
      raise = false;
    }
  }
  return name + "Entry";
}

}  // namespace

void Parser::message(std::vector<std::unique_ptr<Message>>& messages, Message* parent) {
  auto result = std::make_unique<Message>();
  result->comment = leading();
  result->file = &_file;
  result->parent = parent;
  advance();
  result->name = identifier("the message's name");
  if (!is("{")) expected("\"{\"");
  Message& message = *result;
  messages.push_back(std::move(result));
  messageBody(message);
}

/// From "{" behind its "}".
void Parser::messageBody(Message& message) {
  if (_depth >= kDeepest) {
    _diagnostics.error(_token.at,
                       "expected messages at most " + std::to_string(kDeepest) + " deep in each other");
    skipBlock();
    return;
  }
  require("{");
  addTrailing(message.comment);
  ++_depth;
  try {
    statements([&] { messageStatement(message); });
  } catch (...) {
    --_depth;
    throw;
  }
  --_depth;
}

void Parser::messageStatement(Message& message) {
  if (is("message")) return this->message(message.messages, &message);
  if (is("enum")) return enumeration(message.enums, &message);
  if (is("extend")) return extend(message.extensions, message.messages, &message);
  if (is("option")) return option(message.options);
  if (is("extensions")) return extensionRanges(message);
  if (is("reserved")) {
    advance();
    return reserved(message.reservedRanges, message.reservedNames, 1, kMaximumFieldNumber);
  }
  if (is("oneof")) {
    const Position at = _token.at;
    advance();
    const std::string name = isIdentifier() ? " " + std::string(_token.spelling) : std::string();
    refuse(at, "oneof" + name + " is not supported: expected its fields as optional ones");
  }
  if (is("map")) return mapField(message);
  field(message.fields, message.messages, &message, nullptr);
}

void Parser::field(std::vector<std::unique_ptr<Field>>& fields,
                   std::vector<std::unique_ptr<Message>>& messages, Message* scope, const Name* extendee) {
  auto result = std::make_unique<Field>();
  Field& field = *result;
  field.comment = leading();
  field.file = &_file;
  field.scope = scope;
  field.labelAt = _token.at;
  if (extendee) field.extendeeName = *extendee;
  if (accept("optional")) {
    field.label = Label::Optional;
  } else if (is("required")) {
    if (extendee) refuse(_token.at, "expected \"optional\" or \"repeated\": an extension is never required");
    advance();
    field.label = Label::Required;
  } else if (accept("repeated")) {
    field.label = Label::Repeated;
  } else {
    expected(extendee ? "\"optional\" or \"repeated\""
                      : "\"required\", \"optional\" or \"repeated\" before a field, or another declaration");
  }
  field.typeName.at = _token.at;
  if (is(".")) {
    field.typeName = dottedName("a type", true);
  } else {
    const Name word = identifier("a type");
    if (word.text == "group" && isIdentifier()) {
      group(field, messages, scope);
      fields.push_back(std::move(result));
      return;
    }
    if (word.text == "map" && is("<")) refuse(word.at, "expected no label before a map");
    const std::optional<FieldType> type = is(".") ? std::nullopt : builtInType(word.text);
    if (type) {
      field.type = *type;
      field.typeName.text.clear();
    } else {
      field.typeName = word;
      while (accept(".")) {
        field.typeName.text += "." + identifier("a name after \".\"").text;
        if (field.typeName.text.size() > 4 * Lexer::kLongestIdentifier)
          refuse(word.at, "expected a shorter name");
      }
    }
  }
  field.name = identifier("the field's name");
  if (!is("=")) expected("\"=\" and the field's number");
  advance();
  field.numberAt = _token.at;
  // Whether the number fits its message is told once that is known.
  field.number = integer("the field's number", false, 1, kMaximumMessageSetNumber);
  bracketedOptions(field.options);
  if (!is(";")) expected(field.options.empty() ? "\"[\" or \";\"" : "\";\"");
  advance();
  addTrailing(field.comment);
  fields.push_back(std::move(result));
}

/// A field and the message that is its type. Its name is that of the message, in lower case.
void Parser::group(Field& field, std::vector<std::unique_ptr<Message>>& messages, Message* scope) {
  auto result = std::make_unique<Message>();
  Message& message = *result;
  message.file = &_file;
  message.parent = scope;
  message.isGroup = true;
  message.comment = field.comment;
  message.name = identifier("the group's name");
  if (!isUpper(message.name.text[0])) {
    _diagnostics.error(message.name.at, "expected a group's name to begin with a capital letter");
  }
  field.type = FieldType::Group;
  field.typeName = message.name;
  field.name = message.name;
  for (char& c : field.name.text) c = toLower(c);
  field.message = &message;
  if (!is("=")) expected("\"=\" and the group's number");
  advance();
  field.numberAt = _token.at;
  field.number = integer("the group's number", false, 1, kMaximumMessageSetNumber);
  bracketedOptions(field.options);
  if (!is("{")) expected(field.options.empty() ? "\"[\" or \"{\"" : "\"{\"");
  messages.push_back(std::move(result));
  messageBody(message);
}

void Parser::mapField(Message& message) {
  auto entry = std::make_unique<Message>();
  auto field = std::make_unique<Field>();
  field->comment = leading();
  field->labelAt = _token.at;
  field->file = &_file;
  field->scope = &message;
  field->label = Label::Repeated;
  field->type = FieldType::Message;
  advance();
  // A field of a type named map has no label before it either.
  if (!is("<")) expected("\"<\" after \"map\"");
  advance();
  const auto part = [&](std::string_view name, int64_t number) {
    auto half = std::make_unique<Field>();
    half->file = &_file;
    half->scope = entry.get();
    half->name = {std::string(name), _token.at};
    half->number = number;
    half->numberAt = half->labelAt = _token.at;
    half->typeName =
        dottedName(number == 1 ? "the type of the map's keys" : "the type of the map's values", true);
    if (const auto type = builtInType(half->typeName.text)) {
      half->type = *type;
      half->typeName.text.clear();
    }
    return half;
  };
  entry->fields.push_back(part("key", 1));
  const Field& key = *entry->fields.front();
  if (!key.typeName.text.empty() || key.type == FieldType::Float || key.type == FieldType::Double ||
      key.type == FieldType::Data) {
    _diagnostics.error(key.name.at, "expected an integer type, \"bool\" or \"string\" for a map's keys");
  }
  require(",");
  entry->fields.push_back(part("value", 2));
  require(">");
  field->name = identifier("the map's name");
  if (!is("=")) expected("\"=\" and the map's number");
  advance();
  field->numberAt = _token.at;
  field->number = integer("the map's number", false, 1, kMaximumFieldNumber);
  bracketedOptions(field->options);
  require(";");
  addTrailing(field->comment);
  entry->name = {entryName(field->name.text), field->name.at};
  entry->file = &_file;
  entry->parent = &message;
  entry->isMapEntry = true;
  field->message = entry.get();
  field->typeName = entry->name;
  message.messages.push_back(std::move(entry));
  message.fields.push_back(std::move(field));
}

void Parser::extensionRanges(Message& message) {
  advance();
  do {
    Range range = this->range(1, kMaximumMessageSetNumber);
    message.extensionRanges.push_back(range);
  } while (accept(","));
  // Of no use to the runtime.
  std::vector<Option> options;
  bracketedOptions(options);
  require(";");
}

}  // namespace nvxcore::messagegen
