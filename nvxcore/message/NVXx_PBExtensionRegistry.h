#pragma once

#include <cstdint>
#include <unordered_map>

#include "nvxcore/platform/Export.h"

namespace nvxcore {

class NVXx_PBDescriptor;
class NVXx_PBExtensionField;
struct PBClass;

/// Which extensions are known while parsing: those of a schema file and of the files that it imports, or a
/// set that a host puts together. Filled by one thread; any number may read it then.
class NVXCORE_EXPORT NVXx_PBExtensionRegistry {
 public:
  using ExtensionMap = std::unordered_map<int32_t, NVXx_PBExtensionField*>;

  NVXx_PBExtensionRegistry() = default;

  /// Null is ignored; a later extension of the same class and number replaces the earlier one.
  void addExtension(NVXx_PBExtensionField* extension);
  void addExtensions(const NVXx_PBExtensionRegistry* other);
  /// By number; created on need.
  ExtensionMap& extensionMapForContainingType(const NVXx_PBDescriptor& containingType);
  /// Null when there is none.
  NVXx_PBExtensionField* getExtension(const NVXx_PBDescriptor& containingType, int32_t fieldNumber) const;
  NVXx_PBExtensionField* extensionForDescriptor(const NVXx_PBDescriptor& containingType,
                                                int32_t fieldNumber) const {
    return getExtension(containingType, fieldNumber);
  }
  NVXx_PBExtensionField* getExtension(const PBClass& containingClass, int32_t fieldNumber) const {
    const auto found = _classMap.find(&containingClass);
    if (found == _classMap.end()) return nullptr;
    const auto field = found->second.find(fieldNumber);
    return field == found->second.end() ? nullptr : field->second;
  }

 private:
  std::unordered_map<const PBClass*, ExtensionMap> _classMap;
};

}  // namespace nvxcore
