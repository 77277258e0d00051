#pragma once

#include <string_view>

namespace nvxcore {

/// Ends the process because the library was used in a way that it forbids, with a line on standard error. The
/// stack is left as it is, for the core dump.
[[noreturn]] void fault(std::string_view message);

}  // namespace nvxcore
