#include "nvxcore/platform/HTTPCookie.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

#include "nvxcore/platform/Value.h"

namespace nvxcore {

namespace {

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

std::string lowered(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(), lower);
  return result;
}

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

/// Reads up to `most` digits at the start of `text` and takes them off; nothing when there are fewer than
/// `least`.
std::optional<int> takeNumber(std::string_view& text, size_t least, size_t most) {
  size_t count = 0;
  int number = 0;
  while (count < text.size() && count < most && isDigit(text[count]))
    number = number * 10 + (text[count++] - '0');
  if (count < least || (count < text.size() && isDigit(text[count]))) return std::nullopt;
  text.remove_prefix(count);
  return number;
}

/// Days from 1970-01-01 to a date of the Gregorian calendar.
int64_t daysFromCivil(int64_t year, int month, int day) {
  year -= month <= 2;
  const int64_t era = (year >= 0 ? year : year - 399) / 400;
  const int64_t yearOfEra = year - era * 400;
  const int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  return era * 146097 + yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear - 719468;
}

int daysOfMonth(int year, int month) {
  if (month == 2) return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0 ? 29 : 28;
  return month == 4 || month == 6 || month == 9 || month == 11 ? 30 : 31;
}

/// RFC 6265, 5.1.1: a lenient reader that takes day, month, year and time from tokens in any order.
std::optional<Date> parseCookieDate(std::string_view text) {
  static constexpr std::array<std::string_view, 12> kMonths = {"jan", "feb", "mar", "apr", "may", "jun",
                                                               "jul", "aug", "sep", "oct", "nov", "dec"};
  std::optional<int> hour, minute, second, day, month, year;
  auto isDelimiter = [](unsigned char c) {
    return c == 0x09 || (c >= 0x20 && c <= 0x2F) || (c >= 0x3B && c <= 0x40) || (c >= 0x5B && c <= 0x60) ||
           (c >= 0x7B && c <= 0x7E);
  };
  size_t at = 0;
  while (at < text.size()) {
    while (at < text.size() && isDelimiter(static_cast<unsigned char>(text[at]))) ++at;
    const size_t start = at;
    while (at < text.size() && !isDelimiter(static_cast<unsigned char>(text[at]))) ++at;
    const std::string_view token = text.substr(start, at - start);
    if (token.empty()) break;
    if (!hour) {
      std::string_view rest = token;
      std::optional<int> h = takeNumber(rest, 1, 2), m, s;
      if (h && rest.starts_with(':')) {
        rest.remove_prefix(1);
        m = takeNumber(rest, 1, 2);
        if (m && rest.starts_with(':')) {
          rest.remove_prefix(1);
          s = takeNumber(rest, 1, 2);
        }
      }
      if (s) {
        hour = h, minute = m, second = s;
        continue;
      }
    }
    std::string_view rest = token;
    if (!day) {
      if (std::optional<int> number = takeNumber(rest, 1, 2)) {
        day = number;
        continue;
      }
    }
    if (!month && token.size() >= 3) {
      auto it = std::find(kMonths.begin(), kMonths.end(), lowered(token.substr(0, 3)));
      if (it != kMonths.end()) {
        month = static_cast<int>(it - kMonths.begin()) + 1;
        continue;
      }
    }
    rest = token;
    if (!year) year = takeNumber(rest, 2, 4);
  }
  if (!hour || !day || !month || !year) return std::nullopt;
  if (*year >= 70 && *year <= 99) *year += 1900;
  if (*year >= 0 && *year <= 69) *year += 2000;
  if (*year < 1601 || *day < 1 || *day > daysOfMonth(*year, *month) || *hour > 23 || *minute > 59 ||
      *second > 59)
    return std::nullopt;
  const int64_t seconds = daysFromCivil(*year, *month, *day) * 86400 + *hour * 3600 + *minute * 60 + *second;
  return Date::withTimeIntervalSince1970(static_cast<double>(seconds));
}

bool isIPAddress(std::string_view host) {
  return host.find(':') != std::string_view::npos ||
         (!host.empty() && host.find_first_not_of("0123456789.") == std::string_view::npos);
}

/// RFC 6265, 5.1.3.
bool domainMatches(std::string_view host, std::string_view domain) {
  if (host == domain) return true;
  return host.size() > domain.size() && host.ends_with(domain) &&
         host[host.size() - domain.size() - 1] == '.' && !isIPAddress(host);
}

/// RFC 6265, 5.1.4.
std::string defaultPath(const std::string& requestPath) {
  const size_t slash = requestPath.rfind('/');
  if (requestPath.empty() || requestPath.front() != '/' || slash == 0) return "/";
  return requestPath.substr(0, slash);
}

/// A line break, say, would forge another field when the cookie is sent back.
bool hasControlCharacter(std::string_view text) {
  return std::any_of(text.begin(), text.end(),
                     [](unsigned char c) { return (c < 0x20 && c != '\t') || c == 0x7F; });
}

std::optional<HTTPCookie::Parts> parseSetCookie(std::string_view field, const URL& url, Date now) {
  if (hasControlCharacter(field)) return std::nullopt;
  const std::string host = lowered(url.host());
  std::string_view pair = field.substr(0, field.find(';'));
  std::string_view attributes = field.substr(pair.size());
  const size_t equals = pair.find('=');
  if (equals == std::string_view::npos) return std::nullopt;
  HTTPCookie::Parts cookie;
  cookie.name = trimmed(pair.substr(0, equals));
  cookie.value = trimmed(pair.substr(equals + 1));
  if (cookie.name.empty()) return std::nullopt;
  cookie.path = defaultPath(url.encodedPath());
  cookie.domain = host;
  bool hasMaxAge = false;
  while (!attributes.empty()) {
    attributes.remove_prefix(1);
    std::string_view attribute = attributes.substr(0, attributes.find(';'));
    attributes.remove_prefix(attribute.size());
    const size_t sign = attribute.find('=');
    const std::string name = lowered(trimmed(attribute.substr(0, sign)));
    std::string_view value =
        sign == std::string_view::npos ? std::string_view() : trimmed(attribute.substr(sign + 1));
    if (name == "expires" && !hasMaxAge) {
      if (std::optional<Date> date = parseCookieDate(value)) cookie.expiresDate = date;
    } else if (name == "max-age") {
      int64_t seconds = 0;
      auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), seconds);
      const bool tooLarge = error == std::errc::result_out_of_range;
      if ((error != std::errc() && !tooLarge) || end != value.data() + value.size()) continue;
      hasMaxAge = true;
      if (tooLarge) seconds = value.front() == '-' ? -1 : int64_t{1} << 40;
      cookie.expiresDate = now.addingTimeInterval(static_cast<double>(seconds > 0 ? seconds : -1));
    } else if (name == "domain" && !value.empty()) {
      if (value.front() == '.') value.remove_prefix(1);
      if (value.empty()) continue;
      const std::string domain = lowered(value);
      // A domain of one label would cover everybody below it.
      if (!domainMatches(host, domain) || (domain.find('.') == std::string::npos && domain != host)) {
        return std::nullopt;
      }
      // An address and a host without a dot have nobody below them.
      const bool isHostOnly = isIPAddress(domain) || domain.find('.') == std::string::npos;
      cookie.domain = isHostOnly ? domain : "." + domain;
    } else if (name == "path") {
      if (!value.empty() && value.front() == '/') cookie.path = value;
    } else if (name == "secure") {
      cookie.isSecure = true;
    } else if (name == "httponly") {
      cookie.isHTTPOnly = true;
    }
  }
  return cookie;
}

}  // namespace

