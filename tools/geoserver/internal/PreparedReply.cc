#include "tools/geoserver/internal/PreparedReply.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <utility>

namespace nvxcore::geoserver {
namespace {

constexpr std::string_view kProtocolType = "application/binary";

HeaderList replyHeaders(const ReplyPlan& plan) {
  HeaderList headers;
  headers.add("Date", httpDate());
  headers.add("Content-Type", kProtocolType);
  for (const auto& field : plan.headers) headers.remove(field.first);
  for (const std::string& name : plan.absent) headers.remove(name);
  for (const auto& [name, value] : plan.headers) headers.add(name, value);
  return headers;
}

}  // namespace

bool PreparedReply::lacks(std::string_view name) const {
  const auto same = [name](const std::string& other) { return equalsIgnoringCase(name, other); };
  return !headers.has(name) && std::none_of(absent.begin(), absent.end(), same);
}

PreparedReply prepareReply(const ReplyPlan& plan, const Exchange& exchange, const RequestTypes& types,
                           const Compression& compression) {
  PreparedReply reply;
  reply.status = plan.status;
  reply.reason = plan.reason.empty() ? reasonPhrase(plan.status) : plan.reason;
  reply.headers = replyHeaders(plan);
  reply.absent = plan.absent;
  reply.trailers = plan.trailers;
  reply.framing = plan.framing;
  reply.bodyAllowed = exchange.method != "HEAD" && plan.status != 204 && plan.status != 304;
  reply.lengthAllowed = plan.status != 204;

  ProtocolReply content;
  if (plan.body) {
    content.bytes = *plan.body;
  } else if (exchange.bodyComplete && exchange.post.header.version != 0) {
    content = answerPost(exchange, types, compression);
  }
  reply.goodBytes = content.bytes.size();
  if (!plan.changes.empty()) {
    const std::string unchanged = content.bytes;
    for (const BodyChange& change : plan.changes) change(content);
    reply.spoiledAnswer = content.spoiledAnswer;
    const size_t common = std::min(unchanged.size(), content.bytes.size());
    const auto end = unchanged.begin() + static_cast<std::ptrdiff_t>(common);
    const auto differs = std::mismatch(unchanged.begin(), end, content.bytes.begin()).first;
    // A spoiled answer leaves those behind it as good as they were.
    reply.goodBytes =
        content.spoiledAnswer ? content.bytes.size() : static_cast<size_t>(differs - unchanged.begin());
  }
  if (plan.truncateAt && *plan.truncateAt < content.bytes.size()) content.bytes.resize(*plan.truncateAt);
  if (plan.status >= 300 || reply.headers.value("Content-Type") != kProtocolType) reply.goodBytes = 0;
  reply.body = std::move(content.bytes);
  reply.answerEnds = std::move(content.answerEnds);
  reply.notes = std::move(content.notes);
  reply.declaredLength = plan.declaredLength.value_or(reply.body.size());
  return reply;
}

const char* reasonPhrase(int status) {
  switch (status) {
    case 100:
      return "Continue";
    case 101:
      return "Switching Protocols";
    case 103:
      return "Early Hints";
    case 200:
      return "OK";
    case 201:
      return "Created";
    case 202:
      return "Accepted";
    case 204:
      return "No Content";
    case 206:
      return "Partial Content";
    case 301:
      return "Moved Permanently";
    case 302:
      return "Found";
    case 303:
      return "See Other";
    case 304:
      return "Not Modified";
    case 307:
      return "Temporary Redirect";
    case 308:
      return "Permanent Redirect";
    case 400:
      return "Bad Request";
    case 401:
      return "Unauthorized";
    case 403:
      return "Forbidden";
    case 404:
      return "Not Found";
    case 405:
      return "Method Not Allowed";
    case 408:
      return "Request Timeout";
    case 412:
      return "Precondition Failed";
    case 413:
      return "Content Too Large";
    case 416:
      return "Range Not Satisfiable";
    case 429:
      return "Too Many Requests";
    case 431:
      return "Request Header Fields Too Large";
    case 500:
      return "Internal Server Error";
    case 501:
      return "Not Implemented";
    case 502:
      return "Bad Gateway";
    case 503:
      return "Service Unavailable";
    case 504:
      return "Gateway Timeout";
    case 505:
      return "HTTP Version Not Supported";
    default:
      return "Status";
  }
}

std::string_view httpDate() {
  // By hand, because strftime would follow the process's locale.
  static constexpr const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  static constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                            "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  thread_local time_t second = 0;
  thread_local char text[64];
  const time_t now = time(nullptr);
  if (now != second) {
    second = now;
    tm parts{};
    gmtime_r(&now, &parts);
    std::snprintf(text, sizeof(text), "%s, %02d %s %d %02d:%02d:%02d GMT", kDays[parts.tm_wday],
                  parts.tm_mday, kMonths[parts.tm_mon], parts.tm_year + 1900, parts.tm_hour, parts.tm_min,
                  parts.tm_sec);
  }
  return text;
}

}  // namespace nvxcore::geoserver
