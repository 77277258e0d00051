// How a geo server is set up, and the figures that it counts.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "tools/geoserver/IdentityOffice.h"
#include "tools/geoserver/Subdata.h"

namespace nvxcore::geoserver {

enum class CertificateKind {
  good,       // for localhost, 127.0.0.1 and ::1
  wrongHost,  // for a name that is none of the server's
  expired,
};

// What the record keeps of exchanges.
enum class RecordLevel {
  everything,
  withoutBodies,  // bodies and their decoded requests go when the exchange has ended
  countersOnly,   // exchanges go when they have ended: for long runs and benchmarks
};

struct ServerOptions {
  std::string address = "127.0.0.1";  // or "::1"
  uint16_t port = 0;                  // 0 lets the system choose a free one

  bool tls = false;
  bool http2 = true;  // offered by ALPN; only with tls
  CertificateKind certificate = CertificateKind::good;
  // Speaks nothing newer than TLS 1.1, which a client of today refuses.
  bool onlyOutdatedTls = false;

  // Resources and client parameters are served from it, see ContentFolder. Without one no resource is there,
  // and no parameters have changed.
  std::string folder;
  IdentityOptions identity;
  Compression compression;  // of answers that are messages

  RecordLevel record = RecordLevel::everything;
  bool keepReplies = false;                    // the record, and observers, have the replies to POSTs too
  size_t maxHeadBytes = 256 * 1024;            // a longer head gets a 431
  uint64_t maxBodyBytes = 1024 * 1024 * 1024;  // a longer body gets a 413
  bool answersExpect = true;                   // sends "100 Continue" to who asks for it
  // A client that has shut down its sending side while its reply is held up by the plan counts as gone, as a
  // client that closed looks no different. With this it is waited for.
  bool waitsForHalfClosedClients = false;
  std::chrono::milliseconds defaultDelay{0};  // before replies that no script, queue or handler planned
  std::chrono::milliseconds idleTimeout{0};   // closes connections without exchange; 0 never does
  // How long, and over how many bytes, a connection that is being closed still reads what the client sends,
  // so that the client sees an orderly end and not a reset.
  std::chrono::milliseconds lingerTime{2000};
  uint64_t lingerBytes = 256 * 1024 * 1024;
  int sendBufferBytes = 0;  // SO_SNDBUF of each connection; 0 leaves the system's
};

struct Counters {
  uint64_t connectionsAccepted = 0;
  uint64_t connectionsOpen = 0;
  uint64_t tlsHandshakes = 0;
  uint64_t exchangesStarted = 0;   // heads that arrived
  uint64_t exchangesReceived = 0;  // bodies that arrived whole
  uint64_t exchangesEnded = 0;
  uint64_t exchangesStalled = 0;  // in a stall step at this moment
  uint64_t requestsReceived = 0;  // requests in decoded POSTs
  uint64_t badRequests = 0;       // client input that was no HTTP
  uint64_t unknownCookies = 0;    // decoded POSTs with a cookie that this server never issued
  uint64_t clientFaults = 0;      // decoded POSTs in which the client got something wrong
  uint64_t bytesIn = 0;           // over the sockets, TLS aside
  uint64_t bytesOut = 0;
};

}  // namespace nvxcore::geoserver
