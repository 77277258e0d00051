// The development geo server as a program: serves until SIGINT or SIGTERM, and prints what it is asked.

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <system_error>
#include <vector>

#include "tools/geoserver/FaultScript.h"
#include "tools/geoserver/GeoServer.h"

namespace {

using namespace nvxcore::geoserver;

constexpr const char* kUsage =
    "usage: geoserver [options]\n"
    "  --folder DIR     serve resources from DIR/resources and client parameters from DIR/parameters\n"
    "  --port N         listen there; 0, the default, lets the system choose\n"
    "  --address A      127.0.0.1, the default, or another numeric address\n"
    "  --log LEVEL      brief, the default: a line for each exchange and each request of a POST, with bytes "
    "and\n"
    "                   times; verbose: header fields, X-Geo descriptors and messages as text as well; none\n"
    "  --compress WHEN  compress answers for clients that take it: always, never (the default), or from N "
    "bytes\n"
    "  --compress-as F  gzip, the default, or zlib\n"
    "  --cohort NAME    tell clients of that cohort; an empty one tells none\n"
    "  --country CC     tell clients of that legal country\n"
    "  --cookies FILE   know the cookies in the file, and add those that are issued\n"
    "  --cookie-seed N  issue the same cookies each time; else they differ from run to run\n"
    "  --fail ID:STATUS:TIMES  answer the next TIMES POSTs with a request of type ID with that HTTP status;\n"
    "                   may be given several times\n"
    "  --faults SEED    deal faulty replies at random\n"
    "  --delay-ms N     wait before replies\n"
    "  --idle-ms N      close connections that are idle for that long\n"
    "  --linger-ms N    how long a closing connection still reads\n"
    "  --tls            TLS with a certificate made at start; HTTP/2 is offered\n"
    "  --http2          the same as --tls: HTTP/2 is spoken over TLS only\n"
    "  --no-http2       TLS, HTTP/1.1 only\n"
    "  --quiet          the same as --log none\n"
    "The first line printed is the server's URL, the second, with TLS, the CA file to trust. It serves "
    "until\n"
    "SIGINT or SIGTERM.\n";

struct TypeFailure {
  uint16_t id = 0;
  int status = 0;
  uint64_t times = 0;
};

struct Arguments {
  ServerOptions server;
  std::optional<LogLevel> log = LogLevel::brief;
  std::vector<TypeFailure> failures;
  std::string cookieFile;
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

uint64_t numberArgument(const std::string& option, const std::string& text, uint64_t most) {
  const uint64_t value = numberArgument(option, text.c_str());
  if (value > most) throw std::invalid_argument(option + " takes no number as large as " + text);
  return value;
}

std::optional<LogLevel> logArgument(const std::string& text) {
  if (text == "brief") return LogLevel::brief;
  if (text == "verbose") return LogLevel::verbose;
  if (text == "none") return std::nullopt;
  throw std::invalid_argument("--log takes none, brief or verbose, not " + text);
}

uint64_t compressArgument(const std::string& text) {
  if (text == "always") return 0;
  if (text == "never") return Compression::kNever;
  return numberArgument("--compress", text.c_str());
}

Compression::Format formatArgument(const std::string& text) {
  if (text == "gzip") return Compression::Format::gzip;
  if (text == "zlib") return Compression::Format::zlib;
  throw std::invalid_argument("--compress-as takes gzip or zlib, not " + text);
}

TypeFailure failArgument(const std::string& text) {
  const size_t first = text.find(':');
  const size_t second = text.find(':', first + 1);
  if (first == std::string::npos || second == std::string::npos)
    throw std::invalid_argument("--fail takes ID:STATUS:TIMES, not " + text);
  TypeFailure failure;
  failure.id = static_cast<uint16_t>(numberArgument("--fail", text.substr(0, first), 65535));
  failure.status =
      static_cast<int>(numberArgument("--fail", text.substr(first + 1, second - first - 1), 599));
  failure.times = numberArgument("--fail", text.substr(second + 1).c_str());
  if (failure.status < 200) throw std::invalid_argument("--fail takes a status from 200, not " + text);
  return failure;
}

Arguments parseArguments(int count, char** values) {
  Arguments arguments;
  ServerOptions& server = arguments.server;
  server.record = RecordLevel::countersOnly;
  server.identity.cookieSeed = std::random_device()() | uint64_t{std::random_device()()} << 32;
  for (int i = 1; i < count; ++i) {
    const std::string option = values[i];
    const auto value = [&]() -> const char* {
      if (i + 1 == count) throw std::invalid_argument(option + " takes a value");
      return values[++i];
    };
    const auto millis = [&] { return Millis(numberArgument(option, value())); };
    if (option == "--folder") {
      server.folder = value();
      if (server.folder.empty()) throw std::invalid_argument("--folder takes a folder");
    } else if (option == "--port") {
      server.port = static_cast<uint16_t>(numberArgument(option, value(), 65535));
    } else if (option == "--address") {
      server.address = value();
    } else if (option == "--log") {
      arguments.log = logArgument(value());
    } else if (option == "--quiet") {
      arguments.log.reset();
    } else if (option == "--compress") {
      server.compression.fromBytes = compressArgument(value());
    } else if (option == "--compress-as") {
      server.compression.format = formatArgument(value());
    } else if (option == "--cohort") {
      server.identity.cohort = value();
      if (server.identity.cohort->empty()) server.identity.cohort.reset();
    } else if (option == "--country") {
      server.identity.legalCountry = value();
    } else if (option == "--cookies") {
      arguments.cookieFile = value();
    } else if (option == "--cookie-seed") {
      server.identity.cookieSeed = numberArgument(option, value());
    } else if (option == "--fail") {
      arguments.failures.push_back(failArgument(value()));
    } else if (option == "--faults") {
      arguments.faultSeed = numberArgument(option, value());
    } else if (option == "--delay-ms") {
      server.defaultDelay = millis();
    } else if (option == "--idle-ms") {
      server.idleTimeout = millis();
    } else if (option == "--linger-ms") {
      server.lingerTime = millis();
    } else if (option == "--tls" || option == "--http2") {
      server.tls = true;
    } else if (option == "--no-http2") {
      server.tls = true;
      server.http2 = false;
    } else if (option == "--help" || option == "-h") {
      arguments.help = true;
    } else {
      throw std::invalid_argument("unknown option " + option);
    }
  }
  server.keepReplies = arguments.log.has_value();
  return arguments;
}

std::string timeOfDay() {
  const auto now = std::chrono::system_clock::now();
  const time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto millis =
      std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  tm parts{};
  localtime_r(&seconds, &parts);
  char text[32];
  std::snprintf(text, sizeof(text), "%02d:%02d:%02d.%03d", parts.tm_hour, parts.tm_min, parts.tm_sec,
                static_cast<int>(millis));
  return text;
}

// Cookies of this run and of those before, one on a line in hexadecimal.
class CookieFile {
 public:
  explicit CookieFile(const std::string& path) : _file(std::fopen(path.c_str(), "a+e"), std::fclose) {
    if (!_file) throw std::system_error(errno, std::generic_category(), path);
    std::rewind(_file.get());
    unsigned long long cookie = 0;
    while (std::fscanf(_file.get(), "%llx", &cookie) == 1) _cookies.push_back(static_cast<int64_t>(cookie));
    if (!std::feof(_file.get())) throw std::runtime_error(path + " is no list of cookies");
  }

