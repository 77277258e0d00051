#include "tools/geoserver/Exchange.h"

#include <cstdio>

namespace nvxcore::geoserver {

const char* endingName(Ending ending) {
  switch (ending) {
    case Ending::none:
      return "under way";
    case Ending::answered:
      return "answered";
    case Ending::cut:
      return "cut";
    case Ending::reset:
      return "reset";
    case Ending::streamReset:
      return "stream reset";
    case Ending::refused:
      return "refused";
    case Ending::collateral:
      return "collateral";
    case Ending::clientGone:
      return "client gone";
    case Ending::badRequest:
      return "bad request";
    case Ending::serverStopped:
      return "server stopped";
  }
  return "unknown";
}

std::string Exchange::summary() const {
  std::string line = "#" + std::to_string(sequence) + " connection " + std::to_string(connection);
  if (streamId) line += " stream " + std::to_string(streamId);
  line += ": " + method + " " + target + " " + version + ", " + std::to_string(bodyBytes) + " bytes";
  if (!post.requests.empty()) {
    line += ", " + std::to_string(post.requests.size()) + " requests [";
    for (size_t i = 0; i < post.requests.size(); ++i) {
      const PostRequest& request = post.requests[i];
      line += (i ? " " : "") + std::to_string(request.id) + ":" + std::to_string(request.payloadLength);
    }
    line += "]";
  }
  if (!post.error.empty()) line += ", undecodable " + post.error;
  line += " -> " + (status ? std::to_string(status) : std::string("no reply"));
  line += ", " + std::to_string(replyBytesSent) + " bytes";
  if (fault != FaultKind::none) line += ", " + plan;
  line += ", " + std::string(endingName(ending));
  if (!handlerError.empty()) line += " (" + handlerError + ")";
  const std::chrono::duration<double, std::milli> taken = ended - headArrived;
  char time[32];
  std::snprintf(time, sizeof(time), "%.1f", taken.count());
  return line + " after " + time + " ms";
}

}  // namespace nvxcore::geoserver