HTTPCookie::HTTPCookie(Parts parts) : _parts(std::make_shared<const Parts>(std::move(parts))) {}

const std::string& HTTPCookie::name() const { return _parts->name; }
const std::string& HTTPCookie::value() const { return _parts->value; }
const std::string& HTTPCookie::domain() const { return _parts->domain; }
const std::string& HTTPCookie::path() const { return _parts->path; }
bool HTTPCookie::isSecure() const { return _parts->isSecure; }
bool HTTPCookie::isHTTPOnly() const { return _parts->isHTTPOnly; }
std::optional<Date> HTTPCookie::expiresDate() const { return _parts->expiresDate; }
const Dictionary& HTTPCookie::properties() const { return _parts->properties; }

std::vector<HTTPCookie> HTTPCookie::cookiesWithResponseHeaders(const HTTPHeaders& headers, const URL& url,
                                                               Date now) {
  std::vector<HTTPCookie> cookies;
  for (const auto& [name, value] : headers) {
    if (lowered(name) != "set-cookie") continue;
    if (std::optional<Parts> parts = parseSetCookie(value, url, now)) cookies.emplace_back(std::move(*parts));
  }
  return cookies;
}

std::string HTTPCookie::requestHeaderValue(const std::vector<HTTPCookie>& cookies) {
  std::string value;
  for (const HTTPCookie& cookie : cookies) {
    if (!value.empty()) value += "; ";
    value += cookie.name() + "=" + cookie.value();
  }
  return value;
}

}  // namespace nvxcore
