// Everything else that reads a message: text, copies, comparison, merging.

#include "fuzz/message/Classes.h"
#include "nvxcore/message/NVXx_PBTextFormat.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace nvxcore;
  if (!size) return 0;
  const auto message = fuzzing::parsed(data[0], Data::copy(data + 1, size - 1));
  if (!message) return 0;
  fuzzing::check(NVXx_PBTextFormatForMessage(message.get()).has_value());
  fuzzing::check(!message->description().empty());
  message->isInitialized();
  const auto other = fuzzing::parsed(data[0], message->data());
  if (other) {
    message->isEqual(other.get());
    message->mergeFrom(*other);
  }
  message->clear();
  fuzzing::check(message->serializedSize() == 0);
  return 0;
}
