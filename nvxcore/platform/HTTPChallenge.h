#pragma once

#include <any>
#include <cstdint>
#include <memory>
#include <string>

namespace nvxcore {

/// What to do about an authentication challenge.
enum class AuthChallengeDisposition { UseCredential = 0, PerformDefaultHandling = 1, Cancel = 2 };

inline constexpr char kAuthenticationMethodHTTPBasic[] = "NSURLAuthenticationMethodHTTPBasic";
inline constexpr char kAuthenticationMethodHTTPDigest[] = "NSURLAuthenticationMethodHTTPDigest";
inline constexpr char kAuthenticationMethodServerTrust[] = "NSURLAuthenticationMethodServerTrust";

/// A user name with its password.
struct URLCredential {
  std::string user;
  std::string password;
};
using URLCredentialRef = std::shared_ptr<const URLCredential>;

/// Where and how a server or proxy asks who the client is.
struct ProtectionSpace {
  std::string host;
  int64_t port = 0;
  std::string scheme;
  std::string realm;
  std::string authenticationMethod;
  bool isProxy = false;
};

struct AuthenticationChallenge {
  ProtectionSpace protectionSpace;
  int64_t previousFailureCount = 0;
};

}  // namespace nvxcore
