#include "nvxcore/platform/linux/StandardErrorConsole.h"

#include <errno.h>
#include <unistd.h>

namespace nvxcore {

void StandardErrorConsole::writeLine(std::string_view line) {
  const int errorBefore = errno;  // Logging changes nothing for the code around it.
  std::string text(line);
  text += '\n';
  for (std::string_view rest = text; !rest.empty();) {
    const ssize_t written = write(STDERR_FILENO, rest.data(), rest.size());
    if (written < 0 && errno != EINTR) break;
    if (written > 0) rest.remove_prefix(static_cast<size_t>(written));
  }
  errno = errorBefore;
}

}  // namespace nvxcore
