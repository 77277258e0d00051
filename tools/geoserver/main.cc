// The development geo server as a program: serves until SIGINT or SIGTERM, and prints what it is asked.

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "tools/geoserver/FaultScript.h"
#include "tools/geoserver/GeoServer.h"

namespace {

using namespace nvxcore::geoserver;

constexpr const char* kUsage =
    "usage: geoserver [options]\n"
    "  --port N         listen there; 0, the default, lets the system choose\n"
    "  --address A      127.0.0.1, the default, or another numeric address\n"
    "  --tls            TLS with a certificate made at start; HTTP/2 is offered\n"
    "  --http2          the same as --tls: HTTP/2 is spoken over TLS only\n"
    "  --no-http2       TLS, HTTP/1.1 only\n"
    "  --delay-ms N     wait before replies\n"
    "  --faults SEED    deal faulty replies at random\n"
    "  --idle-ms N      close connections that are idle for that long\n"
    "  --linger-ms N    how long a closing connection still reads\n"
    "  --quiet          print no exchanges, and keep none\n"
    "The first line printed is the server's URL, the second, with TLS, the CA file to trust.\n";

struct Arguments {
  ServerOptions server;
  bool quiet = false;
  bool help = false;
  std::optional<uint64_t> faultSeed;
};

uint64_t numberArgument(const std::string& option, const char* text) {
  char* end = nullptr;
  const unsigned long long value = std::strtoull(text, &end, 10);
  if (*text < '0' || *text > '9' || *end)
    throw std::invalid_argument(option + " takes a number, not " + text);
  return value;
}

Arguments parseArguments(int count, char** values) {
  Arguments arguments;
  arguments.server.record = RecordLevel::countersOnly;
  for (int i = 1; i < count; ++i) {
    const std::string option = values[i];
    const auto value = [&]() -> const char* {
      if (i + 1 == count) throw std::invalid_argument(option + " takes a value");
      return values[++i];
    };
    const auto millis = [&] { return Millis(numberArgument(option, value())); };
    if (option == "--port") {
      const uint64_t port = numberArgument(option, value());
      if (port > 65535) throw std::invalid_argument("no such port");
      arguments.server.port = static_cast<uint16_t>(port);
    } else if (option == "--address") {
      arguments.server.address = value();
    } else if (option == "--tls" || option == "--http2") {
      arguments.server.tls = true;
    } else if (option == "--no-http2") {
      arguments.server.tls = true;
      arguments.server.http2 = false;
    } else if (option == "--delay-ms") {
      arguments.server.defaultDelay = millis();
    } else if (option == "--idle-ms") {
      arguments.server.idleTimeout = millis();
    } else if (option == "--linger-ms") {
      arguments.server.lingerTime = millis();
    } else if (option == "--faults") {
      arguments.faultSeed = numberArgument(option, value());
    } else if (option == "--quiet") {
      arguments.quiet = true;
    } else if (option == "--help" || option == "-h") {
      arguments.help = true;
    } else {
      throw std::invalid_argument("unknown option " + option);
    }
  }
  return arguments;
}

void serve(const Arguments& arguments) {
  // Blocked before the server's thread starts, so that they come to the descriptor alone.
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGINT);
  sigaddset(&ends, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);

  std::unique_ptr<FaultScript> faults;
  GeoServer server(arguments.server);
  if (!arguments.quiet) {
    server.setObserver([](const Exchange& exchange) {
      std::printf("%s\n", exchange.summary().c_str());
      std::fflush(stdout);
    });
  }
  if (arguments.faultSeed) {
    faults = std::make_unique<FaultScript>(*arguments.faultSeed);
    faults->attachTo(server);
  }
  std::printf("listening on %s\n", server.url().c_str());
  if (arguments.server.tls) std::printf("CA file %s\n", server.caFile().c_str());
  std::fflush(stdout);

  const int signals = signalfd(-1, &ends, SFD_CLOEXEC);
  pollfd waiting{signals, POLLIN, 0};
  while (poll(&waiting, 1, -1) < 0) {
  }
  close(signals);
  server.stop();
  const Counters counters = server.counters();
  std::printf("served %llu exchanges with %llu requests on %llu connections, %llu bytes in, %llu out\n",
              static_cast<unsigned long long>(counters.exchangesEnded),
              static_cast<unsigned long long>(counters.requestsReceived),
              static_cast<unsigned long long>(counters.connectionsAccepted),
              static_cast<unsigned long long>(counters.bytesIn),
              static_cast<unsigned long long>(counters.bytesOut));
  if (faults) std::printf("%s", faults->report().c_str());
}

}  // namespace

int main(int count, char** values) {
  try {
    const Arguments arguments = parseArguments(count, values);
    if (arguments.help) {
      std::fputs(kUsage, stdout);
      return 0;
    }
    serve(arguments);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "geoserver: %s\n%s", error.what(), kUsage);
    return 2;
  }
}
