#pragma once

#include "nvxcore/connection/java_data/JavaDataInput.h"
#include "nvxcore/message/NVXx_PBRef.h"
#include "nvxcore/platform/Data.h"
#include "nvxcore/platform/Error.h"
#include "nvxcore/platform/Export.h"

namespace nvxcore {
class NVXx_PBExtensionRegistry;
class NVXx_PBGeneratedMessage;
struct PBClass;
}  // namespace nvxcore

namespace nvxcore::dash {

/// Reads messages from an input, for the span of a call. A message stands there as subdata: a signed 32-bit
/// length, then the length's absolute value in bytes, which a negative length calls compressed (gzip or
/// zlib). Every read lets `NotEnoughDataException` through; bad bytes come back through `error`, and have
/// been consumed, so that the stream stays in step. `error` is emptied otherwise, and may be null.
class NVXCORE_EXPORT JavaDataInputPBSupport {
 public:
  /// `input` is not owned.
  explicit JavaDataInputPBSupport(utils::JavaDataInput* input) : _input(input) {}

  /// The plain bytes; nothing where they don't inflate.
  Data DataForSubdata(Error* error);
  /// Nothing where they don't inflate or are no message of the class.
  Ref<NVXx_PBGeneratedMessage> ReadProtocolBufferOfClass(const PBClass& messageClass,
                                                         const NVXx_PBExtensionRegistry* registry,
                                                         Error* error);
  void SkipSubdata();

 private:
  utils::JavaDataInput* _input;
};

}  // namespace nvxcore::dash
