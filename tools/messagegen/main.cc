#include <cstdio>
#include <exception>

#include "tools/messagegen/Program.h"

int main(int count, char** arguments) {
  using namespace nvxcore::messagegen;
  try {
    const Outcome outcome = run({arguments + 1, arguments + count});
    std::fputs(outcome.output.c_str(), stdout);
    std::fputs(outcome.errors.c_str(), stderr);
    return std::fflush(stdout) == 0 ? outcome.status : 1;
  } catch (const std::exception& thrown) {
    // Memory, or a file system that answers with what no rule foresees.
    std::fprintf(stderr, "nvxcore-messagegen: %s\n", thrown.what());
    return 1;
  }
}
