#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "nvxcore/platform/Date.h"
#include "nvxcore/platform/Dictionary.h"
#include "nvxcore/platform/Export.h"
#include "nvxcore/platform/HTTPHeaders.h"
#include "nvxcore/platform/URL.h"

namespace nvxcore {

class HTTPSessionTask;

/// A cookie (RFC 6265): an immutable, shared handle. Any thread.
class NVXCORE_EXPORT HTTPCookie {
 public:
  struct Parts {
    std::string name;
    std::string value;
    /// With a leading dot when the server named a domain, the bare host otherwise.
    std::string domain;
    std::string path;
    bool isSecure = false;
    bool isHTTPOnly = false;
    std::optional<Date> expiresDate;
    Dictionary properties;
  };

  explicit HTTPCookie(Parts parts);
  const std::string& name() const;
  const std::string& value() const;
  const std::string& domain() const;
  const std::string& path() const;
  bool isSecure() const;
  bool isHTTPOnly() const;
  /// Nothing for a cookie of the session.
  std::optional<Date> expiresDate() const;
  const Dictionary& properties() const;

  /// The cookies of the "Set-Cookie" fields of a reply from `url` (RFC 6265, 5.2 and 5.3). A field that is no
  /// cookie, or names a domain that the host does not belong to, gives none. `now` settles "Max-Age".
  static std::vector<HTTPCookie> cookiesWithResponseHeaders(const HTTPHeaders& headers, const URL& url,
                                                            Date now);
  /// The value of the "Cookie" field for `cookies`; empty for none.
  static std::string requestHeaderValue(const std::vector<HTTPCookie>& cookies);
  /// Identity of the handle.
  friend bool operator==(const HTTPCookie& a, const HTTPCookie& b) { return a._parts == b._parts; }

 private:
  std::shared_ptr<const Parts> _parts;
};

enum class HTTPCookieAcceptPolicy : uint64_t { Always = 0, Never = 1, OnlyFromMainDocumentDomain = 2 };

/// A cookie store as an HTTP session uses it. All operations may be called on any thread.
class NVXCORE_EXPORT HTTPCookieStorage {
 public:
  virtual ~HTTPCookieStorage() = default;
  virtual std::vector<HTTPCookie> cookies() const = 0;
  virtual void setCookie(const HTTPCookie& cookie) = 0;
  virtual void setCookies(const std::vector<HTTPCookie>& cookies, const URL& url,
                          const URL& mainDocumentURL) = 0;
  virtual void deleteCookie(const HTTPCookie& cookie) = 0;
  /// Those to send to `url`; nothing, rather than an empty list, when there are none.
  virtual std::optional<std::vector<HTTPCookie>> cookiesForURL(const URL& url) = 0;
  virtual void storeCookies(const std::vector<HTTPCookie>& cookies, HTTPSessionTask& task) = 0;
  /// The handler is called before this returns, on the calling thread.
  virtual void getCookiesForTask(
      HTTPSessionTask& task,
      std::function<void(std::optional<std::vector<HTTPCookie>>)> completionHandler) = 0;
  virtual HTTPCookieAcceptPolicy cookieAcceptPolicy() const = 0;
  virtual void setCookieAcceptPolicy(HTTPCookieAcceptPolicy policy) = 0;
};

}  // namespace nvxcore
