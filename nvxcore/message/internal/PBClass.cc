#include "nvxcore/message/internal/PBClass.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <unordered_map>
#include <vector>

#include "nvxcore/message/NVXx_PBDescriptor.h"
#include "nvxcore/message/NVXx_PBExtensionField.h"
#include "nvxcore/message/NVXx_PBExtensionRegistry.h"
#include "nvxcore/message/NVXx_PBGeneratedMessage.h"
#include "nvxcore/platform/internal/DataBlock.h"

namespace nvxcore {

struct PBFile::Rest {
  const PBFileHeader* header;
  PBLinkFunction link;
  std::unique_ptr<std::atomic<const PBClass*>[]> classes;
  std::unique_ptr<std::atomic<const NVXx_PBEnumDescriptor*>[]> enums;
  std::unique_ptr<std::atomic<NVXx_PBExtensionField*>[]> extensions;
  std::atomic<NVXx_PBExtensionRegistry*> registry{nullptr};
  bool registryIsFilled = false;
};

namespace {

// Everything here lives as long as the process: nothing is destroyed at its end.
std::vector<const PBFile*>& openFiles() {
  static auto* files = new std::vector<const PBFile*>;
  return *files;
}

// Slices behind a parsed message: room for the strings and data of most classes.
constexpr uint32_t kMostSlices = 16;

const char* nextName(const char* name) { return name + std::strlen(name) + 1; }

}  // namespace

std::recursive_mutex& pbSchemaLock() {
  static auto* lock = new std::recursive_mutex;
  return *lock;
}

PBBlockBytes::PBBlockBytes(const char* block) {
  const auto* b = reinterpret_cast<const uint8_t*>(block);
  length = uint32_t{b[0]} << 24 | uint32_t{b[1]} << 16 | uint32_t{b[2]} << 8 | b[3];
  bytes = block + 4;
}

PBFileAccess::Tables::Tables(const PBFileHeader& header) {
  messages = after<PBMessageEntry>(&header, sizeof header);
  fields = reinterpret_cast<const PBFieldEntry*>(messages + header.messageCount);
  sides = reinterpret_cast<const PBSideEntry*>(fields + header.fieldCount);
  ranges = reinterpret_cast<const PBRangeEntry*>(sides + header.sideCount);
  enums = reinterpret_cast<const PBEnumEntry*>(ranges + header.rangeCount);
  extensions = reinterpret_cast<const PBExtensionEntry*>(enums + header.enumCount);
  numbers = reinterpret_cast<const int32_t*>(extensions + header.extensionCount);
  names = reinterpret_cast<const char*>(numbers + header.numberCount);
  bytes = names + header.nameSize;
}

PBFile::Rest& PBFileAccess::rest(const PBFile& file) {
  return *file._state.load(std::memory_order_acquire)->rest;
}

const PBFileHeader& PBFileAccess::header(const PBFile& file) { return *rest(file).header; }

PBFile::State* PBFileAccess::makeState(const PBFile& file, const PBFileHeader* tables, PBLinkFunction link) {
  auto* rest = new PBFile::Rest{};
  rest->header = tables;
  rest->link = link;
  rest->classes = std::make_unique<std::atomic<const PBClass*>[]>(tables->messageCount);
  rest->enums = std::make_unique<std::atomic<const NVXx_PBEnumDescriptor*>[]>(tables->enumCount);
  rest->extensions = std::make_unique<std::atomic<NVXx_PBExtensionField*>[]>(tables->extensionCount);
  openFiles().push_back(&file);
  return new PBFile::State{rest->classes.get(), rest};
}

void PBFile::open(const PBFileHeader* tables, PBLinkFunction link) {
  const std::lock_guard<std::recursive_mutex> hold(pbSchemaLock());
  if (_state.load(std::memory_order_relaxed)) return;
  _state.store(PBFileAccess::makeState(*this, tables, link), std::memory_order_release);
}

const char* PBFile::rootName() const {
  const PBFileAccess::Tables tables(PBFileAccess::header(*this));
  return tables.names;
}

// Classes.

const PBClass& PBFile::buildClass(uint32_t index) const {
  const std::lock_guard<std::recursive_mutex> hold(pbSchemaLock());
  std::atomic<const PBClass*>& slot = _state.load(std::memory_order_relaxed)->classes[index];
  if (!slot.load(std::memory_order_relaxed)) {
    slot.store(PBFileAccess::buildClass(*this, index), std::memory_order_release);
  }
  return *slot.load(std::memory_order_relaxed);
}

PBValue PBFileAccess::scalarDefault(const Tables& tables, NVXx_PBType type, uint32_t value) {
  PBValue result;
  switch (type) {
    case NVXx_PBType::Fixed64:
    case NVXx_PBType::SFixed64:
    case NVXx_PBType::Double:
    case NVXx_PBType::Int64:
    case NVXx_PBType::SInt64:
    case NVXx_PBType::UInt64:
      std::memcpy(&result.valueUInt64, tables.bytes + value, 8);
      break;
    case NVXx_PBType::Bool:
      result.valueBool = value != 0;
      break;
    default:
      result.valueUInt32 = value;
  }
  return result;
}

Data PBFileAccess::block(const Tables& tables, uint32_t reference) {
  const PBBlockBytes block(tables.bytes + reference);
  // The table is never unloaded before its handles: defaults live as long as the process.
  return Data::copy(block.bytes, block.length);
}

namespace {

// A list for as long as the process lives.
std::pair<const uint16_t*, uint32_t> kept(const std::vector<uint16_t>& list) {
  auto* copy = new uint16_t[list.size()];
  std::copy(list.begin(), list.end(), copy);
  return {copy, static_cast<uint32_t>(list.size())};
}

}  // namespace

PBClass* PBFileAccess::buildClass(const PBFile& file, uint32_t index) {
  const PBFileHeader& header = PBFileAccess::header(file);
  const Tables tables(header);
  const PBMessageEntry& message = tables.messages[index];
  auto* result = new PBClass;
  result->file = &file;
  result->index = index;
  result->name = tables.names + message.names;
  result->fieldCount = message.fieldCount;
  result->storageSize = message.storageSize;
  result->isMessageSet = message.flags & PBMessageIsMessageSet;
  result->ranges = tables.ranges + message.firstRange;
  result->rangeCount = message.rangeCount;

  // One more before the first, of a tag that never comes, and one behind: leak checkers know no block by its
  // end.
  auto* entries = new PBEntry[message.fieldCount + 2]() + 1;
  entries[-1].op = kPBOpUnknown;
  auto* byTag = new uint8_t[0x80]();
  auto* infos = new PBFieldInfo[message.fieldCount];
  std::vector<uint16_t> objects;
  std::vector<uint16_t> bytesOffsets;
  std::vector<uint16_t> owners;
  const PBSideEntry* side = tables.sides + message.firstSide;
  const PBSideEntry* sideEnd = side + message.sideCount;
  const char* name = tables.names + message.names;
  uint32_t largestDirect = 0;
  for (uint32_t i = 0; i < message.fieldCount; ++i) {
    const PBFieldEntry& field = tables.fields[message.firstField + i];
    PBEntry& entry = entries[i];
    PBFieldInfo& info = infos[i];
    name = nextName(name);
    info.name = name;
    info.file = &file;
    info.hasDefault = field.flags & PBFieldHasDefault;
    uint32_t number = field.number;
    bool hasDefaultEntry = false;
    uint32_t defaultEntry = 0;
    for (; side < sideEnd && side->field == i; ++side) {
      switch (side->kind) {
        case PBSideNumber:
          number = side->value;
          break;
        case PBSideClass:
        case PBSideEnum:
          info.reference = side->value;
          break;
        case PBSideDefault:
          hasDefaultEntry = true;
          defaultEntry = side->value;
          break;
        case PBSideOptions:
          info.options = side->value;
          break;
        default:
          break;
      }
    }
    if (hasDefaultEntry && !(field.flags & PBFieldRepeated)) {
      if (field.type == NVXx_PBType::String || field.type == NVXx_PBType::Data) {
        info.defaultBytes = block(tables, defaultEntry);
      } else {
        info.defaultValue = scalarDefault(tables, field.type, defaultEntry);
      }
    }
    const bool packed = field.flags & PBFieldPacked;
    entry.tag = NVXx_PBWireFormatMakeTag(number, NVXx_PBWireFormatForType(field.type, packed));
    entry.encodedTag = 0;
    entry.tagSize = 0;
    for (uint32_t rest = entry.tag;; rest >>= 7) {
      const uint32_t byte = rest > 0x7F ? (rest & 0x7F) | 0x80 : rest;
      if (entry.tagSize < 4) entry.encodedTag |= byte << (8 * entry.tagSize);
      ++entry.tagSize;
      if (rest <= 0x7F) break;
    }
    entry.offset = field.offset;
    entry.has = field.hasIndex;
    entry.type = field.type;
    entry.flags = field.flags;
    // Presence is kept in a word while scalars, strings and data are read.
    const bool isSlow = entry.isRepeated() || entry.isMessage() || entry.has >= 64;
    entry.op = isSlow ? kPBOpSlow : static_cast<uint8_t>(field.type);
    if (entry.tagSize == 1) byTag[entry.tag] = static_cast<uint8_t>(i + 1);
    result->hasChildren |= entry.isMessage();
    if (entry.isObject()) {
      objects.push_back(static_cast<uint16_t>(i));
      if (entry.isRepeated() || entry.isMessage()) {
        owners.push_back(static_cast<uint16_t>(i));
      } else {
        bytesOffsets.push_back(entry.offset);
      }
    } else {
      result->scalarBound += entry.tagSize + 10U;
    }
    // Numbers that lie close together are found in a table.
    if (number <= 32 || number <= 4 * (i + 1)) largestDirect = number;
  }
  if (side < sideEnd && side->kind == PBSideTextFormat) result->textFormat = tables.bytes + side->value;

  result->entries = entries;
  result->byTag = byTag;
  result->infos = infos;
  if (message.fieldCount && largestDirect) {
    auto* direct = new uint16_t[largestDirect + 1]();
    for (uint32_t i = 0; i < message.fieldCount; ++i) {
      if (entries[i].number() <= largestDirect) direct[entries[i].number()] = static_cast<uint16_t>(i + 1);
    }
    result->direct = direct;
    result->directCount = largestDirect + 1;
  }
  if (message.fieldCount) {
    const PBEntry* const last = entries + message.fieldCount;
    const auto outOfOrder = [](const PBEntry& a, const PBEntry& b) { return a.has >= b.has; };
    if (std::adjacent_find(result->entries, last, outOfOrder) == last) {
      result->hasWords = last[-1].has / 32U + 1;
      auto* byHas = new uint16_t[result->hasWords * size_t{32}]();
      for (uint32_t i = 0; i < message.fieldCount; ++i) byHas[entries[i].has] = static_cast<uint16_t>(i);
      result->byHas = byHas;
    }
  }
  std::tie(result->objects, result->objectCount) = kept(objects);
  std::tie(result->bytesOffsets, result->bytesCount) = kept(bytesOffsets);
  std::tie(result->owners, result->ownerCount) = kept(owners);
  result->plainSize = static_cast<uint32_t>(sizeof(NVXx_PBGeneratedMessage)) + message.storageSize;
  result->sliceCount = std::min(result->bytesCount, kMostSlices);
  result->parsedSize = result->plainSize;
  if (result->sliceCount) {
    result->parsedSize +=
        static_cast<uint32_t>(sizeof(void*) + result->sliceCount * sizeof(DataAccess::Block));
  }
  return result;
}

const PBClass& PBFileAccess::classForReference(const PBFile& file, uint32_t reference) {
  const uint32_t own = header(file).messageCount;
  if (reference < own) return file.messageClass(reference);
  return *static_cast<const PBClass*>(rest(file).link(PBLinkClass, reference - own));
}

const NVXx_PBEnumDescriptor& PBFileAccess::enumForReference(const PBFile& file, uint32_t reference) {
  const uint32_t own = header(file).enumCount;
  if (reference < own) return file.enumDescriptor(reference);
  return *static_cast<const NVXx_PBEnumDescriptor*>(rest(file).link(PBLinkEnum, reference - own));
}

const PBClass& PBFieldInfo::findClass() const {
  const PBClass& found = PBFileAccess::classForReference(*file, reference);
  _class.store(&found, std::memory_order_release);
  return found;
}

const NVXx_PBEnumDescriptor& PBFieldInfo::findEnum() const {
  const NVXx_PBEnumDescriptor& found = PBFileAccess::enumForReference(*file, reference);
  _enum.store(&found, std::memory_order_release);
  return found;
}

// Enums.

const NVXx_PBEnumDescriptor& PBFile::enumDescriptor(uint32_t index) const {
  std::atomic<const NVXx_PBEnumDescriptor*>& slot = PBFileAccess::rest(*this).enums[index];
  if (const NVXx_PBEnumDescriptor* found = slot.load(std::memory_order_acquire)) return *found;
  const std::lock_guard<std::recursive_mutex> hold(pbSchemaLock());
  if (!slot.load(std::memory_order_relaxed)) {
    slot.store(PBFileAccess::buildEnum(*this, index), std::memory_order_release);
  }
  return *slot.load(std::memory_order_relaxed);
}

bool PBFile::enumIsValid(uint32_t index, int32_t number) const {
  return enumDescriptor(index).isValidValue(number);
}

NVXx_PBEnumDescriptor* PBFileAccess::buildEnum(const PBFile& file, uint32_t index) {
  const Tables tables(header(file));
  const PBEnumEntry& entry = tables.enums[index];
  auto* result = new NVXx_PBEnumDescriptor;
  const char* name = tables.names + entry.names;
  result->_name = name;
  const int32_t* numbers = tables.numbers + entry.numbers;
  std::vector<NVXx_PBEnumDescriptor::Range> valid;
  for (uint32_t i = 0; i < entry.valueCount; ++i) {
    std::string valueName;
    if (entry.flags & PBEnumHasNames) {
      name = nextName(name);
      if (*name) valueName = result->_name + name;
    }
    result->_values.emplace_back(std::move(valueName), numbers[i]);
    if (!entry.rangeCount) valid.push_back({numbers[i], numbers[i]});
  }
  const int32_t* pairs = numbers + entry.valueCount;
  for (uint32_t i = 0; i < entry.rangeCount; ++i) {
    valid.push_back({pairs[2 * i], pairs[2 * i + 1]});
    if (!(entry.flags & PBEnumListsValid)) continue;
    for (int64_t number = valid.back().first; number <= valid.back().last; ++number) {
      result->_values.emplace_back(std::string(), static_cast<int32_t>(number));
    }
  }
  std::sort(valid.begin(), valid.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  for (const auto& range : valid) {
    auto& merged = result->_valid;
    if (!merged.empty() && int64_t{range.first} <= int64_t{merged.back().last} + 1) {
      merged.back().last = std::max(merged.back().last, range.last);
    } else {
      merged.push_back(range);
    }
  }
  for (const auto& range : result->_valid) {
    for (int64_t i = std::max(range.first, 0); i <= std::min(range.last, 63); ++i) {
      result->_low |= uint64_t{1} << i;
    }
  }
  if (entry.textFormat != PBNone) {
    const PBBlockBytes info(tables.bytes + entry.textFormat);
    result->_extraTextFormatInfo = info.bytes;
    result->_extraTextFormatEnd = info.bytes + info.length;
  }
  return result;
}

const NVXx_PBEnumDescriptor* NVXx_PBEnumDescriptor::descriptorForName(std::string_view name) {
  const std::lock_guard<std::recursive_mutex> hold(pbSchemaLock());
  // The imports of a file that is in use come into use behind it.
  for (size_t k = 0; k < openFiles().size(); ++k) {
    const PBFile& file = *openFiles()[k];
    const PBFileHeader& header = PBFileAccess::header(file);
    const PBFileAccess::Tables tables(header);
    for (uint32_t i = 0; i < header.enumCount; ++i) {
      if (name == tables.names + tables.enums[i].names) return &file.enumDescriptor(i);
    }
    for (uint32_t i = 0; i < header.importCount; ++i) PBFileAccess::rest(file).link(PBLinkFile, i);
  }
  return nullptr;
}

// Extensions and registries.

NVXx_PBExtensionField& PBFile::extension(uint32_t index) const {
  std::atomic<NVXx_PBExtensionField*>& slot = PBFileAccess::rest(*this).extensions[index];
  if (NVXx_PBExtensionField* found = slot.load(std::memory_order_acquire)) return *found;
  const std::lock_guard<std::recursive_mutex> hold(pbSchemaLock());
  if (!slot.load(std::memory_order_relaxed)) {
    const PBFileAccess::Tables tables(PBFileAccess::header(*this));
    const PBExtensionEntry& entry = tables.extensions[index];
    NVXx_PBExtensionField::Description description;
    description.singletonName = tables.names + entry.names;
    description.type = entry.type;
    description.fieldNumber = static_cast<int32_t>(entry.number);
    description.options = entry.options;
    description.extendedClass = &PBFileAccess::classForReference(*this, entry.extendedClass);
    if (NVXx_PBTypeIsMessage(entry.type)) {
      description.messageClass = &PBFileAccess::classForReference(*this, entry.valueType);
    } else if (NVXx_PBTypeIsEnum(entry.type)) {
      description.enumDescriptor = &PBFileAccess::enumForReference(*this, entry.valueType);
    }
    if (entry.options & PBExtensionHasDefault) {
      if (entry.type == NVXx_PBType::String || entry.type == NVXx_PBType::Data) {
        description.defaultBytes = PBFileAccess::block(tables, entry.defaultValue);
      } else {
        description.defaultValue = PBFileAccess::scalarDefault(tables, entry.type, entry.defaultValue);
      }
    }
    slot.store(new NVXx_PBExtensionField(std::move(description)), std::memory_order_release);
  }
  return *slot.load(std::memory_order_relaxed);
}

NVXx_PBExtensionRegistry& PBFile::extensionRegistry() const {
  Rest& rest = PBFileAccess::rest(*this);
  if (NVXx_PBExtensionRegistry* found = rest.registry.load(std::memory_order_acquire)) return *found;
  const std::lock_guard<std::recursive_mutex> hold(pbSchemaLock());
  if (NVXx_PBExtensionRegistry* found = rest.registry.load(std::memory_order_relaxed)) return *found;
  // Files may import each other in a circle: each registry exists before it is filled. Other threads see one
  // only when the whole circle is filled, since the lock is held until then and the slots are published last.
  struct Building {
    std::map<const PBFile*, NVXx_PBExtensionRegistry*> registries;
    NVXx_PBExtensionRegistry& fill(const PBFile& file) {
      Rest& rest = PBFileAccess::rest(file);
      if (NVXx_PBExtensionRegistry* done = rest.registry.load(std::memory_order_relaxed)) return *done;
      NVXx_PBExtensionRegistry*& registry = registries[&file];
      if (registry) return *registry;
      registry = new NVXx_PBExtensionRegistry;
      NVXx_PBExtensionRegistry& own = *registry;
      for (uint32_t i = 0; i < rest.header->extensionCount; ++i) {
        NVXx_PBExtensionField& extension = file.extension(i);
        own.addExtension(&extension);
        NVXx_PBRootObject::globallyRegisterExtension(extension);
      }
      for (uint32_t i = 0; i < rest.header->importCount; ++i) {
        own.addExtensions(&fill(*static_cast<const PBFile*>(rest.link(PBLinkFile, i))));
      }
      return own;
    }
  };
  Building building;
  NVXx_PBExtensionRegistry& result = building.fill(*this);
  for (const auto& [file, registry] : building.registries) {
    PBFileAccess::rest(*file).registry.store(registry, std::memory_order_release);
  }
  return result;
}

namespace {

std::unordered_map<std::string_view, NVXx_PBExtensionField*>& extensionSingletons() {
  static auto* dictionary = new std::unordered_map<std::string_view, NVXx_PBExtensionField*>;
  return *dictionary;
}

}  // namespace

void NVXx_PBRootObject::globallyRegisterExtension(NVXx_PBExtensionField& extension) {
  const std::lock_guard<std::recursive_mutex> hold(pbSchemaLock());
  extensionSingletons()[extension.singletonName()] = &extension;
}

NVXx_PBExtensionField* PBFile::extensionNamed(std::string_view name) const {
  extensionRegistry();
  const std::string singletonName = std::string(rootName()) + "_" + std::string(name);
  const std::lock_guard<std::recursive_mutex> hold(pbSchemaLock());
  const auto found = extensionSingletons().find(singletonName);
  return found == extensionSingletons().end() ? nullptr : found->second;
}

const NVXx_PBDescriptor& PBClass::descriptorOfClass() const {
  if (const NVXx_PBDescriptor* found = descriptor.load(std::memory_order_acquire)) return *found;
  const std::lock_guard<std::recursive_mutex> hold(pbSchemaLock());
  if (!descriptor.load(std::memory_order_relaxed)) {
    descriptor.store(PBFileAccess::buildDescriptor(*this), std::memory_order_release);
  }
  return *descriptor.load(std::memory_order_relaxed);
}

}  // namespace nvxcore
