// Issues what a client is known by, and remembers it.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tools/geoserver/ClientIdentity.h"

namespace nvxcore::geoserver {

struct IdentityOptions {
  // What clients are told that say another one, or none. Nothing tells them nothing.
  std::optional<std::string> cohort = "development";
  std::optional<std::string> legalCountry;
  // Cookies are counted from here; with a seed they are scattered, the same ones for the same seed.
  int64_t firstCookie = 0x1122334455667788;
  std::optional<uint64_t> cookieSeed;
  // Told of each cookie when it is issued, on the loop thread.
  std::function<void(int64_t)> onCookie;
  // Milliseconds since 1970, for the tokens; the system's clock when empty.
  std::function<uint64_t()> currentTimeMillis;
};

// Any thread.
class IdentityOffice {
 public:
  explicit IdentityOffice(IdentityOptions options) : _options(std::move(options)) {}

  // One that was never issued before, and is not 0.
  int64_t issueCookie();
  void remember(int64_t cookie);
  CookieStanding standing(int64_t cookie) const;
  // In the order in which they were issued.
  std::vector<int64_t> issuedCookies() const;

  // The answer to client properties: a cohort and a country where they are others than the client's, a melba
  // cookie and an oatcake token where the client uses them and has none.
  WireMessage answerProperties(const WireMessage& properties);

 private:
  int64_t nextCookieLocked();

  const IdentityOptions _options;
  mutable std::mutex _mutex;  // guards what follows
  uint64_t _cookiesDrawn = 0;
  uint64_t _tokensIssued = 0;
  std::vector<int64_t> _issued;
  std::set<int64_t> _known;
};

}  // namespace nvxcore::geoserver
