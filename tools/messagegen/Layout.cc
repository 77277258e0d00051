#include <algorithm>
#include <set>
#include <utility>

#include "tools/messagegen/Names.h"
#include "tools/messagegen/Resolver.h"
#include "tools/messagegen/TextFormatInfo.h"

namespace nvxcore::messagegen {

namespace {

/// The bytes that a field takes in the storage block.
uint32_t storageWidth(const Field& field) {
  if (field.isRepeated()) return 8;
  switch (field.type) {
    case FieldType::Bool:
      return 1;
    case FieldType::Fixed32:
    case FieldType::SFixed32:
    case FieldType::Float:
    case FieldType::Int32:
    case FieldType::SInt32:
    case FieldType::UInt32:
    case FieldType::Enum:
      return 4;
    default:
      return 8;
  }
}

}  // namespace

void Resolver::layOut(Message& message) {
  for (const auto& field : message.fields) message.sortedFields.push_back(field.get());
  std::stable_sort(message.sortedFields.begin(), message.sortedFields.end(),
                   [](const Field* a, const Field* b) { return a->number < b->number; });
  nameAccessors(message);
  giveHasIndexes(message);
  giveOffsets(message);
  giveTextFormatInfo(message);
  for (const auto& nested : message.messages) layOut(*nested);
}

void Resolver::nameAccessors(Message& message) {
  std::map<std::string, const Field*> taken;
  const auto take = [&](const std::string& name, const Field& field) {
    const auto [first, isNew] = taken.emplace(name, &field);
    if (isNew || first->second == &field) return true;
    error(field.name.at,
          "expected another name or (nvxcore.accessor): " + inQuotes(first->second->name.text) + " and " +
              inQuotes(field.name.text) + " would both have the accessor " + name);
    return false;
  };
  for (const auto& owned : message.fields) {
    Field& field = *owned;
    if (!field.hasExplicitAccessor) {
      field.accessor = accessorFor(field);
    } else if (accessorCollides(field.accessor)) {
      error(field.name.at, "expected another (nvxcore.accessor): " + inQuotes(field.accessor) +
                               " is a reserved word, or hides an operation of every message");
    }
    if (field.accessor.empty()) {
      error(field.name.at, "expected a letter or digit in the name " + inQuotes(field.name.text));
      continue;
    }
    bool isFree = take(field.accessor, field);
    for (std::string_view prefix : {"set", "has", "setHas"}) {
      isFree = isFree && take(prefixedAccessor(prefix, field.accessor), field);
    }
    const bool hasHandle =
        !field.isRepeated() && (field.type == FieldType::String || field.type == FieldType::Data);
    if (isFree && hasHandle) take(field.accessor + "_handle", field);
  }
  nameExtensions(message.extensions);
  for (const auto& extension : message.extensions) {
    if (!extension->accessor.empty()) take(extension->accessor, *extension);
  }
}

/// The functions that give extensions, of a message or of a root class.
void Resolver::nameExtensions(const std::vector<std::unique_ptr<Field>>& extensions) {
  std::map<std::string, const Field*> taken;
  for (const auto& owned : extensions) {
    Field& field = *owned;
    if (!field.hasExplicitAccessor) {
      field.accessor = extensionAccessorFor(field);
    } else if (extensionAccessorCollides(field.accessor)) {
      error(field.name.at, "expected another (nvxcore.accessor): " + inQuotes(field.accessor) +
                               " is a reserved word, or hides an operation");
    }
    if (field.accessor.empty()) {
      error(field.name.at, "expected a letter or digit in the name " + inQuotes(field.name.text));
      continue;
    }
    const auto [first, isNew] = taken.emplace(field.accessor, &field);
    if (isNew) continue;
    error(field.name.at,
          "expected another name or (nvxcore.accessor): " + inQuotes(first->second->name.text) + " and " +
              inQuotes(field.name.text) + " would both have the accessor " + field.accessor);
  }
}

/// In the order of field numbers, retired ones among them, past those that are told.
void Resolver::giveHasIndexes(Message& message) {
  std::map<int64_t, Position> told;
  const auto tell = [&](int64_t hasIndex, Position at) {
    const auto [first, isNew] = told.emplace(hasIndex, at);
    if (!isNew) {
      error(at, "expected a has-index that is free: " + std::to_string(hasIndex) + " is told at line " +
                    std::to_string(first->second.line) + " too");
    }
  };
  struct Slot {
    int64_t number;
    int64_t* hasIndex;
  };
  std::vector<Slot> open;
  int64_t highest = -1;
  for (const Retired& retired : message.retired) {
    if (retired.hasIndex >= 0) tell(retired.hasIndex, retired.hasIndexAt);
  }
  for (Field* field : message.sortedFields) {
    if (field->hasIndex >= 0) tell(field->hasIndex, field->hasIndexAt);
  }
  for (Retired& retired : message.retired) {
    if (retired.hasIndex < 0) open.push_back({retired.number, &retired.hasIndex});
  }
  for (Field* field : message.sortedFields) {
    if (field->hasIndex < 0) open.push_back({field->number, &field->hasIndex});
  }
  std::stable_sort(open.begin(), open.end(),
                   [](const Slot& a, const Slot& b) { return a.number < b.number; });
  int64_t next = 0;
  for (const Slot& slot : open) {
    while (told.count(next)) ++next;
    *slot.hasIndex = next++;
  }
  for (const Retired& retired : message.retired) highest = std::max(highest, retired.hasIndex);
  for (const Field* field : message.sortedFields) highest = std::max(highest, field->hasIndex);
  if (highest > kLargestHasIndex) {
    error(message.name.at,
          "expected at most " + std::to_string(kLargestHasIndex + 1) + " fields, retired ones among them");
  }
  message.hasWordCount = static_cast<uint32_t>((highest + 32) / 32);
}

/// Behind the has-bits, narrow values first, each at a multiple of its width.
void Resolver::giveOffsets(Message& message) {
  uint32_t offset = message.hasWordCount * 4;
  for (uint32_t width : {1u, 4u, 8u}) {
    for (Field* field : message.sortedFields) {
      if (storageWidth(*field) != width) continue;
      offset = (offset + width - 1) / width * width;
      field->offset = offset;
      offset += width;
    }
  }
  message.storageSize = (offset + 7) / 8 * 8;
  if (message.storageSize > 0xFFFF) {
    error(message.name.at, "expected fewer fields: the values take " + std::to_string(message.storageSize) +
                               " bytes, and at most 65535 have room");
  }
}

void Resolver::giveTextFormatInfo(Message& message) {
  std::map<uint32_t, TextFormatEntry> entries;
  for (const Field* field : message.sortedFields) {
    const bool differs = rebuiltTextFormatName(field->accessor, *field) != textFormatName(*field);
    message.textFormatFlags.push_back(differs);
    if (differs) entries[static_cast<uint32_t>(field->number)] = {field->accessor, textFormatName(*field)};
  }
  auto info = encodeTextFormatInfo(entries);
  if (!info) {
    return error(
        message.name.at,
        "expected other (nvxcore.accessor)s: which text-format name belongs to which field cannot be told");
  }
  message.textFormatInfo = std::move(*info);
}

}  // namespace nvxcore::messagegen
