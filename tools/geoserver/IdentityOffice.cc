#include "tools/geoserver/IdentityOffice.h"

#include <chrono>
#include <utility>

#include "tools/geoserver/internal/Random.h"

namespace nvxcore::geoserver {
namespace {

uint64_t systemTimeMillis() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

}  // namespace

int64_t IdentityOffice::nextCookieLocked() {
  const uint64_t place = _cookiesDrawn++;
  if (!_options.cookieSeed) return static_cast<int64_t>(static_cast<uint64_t>(_options.firstCookie) + place);
  return static_cast<int64_t>(splitMix64(*_options.cookieSeed + place * kSplitMix64Step));
}

int64_t IdentityOffice::issueCookie() {
  int64_t cookie = 0;
  {
    std::lock_guard lock(_mutex);
    while (cookie == 0 || !_known.insert(cookie).second) cookie = nextCookieLocked();
    _issued.push_back(cookie);
  }
  if (_options.onCookie) _options.onCookie(cookie);
  return cookie;
}

void IdentityOffice::remember(int64_t cookie) {
  std::lock_guard lock(_mutex);
  _known.insert(cookie);
}

CookieStanding IdentityOffice::standing(int64_t cookie) const {
  if (cookie == 0) return CookieStanding::none;
  std::lock_guard lock(_mutex);
  return _known.contains(cookie) ? CookieStanding::known : CookieStanding::unknown;
}

std::vector<int64_t> IdentityOffice::issuedCookies() const {
  std::lock_guard lock(_mutex);
  return _issued;
}

WireMessage IdentityOffice::answerProperties(const WireMessage& properties) {
  WireMessage answer(schemas::clientPropertiesResponse);
  const auto newTo = [&](const std::optional<std::string>& ours, const char* field) {
    return ours && (!properties.has(field) || properties.text(field) != *ours);
  };
  const auto newToken = [this](const char* kind) {
    std::lock_guard lock(_mutex);
    return std::string(kind) + "-" + std::to_string(++_tokensIssued);
  };
  if (newTo(_options.cohort, "cohort")) answer.add("new_cohort", *_options.cohort);
  if (properties.flag("oatcake_token_enabled") && !properties.message("oatcake_token").has("nid")) {
    const uint64_t now = _options.currentTimeMillis ? _options.currentTimeMillis() : systemTimeMillis();
    const auto& schema = *schemas::clientPropertiesResponse.find("oatcake_token")->message;
    answer.add("oatcake_token",
               WireMessage(schema).add("nid", newToken("oatcake")).add("issue_timestamp", now));
  }
  if (newTo(_options.legalCountry, "legal_country")) answer.add("new_legal_country", *_options.legalCountry);
  if (properties.flag("melba_cookie_enabled") && !properties.has("melba_nid_cookie"))
    answer.add("new_melba_nid_cookie", newToken("melba"));
  return answer;
}

}  // namespace nvxcore::geoserver
