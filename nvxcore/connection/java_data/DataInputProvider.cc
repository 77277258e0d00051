#include "nvxcore/connection/java_data/DataInputProvider.h"

#include <cstring>

#include "nvxcore/foundation/base/NVXLog.h"

namespace nvxcore::utils {

namespace {

template <class T>
T loaded(const uint8_t* bytes) {
  T value;
  std::memcpy(&value, bytes, sizeof value);
  return value;
}

}  // namespace

const char* DataInputProvider::NotEnoughDataException::what() const noexcept {
  return "DataInputProviderNotEnoughDataException";
}

DataInputProvider::~DataInputProvider() = default;

const uint8_t* PtrDataInputProvider::take(size_t count) {
  if (count > _remaining) {
    NVXCLog("Needed %zu bytes, only %zu left", count, _remaining);
    throw NotEnoughDataException();
  }
  const uint8_t* bytes = _current;
  _current += count;
  _remaining -= count;
  return bytes;
}

bool PtrDataInputProvider::IsAtEnd() const { return _remaining == 0; }
uint8_t PtrDataInputProvider::ReadUnsignedByte() { return *take(1); }
uint16_t PtrDataInputProvider::ReadBEUnsignedShort() { return loaded<uint16_t>(take(2)); }
uint32_t PtrDataInputProvider::ReadBEInt() { return loaded<uint32_t>(take(4)); }
uint64_t PtrDataInputProvider::ReadBELong() { return loaded<uint64_t>(take(8)); }

void PtrDataInputProvider::ReadBytes(void* destination, size_t count) {
  const uint8_t* bytes = take(count);
  if (count) std::memcpy(destination, bytes, count);
}

void PtrDataInputProvider::ReadBytesRaw(size_t count, BytesConsumer consumer) { consumer(take(count)); }
void PtrDataInputProvider::SkipBytes(size_t count) { take(count); }
size_t PtrDataInputProvider::BytesConsumed() const { return static_cast<size_t>(_current - _start); }

}  // namespace nvxcore::utils
