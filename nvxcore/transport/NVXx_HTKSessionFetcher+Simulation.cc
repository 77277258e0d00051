// The simulated fetch, which answers from a test block in place of the network.

#include <algorithm>
#include <utility>

#include "nvxcore/platform/Files.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcher.h"
#include "nvxcore/transport/internal/NVXx_HTKSessionFetcherFields.h"

namespace nvxcore {

void NVXx_HTKSessionFetcher::simulateFetchForTestBlock() {
  FetcherTestBlock testBlock;
  {
    Lock lock(_fields->lock);
    testBlock = _fields->_testBlock;
  }
  if (!testBlock) return;
  testBlock(shared_from_this(), [self = shared_from_this()](URLResponse response, Data data, Error error) {
    self->simulationResponded(response, data, std::move(error));
  });
}

void NVXx_HTKSessionFetcher::simulationResponded(const URLResponse& response, const Data& data, Error error) {
  const FetcherRef self = shared_from_this();
  if (!response && !data && !error) {
    FetcherTestBlock dropped;
    HTTPSessionTaskRef task;
    {
      Lock lock(_fields->lock);
      _fields->_testBlock.swap(dropped);
      _fields->_isUsingTestBlock = false;
      task = _fields->_sessionTask;
    }
    if (task) task->resume();
    return;
  }
  FetcherBodyStreamProvider provider;
  URL bodyFile;
  {
    Lock lock(_fields->lock);
    provider = _fields->_bodyStreamProvider;
    bodyFile = _fields->_bodyFileURL;
  }
  if (provider) {
    provider([self, response, data, error](std::shared_ptr<InputStream> stream) {
      Queue::blocking()->post([self, response, data, error, stream] {
        Error streamError;
        Data body;
        if (stream) body = NVXx_HTKDataFromInputStream(*stream, &streamError);
        Error outcome = error ? error : streamError;
        Queue::main()->post([self, body, response, data, outcome] {
          self->simulateDataCallbacks(body, response, data, outcome);
        });
      });
    });
    return;
  }
  // What reading the file brings takes the place of the given error, so that a good read leaves none.
  if (bodyFile) setBodyData(readFile(bodyFile, &error));
  Queue::main()->post([self, body = bodyData(), response, data, error] {
    self->simulateDataCallbacks(body, response, data, error);
  });
}

void NVXx_HTKSessionFetcher::simulateDataCallbacks(const Data& bodyData, const URLResponse& response,
                                                   const Data& responseData, Error error) {
  const FetcherRef self = shared_from_this();
  std::optional<URLRequest> request = this->request();
  const URL destination = destinationFileURL();
  FetcherWillRedirectBlock willRedirect;
  FetcherChallengeBlock challenge;
  FetcherDidReceiveResponseBlock didReceiveResponse;
  FetcherProgressBlock sendProgress, downloadProgress;
  FetcherAccumulateDataBlock accumulateData;
  FetcherReceivedProgressBlock receivedProgress;
  FetcherWillCacheURLResponseBlock willCache;
  QueueRef delegateQueue;
  {
    Lock lock(_fields->lock);
    willRedirect = _fields->_willRedirectBlock;
    challenge = _fields->_challengeBlock;
    didReceiveResponse = _fields->_didReceiveResponseBlock;
    sendProgress = _fields->_sendProgressBlock;
    downloadProgress = _fields->_downloadProgressBlock;
    accumulateData = _fields->_accumulateDataBlock;
    receivedProgress = _fields->_receivedProgressBlock;
    willCache = _fields->_willCacheURLResponseBlock;
    delegateQueue = _fields->_delegateQueue;
    if (_fields->_userStoppedFetching) return;
    // Before anything is queued, so that the handlers find the status.
    _fields->_response = response;
  }
  const URL url = request ? request->url : URL();
  if (willRedirect) {
    invokeOnCallbackQueueAfterUserStopped(true, [willRedirect, response, request] {
      willRedirect(response, request.value_or(URLRequest()), [](std::optional<URLRequest>) {});
    });
  }
  if (challenge) {
    AuthenticationChallenge made;
    made.protectionSpace.host = url.host();
    made.protectionSpace.port = url.port().value_or(0);
    made.protectionSpace.scheme = url.scheme();
    made.protectionSpace.authenticationMethod = kAuthenticationMethodHTTPBasic;
    invokeOnCallbackQueueAfterUserStopped(true, [self, challenge, made] {
      challenge(self, made, [](AuthChallengeDisposition, URLCredentialRef) {});
    });
  }
  if (didReceiveResponse) {
    invokeOnCallbackQueueAfterUserStopped(
        true, [didReceiveResponse, response] { didReceiveResponse(response, [](ResponseDisposition) {}); });
  }
  if (sendProgress) simulateByteTransferReport(bodyData.length(), sendProgress);
  if (destination) {
    if (downloadProgress) simulateByteTransferReport(responseData.length(), downloadProgress);
    if (Error failure = writeFileAtomically(destination, responseData)) error = failure;
  } else {
    if (!accumulateData) {
      Lock lock(_fields->lock);
      _fields->_downloadedData.assign(responseData);
    } else if (responseData) {
      invokeOnCallbackQueueUnlessStopped([accumulateData, responseData] { accumulateData(responseData); });
    }
    if (receivedProgress) {
      simulateByteTransferReport(
          responseData.length(),
          [receivedProgress](int64_t bytes, int64_t total, int64_t) { receivedProgress(bytes, total); });
    }
    if (willCache) {
      const CachedURLResponse cached{response, responseData ? responseData : Data::copy("", 0)};
      invokeOnCallbackQueueAfterUserStopped(
          true, [willCache, cached] { willCache(cached, [](std::optional<CachedURLResponse>) {}); });
    }
  }
  delegateQueue->post([self, error] {
    const bool passes = !error || (error.code() >= 200 && error.code() <= 399);
    self->finishWithError(passes ? Error() : error);
  });
}

void NVXx_HTKSessionFetcher::simulateByteTransferReport(size_t dataLength,
                                                        const FetcherProgressBlock& report) {
  const auto length = static_cast<int64_t>(dataLength);
  const int64_t chunk = length / 3 + 1;
  for (int64_t total = 0; total < length;) {
    const int64_t bytes = std::min(chunk, length - total);
    total += bytes;
    invokeOnCallbackQueueUnlessStopped([report, bytes, total, length] { report(bytes, total, length); });
  }
}

Data NVXx_HTKDataFromInputStream(InputStream& stream, Error* error) {
  constexpr size_t kReadLength = 512;
  if (error) *error = Error();
  MutableData bytes;
  stream.open();
  int64_t count;
  do {
    const size_t length = bytes.length();
    count = stream.read(bytes.extend(kReadLength), kReadLength);
    bytes.setLength(length + static_cast<size_t>(std::max<int64_t>(count, 0)));
  } while (count > 0);
  const Error failure = stream.streamError();
  stream.close();
  if (count < 0 || failure) {
    if (error) *error = failure;
    return {};
  }
  return Data::take(std::move(bytes));
}

}  // namespace nvxcore
