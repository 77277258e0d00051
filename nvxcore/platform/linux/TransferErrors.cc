#include "nvxcore/platform/linux/TransferErrors.h"

#include <openssl/x509_vfy.h>

#include <cerrno>

#include "nvxcore/platform/Value.h"

namespace nvxcore {

namespace {

bool mentions(std::string_view message, std::string_view words) {
  return message.find(words) != std::string_view::npos;
}

URLErrorCode codeOfConnect(long systemError) {
  switch (systemError) {
    case ENETUNREACH:
    case ENETDOWN:
    case EHOSTUNREACH:
    case EADDRNOTAVAIL:
      return kURLErrorNotConnectedToInternet;
    case ETIMEDOUT:
      return kURLErrorTimedOut;
    default:
      return kURLErrorCannotConnectToHost;
  }
}

URLErrorCode codeOfCertificate(long verifyResult) {
  switch (verifyResult) {
    case X509_V_ERR_CERT_HAS_EXPIRED:
    case X509_V_ERR_ERROR_IN_CERT_NOT_AFTER_FIELD:
      return kURLErrorServerCertificateHasBadDate;
    case X509_V_ERR_CERT_NOT_YET_VALID:
    case X509_V_ERR_ERROR_IN_CERT_NOT_BEFORE_FIELD:
      return kURLErrorServerCertificateNotYetValid;
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
      return kURLErrorServerCertificateHasUnknownRoot;
    default:  // Self-signed, revoked, for another host.
      return kURLErrorServerCertificateUntrusted;
  }
}

/// What a connection that breaks says. A server that wants a certificate of the client may say so only once
/// the handshake is over.
URLErrorCode codeOfBrokenConnection(std::string_view message) {
  if (mentions(message, "alert certificate required")) return kURLErrorClientCertificateRequired;
  if (mentions(message, "alert bad certificate") || mentions(message, "alert unknown ca"))
    return kURLErrorClientCertificateRejected;
  if (mentions(message, "hunked-")) return kURLErrorCannotParseResponse;
  return kURLErrorNetworkConnectionLost;
}

URLErrorCode codeOf(const CurlFailure& failure) {
  switch (failure.code) {
    case CURLE_URL_MALFORMAT:
      return kURLErrorBadURL;
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
      return kURLErrorCannotFindHost;
    case CURLE_COULDNT_CONNECT:
    case CURLE_PROXY:
      return codeOfConnect(failure.systemError);
    case CURLE_OPERATION_TIMEDOUT:
      return kURLErrorTimedOut;
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_ISSUER_ERROR:
      return codeOfCertificate(failure.verifyResult);
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_ENGINE_INITFAILED:
      if (mentions(failure.message, "certificate required")) return kURLErrorClientCertificateRequired;
      return kURLErrorSecureConnectionFailed;
    case CURLE_SSL_CLIENTCERT:
      return kURLErrorClientCertificateRequired;
    case CURLE_BAD_CONTENT_ENCODING:
      return mentions(failure.message, "Unrecognized") ? kURLErrorCannotDecodeContentData
                                                       : kURLErrorCannotDecodeRawData;
    // libcurl says "unsupported protocol" of a reply that does not begin as one of HTTP/1.
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_HTTP_RETURNED_ERROR:
      return kURLErrorCannotParseResponse;
    case CURLE_WEIRD_SERVER_REPLY:
      return kURLErrorBadServerResponse;
    case CURLE_FILESIZE_EXCEEDED:
      return kURLErrorDataLengthExceedsMaximum;
    // libcurl runs "out of memory" at its own limit for the length of a header line.
    case CURLE_OUT_OF_MEMORY:
      return failure.hasHead ? kURLErrorUnknown : kURLErrorDataLengthExceedsMaximum;
    case CURLE_GOT_NOTHING:
    case CURLE_PARTIAL_FILE:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_SEND_FAIL_REWIND:
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM:
    case CURLE_ABORTED_BY_CALLBACK:  // What was sent once was about to be sent again.
      return codeOfBrokenConnection(failure.message);
    default:
      return kURLErrorUnknown;
  }
}

}  // namespace

Error transferError(URLErrorCode code, const URL& url, Error underlying) {
  Dictionary userInfo{{kURLErrorFailingURLErrorKey, url},
                      {kURLErrorFailingURLStringErrorKey, url.absoluteString()}};
  if (underlying) userInfo.set(kUnderlyingErrorKey, underlying);
  return Error(kURLErrorDomain, code, std::move(userInfo));
}

Error transferError(const CurlFailure& failure, const URL& url) {
  const std::string_view reason =
      failure.message.empty() ? std::string_view(curl_easy_strerror(failure.code)) : failure.message;
  return Error(kURLErrorDomain, codeOf(failure),
               {{kURLErrorFailingURLErrorKey, url},
                {kURLErrorFailingURLStringErrorKey, url.absoluteString()},
                {kLocalizedFailureReasonErrorKey, reason}});
}

}  // namespace nvxcore
