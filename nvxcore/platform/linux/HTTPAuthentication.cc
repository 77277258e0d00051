#include "nvxcore/platform/linux/HTTPAuthentication.h"

#include <openssl/evp.h>
#include <openssl/rand.h>
#include <strings.h>

#include <string_view>
#include <utility>
#include <vector>

#include "nvxcore/platform/linux/PreparedRequest.h"

namespace nvxcore {

namespace {

bool sameText(std::string_view a, std::string_view b) {
  return a.size() == b.size() && ::strncasecmp(a.data(), b.data(), a.size()) == 0;
}

/// One challenge of a field: a scheme with its parameters.
struct Scheme {
  std::string name;
  std::vector<std::pair<std::string, std::string>> parameters;

  std::string get(std::string_view key) const {
    for (const auto& [name, value] : parameters) {
      if (sameText(name, key)) return value;
    }
    return {};
  }
};

/// Reads a list of challenges (RFC 9110, 11.6.1), as far as it is one.
class ChallengeReader {
 public:
  explicit ChallengeReader(std::string_view text) : _text(text) {}

  std::vector<Scheme> read() {
    std::vector<Scheme> schemes;
    while (true) {
      skip(" \t,");
      const std::string word = token();
      if (word.empty()) return schemes;
      skip(" \t");
      if (!schemes.empty() && accept('=')) {
        skip(" \t");
        schemes.back().parameters.emplace_back(word, value());
      } else {
        schemes.push_back({word, {}});
      }
    }
  }

 private:
  void skip(std::string_view characters) {
    while (!_text.empty() && characters.find(_text.front()) != std::string_view::npos) _text.remove_prefix(1);
  }
  bool accept(char c) {
    if (_text.empty() || _text.front() != c) return false;
    _text.remove_prefix(1);
    return true;
  }
  std::string token() {
    size_t length = 0;
    while (length < _text.size() && isHTTPToken(_text.substr(length, 1))) ++length;
    std::string word(_text.substr(0, length));
    _text.remove_prefix(length);
    return word;
  }
  std::string value() {
    if (!accept('"')) return token();
    std::string text;
    while (!_text.empty() && _text.front() != '"') {
      if (_text.front() == '\\' && _text.size() > 1) _text.remove_prefix(1);
      text += _text.front();
      _text.remove_prefix(1);
    }
    accept('"');
    return text;
  }

