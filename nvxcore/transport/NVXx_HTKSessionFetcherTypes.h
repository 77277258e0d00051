#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "nvxcore/platform/Data.h"
#include "nvxcore/platform/Error.h"
#include "nvxcore/platform/HTTPSession.h"
#include "nvxcore/platform/InputStream.h"
#include "nvxcore/platform/URLRequest.h"
#include "nvxcore/platform/URLResponse.h"

namespace nvxcore {

class NVXx_HTKSessionFetcher;
using FetcherRef = std::shared_ptr<NVXx_HTKSessionFetcher>;

/// Errors of the fetcher itself. Those of transfers come as kURLErrorDomain.
inline constexpr char NVXx_kHTKSessionFetcherErrorDomain[] = "com.ovrasoft.HTKSessionFetcher";
enum HTKSessionFetcherErrorCode : int64_t {
  kHTKSessionFetcherErrorInvalidState = -1,        ///< Begun twice, or with nothing to fetch.
  kHTKSessionFetcherErrorInsecureRequest = -5,     ///< Not https, and not allowed.
  kHTKSessionFetcherErrorTaskCreationFailed = -6,  ///< The session made no task.
};

/// A reply with a status above 299; the code is the status. The body, when there is one, stands under the key
/// below.
inline constexpr char NVXx_kHTKSessionFetcherStatusDomain[] = "com.ovrasoft.HTTPStatus";
inline constexpr char NVXx_kHTKSessionFetcherStatusDataKey[] = "data";

/// Notifications with a fetcher as object, posted on the main thread.
inline constexpr char NVXx_kHTKSessionFetcherStartedNotification[] = "kHTKSessionFetcherStartedNotification";
inline constexpr char NVXx_kHTKSessionFetcherStoppedNotification[] = "kHTKSessionFetcherStoppedNotification";
/// Posted when the completion handler has returned, with what it got under the keys below.
inline constexpr char NVXx_kHTKSessionFetcherCompletionInvokedNotification[] =
    "kHTKSessionFetcherCompletionInvokedNotification";
inline constexpr char NVXx_kHTKSessionFetcherCompletionDataKey[] = "data";
inline constexpr char NVXx_kHTKSessionFetcherCompletionErrorKey[] = "error";

/// A length that is not known.
inline constexpr int64_t kUnknownTransferSize = -1;
/// The service priority of a fetcher that is never delayed.
inline constexpr int64_t kServicePriorityNeverDelay = INT64_MIN;

/// Handlers of a fetcher; all are called on its callback queue. A response handler among the arguments is
/// called once, on any thread; dropping it uncalled cancels the transfer.
using FetcherCompletionHandler = std::function<void(Data data, Error error)>;
/// Takes each piece of the body. Nothing says that the pieces so far are void, as another response begins.
using FetcherAccumulateDataBlock = std::function<void(Data piece)>;
using FetcherReceivedProgressBlock = std::function<void(int64_t bytesReceived, int64_t totalBytesReceived)>;
/// Of an upload, and of a download to a file. A total that is not known is -1.
using FetcherProgressBlock =
    std::function<void(int64_t bytes, int64_t totalBytes, int64_t totalBytesExpected)>;
using FetcherResumeDataBlock = std::function<void(Data resumeData)>;
using FetcherDidReceiveResponseBlock = std::function<void(URLResponse, ResponseDispositionHandler)>;
using FetcherChallengeBlock =
    std::function<void(const FetcherRef&, AuthenticationChallenge, ChallengeHandler)>;
using FetcherWillRedirectBlock = std::function<void(URLResponse, URLRequest, RedirectHandler)>;
using FetcherWillCacheURLResponseBlock = std::function<void(CachedURLResponse, CachedResponseHandler)>;
using FetcherBodyStreamProvider = std::function<void(BodyStreamHandler)>;
using FetcherRetryResponse = std::function<void(bool shouldRetry)>;
using FetcherRetryBlock = std::function<void(bool suggestedWillRetry, Error error, FetcherRetryResponse)>;
/// Called just before a session is made, on the thread that begins the fetch.
/// On the thread that begins the fetch, while the session is being made: it must not come back to the service
/// (`resetSession`, `setReuseSession`, another fetch's begin), which waits until it is.
using FetcherConfigurationBlock = std::function<void(const FetcherRef&, HTTPSessionConfiguration&)>;
/// Answers a fetch in place of the network. With nothing in all three the network is asked after all.
using FetcherTestResponse = std::function<void(URLResponse response, Data data, Error error)>;
using FetcherTestBlock = std::function<void(const FetcherRef&, FetcherTestResponse)>;

}  // namespace nvxcore
