#pragma once

#include "nvxcore/connection/java_data/JavaDataOutput.h"
#include "nvxcore/platform/Export.h"

namespace nvxcore {
class NVXx_PBGeneratedMessage;
}

namespace nvxcore::dash {

/// Writes messages into an output, for the span of a call.
class NVXCORE_EXPORT JavaDataOutputPBSupport {
 public:
  /// `output` is not owned.
  explicit JavaDataOutputPBSupport(utils::JavaDataOutput* output) : _output(output) {}

  /// The signed 32-bit length of the message's serialised form, then its bytes; 0 and none for no message.
  /// Throws what serialising throws, and NSInvalidArgumentException for 2 GiB and more.
  void WriteProtocolBuffer(const NVXx_PBGeneratedMessage* message);

 private:
  utils::JavaDataOutput* _output;
};

}  // namespace nvxcore::dash
