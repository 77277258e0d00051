#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace nvxcore::messagegen {

/// The steps that make `wanted` from the start of `name`, without the NUL; nothing where no steps do. A step
/// is a byte: 0x80 writes "_" first, 0x60 how a run of characters is taken (0x00 as it is, 0x20 its first one
/// small, 0x40 its first one capital, 0x60 all of it capital), 0x1F how long the run is.
std::optional<std::string> textFormatSteps(std::string_view name, std::string_view wanted);

/// What is to be said for one key: a field's number or an enum value's position.
struct TextFormatEntry {
  std::string name;
  std::string wanted;
};

/// A count of entries, then for each its key and a NUL-terminated program: steps, or a zero byte and the name
/// as it stands. A reader that looks for another key goes on behind the first NUL, thus into a name as it
/// stands: that reads as one entry more, under the number of the name's first letter. So such names go last,
/// in an order in which none hides a key. Nothing where there is no such order. Empty where there are no
/// entries.
std::optional<std::string> encodeTextFormatInfo(const std::map<uint32_t, TextFormatEntry>& entries);

}  // namespace nvxcore::messagegen