  const std::vector<int64_t>& cookies() const { return _cookies; }
  void add(int64_t cookie) {
    std::fprintf(_file.get(), "%016llx\n", static_cast<unsigned long long>(cookie));
    std::fflush(_file.get());
  }

 private:
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> _file;
  std::vector<int64_t> _cookies;
};

void serve(Arguments arguments) {
  // Blocked before the server's thread starts, so that they come to the descriptor alone.
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGINT);
  sigaddset(&ends, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);

  std::unique_ptr<FaultScript> script;
  std::optional<CookieFile> cookies;
  if (!arguments.cookieFile.empty()) {
    cookies.emplace(arguments.cookieFile);
    arguments.server.identity.onCookie = [&cookies](int64_t cookie) { cookies->add(cookie); };
  }
  GeoServer server(arguments.server);
  if (cookies) {
    for (const int64_t cookie : cookies->cookies()) server.rememberCookie(cookie);
  }
  if (arguments.log) {
    server.setObserver([&server, level = *arguments.log](const Exchange& exchange) {
      std::printf("%s %s", timeOfDay().c_str(), server.describe(exchange, level).c_str());
      std::fflush(stdout);
    });
  }
  for (const TypeFailure& failure : arguments.failures)
    server.failRequests(failure.id, faults::status(failure.status, "as told\n"), failure.times);
  if (arguments.faultSeed) {
    script = std::make_unique<FaultScript>(*arguments.faultSeed, FaultScript::messageWeights());
    script->attachTo(server);
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
  if (counters.unknownCookies || counters.clientFaults) {
    std::printf("POSTs with unknown cookies %llu, with faults of the client %llu\n",
                static_cast<unsigned long long>(counters.unknownCookies),
                static_cast<unsigned long long>(counters.clientFaults));
  }
  if (script) std::printf("%s", script->report().c_str());
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
