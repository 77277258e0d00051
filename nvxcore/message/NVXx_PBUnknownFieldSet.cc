#include "nvxcore/message/NVXx_PBUnknownFieldSet.h"

#include <algorithm>
#include <bit>
#include <new>
#include <random>
#include <utility>

#include "nvxcore/message/NVXx_PBCodedInputStream.h"
#include "nvxcore/message/NVXx_PBCodedOutputStream.h"
#include "nvxcore/message/NVXx_PBSizes.h"
#include "nvxcore/message/NVXx_PBTextFormat.h"
#include "nvxcore/message/internal/PBReflection.h"
#include "nvxcore/platform/Exception.h"
#include "nvxcore/platform/internal/BlockPool.h"

namespace nvxcore {

namespace {

// Up to this many fields are searched one after the other.
constexpr size_t kFew = 8;

// The factor is another one in each process, so that nobody can send numbers that all meet in one place. (The
// order of a set is that of its list, and doesn't depend on it.)
size_t slotOf(int32_t number, size_t tableSize) {
  static const uint64_t factor = [] {
    std::random_device random;
    return (uint64_t{random()} << 32 | random()) | 1;
  }();
  return static_cast<size_t>(static_cast<uint32_t>(number) * factor >>
                             (std::countl_zero(uint64_t{tableSize}) + 1));
}

uint64_t entryOf(int32_t number, size_t index) {
  return uint64_t{static_cast<uint32_t>(number)} << 32 | (index + 1);
}

void requireNumber(int32_t number) {
  if (number == 0) throw Exception(kInvalidArgumentException, "Zero is not a valid field number.");
}

}  // namespace

Ref<NVXx_PBUnknownFieldSet> NVXx_PBUnknownFieldSet::set() {
  return Ref<NVXx_PBUnknownFieldSet>::adopt(::new (BlockPool::allocate(sizeof(NVXx_PBUnknownFieldSet)))
                                                NVXx_PBUnknownFieldSet);
}

Ref<NVXx_PBUnknownFieldSet> NVXx_PBUnknownFieldSet::setWithFields(const NVXx_PBUnknownFieldSet& other) {
  Ref<NVXx_PBUnknownFieldSet> result = set();
  result->_hasDictionary = !other._fields.empty();
  result->_fields = other._fields;
  result->_table = other._table;
  return result;
}

void NVXx_PBUnknownFieldSet::release() const {
  if (_references.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
  auto* self = const_cast<NVXx_PBUnknownFieldSet*>(this);
  self->~NVXx_PBUnknownFieldSet();
  BlockPool::free(self, sizeof *self);
}

// The dictionary.

NVXx_PBMutableField* NVXx_PBUnknownFieldSet::find(int32_t number) const {
  if (_table.empty()) {
    for (const auto& field : _fields) {
      if (field->number() == number) return field.get();
    }
    return nullptr;
  }
  const size_t mask = _table.size() - 1;
  for (size_t slot = slotOf(number, _table.size()); _table[slot]; slot = (slot + 1) & mask) {
    if (_table[slot] >> 32 == static_cast<uint32_t>(number)) {
      return _fields[static_cast<uint32_t>(_table[slot]) - 1].get();
    }
  }
  return nullptr;
}

void NVXx_PBUnknownFieldSet::enter(uint64_t entry) {
  const size_t mask = _table.size() - 1;
  size_t slot = slotOf(static_cast<int32_t>(entry >> 32), _table.size());
  while (_table[slot]) slot = (slot + 1) & mask;
  _table[slot] = entry;
}

void NVXx_PBUnknownFieldSet::index() {
  const std::vector<uint64_t> former =
      std::exchange(_table, std::vector<uint64_t>(std::max(_table.size() * 2, 4 * kFew)));
  if (former.empty()) {
    for (size_t i = 0; i < _fields.size(); ++i) enter(entryOf(_fields[i]->number(), i));
  }
  for (const uint64_t entry : former) {
    if (entry) enter(entry);
  }
}

// A field of a number that is not there yet.
void NVXx_PBUnknownFieldSet::put(Ref<NVXx_PBMutableField> field) {
  _hasDictionary = true;
  const int32_t number = field->number();
  _fields.push_back(std::move(field));
  if (_fields.size() <= kFew) return;
  if (_table.empty()) return index();
  if (_table.size() < 2 * _fields.size()) index();
  enter(entryOf(number, _fields.size() - 1));
}

NVXx_PBField* NVXx_PBUnknownFieldSet::getField(int32_t number) const { return find(number); }

std::vector<NVXx_PBField*> NVXx_PBUnknownFieldSet::sortedFields() const {
  std::vector<NVXx_PBField*> result;
  result.reserve(_fields.size());
  bool isSorted = true;
  for (const auto& field : _fields) {
    isSorted = isSorted && (result.empty() || result.back()->number() < field->number());
    result.push_back(field.get());
  }
  if (!isSorted) {
    std::sort(result.begin(), result.end(),
              [](const auto* a, const auto* b) { return a->number() < b->number(); });
  }
  return result;
}

void NVXx_PBUnknownFieldSet::getTags(int32_t* tags) const {
  for (const auto& field : _fields) *tags++ = field->number();
}

void NVXx_PBUnknownFieldSet::addField(const Ref<NVXx_PBMutableField>& field) {
  requireNumber(field->number());
  if (!find(field->number())) return put(field);
  const auto former = std::find_if(_fields.begin(), _fields.end(),
                                   [&](const auto& one) { return one->number() == field->number(); });
  *former = field;
}

NVXx_PBMutableField* NVXx_PBUnknownFieldSet::getFieldBuilder(int32_t number, bool create) {
  NVXx_PBMutableField* found = find(number);
  if (found || !create) return found;
  requireNumber(number);
  put(NVXx_PBMutableField::fieldWithNumber(number));
  return _fields.back().get();
}

void NVXx_PBUnknownFieldSet::mergeField(const Ref<NVXx_PBMutableField>& field) {
  requireNumber(field->number());
  if (NVXx_PBMutableField* existing = find(field->number())) {
    existing->mergeFromField(*field);
  } else {
    put(field);
  }
}

void NVXx_PBUnknownFieldSet::mergeUnknownFields(const NVXx_PBUnknownFieldSet& other) {
  const std::vector<Ref<NVXx_PBMutableField>> fields = other._fields;  // it may be this set
  for (const auto& field : fields) mergeField(field);
}

void NVXx_PBUnknownFieldSet::mergeVarintField(int32_t number, int32_t value) {
  requireNumber(number);
  getFieldBuilder(number, true)->addVarint(static_cast<uint64_t>(int64_t{value}));
}

void NVXx_PBUnknownFieldSet::mergeMessageSetMessage(int32_t number, const Data& data) {
  getFieldBuilder(number, true)->addLengthDelimited(data);
}

// Reading.

bool NVXx_PBUnknownFieldSet::mergeFieldFrom(uint32_t tag, NVXx_PBCodedInputStream& input) {
  const auto number = static_cast<int32_t>(tag >> 3);
  switch (tag & 7) {
    case PBWireTypeVarint: {
      const auto value = static_cast<uint64_t>(input.readInt64());
      getFieldBuilder(number, true)->addVarint(value);
      return true;
    }
    case PBWireTypeFixed64: {
      const uint64_t value = input.readFixed64();
      getFieldBuilder(number, true)->addFixed64(value);
      return true;
    }
    case PBWireTypeLengthDelimited: {
      const Data value = input.readSharedData();
      getFieldBuilder(number, true)->addLengthDelimited(value);
      return true;
    }
    case PBWireTypeStartGroup: {
      const Ref<NVXx_PBUnknownFieldSet> group = set();
      input.readUnknownGroup(number, *group);
      getFieldBuilder(number, true)->addGroup(group);
      return true;
    }
    case PBWireTypeFixed32: {
      const uint32_t value = input.readFixed32();
      getFieldBuilder(number, true)->addFixed32(value);
      return true;
    }
    default:
      return false;
  }
}

void NVXx_PBUnknownFieldSet::mergeFromCodedInputStream(NVXx_PBCodedInputStream& input) {
  for (;;) {
    const int32_t tag = input.readTag();
    if (tag == 0 || !mergeFieldFrom(static_cast<uint32_t>(tag), input)) return;
  }
}

void NVXx_PBUnknownFieldSet::mergeFromData(const Data& data) {
  NVXx_PBCodedInputStream input(data);
  mergeFromCodedInputStream(input);
  input.checkLastTagWas(0);
}

// Writing.

void NVXx_PBUnknownFieldSet::writeToCodedOutputStream(NVXx_PBCodedOutputStream& output) const {
  for (const NVXx_PBField* field : sortedFields()) field->writeToOutput(output);
}

void NVXx_PBUnknownFieldSet::writeAsMessageSetTo(NVXx_PBCodedOutputStream& output) const {
  for (const auto& field : _fields) field->writeAsMessageSetExtensionToOutput(output);
}

Data NVXx_PBUnknownFieldSet::data() const {
  MutableData buffer;
  buffer.setLength(serializedSize());
  {
    NVXx_PBCodedOutputStream output(buffer);
    writeToCodedOutputStream(output);
  }
  return Data::take(std::move(buffer));
}

size_t NVXx_PBUnknownFieldSet::serializedSize() const {
  size_t size = 0;
  for (const auto& field : _fields) size += field->serializedSize();
  return size;
}

size_t NVXx_PBUnknownFieldSet::serializedSizeAsMessageSet() const {
  size_t size = 0;
  for (const auto& field : _fields) size += field->serializedSizeAsMessageSetExtension();
  return size;
}

// Values.

bool NVXx_PBUnknownFieldSet::isEqual(const NVXx_PBUnknownFieldSet* other) const {
  if (this == other) return true;
  if (!other || _hasDictionary != other->_hasDictionary || _fields.size() != other->_fields.size())
    return false;
  for (const auto& field : _fields) {
    const NVXx_PBField* others = other->find(field->number());
    if (!others || !field->isEqual(others)) return false;
  }
  return true;
}

// A dictionary's hash is the count of its entries.
size_t NVXx_PBUnknownFieldSet::hash() const { return _fields.size(); }

std::string NVXx_PBUnknownFieldSet::description() const {
  return "<NVXx_PBUnknownFieldSet " + pbAddress(this) + ">: TextFormat: {\n" +
         NVXx_PBTextFormatForUnknownFieldSet(this, "  ").value_or("") + "}";
}

}  // namespace nvxcore
