#pragma once

#include <cstdint>

namespace nvxcore {

/// Errors of transfers, with their published codes.
inline constexpr char kURLErrorDomain[] = "NSURLErrorDomain";

enum URLErrorCode : int64_t {
  kURLErrorUnknown = -1,
  kURLErrorCancelled = -999,
  kURLErrorBadURL = -1000,
  kURLErrorTimedOut = -1001,
  kURLErrorUnsupportedURL = -1002,
  kURLErrorCannotFindHost = -1003,
  kURLErrorCannotConnectToHost = -1004,
  kURLErrorNetworkConnectionLost = -1005,
  kURLErrorDNSLookupFailed = -1006,
  kURLErrorHTTPTooManyRedirects = -1007,
  kURLErrorResourceUnavailable = -1008,
  kURLErrorNotConnectedToInternet = -1009,
  kURLErrorRedirectToNonExistentLocation = -1010,
  kURLErrorBadServerResponse = -1011,
  kURLErrorUserCancelledAuthentication = -1012,
  kURLErrorUserAuthenticationRequired = -1013,
  kURLErrorZeroByteResource = -1014,
  kURLErrorCannotDecodeRawData = -1015,
  kURLErrorCannotDecodeContentData = -1016,
  kURLErrorCannotParseResponse = -1017,
  kURLErrorDataNotAllowed = -1020,
  kURLErrorRequestBodyStreamExhausted = -1021,
  kURLErrorAppTransportSecurityRequiresSecureConnection = -1022,
  kURLErrorFileDoesNotExist = -1100,
  kURLErrorFileIsDirectory = -1101,
  kURLErrorNoPermissionsToReadFile = -1102,
  kURLErrorDataLengthExceedsMaximum = -1103,
  kURLErrorSecureConnectionFailed = -1200,
  kURLErrorServerCertificateHasBadDate = -1201,
  kURLErrorServerCertificateUntrusted = -1202,
  kURLErrorServerCertificateHasUnknownRoot = -1203,
  kURLErrorServerCertificateNotYetValid = -1204,
  kURLErrorClientCertificateRejected = -1205,
  kURLErrorClientCertificateRequired = -1206,
  kURLErrorCannotCreateFile = -3000,
  kURLErrorCannotOpenFile = -3001,
  kURLErrorCannotWriteToFile = -3003,
};

/// User-info keys of these errors.
inline constexpr char kURLErrorFailingURLErrorKey[] = "NSErrorFailingURLKey";
inline constexpr char kURLErrorFailingURLStringErrorKey[] = "NSErrorFailingURLStringKey";
/// Bytes for `HTTPSession::downloadTaskWithResumeData`, in the error of a download that can go on.
inline constexpr char kURLSessionDownloadTaskResumeData[] = "NSURLSessionDownloadTaskResumeData";

}  // namespace nvxcore
