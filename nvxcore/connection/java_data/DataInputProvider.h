#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <type_traits>

#include "nvxcore/platform/Export.h"

namespace nvxcore::utils {

/// A view of a callable, for the span of a call.
class BytesConsumer {
 public:
  template <class F>
  BytesConsumer(F&& function)  // NOLINT(google-explicit-constructor): a closure is passed as it is
      : _function(const_cast<void*>(static_cast<const void*>(&function))),
        _call([](void* closure, const void* bytes) {
          (*static_cast<std::remove_reference_t<F>*>(closure))(bytes);
        }) {}
  void operator()(const void* bytes) const { _call(_function, bytes); }

 private:
  void* _function;
  void (*_call)(void*, const void*);
};

/// A source of bytes. The integer reads hand the bytes over as they stand in the stream; nothing is swapped
/// here. A read that runs out of bytes throws `NotEnoughDataException`. One thread at a time, unless the
/// source says otherwise.
class NVXCORE_EXPORT DataInputProvider {
 public:
  class NVXCORE_EXPORT NotEnoughDataException : public std::exception {
   public:
    const char* what() const noexcept override;
  };

  virtual ~DataInputProvider();
  virtual bool IsAtEnd() const = 0;
  virtual uint8_t ReadUnsignedByte() = 0;
  virtual uint16_t ReadBEUnsignedShort() = 0;
  virtual uint32_t ReadBEInt() = 0;
  virtual uint64_t ReadBELong() = 0;
  virtual void ReadBytes(void* destination, size_t count) = 0;
  /// Calls `consumer` once with `count` bytes in one piece inside the source, then moves on.
  virtual void ReadBytesRaw(size_t count, BytesConsumer consumer) = 0;
  virtual void SkipBytes(size_t count) = 0;
  /// Bytes read so far.
  virtual size_t BytesConsumed() const = 0;
};

/// The bytes of a fixed range of memory, which must outlive it.
class NVXCORE_EXPORT PtrDataInputProvider : public DataInputProvider {
 public:
  PtrDataInputProvider(const void* bytes, size_t length)
      : _start(static_cast<const uint8_t*>(bytes)), _current(_start), _remaining(length) {}

  bool IsAtEnd() const override;
  uint8_t ReadUnsignedByte() override;
  uint16_t ReadBEUnsignedShort() override;
  uint32_t ReadBEInt() override;
  uint64_t ReadBELong() override;
  void ReadBytes(void* destination, size_t count) override;
  void ReadBytesRaw(size_t count, BytesConsumer consumer) override;
  void SkipBytes(size_t count) override;
  size_t BytesConsumed() const override;

 private:
  const uint8_t* take(size_t count);

  const uint8_t* _start;
  const uint8_t* _current;
  size_t _remaining;
};

}  // namespace nvxcore::utils
