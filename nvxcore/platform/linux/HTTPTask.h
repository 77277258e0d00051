#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>

#include "nvxcore/platform/HTTPSession.h"
#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/ThreadAnnotations.h"
#include "nvxcore/platform/linux/BodyBuffer.h"
#include "nvxcore/platform/linux/DownloadFile.h"
#include "nvxcore/platform/linux/ResumeData.h"
#include "nvxcore/platform/linux/TransferSource.h"

namespace nvxcore {

class CurlSession;

/// A task: it takes what its transfer reports and tells it to the delegate, an event at a time, on the
/// delegate queue. What comes while an event is being told, or waits for an answer, is put together, so that
/// a reply that is there at once costs one turn of the queue.
class HTTPTask final : public HTTPSessionTask, public std::enable_shared_from_this<HTTPTask> {
 public:
  /// Where the body of its request comes from.
  enum class BodySource { Request, File, AskedStream };

  HTTPTask(std::shared_ptr<CurlSession> session, TaskKind kind, uint64_t identifier, URLRequest request,
           BodySource bodySource, URL bodyFile);
  ~HTTPTask() override;

  TaskKind kind() const override { return _kind; }
  uint64_t taskIdentifier() const override { return _identifier; }
  void resume() override;
  void cancel() override;
  void cancelByProducingResumeData(std::function<void(Data)> handler) override;
  TaskState state() const override;
  URLResponse response() const override;
  URLRequest originalRequest() const override { return *_originalRequest; }
  URLRequest currentRequest() const override;
  int64_t countOfBytesSent() const override { return _bytesSent.load(std::memory_order_relaxed); }
  int64_t countOfBytesReceived() const override { return _bytesReceived.load(std::memory_order_relaxed); }
  std::string taskDescription() const override;
  void setTaskDescription(std::string description) override;
  bool setPriority(float priority) override;
  float priority() const { return _priority.load(std::memory_order_relaxed); }

  /// Makes a download go on where an earlier one ended. Before `resume`.
  void continueFrom(std::unique_ptr<ResumeData> part);
  /// The task as the delegate knows it: another one once it has become a download.
  HTTPSessionTaskRef reported();

  // What the transfer reports, in its order. Nothing of it counts once `source` is not the one that the task
  // carries out any more.

  void receivedHead(const TransferSource& source, URLResponse response);
  /// False when there is no room; the transfer is then told when to proceed.
  bool receivedBody(const TransferSource& source, const char* bytes, size_t length);
  /// `total` bytes of the body have gone out. True when they were fewer before.
  bool sentBody(const TransferSource& source, int64_t total, int64_t expected);
  /// The end, with or without an error.
  void ended(const TransferSource& source, const Error& error);
  /// Sees to it that what was reported is told.
  void flush();

  /// True while an event waits for its answer.
  bool waitsForAnswer() const { return _waitsForAnswer.load(std::memory_order_relaxed); }
  int64_t maximumReplyLength() const;

 private:
  using RequestRef = std::shared_ptr<const URLRequest>;

  struct ResponseQuestion {
    URLResponse response;
  };
  struct RedirectQuestion {
    URLResponse response;
    URLRequest request;
  };
  struct ChallengeQuestion {
    AuthenticationChallenge challenge;
    std::string field;  ///< Of the reply, as it came.
  };
  struct StreamQuestion {};
  using Question =
      std::variant<std::monostate, ResponseQuestion, RedirectQuestion, ChallengeQuestion, StreamQuestion>;

  struct Sending {
    int64_t unreported = 0;
    int64_t total = 0;
    int64_t expected = 0;
  };
  struct Becoming {};
  struct Resumed {
    int64_t offset = 0;
    int64_t expected = 0;
  };
  struct Writing {
    int64_t unreported = 0;
    int64_t total = 0;
    int64_t expected = -1;
  };
  struct Downloaded {};
  struct Completion {
    Error error;
  };
  enum class Next { Nothing, Sending, Question, Becoming, Resumed, Writing, Data, Downloaded, Completion };
  using Event = std::variant<Sending, Question, Becoming, Resumed, Writing, Data, Downloaded, Completion>;

  // Carrying out. (HTTPTask.cc)
  void cancel(std::function<void(Data)> resumeDataHandler);
  void carryOut(RequestRef request);
  void startTransfer(const RequestRef& request, std::shared_ptr<InputStream> stream);
  void endWithoutTransfer(const Error& error);
  std::string cookiesToSend(const URLRequest& request);

