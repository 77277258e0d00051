// The library's main jobs, seen from a host: a client gets an identity, sends messages, and hands requests in
// that ride in a few POSTs and are answered while the replies still arrive, over real HTTP to a geo server in
// this process. Ends with 0 only if all went as it should.
//
//   nvxcore_demo [--verbose]
//
// What the client is known by is kept where the library keeps it, below $XDG_DATA_HOME: a second run comes
// back with it. With --verbose messages are shown as text.

#include <cstdio>
#include <cstring>

#include "examples/demo/Demo.h"

int main(int count, char** arguments) {
  const bool isVerbose = count > 1 && std::strcmp(arguments[1], "--verbose") == 0;
  if (count > 1 && !isVerbose) {
    std::fprintf(stderr, "usage: nvxcore_demo [--verbose]\n");
    return 2;
  }
  demo::showIdentity(isVerbose);
  std::printf("\n");
  demo::showSpine();
  const bool failed = demo::checks.failures() > 0;
  std::printf("\n%s\n", failed ? "Something is not as it should be." : "All is as it should be.");
  return failed ? 1 : 0;
}
