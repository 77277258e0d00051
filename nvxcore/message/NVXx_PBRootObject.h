#pragma once

#include "nvxcore/message/NVXx_PBExtension.h"
#include "nvxcore/message/NVXx_PBFile.h"
#include "nvxcore/platform/Export.h"

namespace nvxcore {

/// The base of the root classes, one for each schema file, and of all messages. A root has `file()`, the
/// extensions declared at the top of its file as static functions, and:
///   extensionRegistry()        the file's registry
///   extensionNamed(name)       the extension that the root declares by that name, or null
class NVXCORE_EXPORT NVXx_PBRootObject {
 public:
  /// Files the extension under its singleton name for the whole process. Any thread.
  static void globallyRegisterExtension(NVXx_PBExtensionField& extension);
};

}  // namespace nvxcore
