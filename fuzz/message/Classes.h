#pragma once

#include <cstdint>
#include <cstdlib>

#include "nvxcore/message/NVXx_PBCodedInputStream.h"
#include "nvxcore/message/NVXx_PBExtensionRegistry.h"
#include "nvxcore/message/NVXx_PBGeneratedMessage.h"
#include "nvxcore/platform/Exception.h"
#include "tests/message/handwritten/Example.h"

namespace nvxcore::fuzzing {

inline void check(bool held) {
  if (!held) std::abort();
}

/// The message of a class that the first byte chooses, with or without the registry; null when the bytes are
/// none.
template <class T>
Ref<NVXx_PBGeneratedMessage> parsed(const Data& bytes, bool knowsExtensions, bool copies) {
  NVXx_PBCodedInputStream stream(bytes);
  stream.setCopiesBytes(copies);
  try {
    Ref<T> message = T::parseFromCodedInputStream(
        stream, knowsExtensions ? &NVXx_EXExampleRoot::extensionRegistry() : nullptr);
    stream.checkLastTagWas(0);
    return message;
  } catch (const Exception& e) {
    check(e.name() == "NSParseErrorException" || e.name() == "NSInvalidArgumentException");
    return nullptr;
  }
}

inline Ref<NVXx_PBGeneratedMessage> parsed(uint8_t choice, const Data& bytes, bool copies = false) {
  const bool knows = choice & 0x80;
  switch ((choice & 0x7F) % 9) {
    case 0:
      return parsed<NVXx_EXSingular>(bytes, knows, copies);
    case 1:
      return parsed<NVXx_EXRepeated>(bytes, knows, copies);
    case 2:
      return parsed<NVXx_EXPacked>(bytes, knows, copies);
    case 3:
      return parsed<NVXx_EXDefaults>(bytes, knows, copies);
    case 4:
      return parsed<NVXx_EXExtendable>(bytes, knows, copies);
    case 5:
      return parsed<NVXx_EXMessageSet>(bytes, knows, copies);
    case 6:
      return parsed<NVXx_EXItem>(bytes, knows, copies);
    case 7:
      return parsed<NVXx_EXHolder>(bytes, knows, copies);
    default:
      return parsed<NVXx_EXChild>(bytes, knows, copies);
  }
}

}  // namespace nvxcore::fuzzing
