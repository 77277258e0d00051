#include "tools/geoserver/BuiltInHandlers.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <utility>

#include "tools/geoserver/internal/Encoding.h"
#include "tools/geoserver/internal/Uri.h"

namespace nvxcore::geoserver {
namespace {

constexpr std::string_view kText = "text/plain";
constexpr std::string_view kBytes = "application/octet-stream";
constexpr std::string_view kLastModified = "Sat, 01 Jan 2022 00:00:00 GMT";
constexpr uint64_t kMostBytes = uint64_t{1} << 31;

using Parts = std::vector<std::string>;
using Handler = ReplyPlan (*)(const Exchange&, const Parts&);

ReplyPlan badPath() { return ReplyPlan::withBody(400, kText, "bad path or query\n"); }

// The argument behind a path's first part, as a number that is not absurd.
std::optional<uint64_t> argument(const Parts& parts, size_t place, uint64_t most) {
  if (place >= parts.size()) return std::nullopt;
  const auto value = number(parts[place]);
  return value && *value <= most ? value : std::nullopt;
}

ReplyPlan statusReply(const Exchange&, const Parts& parts) {
  const auto code = argument(parts, 1, 999);
  if (!code || *code < 200) return badPath();
  return ReplyPlan::withBody(static_cast<int>(*code), kText, "status " + parts[1] + "\n");
}

struct Range {
  uint64_t begin;
  uint64_t end;
};

// The single range that a Range field asks for. Nothing when there is none, or one that may be ignored; an
// empty one when it lies outside.
std::optional<Range> askedRange(std::string_view field, uint64_t length) {
  if (!field.starts_with("bytes=") || field.find(',') != std::string_view::npos) return std::nullopt;
  field.remove_prefix(6);
  const size_t dash = field.find('-');
  if (dash == std::string_view::npos) return std::nullopt;
  const auto first = number(field.substr(0, dash));
  const auto last = number(field.substr(dash + 1));
  if (!first) {
    if (dash != 0 || !last) return std::nullopt;
    return Range{length - std::min(*last, length), length};
  }
  if (!last && dash + 1 != field.size()) return std::nullopt;
  if (last && *last < *first) return std::nullopt;
  return Range{std::min(*first, length), last ? std::min(*last, length - (length ? 1 : 0)) + 1 : length};
}

ReplyPlan bytesReply(const Exchange& exchange, const Parts& parts) {
  const auto length = argument(parts, 1, kMostBytes);
  if (!length) return badPath();
  const std::string tag = "\"bytes-" + parts[1] + "\"";
  const std::string_view condition = exchange.headers.value("If-Range");
  const bool current = condition.empty() || condition == tag || condition == kLastModified;
  const auto range = current ? askedRange(exchange.headers.value("Range"), *length) : std::nullopt;
  const auto common = [&](ReplyPlan plan) {
    return plan.withHeader("ETag", tag)
        .withHeader("Last-Modified", kLastModified)
        .withHeader("Accept-Ranges", "bytes");
  };
  if (!range) return common(ReplyPlan::withBody(200, kBytes, patternBytes(0, *length)));
  if (range->begin >= range->end) {
    return common(
        ReplyPlan::withBody(416, kText, "outside\n").withHeader("Content-Range", "bytes */" + parts[1]));
  }
  const std::string place =
      "bytes " + std::to_string(range->begin) + "-" + std::to_string(range->end - 1) + "/" + parts[1];
  return common(ReplyPlan::withBody(206, kBytes, patternBytes(range->begin, range->end - range->begin))
                    .withHeader("Content-Range", place));
}

ReplyPlan echoReply(const Exchange& exchange, const Parts&) {
  const std::string_view type = exchange.headers.value("Content-Type");
  return ReplyPlan::withBody(200, type.empty() ? kBytes : type, *exchange.body)
      .withHeader("X-Echo-Method", exchange.method)
      .withHeader("X-Echo-Length", std::to_string(exchange.body->size()));
}

ReplyPlan headersReply(const Exchange& exchange, const Parts&) {
  std::string text;
  for (const auto& [name, value] : exchange.headers) text += name + ": " + value + "\n";
  return ReplyPlan::withBody(200, kText, std::move(text));
}

ReplyPlan redirectReply(const Exchange& exchange, const Parts& parts) {
  const auto code = argument(parts, 1, 399);
  const auto to = queryField(exchange.query, "to");
  if (!code || *code < 300 || !to) return badPath();
  return ReplyPlan::withBody(static_cast<int>(*code), kText, "over there\n").withHeader("Location", *to);
}

ReplyPlan cookiesReply(const Exchange& exchange, const Parts& parts) {
  if (parts.size() != 2 || parts[1] != "set") return badPath();
  ReplyPlan plan = ReplyPlan::withBody(200, kText, "cookies set\n");
  for (const auto& [name, value] : queryFields(exchange.query))
    plan.withHeader("Set-Cookie", name + "=" + value + "; Path=/");
  return plan;
}

ReplyPlan encodedReply(const Exchange&, const Parts& parts) {
  const auto length = argument(parts, 2, kMostBytes);
  if (!length) return badPath();
  auto bytes = encoded(parts[1], repeatedText(*length));
  if (!bytes) return badPath();
  return ReplyPlan::withBody(200, kBytes, std::move(*bytes)).withHeader("Content-Encoding", parts[1]);
}

ReplyPlan dripReply(const Exchange& exchange, const Parts&) {
  const auto bytes = number(queryField(exchange.query, "bytes").value_or("10"));
  const auto every = number(queryField(exchange.query, "everyMs").value_or("10"));
  if (!bytes || *bytes > kMostBytes || !every || *every > kMostBytes) return badPath();
  return ReplyPlan::withBody(200, kBytes, patternBytes(0, *bytes)).thenDrip(1, Millis(*every));
}

ReplyPlan delayReply(const Exchange&, const Parts& parts) {
  const auto wait = argument(parts, 1, kMostBytes);
  if (!wait) return badPath();
  return ReplyPlan::withBody(200, kText, "after " + parts[1] + " ms\n").thenPause(Millis(*wait));
}

std::string base64(const std::string& text) {
  std::string out(4 * ((text.size() + 2) / 3) + 1, '\0');
  const int length =
      EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out.data()),
                      reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size()));
  out.resize(static_cast<size_t>(length));
  return out;
}

