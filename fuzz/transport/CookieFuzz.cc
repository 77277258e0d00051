// Replies that set cookies, and what is looked up in the store afterwards. The first line is the URL of the
// reply; a line with ":" at its start is a URL to look up; the others are "Set-Cookie" fields.

#include <algorithm>
#include <string>
#include <vector>

#include "fuzz/support/FuzzInput.h"
#include "nvxcore/platform/HTTPCookie.h"
#include "nvxcore/transport/NVXx_HTKSessionCookieStorage.h"

namespace {

using namespace nvxcore;

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? c + 32 : c; });
  return text;
}

bool isLocal(const std::string& host) { return host == "localhost" || host == "::1" || host == "127.0.0.1"; }

void checkCookie(const HTTPCookie& cookie, const URL& url, Date now) {
  const std::string host = lower(url.host());
  NVX_MUST_HOLD(!cookie.name().empty() && cookie.path().front() == '/');
  NVX_MUST_HOLD(cookie.domain() == host || ("." + host).ends_with(cookie.domain()));
  for (const std::string* part : {&cookie.name(), &cookie.value(), &cookie.path()}) {
    for (unsigned char c : *part) NVX_MUST_HOLD((c >= 0x20 || c == '\t') && c != 0x7F);
  }
  NVX_MUST_HOLD(cookie.name().find(';') == std::string::npos &&
                cookie.value().find(';') == std::string::npos);
  if (const auto date = cookie.expiresDate()) {
    // From the year 1601 to 9999, or the largest age from now on.
    const double seconds = date->timeIntervalSince1970();
    NVX_MUST_HOLD(seconds >= -11644473600.0 &&
                  seconds <= std::max(253402300799.0, now.timeIntervalSince1970() + 0x1p63));
  }
}

void checkFound(const std::vector<HTTPCookie>& found, const URL& url) {
  NVX_MUST_HOLD(!found.empty() && !url.host().empty());
  const std::string host = lower(url.host());
  for (const HTTPCookie& cookie : found) {
    std::string domain = lower(cookie.domain());
    NVX_MUST_HOLD(!cookie.isSecure() || lower(url.scheme()) == "https");
    NVX_MUST_HOLD(cookie.path() == "/" || url.path().starts_with(cookie.path()) ||
                  url.encodedPath().starts_with(cookie.path()));
    if (isLocal(host)) {
      NVX_MUST_HOLD(isLocal(domain) || domain == "localhost.local");
    } else {
      if (domain.front() != '.') domain = "." + domain;
      NVX_MUST_HOLD(("." + host).ends_with(domain));
    }
  }
  const std::string header = HTTPCookie::requestHeaderValue(found);
  NVX_MUST_HOLD(header.find_first_of("\r\n") == std::string::npos);
  NVX_MUST_HOLD(static_cast<size_t>(std::count(header.begin(), header.end(), ';')) == found.size() - 1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzzing::Lines lines(data, size);
  const URL url = URL::withString(lines.next());
  const Date now = Date::withTimeIntervalSince1970(1'700'000'000);
  NVXx_HTKSessionCookieStorage storage;
  HTTPHeaders headers;
  std::vector<URL> lookUps{url};
  while (!lines.atEnd()) {
    const std::string_view line = lines.next();
    if (line.starts_with(':')) {
      lookUps.push_back(URL::withString(line.substr(1)));
    } else {
      headers.add("Set-Cookie", line);
    }
  }
  const std::vector<HTTPCookie> cookies = HTTPCookie::cookiesWithResponseHeaders(headers, url, now);
  NVX_MUST_HOLD(cookies.size() <= headers.size());
  for (const HTTPCookie& cookie : cookies) checkCookie(cookie, url, now);
  storage.setCookies(cookies, url, URL());
  // Each is there once, and none that has expired.
  const std::vector<HTTPCookie> stored = storage.cookies();
  for (size_t i = 0; i < stored.size(); ++i) {
    NVX_MUST_HOLD(!NVXx_HTKSessionCookieStorage::hasCookieExpired(stored[i]));
    for (size_t j = 0; j < i; ++j) {
      NVX_MUST_HOLD(stored[i].name() != stored[j].name() || stored[i].domain() != stored[j].domain() ||
                    stored[i].path() != stored[j].path());
    }
  }
  for (const URL& lookUp : lookUps) {
    if (const auto found = storage.cookiesForURL(lookUp)) checkFound(*found, lookUp);
  }
  for (const HTTPCookie& cookie : stored) storage.deleteCookie(cookie);
  NVX_MUST_HOLD(storage.cookies().empty());
  return 0;
}
