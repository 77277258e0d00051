#include "nvxcore/platform/linux/RedirectRules.h"

#include <strings.h>

#include <string>
#include <utility>

namespace nvxcore {

namespace {

bool isRedirect(int status) {
  return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

uint16_t portOf(const URL& url) {
  return url.port().value_or(::strcasecmp(url.scheme().c_str(), "https") == 0 ? 443 : 80);
}

bool sameOrigin(const URL& a, const URL& b) {
  return ::strcasecmp(a.scheme().c_str(), b.scheme().c_str()) == 0 &&
         ::strcasecmp(a.host().c_str(), b.host().c_str()) == 0 && portOf(a) == portOf(b);
}

/// A server must not send its client to files of its own machine.
bool isWebScheme(const std::string& scheme) {
  return ::strcasecmp(scheme.c_str(), "http") == 0 || ::strcasecmp(scheme.c_str(), "https") == 0;
}

bool becomesGet(int status, const std::string& method) {
  if (status == 303) return method != "GET" && method != "HEAD";
  return (status == 301 || status == 302) && method == "POST";
}

}  // namespace

std::optional<URLRequest> redirectedRequest(const URLRequest& request, const URLResponse& response) {
  if (!isRedirect(response.statusCode())) return std::nullopt;
  const std::optional<std::string> location = response.headers().value("Location");
  if (!location || location->empty()) return std::nullopt;
  URL target = request.url.resolving(*location);
  if (!target || !isWebScheme(target.scheme())) return std::nullopt;
  // The fragment stays where the new place names none (RFC 9110, 10.2.2).
  if (const std::string& fragment = request.url.fragment();
      !fragment.empty() && target.absoluteString().find('#') == std::string::npos)
    target = URL::withString(target.absoluteString() + "#" + fragment);

  URLRequest next = request;
  next.url = std::move(target);
  next.headers.set("Host", std::nullopt);
  next.headers.set("Cookie", std::nullopt);  // The store has those of the new place.
  if (becomesGet(response.statusCode(), request.method)) {
    next.method = "GET";
    next.body = Data();
    next.bodyStream = nullptr;
    for (const char* name : {"Content-Type", "Content-Encoding", "Content-Language", "Content-Location"})
      next.headers.set(name, std::nullopt);
  }
  if (!sameOrigin(request.url, next.url)) {
    next.headers.set("Authorization", std::nullopt);
    next.headers.set("Proxy-Authorization", std::nullopt);
  }
  return next;
}

}  // namespace nvxcore
