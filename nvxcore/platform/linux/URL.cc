#include "nvxcore/platform/URL.h"

#include <curl/curl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdlib>

#include "nvxcore/platform/internal/Pooled.h"
#include "nvxcore/platform/linux/PercentEncoding.h"

namespace nvxcore {

struct URL::Parts {
  std::string text;
  std::string scheme, user, password, host, path, encodedPath, query, fragment;
  std::optional<uint16_t> port;
};

namespace {

struct Handle {
  CURLU* url = curl_url();
  ~Handle() { curl_url_cleanup(url); }

  std::string get(CURLUPart part, unsigned flags = 0) const {
    char* text = nullptr;
    if (curl_url_get(url, part, &text, flags) != CURLUE_OK) return {};
    std::string result(text);
    curl_free(text);
    return result;
  }
};

constexpr unsigned kReadFlags = CURLU_NON_SUPPORT_SCHEME | CURLU_PATH_AS_IS;

const std::string kNone;

bool isSchemeText(std::string_view text) {
  if (text.empty() || !((text[0] | 0x20) >= 'a' && (text[0] | 0x20) <= 'z')) return false;
  for (char c : text) {
    const bool letter = (c | 0x20) >= 'a' && (c | 0x20) <= 'z';
    if (!letter && !(c >= '0' && c <= '9') && c != '+' && c != '-' && c != '.') return false;
  }
  return true;
}

std::string percentEncodedPath(std::string_view path) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string result;
  for (unsigned char c : path) {
    const bool plain =
        (c >= '0' && c <= '9') || ((c | 0x20) >= 'a' && (c | 0x20) <= 'z') ||
        std::string_view("-._~/!$&'()*+,=:@").find(static_cast<char>(c)) != std::string_view::npos;
    if (plain) {
      result += static_cast<char>(c);
    } else {
      result += {'%', kDigits[c >> 4], kDigits[c & 15]};
    }
  }
  return result;
}

/// Splits what follows the authority, or all of a URL that has none.
void splitPath(std::string_view rest, std::string& path, std::string& query, std::string& fragment) {
  if (size_t hash = rest.find('#'); hash != std::string_view::npos) {
    fragment = rest.substr(hash + 1);
    rest = rest.substr(0, hash);
  }
  if (size_t mark = rest.find('?'); mark != std::string_view::npos) {
    query = rest.substr(mark + 1);
    rest = rest.substr(0, mark);
  }
  path = rest;
}

/// The five components of a URL or a reference to one (RFC 3986, 3), where they are.
struct Reference {
  explicit Reference(std::string_view text) {
    if (const size_t hash = text.find('#'); hash != std::string_view::npos) {
      fragment = text.substr(hash + 1);
      text = text.substr(0, hash);
    }
    if (const size_t mark = text.find('?'); mark != std::string_view::npos) {
      query = text.substr(mark + 1);
      text = text.substr(0, mark);
    }
    const size_t colon = text.find_first_of(":/");
    if (colon != std::string_view::npos && text[colon] == ':' && isSchemeText(text.substr(0, colon))) {
      scheme = text.substr(0, colon);
      text.remove_prefix(colon + 1);
    }
    if (text.starts_with("//")) {
      const size_t end = std::min(text.find('/', 2), text.size());
      authority = text.substr(2, end - 2);
      text.remove_prefix(end);
    }
    path = text;
  }

  std::optional<std::string_view> scheme, authority, query, fragment;
  std::string_view path;
};

/// RFC 3986, 5.2.4.
std::string withoutDotSegments(std::string_view path) {
  std::string result;
  while (!path.empty()) {
    if (path.starts_with("../")) {
      path.remove_prefix(3);
    } else if (path.starts_with("./")) {
      path.remove_prefix(2);
    } else if (path.starts_with("/./")) {
      path.remove_prefix(2);
    } else if (path == "/.") {
      path = "/";
    } else if (path.starts_with("/../") || path == "/..") {
      path = path.size() > 3 ? path.substr(3) : "/";
      const size_t slash = result.rfind('/');
      result.resize(slash == std::string::npos ? 0 : slash);
    } else if (path == "." || path == "..") {
      path = {};
    } else {
      const size_t end = std::min(path.find('/', 1), path.size());
      result += path.substr(0, end);
      path.remove_prefix(end);
    }
  }
  return result;
}

/// What may not stand in a URL as it is, escaped; the rest as it stands.
std::string withoutRawBytes(std::string_view text) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string result;
  for (unsigned char c : text) {
    if (c > 0x20 && c < 0x7F) {
      result += static_cast<char>(c);
    } else {
      result += {'%', kDigits[c >> 4], kDigits[c & 15]};
    }
  }
  return result;
}

}  // namespace

