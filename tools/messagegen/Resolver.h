#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tools/messagegen/SymbolTable.h"

namespace nvxcore::messagegen {

/// Gives names their meaning, checks what the language asks, and settles what the tables need: class names,
/// accessors, has-indexes, places in storage, defaults, options.
class Resolver {
 public:
  static constexpr size_t kLongestCppName = 250;
  static constexpr int64_t kLargestHasIndex = 65535;

  explicit Resolver(Diagnostics& diagnostics) : _diagnostics(diagnostics), _symbols(diagnostics) {}

  /// Files with imported ones before those that import them. All errors are told.
  void resolve(const std::vector<std::unique_ptr<File>>& files);

 private:
  using Apply = std::function<void(const Option&)>;

  void error(Position at, std::string message) { _diagnostics.error(at, std::move(message)); }

  // Options. A name is that of a built-in option with "(nvxcore.)" around it, or of the language's own.
  /// Calls what stands for each option's name; a built-in one that is not there is an error, and so is a
  /// repeated one unless it is named in `repeatable`. Answers the others.
  std::vector<const Option*> applyOptions(const std::vector<Option>& options, std::string_view level,
                                          const std::map<std::string, Apply>& known,
                                          std::string_view repeatable = "");
  std::string stringValue(const Option& option);
  /// A string that is a name in C++, or empty where that is allowed.
  std::string nameValue(const Option& option, bool mayBeEmpty);
  std::string namespaceValue(const Option& option);
  bool boolValue(const Option& option);
  int64_t integerValue(const OptionValue& value, std::string_view what, int64_t least, int64_t most);
  void languageOptions(const std::vector<const Option*>& options, std::string_view level,
                       const std::vector<std::string_view>& names);

  // Resolver.cc
  void nameFile(File& file);
  void nameMessage(Message& message);
  void nameEnum(Enum& enumeration);
  /// The name of a class, function or constant in C++: one of each in a namespace.
  void claim(const std::string& scope, const std::string& name, Position at, std::string_view what);
  std::string joinedName(const Message* parent, const std::string& name) const;
  void retire(Message& message, const Option& option);
  void validNumbers(Enum& enumeration, const Option& option);
  void checkEnum(Enum& enumeration);
  void checkRanges(std::vector<Range> ranges, std::string_view what);
  void checkMessage(Message& message);
  void checkNumbers(Message& message);

  // Resolver+Fields.cc
  void eachField(File& file, const std::function<void(Field&, const Symbol*)>& visit);
  void eachField(Message& message, const std::function<void(Field&, const Symbol*)>& visit);
  void linkField(Field& field, const Symbol* scope);
  void linkExtension(Field& field, const Symbol* scope);
  void fieldOptions(Field& field);
  void defaultValue(Field& field, const OptionValue& value);
  const EnumValue* enumValue(const Enum& enumeration, std::string_view name);
  void enumDefault(Field& field, const OptionValue& value);

  // Resolver+FieldOptions.cc
  /// Adds the option as it stands in serialised field options. False where its name or value is wrong.
  bool standardFieldOption(const Option& option, std::string& bytes);
  void customFieldOptions(Field& field, const Symbol* scope);
  void customFieldOption(Field& field, const Field& extension, const Option& option, const Symbol* scope);
  void encodePart(const Field& option, const Option& statement, size_t part, const Symbol* scope,
                  const File& file, std::string& bytes);
  void encodeAggregate(const Message& message, const OptionValue& value, const Symbol* scope,
                       const File& file, std::string& bytes);
  void encodeValue(const Field& option, const OptionValue& value, const Symbol* scope, const File& file,
                   std::string& bytes);
  const Field* optionMember(const Message& message, const Name& name, bool isExtension, const Symbol* scope,
                            const File& file);

  // Layout.cc
  void layOut(Message& message);
  void nameAccessors(Message& message);
  void nameExtensions(const std::vector<std::unique_ptr<Field>>& extensions);
  void giveHasIndexes(Message& message);
  void giveOffsets(Message& message);
  void giveTextFormatInfo(Message& message);

  Diagnostics& _diagnostics;
  SymbolTable _symbols;
  std::map<std::string, std::map<std::string, Position>> _claimed;
  std::map<const Message*, std::map<int64_t, const Field*>> _extensionNumbers;
  std::map<const Enum*, std::map<std::string_view, const EnumValue*>> _enumValues;
  std::map<const Message*, std::map<std::string_view, const Field*>> _members;
};

/// True for `(nvxcore.accessor)` and its like.
bool isBuiltInOption(const Option& option);

/// The bits of a scalar option value or default; nothing where it does not fit the type, which `expected`
/// then tells.
bool scalarBits(FieldType type, const OptionValue& value, uint64_t& bits, std::string& expected);

}  // namespace nvxcore::messagegen
