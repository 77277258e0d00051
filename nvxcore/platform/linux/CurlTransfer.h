#pragma once

#include <curl/curl.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "nvxcore/platform/HTTPHeaders.h"
#include "nvxcore/platform/URLErrors.h"
#include "nvxcore/platform/linux/BodyPump.h"
#include "nvxcore/platform/linux/HostResolver.h"
#include "nvxcore/platform/linux/PreparedRequest.h"
#include "nvxcore/platform/linux/TransferSource.h"

namespace nvxcore {

class CurlConnectionPool;
class HTTPTask;

/// One request of a task on its way over the network: the name is looked up, the first piece of a streamed
/// body is pulled, and libcurl carries the rest out. A redirect that is followed is another transfer.
///
/// All of it happens on the I/O thread, but for what `TransferSource` has.
class CurlTransfer final : public TransferSource, public std::enable_shared_from_this<CurlTransfer> {
 public:
  CurlTransfer(std::shared_ptr<CurlConnectionPool> pool, std::shared_ptr<HTTPTask> task,
               PreparedRequest request);

  // Any thread.

  void start() override;
  void proceed() override;
  void hostAnswered() override;
  void stop() override;

  // For the pool.

  /// Sets what is the same for every transfer.
  static void configure(CURL* handle);
  void finish(CURLcode result);
  /// True once the head of the reply is there and its body is wanted.
  bool mayBeAnsweredEarly() const;
  /// The reply is complete and the request is not.
  void finishAnsweredEarly();
  /// When it will have made no progress for too long, on the seam's clock.
  int64_t timeOutAt() const;
  /// When to look at that again.
  int64_t nextLookAt() const;
  /// Counts what the server has taken of the request since the last look as progress. A socket tells of room
  /// only once much of its buffer has been taken, which a slow line can take longer for than the time-out.
  void lookAtSending();
  void timeOut();
  void madeProgress();
  bool isMultiplexed() const { return _isMultiplexed; }
  /// Makes libcurl look for bytes that it has read from a shared connection already. False when this one
  /// shares none.
  bool lookAgain();
  /// Hands over what has come since the last turn.
  void tell();

  size_t indexInPool = 0;
  int descriptor = -1;  ///< Of the socket whose events it asked for last.

 private:
  void begin();
  void enter();
  void prepare();
  HostResolver::Addresses lookUp();
  void pullBody(size_t maxLength);
  void received(BodyPiece piece);
  void launch();
  void setMethodAndBody();
  void setPause();
  void noteChange();
  void refuse(URLErrorCode code);
  void end(const Error& error);
  bool waitsForHost() const;
  bool hasUnsentBody() const;
  bool isReplyComplete() const;

  int requestDue();
  size_t headerLine(std::string_view line);
  void headComplete();
  size_t body(const char* bytes, size_t length);
  size_t nextBodyBytes(char* buffer, size_t size);
  void sent(int64_t bytes);

  static int onRequestDue(void* self, char*, char*, int, int) noexcept;
  static size_t onHeader(char* bytes, size_t, size_t length, void* self) noexcept;
  static size_t onBody(char* bytes, size_t, size_t length, void* self) noexcept;
  static size_t onRead(char* buffer, size_t, size_t size, void* self) noexcept;
  static int onProgress(void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t uploaded) noexcept;

  /// What is pulled of a body at a time.
  static constexpr size_t kPieceLength = 64 << 10;

  enum class Stage { New, Preparing, Running, Ended };

  const std::shared_ptr<CurlConnectionPool> _pool;
  std::shared_ptr<HTTPTask> _task;
  PreparedRequest _request;
  HostResolver::Addresses _addresses;
  curl_slist* _resolve = nullptr;
  CURL* _handle = nullptr;
  Stage _stage = Stage::New;
  bool _isChanged = false;
  std::atomic<int64_t> _lastProgress{0};
  Error _failure;  ///< Why it is not to go on.

  // The request.
  std::shared_ptr<BodyPump> _pump;
  BodyPiece _piece;  ///< Pulled and not yet sent.
  size_t _pieceOffset = 0;
  bool _isPulling = false;
  bool _isPulled = false;  ///< The first piece is there.
  bool _sendPaused = false;
  int64_t _bodyTaken = 0;  ///< Bytes of the stream that libcurl has taken.
  int64_t _bytesSent = 0;  ///< As libcurl counts them.
  int _untakenBytes = 0;   ///< In the socket, at the last look.
  int _timesDue = 0;
  long _sentWhenDue = 0;
  bool _isMultiplexed = false;

  // The reply.
  HTTPHeaders _headers;
  std::string _version;
  int _status = 0;
  size_t _headLength = 0;
  bool _hasHead = false;
  bool _receivePaused = false;
  int64_t _received = 0;
  int64_t _bodyLength = -1;  ///< On the wire; -1 when the head does not say.

  char _message[CURL_ERROR_SIZE] = {};
};

}  // namespace nvxcore
