// What was parsed is written in as many bytes as measured, and read back it is written the same.

#include "fuzz/message/Classes.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace nvxcore;
  if (!size) return 0;
  const auto message = fuzzing::parsed(data[0], Data::copy(data + 1, size - 1));
  if (!message) return 0;
  const Data first = message->data();
  fuzzing::check(first.length() == message->serializedSize());
  const auto again = fuzzing::parsed(data[0], first);
  fuzzing::check(static_cast<bool>(again));
  fuzzing::check(again->data() == first);
  return 0;
}
