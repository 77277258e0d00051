#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "nvxcore/platform/Export.h"

namespace nvxcore {

/// One value of an enum. Its name is the enum's name followed by the value's own, or empty.
class NVXCORE_EXPORT NVXx_PBEnumValueDescriptor {
 public:
  NVXx_PBEnumValueDescriptor(std::string name, int32_t number) : _name(std::move(name)), _number(number) {}
  const std::string& name() const { return _name; }
  int32_t number() const { return _number; }

 private:
  std::string _name;
  int32_t _number;
};

/// An enum at run time: built at first use, kept for the life of the process, never changed. Any thread.
class NVXCORE_EXPORT NVXx_PBEnumDescriptor {
 public:
  NVXx_PBEnumDescriptor(const NVXx_PBEnumDescriptor&) = delete;
  NVXx_PBEnumDescriptor& operator=(const NVXx_PBEnumDescriptor&) = delete;

  /// Looks among the files that are in use (of which a class, an enum or the registry was reached) and,
  /// however far, those that they import; null when there is none of that name.
  static const NVXx_PBEnumDescriptor* descriptorForName(std::string_view name);

  const std::string& name() const { return _name; }
  const std::vector<NVXx_PBEnumValueDescriptor>& values() const { return _values; }
  /// The first of the number or of the full name; null when there is none.
  const NVXx_PBEnumValueDescriptor* enumValueWithNumber(int32_t number) const;
  const NVXx_PBEnumValueDescriptor* enumValueWithName(std::string_view name) const;
  /// The schema's name of the first value with the number; empty where there is no such value or it has no
  /// name.
  std::string textFormatNameForEnumValue(int32_t number) const;
  std::string textFormatNameForValue(int32_t number) const { return textFormatNameForEnumValue(number); }
  /// What says whether a number is one that the enum takes.
  auto enumVerifier() const {
    return [this](int32_t number) { return isValidValue(number); };
  }
  bool isValidValue(int32_t number) const {
    if (static_cast<uint32_t>(number) < 64) return _low >> number & 1;
    return isValidElsewhere(number);
  }

 private:
  friend struct PBFileAccess;
  NVXx_PBEnumDescriptor() = default;
  bool isValidElsewhere(int32_t number) const;

  struct Range {
    int32_t first;
    int32_t last;
  };
  std::string _name;
  std::vector<NVXx_PBEnumValueDescriptor> _values;
  std::vector<Range> _valid;  // ascending, apart from each other
  uint64_t _low = 0;          // bit n: n is valid
  const char* _extraTextFormatInfo = nullptr;
  const char* _extraTextFormatEnd = nullptr;
};

/// The base of the small classes that the generator writes, one for each enum, named by the enum's full name
/// followed by EnumDescriptor. Each has enumDescriptor().
struct NVXx_PBGeneratedEnumDescriptor {};

}  // namespace nvxcore
