#include "benchmarks/support/ServerProcess.h"

#include <sched.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace nvxcore::benchmarks {

ServerProcess::ServerProcess() {
  const char* program = std::getenv("NVXCORE_GEOSERVER");
  int ends[2];
  if (!program || ::pipe(ends) != 0) {
    std::fprintf(stderr, "NVXCORE_GEOSERVER must name the geoserver program\n");
    std::exit(1);
  }
  _process = ::fork();
  if (_process == 0) {
    if (const char* cpu = std::getenv("NVXCORE_SERVER_CPU")) {
      cpu_set_t set;
      CPU_ZERO(&set);
      CPU_SET(std::atoi(cpu), &set);
      ::sched_setaffinity(0, sizeof set, &set);
    }
    ::dup2(ends[1], STDOUT_FILENO);
    ::execl(program, program, "--quiet", nullptr);
    ::_exit(127);
  }
  ::close(ends[1]);
  std::FILE* output = ::fdopen(ends[0], "r");
  char line[256] = "";
  if (std::fgets(line, sizeof line, output)) _url = line;
  const size_t start = _url.find("http://");
  _url = start == std::string::npos ? "" : _url.substr(start, _url.find_last_not_of("\n") + 1 - start);
  if (_url.empty()) {
    std::fprintf(stderr, "the geo server did not start\n");
    std::exit(1);
  }
}

ServerProcess::~ServerProcess() {
  ::kill(_process, SIGTERM);
  ::waitpid(_process, nullptr, 0);
}

}  // namespace nvxcore::benchmarks