ReplyPlan basicAuthReply(const Exchange& exchange, const Parts& parts) {
  if (parts.size() != 3) return badPath();
  if (exchange.headers.value("Authorization") == "Basic " + base64(parts[1] + ":" + parts[2])) {
    return ReplyPlan::withBody(200, kText, "welcome " + parts[1] + "\n");
  }
  return ReplyPlan::withBody(401, kText, "who?\n")
      .withHeader("WWW-Authenticate", "Basic realm=\"geoserver\"");
}

constexpr std::array<std::pair<std::string_view, Handler>, 10> kHandlers{{
    {"status", statusReply},
    {"bytes", bytesReply},
    {"echo", echoReply},
    {"headers", headersReply},
    {"redirect", redirectReply},
    {"cookies", cookiesReply},
    {"encoded", encodedReply},
    {"drip", dripReply},
    {"delay", delayReply},
    {"basic-auth", basicAuthReply},
}};

Handler handlerOf(std::string_view path) {
  if (path.empty() || path.front() != '/') return nullptr;
  path.remove_prefix(1);
  const std::string_view first = path.substr(0, path.find('/'));
  for (const auto& [name, handler] : kHandlers) {
    if (name == first) return handler;
  }
  return nullptr;
}

}  // namespace

bool isBuiltInPath(std::string_view path) { return handlerOf(path) != nullptr; }

std::optional<ReplyPlan> builtInReply(const Exchange& exchange) {
  const Handler handler = handlerOf(exchange.path);
  if (!handler) return std::nullopt;
  return handler(exchange, pathParts(exchange.path));
}

std::string patternBytes(uint64_t offset, size_t length) {
  std::string bytes(length, '\0');
  for (size_t i = 0; i < length; ++i) {
    const uint64_t at = offset + i;
    bytes[i] = static_cast<char>((at ^ (at >> 8) * 37) % 251);
  }
  return bytes;
}

std::string repeatedText(size_t length) {
  constexpr std::string_view kLine = "the same line of text again and again, which packs very well. \n";
  std::string text;
  text.reserve(length + kLine.size());
  while (text.size() < length) text += kLine;
  text.resize(length);
  return text;
}

}  // namespace nvxcore::geoserver