URL URL::withString(std::string_view text) {
  if (text.empty()) return {};
  for (unsigned char c : text) {
    if (c <= 0x20 || c == 0x7F) return {};
  }
  auto parts = makePooled<Parts>();
  parts->text = text;
  const size_t colon = text.find_first_of(":/?#");
  const bool hasScheme =
      colon != std::string_view::npos && text[colon] == ':' && isSchemeText(text.substr(0, colon));
  const std::string_view rest = hasScheme ? text.substr(colon + 1) : text;
  if (hasScheme) parts->scheme = text.substr(0, colon);
  if (hasScheme && rest.starts_with("//")) {
    // The scheme is given away to the parser in lower case: it keeps only some of them as they stand.
    const size_t end = rest.find_first_of("/?#", 2);
    const std::string_view authority = rest.substr(2, end == std::string_view::npos ? end : end - 2);
    if (!authority.empty()) {
      Handle handle;
      const std::string whole = "http://" + std::string(authority) + "/";
      if (curl_url_set(handle.url, CURLUPART_URL, whole.c_str(), kReadFlags) != CURLUE_OK) return {};
      parts->user = handle.get(CURLUPART_USER);
      parts->password = handle.get(CURLUPART_PASSWORD);
      parts->host = handle.get(CURLUPART_HOST);
      if (parts->host.size() > 1 && parts->host.front() == '[')
        parts->host = parts->host.substr(1, parts->host.size() - 2);
      const std::string port = handle.get(CURLUPART_PORT);
      if (!port.empty()) {
        unsigned number = 0;
        std::from_chars(port.data(), port.data() + port.size(), number);
        parts->port = static_cast<uint16_t>(number);
      }
    }
    splitPath(end == std::string_view::npos ? std::string_view() : rest.substr(end), parts->encodedPath,
              parts->query, parts->fragment);
  } else {
    splitPath(rest, parts->encodedPath, parts->query, parts->fragment);
  }
  parts->path = percentDecoded(parts->encodedPath);
  URL url;
  url._parts = std::move(parts);
  return url;
}

URL URL::fileURLWithPath(std::string_view path) {
  std::string absolute;
  if (path.empty() || path.front() != '/') {
    char buffer[PATH_MAX];
    if (const char* folder = ::getcwd(buffer, sizeof buffer)) absolute = folder;
    absolute += '/';
  }
  absolute += path;
  return withString("file://" + percentEncodedPath(absolute));
}

const std::string& URL::absoluteString() const { return _parts ? _parts->text : kNone; }
const std::string& URL::scheme() const { return _parts ? _parts->scheme : kNone; }
const std::string& URL::user() const { return _parts ? _parts->user : kNone; }
const std::string& URL::password() const { return _parts ? _parts->password : kNone; }
const std::string& URL::host() const { return _parts ? _parts->host : kNone; }
std::optional<uint16_t> URL::port() const { return _parts ? _parts->port : std::nullopt; }
const std::string& URL::path() const { return _parts ? _parts->path : kNone; }
const std::string& URL::encodedPath() const { return _parts ? _parts->encodedPath : kNone; }
const std::string& URL::query() const { return _parts ? _parts->query : kNone; }
const std::string& URL::fragment() const { return _parts ? _parts->fragment : kNone; }

bool URL::isFileURL() const {
  const std::string& text = scheme();
  return text.size() == 4 && (text[0] | 0x20) == 'f' && (text[1] | 0x20) == 'i' && (text[2] | 0x20) == 'l' &&
         (text[3] | 0x20) == 'e';
}

std::string URL::fileSystemPath() const {
  // The system would take a path up to its first NUL, which names another file.
  return isFileURL() && path().find('\0') == std::string::npos ? path() : std::string();
}

URL URL::resolving(std::string_view reference) const {
  if (!_parts) return withString(reference);
  const std::string escaped = withoutRawBytes(reference);
  const Reference base(_parts->text);
  Reference target(escaped);
  std::string path;
  if (target.scheme || target.authority) {
    path = withoutDotSegments(target.path);
  } else if (target.path.empty()) {
    path = base.path;
    if (!target.query) target.query = base.query;
  } else if (target.path.front() == '/') {
    path = withoutDotSegments(target.path);
  } else if (base.authority && base.path.empty()) {
    path = withoutDotSegments("/" + std::string(target.path));
  } else {
    const size_t slash = base.path.rfind('/');
    const auto folder = base.path.substr(0, slash == std::string_view::npos ? 0 : slash + 1);
    path = withoutDotSegments(std::string(folder) + std::string(target.path));
  }
  if (!target.scheme) {
    target.scheme = base.scheme;
    if (!target.authority) target.authority = base.authority;
  }
  std::string text;
  if (target.scheme) text.append(*target.scheme) += ':';
  if (target.authority) text.append("//").append(*target.authority);
  // Without an authority two slashes would begin one.
  if (!target.authority && path.starts_with("//")) text += "/.";
  text += path;
  if (target.query) (text += '?').append(*target.query);
  if (target.fragment) (text += '#').append(*target.fragment);
  return withString(text);
}

URL URL::withScheme(std::string_view scheme) const {
  if (!_parts) return {};
  const size_t skip = _parts->scheme.empty() ? 0 : _parts->scheme.size() + 1;
  return withString(std::string(scheme) + ":" + _parts->text.substr(skip));
}

URL URL::appendingPathComponent(std::string_view component) const {
  if (!_parts) return {};
  const size_t end = _parts->text.find_first_of("?#");
  std::string text = _parts->text.substr(0, end);
  if (!text.ends_with('/')) text += '/';
  text += percentEncodedPath(component);
  if (end != std::string::npos) text += _parts->text.substr(end);
  return withString(text);
}

URL URL::deletingLastPathComponent() const {
  if (!_parts) return {};
  const size_t end = _parts->text.find_first_of("?#");
  std::string text = _parts->text.substr(0, end);
  const size_t pathStart = text.size() - _parts->encodedPath.size();
  while (text.size() > pathStart + 1 && text.ends_with('/')) text.pop_back();
  const size_t slash = text.find_last_of('/');
  if (slash == std::string::npos || slash < pathStart) return *this;
  return withString(text.substr(0, slash + 1));
}

std::string URL::lastPathComponent() const {
  std::string text = path();
  while (text.size() > 1 && text.ends_with('/')) text.pop_back();
  const size_t slash = text.find_last_of('/');
  return slash == std::string::npos || text.size() == 1 ? text : text.substr(slash + 1);
}

bool operator==(const URL& a, const URL& b) {
  if (a._parts == b._parts) return true;
  return a._parts && b._parts && a._parts->text == b._parts->text;
}

}  // namespace nvxcore
