// Any bytes end in a message or in one of the published failures, whether the message shares them or copies them.

#include "fuzz/message/Classes.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace nvxcore;
  if (!size) return 0;
  const Data bytes = Data::copy(data + 1, size - 1);
  const auto sharing = fuzzing::parsed(data[0], bytes);
  const auto copying = fuzzing::parsed(data[0], bytes, true);
  fuzzing::check(static_cast<bool>(sharing) == static_cast<bool>(copying));
  return 0;
}
