#include "nvxcore/connection/DASHDataInputProvider.h"

#include <cstring>

#include "nvxcore/foundation/base/NVXLog.h"

namespace nvxcore {

/// Holds the access semaphore for a scope, also out of an exception.
class DASHDataInputProvider::Access {
 public:
  explicit Access(const DASHDataInputProvider& provider) : _semaphore(provider.access_semaphore_) {
    _semaphore.wait();
  }
  ~Access() { _semaphore.signal(); }
  Access(const Access&) = delete;
  Access& operator=(const Access&) = delete;

 private:
  Semaphore& _semaphore;
};

void DASHDataInputProvider::AddData(const Data& chunk) {
  {
    Access access(*this);
    data_.append(chunk.view());
    base_ = data_.bytes();
    size_ = data_.length();
  }
  data_ready_semaphore_.signal();
}

void DASHDataInputProvider::DoneAdding() {
  {
    Access access(*this);
    doneAdding_ = true;
  }
  data_ready_semaphore_.signal();
}

void DASHDataInputProvider::SetGotError() {
  Access access(*this);
  gotError_ = true;
}

/// Expects the access semaphore, and gives it up while it waits.
void DASHDataInputProvider::EnsureBytesLeft(size_t count) {
  for (;;) {
    if (gotError_) {
      NVXCLog("Needed %zu bytes, only 0 left", count);
      throw NotEnoughDataException();
    }
    if (size_ - offset_ >= count) return;
    if (doneAdding_) {
      NVXCLog("Needed %zu bytes, only %zu left", count, size_ - offset_);
      throw NotEnoughDataException();
    }
    access_semaphore_.signal();
    data_ready_semaphore_.wait();
    access_semaphore_.wait();
  }
}

bool DASHDataInputProvider::IsAtEnd() const {
  Access access(*this);
  return doneAdding_ && offset_ == size_;
}

template <class T>
T DASHDataInputProvider::ReadRaw() {
  T value;
  ReadBytes(&value, sizeof value);
  return value;
}

uint8_t DASHDataInputProvider::ReadUnsignedByte() { return ReadRaw<uint8_t>(); }
uint16_t DASHDataInputProvider::ReadBEUnsignedShort() { return ReadRaw<uint16_t>(); }
uint32_t DASHDataInputProvider::ReadBEInt() { return ReadRaw<uint32_t>(); }
uint64_t DASHDataInputProvider::ReadBELong() { return ReadRaw<uint64_t>(); }

void DASHDataInputProvider::ReadBytes(void* destination, size_t count) {
  Access access(*this);
  EnsureBytesLeft(count);
  if (count) std::memcpy(destination, base_ + offset_, count);
  offset_ += count;
}

void DASHDataInputProvider::ReadBytesRaw(size_t count, utils::BytesConsumer consumer) {
  Access access(*this);
  EnsureBytesLeft(count);
  consumer(base_ + offset_);
  offset_ += count;
}

void DASHDataInputProvider::SkipBytes(size_t count) {
  Access access(*this);
  EnsureBytesLeft(count);
  offset_ += count;
}

size_t DASHDataInputProvider::BytesConsumed() const {
  Access access(*this);
  return offset_;
}

}  // namespace nvxcore