  std::string_view _text;
};

std::string base64(std::string_view bytes) {
  std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');
  const int length =
      EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                      reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
  text.resize(static_cast<size_t>(length));
  return text;
}

std::string hexadecimal(const unsigned char* bytes, size_t length) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (size_t i = 0; i < length; ++i) text += {kDigits[bytes[i] >> 4], kDigits[bytes[i] & 15]};
  return text;
}

/// How a Digest challenge is to be hashed; null when that is not known here.
const EVP_MD* digestOf(const Scheme& scheme) {
  std::string algorithm = scheme.get("algorithm");
  if (sameText(algorithm, "MD5-sess") || sameText(algorithm, "SHA-256-sess"))
    algorithm.resize(algorithm.size() - 5);
  if (algorithm.empty() || sameText(algorithm, "MD5")) return EVP_md5();
  return sameText(algorithm, "SHA-256") ? EVP_sha256() : nullptr;
}

bool offersAuth(const std::string& qop) {
  size_t start = 0;
  while (start < qop.size()) {
    const size_t comma = std::min(qop.find(',', start), qop.size());
    std::string_view item = std::string_view(qop).substr(start, comma - start);
    while (!item.empty() && item.front() == ' ') item.remove_prefix(1);
    while (!item.empty() && item.back() == ' ') item.remove_suffix(1);
    if (sameText(item, "auth")) return true;
    start = comma + 1;
  }
  return false;
}

bool isKnown(const Scheme& scheme) {
  if (sameText(scheme.name, "Basic")) return true;
  const std::string qop = scheme.get("qop");
  return sameText(scheme.name, "Digest") && digestOf(scheme) && !scheme.get("nonce").empty() &&
         (qop.empty() || offersAuth(qop));
}

std::optional<Scheme> strongest(std::string_view field) {
  std::optional<Scheme> best;
  for (Scheme& scheme : ChallengeReader(field).read()) {
    if (isKnown(scheme) && (!best || (sameText(scheme.name, "Digest") && !sameText(best->name, "Digest"))))
      best = std::move(scheme);
  }
  return best;
}

std::string quoted(std::string_view text) {
  std::string result = "\"";
  for (char c : text) {
    if (c == '"' || c == '\\') result += '\\';
    result += c;
  }
  return result + "\"";
}

std::string digestAuthorization(const Scheme& scheme, const URLCredential& credential,
                                const URLRequest& request) {
  const EVP_MD* digest = digestOf(scheme);
  const auto hash = [digest](const std::string& text) {
    unsigned char bytes[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    EVP_Digest(text.data(), text.size(), bytes, &length, digest, nullptr);
    return hexadecimal(bytes, length);
  };
  unsigned char random[16];
  RAND_bytes(random, sizeof(random));
  const std::string clientNonce = hexadecimal(random, sizeof(random));
  const std::string nonce = scheme.get("nonce");
  const std::string realm = scheme.get("realm");
  const std::string algorithm = scheme.get("algorithm");
  const std::string& path = request.url.encodedPath();
  const std::string target =
      (path.empty() ? "/" : path) + (request.url.query().empty() ? "" : "?" + request.url.query());
  const bool hasQop = !scheme.get("qop").empty();

  std::string secret = hash(credential.user + ":" + realm + ":" + credential.password);
  if (algorithm.size() > 5 && sameText(std::string_view(algorithm).substr(algorithm.size() - 5), "-sess"))
    secret = hash(secret + ":" + nonce + ":" + clientNonce);
  const std::string subject = hash((request.method.empty() ? "GET" : request.method) + ":" + target);
  const std::string response =
      hasQop ? hash(secret + ":" + nonce + ":00000001:" + clientNonce + ":auth:" + subject)
             : hash(secret + ":" + nonce + ":" + subject);

  std::string text = "Digest username=" + quoted(credential.user) + ", realm=" + quoted(realm) +
                     ", nonce=" + quoted(nonce) + ", uri=" + quoted(target) +
                     ", response=" + quoted(response);
  if (!algorithm.empty()) text += ", algorithm=" + algorithm;
  if (const std::string opaque = scheme.get("opaque"); !opaque.empty()) text += ", opaque=" + quoted(opaque);
  if (hasQop || text.find("-sess") != std::string::npos) text += ", cnonce=" + quoted(clientNonce);
  if (hasQop) text += ", qop=auth, nc=00000001";
  return text;
}

}  // namespace

std::optional<ReceivedChallenge> authenticationChallenge(const URLResponse& response, int64_t failureCount) {
  const int status = response.statusCode();
  if (status != 401 && status != 407) return std::nullopt;
  const auto field = response.headers().value(status == 401 ? "WWW-Authenticate" : "Proxy-Authenticate");
  if (!field) return std::nullopt;
  const std::optional<Scheme> scheme = strongest(*field);
  if (!scheme) return std::nullopt;
  ReceivedChallenge received;
  received.field = *field;
  received.challenge.previousFailureCount = failureCount;
  ProtectionSpace& space = received.challenge.protectionSpace;
  const URL& url = response.url();
  space.host = url.host();
  space.scheme = url.scheme();
  space.port = url.port().value_or(sameText(url.scheme(), "https") ? 443 : 80);
  space.realm = scheme->get("realm");
  space.authenticationMethod =
      sameText(scheme->name, "Digest") ? kAuthenticationMethodHTTPDigest : kAuthenticationMethodHTTPBasic;
  space.isProxy = status == 407;
  return received;
}

std::string authorization(const std::string& field, const URLCredential& credential,
                          const URLRequest& request) {
  const std::optional<Scheme> scheme = strongest(field);
  if (scheme && sameText(scheme->name, "Digest")) return digestAuthorization(*scheme, credential, request);
  return "Basic " + base64(credential.user + ":" + credential.password);
}

}  // namespace nvxcore
