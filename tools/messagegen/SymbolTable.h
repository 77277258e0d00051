#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "tools/messagegen/Model.h"

namespace nvxcore::messagegen {

/// What a name means. A package is one symbol for all files that declare it.
struct Symbol {
  enum class Kind : uint8_t { Package, Message, Enum, EnumValue, Field, Extension };
  Kind kind = Kind::Package;
  Position at;
  /// The file of the declaration; none for a package, which `files` are in.
  const File* file = nullptr;
  std::set<const File*> files;
  Message* message = nullptr;
  Enum* enumeration = nullptr;
  Field* field = nullptr;
  Symbol* parent = nullptr;
  std::string_view name;
  /// Of a package or message.
  std::map<std::string_view, std::unique_ptr<Symbol>> members;

  bool isScope() const { return kind == Kind::Package || kind == Kind::Message; }
  std::string fullName() const;
};

/// All names of all files, and how a name in a source is found.
class SymbolTable {
 public:
  enum class Wanted : uint8_t { Type, Extension };

  explicit SymbolTable(Diagnostics& diagnostics) : _diagnostics(diagnostics) {}

  /// Adds what the file declares; a name that stands already is an error. Imported files are added first.
  void add(File& file);

  /// The scope of what stands in a message, or at the top of a file.
  Symbol* scopeOf(const File& file, const Message* message) const;
  /// Looks from the scope outwards, as the language says: the first scope that knows a name's first part must
  /// know the rest. What is not there, not visible or not wanted is told, and answered by nothing.
  Symbol* find(const Name& name, const Symbol* scope, const File& file, Wanted wanted);

 private:
  Symbol* declare(Symbol* scope, std::string_view name, Position at, Symbol::Kind kind, const File& file);
  void add(Symbol* scope, Message& message);
  void add(Symbol* scope, Enum& enumeration);
  void add(Symbol* scope, Field& field);
  void see(const File& file, std::set<const File*>& seen) const;
  bool isVisible(const Symbol& symbol, const File& file) const;
  Symbol* member(const Symbol* scope, std::string_view name) const;

  Diagnostics& _diagnostics;
  Symbol _root;
  std::map<const File*, Symbol*> _packages;
  std::map<const Message*, Symbol*> _messages;
  std::map<const File*, std::set<const File*>> _visible;
};

}  // namespace nvxcore::messagegen
