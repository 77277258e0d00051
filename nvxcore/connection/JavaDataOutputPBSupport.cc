#include "nvxcore/connection/JavaDataOutputPBSupport.h"

#include <cstdint>
#include <limits>

#include "nvxcore/message/NVXx_PBGeneratedMessage.h"
#include "nvxcore/platform/Exception.h"

namespace nvxcore::dash {

void JavaDataOutputPBSupport::WriteProtocolBuffer(const NVXx_PBGeneratedMessage* message) {
  const Data data = message ? message->data() : Data();
  // A length that turned negative would say that the bytes are compressed.
  if (data.length() > static_cast<size_t>(std::numeric_limits<int32_t>::max()))
    throw Exception(kInvalidArgumentException, "The message is too long for its 32-bit length");
  _output->WriteInt(static_cast<int32_t>(data.length()));
  if (!data.empty()) _output->WriteData(data);
}

}  // namespace nvxcore::dash
