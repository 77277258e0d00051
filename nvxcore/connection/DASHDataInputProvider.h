#pragma once

#include <cstddef>
#include <cstdint>

#include "nvxcore/connection/java_data/DataInputProvider.h"
#include "nvxcore/platform/Data.h"
#include "nvxcore/platform/Export.h"
#include "nvxcore/platform/Semaphore.h"

namespace nvxcore {

/// A byte source over a reply that is still arriving: a read blocks until its bytes are there, or no more
/// will come. One thread reads; another adds. The reader gives up the access semaphore while it waits for
/// data.
class NVXCORE_EXPORT DASHDataInputProvider : public utils::DataInputProvider {
 public:
  void AddData(const Data& chunk);
  /// No more bytes will come.
  void DoneAdding();
  /// The transfer has failed: every read from now on throws, whatever has arrived. `DoneAdding` follows.
  void SetGotError();

  /// True only when no more will come and all was read.
  bool IsAtEnd() const override;
  uint8_t ReadUnsignedByte() override;
  uint16_t ReadBEUnsignedShort() override;
  uint32_t ReadBEInt() override;
  uint64_t ReadBELong() override;
  void ReadBytes(void* destination, size_t count) override;
  /// Calls `consumer` with the access semaphore held, so that the buffer can't move.
  void ReadBytesRaw(size_t count, utils::BytesConsumer consumer) override;
  void SkipBytes(size_t count) override;
  size_t BytesConsumed() const override;

 private:
  class Access;
  void EnsureBytesLeft(size_t count);
  template <class T>
  T ReadRaw();

  bool doneAdding_ = false;
  bool gotError_ = false;
  Semaphore data_ready_semaphore_{0};
  /// Mutual exclusion over all the fields.
  mutable Semaphore access_semaphore_{1};
  MutableData data_;
  const uint8_t* base_ = nullptr;
  size_t size_ = 0;
  size_t offset_ = 0;
};

}  // namespace nvxcore
