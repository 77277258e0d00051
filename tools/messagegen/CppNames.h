#pragma once

#include <string>

#include "tools/messagegen/Model.h"

/// How the generated code of a file writes types and values.
namespace nvxcore::messagegen {

class CppNames {
 public:
  explicit CppNames(const File& file) : _file(file), _isInLibrary(file.cppNamespace == "nvxcore") {}

  /// A name of the library's.
  std::string ofRuntime(std::string_view name) const {
    return _isInLibrary ? std::string(name) : "::nvxcore::" + std::string(name);
  }
  std::string of(const Message& message) const { return qualified(*message.file, message.className); }
  std::string of(const Enum& enumeration) const {
    return qualified(*enumeration.file, enumeration.emittedName);
  }
  std::string rootOf(const File& file) const { return qualified(file, file.rootName); }

  /// The type of a singular value: `int32_t`, an enum, NVXx_PBString, Data, a message's class.
  std::string valueType(const Field& field) const;
  /// The default of a scalar or enum as an expression; empty where all its bits are zero.
  std::string defaultValue(const Field& field) const;

 private:
  std::string qualified(const File& file, const std::string& name) const {
    return file.cppNamespace == _file.cppNamespace ? name : "::" + file.cppNamespace + "::" + name;
  }

  const File& _file;
  bool _isInLibrary;
};

}  // namespace nvxcore::messagegen
