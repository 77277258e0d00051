#include "tools/messagegen/SymbolTable.h"

#include <algorithm>
#include <utility>

namespace nvxcore::messagegen {

namespace {

/// Takes the first part from a name with points.
std::string_view takePart(std::string_view& name) {
  const size_t point = std::min(name.find('.'), name.size());
  const std::string_view part = name.substr(0, point);
  name.remove_prefix(std::min(point + 1, name.size()));
  return part;
}

std::string_view kindName(Symbol::Kind kind) {
  switch (kind) {
    case Symbol::Kind::Package:
      return "a package";
    case Symbol::Kind::Message:
      return "a message";
    case Symbol::Kind::Enum:
      return "an enum";
    case Symbol::Kind::EnumValue:
      return "an enum value";
    case Symbol::Kind::Field:
      return "a field";
    case Symbol::Kind::Extension:
      return "an extension";
  }
  return "";
}

bool isWanted(const Symbol& symbol, SymbolTable::Wanted wanted) {
  if (wanted == SymbolTable::Wanted::Extension) return symbol.kind == Symbol::Kind::Extension;
  return symbol.kind == Symbol::Kind::Message || symbol.kind == Symbol::Kind::Enum;
}

}  // namespace

std::string Symbol::fullName() const {
  if (!parent) return "";
  std::string result = parent->fullName();
  if (!result.empty()) result += '.';
  return result.append(name);
}

Symbol* SymbolTable::declare(Symbol* scope, std::string_view name, Position at, Symbol::Kind kind,
                             const File& file) {
  std::unique_ptr<Symbol>& slot = scope->members[name];
  if (slot) {
    const bool bothPackages = slot->kind == Symbol::Kind::Package && kind == Symbol::Kind::Package;
    if (!bothPackages) {
      std::string where;
      if (slot->file) {
        where = " at " + _diagnostics.fileName(slot->at.file) + ":" + std::to_string(slot->at.line);
      }
      _diagnostics.error(at, "expected a new name: " + inQuotes(slot->fullName()) + " is already " +
                                 std::string(kindName(slot->kind)) + where);
      return nullptr;
    }
    return slot.get();
  }
  slot = std::make_unique<Symbol>();
  slot->kind = kind;
  slot->at = at;
  slot->file = kind == Symbol::Kind::Package ? nullptr : &file;
  slot->parent = scope;
  slot->name = name;
  return slot.get();
}

void SymbolTable::add(File& file) {
  Symbol* scope = &_root;
  std::string_view rest = file.package.text;
  while (!rest.empty()) {
    Symbol* package = declare(scope, takePart(rest), file.package.at, Symbol::Kind::Package, file);
    // Its names go where no other file's are taken for them.
    if (!package) break;
    package->files.insert(&file);
    scope = package;
  }
  _packages[&file] = scope;
  std::set<const File*>& seen = _visible[&file];
  seen.insert(&file);
  for (const Import& import : file.imports) {
    if (import.file) see(*import.file, seen);
  }
  for (const auto& message : file.messages) add(scope, *message);
  for (const auto& enumeration : file.enums) add(scope, *enumeration);
  for (const auto& extension : file.extensions) add(scope, *extension);
}

/// A file, and what it imports publicly.
void SymbolTable::see(const File& file, std::set<const File*>& seen) const {
  if (!seen.insert(&file).second) return;
  for (const Import& import : file.imports) {
    if (import.isPublic && import.file) see(*import.file, seen);
  }
}

void SymbolTable::add(Symbol* scope, Message& message) {
  Symbol* symbol = declare(scope, message.name.text, message.name.at, Symbol::Kind::Message, *message.file);
  // The members of one that is there twice stay unknown: nothing refers to them.
  if (!symbol) return;
  symbol->message = &message;
  _messages[&message] = symbol;
  for (const auto& nested : message.messages) add(symbol, *nested);
  for (const auto& enumeration : message.enums) add(symbol, *enumeration);
  for (const auto& field : message.fields) add(symbol, *field);
  for (const auto& extension : message.extensions) add(symbol, *extension);
}

void SymbolTable::add(Symbol* scope, Enum& enumeration) {
  Symbol* symbol =
      declare(scope, enumeration.name.text, enumeration.name.at, Symbol::Kind::Enum, *enumeration.file);
  if (symbol) symbol->enumeration = &enumeration;
  // Values stand beside their enum, as in C.
  for (const EnumValue& value : enumeration.values) {
    declare(scope, value.name.text, value.name.at, Symbol::Kind::EnumValue, *enumeration.file);
  }
}

void SymbolTable::add(Symbol* scope, Field& field) {
  const auto kind = field.isExtension() ? Symbol::Kind::Extension : Symbol::Kind::Field;
  if (Symbol* symbol = declare(scope, field.name.text, field.name.at, kind, *field.file))
    symbol->field = &field;
}

Symbol* SymbolTable::scopeOf(const File& file, const Message* message) const {
  const auto found = _messages.find(message);
  if (found != _messages.end()) return found->second;
  const auto package = _packages.find(&file);
  return package == _packages.end() ? nullptr : package->second;
}

bool SymbolTable::isVisible(const Symbol& symbol, const File& file) const {
  const std::set<const File*>& seen = _visible.at(&file);
  if (symbol.kind != Symbol::Kind::Package) return seen.count(symbol.file) != 0;
  return std::any_of(symbol.files.begin(), symbol.files.end(),
                     [&](const File* one) { return seen.count(one) != 0; });
}

Symbol* SymbolTable::member(const Symbol* scope, std::string_view name) const {
  const auto found = scope->members.find(name);
  return found == scope->members.end() ? nullptr : found->second.get();
}

Symbol* SymbolTable::find(const Name& name, const Symbol* scope, const File& file, Wanted wanted) {
  std::string_view rest = name.text;
  const std::string_view what = wanted == Wanted::Type ? "a message or enum" : "an extension";
  const auto missing = [&](const Symbol* hidden) -> Symbol* {
    std::string message = "expected the name of " + std::string(what) + ", found " + inQuotes(name.text);
    if (hidden && hidden->file) {
      message += ", which stands in " + inQuotes(hidden->file->path) + ": expected an import of it";
    }
    _diagnostics.error(name.at, std::move(message));
    return nullptr;
  };
  const bool absolute = !rest.empty() && rest.front() == '.';
  if (absolute) rest.remove_prefix(1);
  const std::string_view first = takePart(rest);
  const Symbol* hidden = nullptr;
  Symbol* found = nullptr;
  for (const Symbol* at = absolute ? &_root : scope; at; at = at->parent) {
    Symbol* candidate = member(at, first);
    // Alone, only what is wanted counts; before a point, only what has members.
    if (!candidate || (rest.empty() ? !isWanted(*candidate, wanted) : !candidate->isScope())) continue;
    if (isVisible(*candidate, file)) {
      found = candidate;
      break;
    }
    if (!hidden) hidden = candidate;
  }
  while (found && !rest.empty()) {
    found = found->isScope() ? member(found, takePart(rest)) : nullptr;
    if (found && !isVisible(*found, file)) {
      hidden = found;
      found = nullptr;
    }
  }
  if (!found) return missing(hidden);
  if (!isWanted(*found, wanted)) {
    _diagnostics.error(name.at, "expected the name of " + std::string(what) + ", found " +
                                    inQuotes(name.text) + ", which is " + std::string(kindName(found->kind)));
    return nullptr;
  }
  return found;
}

}  // namespace nvxcore::messagegen
