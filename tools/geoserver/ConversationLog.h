// An exchange as text that people read.
#pragma once

#include <string>

#include "tools/geoserver/Exchange.h"

namespace nvxcore::geoserver {

enum class LogLevel {
  brief,    // a line for the exchange, and one for each request of a POST with its bytes both ways
  verbose,  // and the POST's header fields, its head, X-Geo's descriptors, and each message in text format
};

// The lines, each ended. Bytes of answers are known where ServerOptions::keepReplies kept the reply.
std::string conversation(const Exchange& exchange, const RequestTypes& types, LogLevel level);

}  // namespace nvxcore::geoserver
