#pragma once

#include <sys/types.h>

#include <string>

namespace nvxcore::benchmarks {

/// The development geo server in a process of its own, which ends with this object. Its program is found
/// through the environment variable NVXCORE_GEOSERVER; NVXCORE_SERVER_CPU pins it to a processor.
class ServerProcess {
 public:
  ServerProcess();
  ~ServerProcess();
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;
  /// "http://127.0.0.1:PORT/"
  const std::string& url() const { return _url; }

 private:
  pid_t _process = -1;
  std::string _url;
};

}  // namespace nvxcore::benchmarks
