#include "nvxcore/transport/NVXx_HTKSessionCookieStorage.h"

#include <algorithm>
#include <utility>

#include "nvxcore/foundation/base/NVXDateProvider.h"
#include "nvxcore/platform/HTTPSession.h"
#include "nvxcore/platform/Value.h"
#include "nvxcore/transport/internal/Hosts.h"

namespace nvxcore {

namespace {

constexpr char kCookieExpiresKey[] = "NSHTTPCookieExpires";

/// `dotted` is "." and the host, in lower case, for a host that is not local; empty where there is no host.
bool domainMatches(const HTTPCookie& cookie, bool local, const std::string& dotted) {
  std::string domain = lowercased(cookie.domain());
  if (local) return IsLocalhost(domain) || domain == "localhost.local";
  if (dotted.empty()) return false;
  if (!domain.starts_with('.')) domain.insert(0, 1, '.');
  return dotted.ends_with(domain);
}

}  // namespace

std::vector<HTTPCookie> NVXx_HTKSessionCookieStorage::cookies() const {
  Lock lock(_lock);
  return _cookies;
}

void NVXx_HTKSessionCookieStorage::setCookie(const HTTPCookie& cookie) {
  if (_policy == HTTPCookieAcceptPolicy::Never) return;
  Lock lock(_lock);
  internalSetCookie(cookie);
}

void NVXx_HTKSessionCookieStorage::setCookies(const std::vector<HTTPCookie>& cookies) {
  Lock lock(_lock);
  removeExpiredCookies();
  for (const HTTPCookie& cookie : cookies) internalSetCookie(cookie);
}

void NVXx_HTKSessionCookieStorage::setCookies(const std::vector<HTTPCookie>& cookies, const URL& url,
                                              const URL& mainDocumentURL) {
  const HTTPCookieAcceptPolicy policy = _policy;
  if (policy == HTTPCookieAcceptPolicy::Never) return;
  if (policy == HTTPCookieAcceptPolicy::OnlyFromMainDocumentDomain) {
    const std::string& main = mainDocumentURL.host();
    if (main.empty() || !url.host().ends_with(main)) return;
  }
  setCookies(cookies);
}

void NVXx_HTKSessionCookieStorage::deleteCookie(const HTTPCookie& cookie) {
  Lock lock(_lock);
  auto match = cookieMatchingCookie(cookie);
  if (match != _cookies.end()) _cookies.erase(match);
}

std::optional<std::vector<HTTPCookie>> NVXx_HTKSessionCookieStorage::cookiesForURL(const URL& url) {
  const std::string host = lowercased(url.host());
  const bool local = IsLocalhost(host);
  const std::string dotted = local || host.empty() ? std::string() : "." + host;
  const bool isSecure = lowercased(url.scheme()) == "https";
  std::vector<HTTPCookie> found;
  Lock lock(_lock);
  removeExpiredCookies();
  for (const HTTPCookie& cookie : _cookies) {
    if (!domainMatches(cookie, local, dotted)) continue;
    // Servers write a path as it stands in a URL, others as it reads.
    if (cookie.path() != "/" && !url.path().starts_with(cookie.path()) &&
        !url.encodedPath().starts_with(cookie.path())) {
      continue;
    }
    if (cookie.isSecure() && !isSecure) continue;
    found.push_back(cookie);
  }
  if (found.empty()) return std::nullopt;
  return found;
}

void NVXx_HTKSessionCookieStorage::storeCookies(const std::vector<HTTPCookie>& cookies,
                                                HTTPSessionTask& task) {
  setCookies(cookies, task.currentRequest().url, URL());
}

void NVXx_HTKSessionCookieStorage::getCookiesForTask(
    HTTPSessionTask& task, std::function<void(std::optional<std::vector<HTTPCookie>>)> completionHandler) {
  if (completionHandler) completionHandler(cookiesForURL(task.currentRequest().url));
}

void NVXx_HTKSessionCookieStorage::removeAllCookies() {
  Lock lock(_lock);
  _cookies.clear();
}

HTTPCookieAcceptPolicy NVXx_HTKSessionCookieStorage::cookieAcceptPolicy() const { return _policy; }
void NVXx_HTKSessionCookieStorage::setCookieAcceptPolicy(HTTPCookieAcceptPolicy policy) { _policy = policy; }

bool NVXx_HTKSessionCookieStorage::hasCookieExpired(const HTTPCookie& cookie) {
  std::optional<Date> date = cookie.expiresDate();
  if (!date) date = cookie.properties().get(kCookieExpiresKey).date();
  return date && *date < NVXSystemDateProvider().currentDate();
}

void NVXx_HTKSessionCookieStorage::internalSetCookie(const HTTPCookie& cookie) {
  if (_policy == HTTPCookieAcceptPolicy::Never) return;
  if (cookie.name().empty() || cookie.domain().empty() || cookie.path().empty()) return;
  auto match = cookieMatchingCookie(cookie);
  if (match != _cookies.end()) _cookies.erase(match);
  if (!hasCookieExpired(cookie)) _cookies.push_back(cookie);
}

std::vector<HTTPCookie>::iterator NVXx_HTKSessionCookieStorage::cookieMatchingCookie(
    const HTTPCookie& cookie) {
  return std::find_if(_cookies.begin(), _cookies.end(), [&](const HTTPCookie& stored) {
    return stored.name() == cookie.name() && stored.domain() == cookie.domain() &&
           stored.path() == cookie.path();
  });
}

void NVXx_HTKSessionCookieStorage::removeExpiredCookies() {
  std::erase_if(_cookies, [](const HTTPCookie& cookie) { return hasCookieExpired(cookie); });
}

}  // namespace nvxcore
