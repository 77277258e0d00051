#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>

#include "nvxcore/message/NVXx_PBTable.h"
#include "nvxcore/platform/Export.h"

namespace nvxcore {

class NVXx_PBEnumDescriptor;
class NVXx_PBExtensionField;
class NVXx_PBExtensionRegistry;
struct PBClass;

/// A schema file at run time: the root class's side of it. Its one word of memory is all zero until first
/// use, when the tables are read; what is built lives as long as the program. Any thread.
class NVXCORE_EXPORT PBFile {
 public:
  constexpr PBFile() = default;
  PBFile(const PBFile&) = delete;
  PBFile& operator=(const PBFile&) = delete;

  /// What a generated root's `file()` answers.
  const PBFile& opened(const PBFileHeader* tables, PBLinkFunction link) {
    if (!_state.load(std::memory_order_acquire)) [[unlikely]]
      open(tables, link);
    return *this;
  }

  const PBClass& messageClass(uint32_t index) const {
    const PBClass* found =
        _state.load(std::memory_order_relaxed)->classes[index].load(std::memory_order_acquire);
    return found ? *found : buildClass(index);
  }
  const NVXx_PBEnumDescriptor& enumDescriptor(uint32_t index) const;
  /// True for a number that the enum's table takes.
  bool enumIsValid(uint32_t index, int32_t number) const;
  NVXx_PBExtensionField& extension(uint32_t index) const;
  /// The registry of the file: its own extensions, then those of the files that it imports.
  NVXx_PBExtensionRegistry& extensionRegistry() const;
  const char* rootName() const;
  /// The extension whose singleton name is the root's name, an underscore and this name; null when there is
  /// none.
  NVXx_PBExtensionField* extensionNamed(std::string_view name) const;

 private:
  friend struct PBFileAccess;
  struct Rest;
  struct State {
    std::atomic<const PBClass*>* classes;
    Rest* rest;
  };
  void open(const PBFileHeader* tables, PBLinkFunction link);
  const PBClass& buildClass(uint32_t index) const;

  std::atomic<State*> _state{nullptr};
};

}  // namespace nvxcore
