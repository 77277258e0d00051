#include "nvxcore/platform/internal/Fault.h"

#include <cstdlib>

#include "nvxcore/platform/linux/StandardErrorConsole.h"

namespace nvxcore {

// Past the console's line handler: a host's handler is not to run when its own process is in an unknown
// state.
void fault(std::string_view message) {
  StandardErrorConsole().writeLine(message);
  std::abort();
}

}  // namespace nvxcore