  // Telling. (HTTPTask+Events.cc)
  bool isCurrent(const TransferSource& source) const NVX_REQUIRES(_lock) { return _source.get() == &source; }
  void ask(Question question) NVX_REQUIRES(_lock);
  void fail(const Error& error) NVX_REQUIRES(_lock);
  void acceptReply(URLResponse response) NVX_REQUIRES(_lock);
  void deliver();
  bool deliverNext();
  Next next() const NVX_REQUIRES(_lock);
  bool takeEvent(Event& event) NVX_REQUIRES(_lock);
  void tell(HTTPSessionDelegate& delegate, const Sending& sending);
  void tell(HTTPSessionDelegate& delegate, const Question& question);
  void tell(HTTPSessionDelegate& delegate, const Becoming&);
  void tell(HTTPSessionDelegate& delegate, const Resumed& resumed);
  void tell(HTTPSessionDelegate& delegate, const Writing& writing);
  void tell(HTTPSessionDelegate& delegate, const Data& data);
  void tell(HTTPSessionDelegate& delegate, const Downloaded&);
  void tell(HTTPSessionDelegate& delegate, const Completion& completion);
  void storeCookies(const HTTPHeaders& fields);
  void complete();
  void bytesTaken(size_t count);
  template <class... Arguments>
  std::function<void(Arguments...)> answer(void (HTTPTask::*take)(uint64_t, Arguments...));

  // Answers. (HTTPTask+Answers.cc)
  template <class Kind>
  std::optional<Kind> takeQuestion(uint64_t number) NVX_REQUIRES(_lock);
  void answeredResponse(uint64_t question, ResponseDisposition disposition);
  void answeredRedirect(uint64_t question, std::optional<URLRequest> request);
  void answeredChallenge(uint64_t question, AuthChallengeDisposition disposition,
                         URLCredentialRef credential);
  void answeredStream(uint64_t question, std::shared_ptr<InputStream> stream);
  std::shared_ptr<TransferSource> leaveTransfer() NVX_REQUIRES(_lock);

  // Downloading. (HTTPTask+Download.cc)
  void acceptDownload(const URLResponse& response) NVX_REQUIRES(_lock);
  bool hasFileWork() const NVX_REQUIRES(_lock);
  void beginWithPart();
  void workOnFile();
  void write(const Data& piece);
  void closeFile();
  Data keepPart(const std::string& validator);
  void failOnFile(const Error& error);

  const std::shared_ptr<CurlSession> _session;
  const TaskKind _kind;
  const uint64_t _identifier;
  const RequestRef _originalRequest;
  const BodySource _bodySource;
  const URL _bodyFile;
  const QueueRef _delegateQueue;

  std::atomic<int64_t> _bytesSent{0};
  std::atomic<int64_t> _bytesReceived{0};
  std::atomic<float> _priority{-1};
  std::atomic<bool> _waitsForAnswer{false};

  mutable Mutex _lock;
  TaskState _state NVX_GUARDED_BY(_lock) = TaskState::Suspended;
  RequestRef _request NVX_GUARDED_BY(_lock);
  URLResponse _response NVX_GUARDED_BY(_lock);
  std::string _description NVX_GUARDED_BY(_lock);
  std::shared_ptr<HTTPSessionDelegate> _delegate NVX_GUARDED_BY(_lock);
  std::shared_ptr<TransferSource> _source NVX_GUARDED_BY(_lock);
  bool _streamWasUsed NVX_GUARDED_BY(_lock) = false;
  bool _bodyIsDropped NVX_GUARDED_BY(_lock) = false;  ///< A redirect has led to a request without it.
  int _redirects NVX_GUARDED_BY(_lock) = 0;
  int64_t _authenticationFailures NVX_GUARDED_BY(_lock) = 0;

  // What is still to be told.
  HTTPHeaders _cookieFields NVX_GUARDED_BY(_lock);  ///< Of a head whose cookies are not stored yet.
  Sending _sending NVX_GUARDED_BY(_lock);
  Question _question NVX_GUARDED_BY(_lock);
  uint64_t _questionNumber NVX_GUARDED_BY(_lock) = 0;
  bool _questionIsAsked NVX_GUARDED_BY(_lock) = false;
  BodyBuffer _body NVX_GUARDED_BY(_lock);
  bool _sourcePaused NVX_GUARDED_BY(_lock) = false;
  std::optional<Error> _outcome NVX_GUARDED_BY(_lock);
  bool _isCancelled NVX_GUARDED_BY(_lock) = false;
  bool _deliveryIsPosted NVX_GUARDED_BY(_lock) = false;

  // A download. Its file is worked on where that may wait, one step after another.
  bool _isDownload NVX_GUARDED_BY(_lock);
  bool _becomesDownload NVX_GUARDED_BY(_lock) = false;  ///< That is still to be told.
  HTTPSessionTaskRef _view NVX_GUARDED_BY(_lock);
  std::unique_ptr<ResumeData> _part NVX_GUARDED_BY(_lock);
  std::optional<Resumed> _resumed NVX_GUARDED_BY(_lock);
  Writing _writing NVX_GUARDED_BY(_lock);
  std::string _validator NVX_GUARDED_BY(_lock);
  std::function<void(Data)> _resumeDataHandler NVX_GUARDED_BY(_lock);
  bool _fileStartsAnew NVX_GUARDED_BY(_lock) = false;
  bool _fileWorkIsPosted NVX_GUARDED_BY(_lock) = false;
  bool _needsClosing NVX_GUARDED_BY(_lock);  ///< Before the end is told.
  bool _fileIsClosed NVX_GUARDED_BY(_lock) = false;
  bool _downloadWasDelivered NVX_GUARDED_BY(_lock) = false;
  DownloadFile _file;
};

}  // namespace nvxcore
