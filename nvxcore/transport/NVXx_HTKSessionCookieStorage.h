#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "nvxcore/platform/Export.h"
#include "nvxcore/platform/HTTPCookie.h"
#include "nvxcore/platform/Mutex.h"

namespace nvxcore {

/// A cookie store in memory: one family of fetchers has its cookies to itself, and they go with the process.
/// All operations may be called on any thread.
class NVXCORE_EXPORT NVXx_HTKSessionCookieStorage : public HTTPCookieStorage {
 public:
  std::vector<HTTPCookie> cookies() const override;
  /// A cookie that has expired takes its stored twin away and is not kept. One without name, domain or path
  /// is ignored.
  void setCookie(const HTTPCookie& cookie) override;
  void setCookies(const std::vector<HTTPCookie>& cookies);
  /// Under the policy `OnlyFromMainDocumentDomain` only for a host that ends with the text of the main
  /// document's.
  void setCookies(const std::vector<HTTPCookie>& cookies, const URL& url,
                  const URL& mainDocumentURL) override;
  /// Removes the stored cookie of equal name, domain and path.
  void deleteCookie(const HTTPCookie& cookie) override;
  std::optional<std::vector<HTTPCookie>> cookiesForURL(const URL& url) override;
  /// For the URL of the task's current request, without a main document.
  void storeCookies(const std::vector<HTTPCookie>& cookies, HTTPSessionTask& task) override;
  void getCookiesForTask(
      HTTPSessionTask& task,
      std::function<void(std::optional<std::vector<HTTPCookie>>)> completionHandler) override;
  void removeAllCookies();
  HTTPCookieAcceptPolicy cookieAcceptPolicy() const override;
  void setCookieAcceptPolicy(HTTPCookieAcceptPolicy policy) override;

  /// By its expiry date, or else by the date under "NSHTTPCookieExpires" in its properties. Without either,
  /// never.
  static bool hasCookieExpired(const HTTPCookie& cookie);

 private:
  void internalSetCookie(const HTTPCookie& cookie) NVX_REQUIRES(_lock);
  std::vector<HTTPCookie>::iterator cookieMatchingCookie(const HTTPCookie& cookie) NVX_REQUIRES(_lock);
  void removeExpiredCookies() NVX_REQUIRES(_lock);

  mutable Mutex _lock;
  std::vector<HTTPCookie> _cookies NVX_GUARDED_BY(_lock);
  std::atomic<HTTPCookieAcceptPolicy> _policy{HTTPCookieAcceptPolicy::Always};
};

}  // namespace nvxcore
