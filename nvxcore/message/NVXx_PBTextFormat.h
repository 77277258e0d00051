#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "nvxcore/platform/Export.h"

namespace nvxcore {

class NVXx_PBGeneratedMessage;
class NVXx_PBUnknownFieldSet;

/// A message for people, one field a line, in the order of its serialised form; nothing of null. It is a
/// read, and there is no way back.
NVXCORE_EXPORT std::optional<std::string> NVXx_PBTextFormatForMessage(const NVXx_PBGeneratedMessage* message,
                                                                      std::string_view indent = {});
NVXCORE_EXPORT std::optional<std::string> NVXx_PBTextFormatForUnknownFieldSet(
    const NVXx_PBUnknownFieldSet* set, std::string_view indent = {});

}  // namespace nvxcore
