#include <charconv>
#include <utility>

#include "nvxcore/platform/Value.h"
#include "nvxcore/platform/linux/BecomeDownloadTask.h"
#include "nvxcore/platform/linux/HTTPTask.h"
#include "nvxcore/platform/linux/TransferErrors.h"

namespace nvxcore {

namespace {

/// Where the range of a 206 begins (RFC 9110, 14.4); -1 when it does not say.
int64_t rangeStart(const URLResponse& response) {
  const std::string field = response.headers().value("Content-Range").value_or("");
  constexpr std::string_view kUnit = "bytes ";
  int64_t start = -1;
  if (field.starts_with(kUnit))
    std::from_chars(field.data() + kUnit.size(), field.data() + field.size(), start);
  return start;
}

}  // namespace

void HTTPTask::continueFrom(std::unique_ptr<ResumeData> part) {
  Lock lock(_lock);
  _part = std::move(part);
}

/// Takes the part that is there, and asks for the rest; for all of it when the part is gone.
void HTTPTask::beginWithPart() {
  URL kept;
  {
    Lock lock(_lock);
    kept = _part->file();
  }
  RequestRef request = _originalRequest;
  const Error error = _file.take(kept);
  {
    Lock lock(_lock);
    if (!error && _file.length() == _part->offset) {
      request = std::make_shared<URLRequest>(_part->rangeRequest());
      _validator = _part->validator;
    } else {
      _part = nullptr;
    }
  }
  carryOut(std::move(request));
}

void HTTPTask::acceptDownload(const URLResponse& response) {
  const int64_t offset = _part ? _part->offset : 0;
  if (offset && response.statusCode() == 206) {
    if (rangeStart(response) != offset) return fail(transferError(kURLErrorBadServerResponse, _request->url));
    const int64_t rest = response.expectedContentLength();
    _writing = {0, offset, rest < 0 ? -1 : offset + rest};
    _resumed = Resumed{offset, _writing.expected};
  } else if (offset && response.statusCode() == 416) {
    // The part lies beyond what there is by now. Nothing of this reply counts.
    _part = nullptr;
    Queue::global()->post([self = shared_from_this(), left = leaveTransfer()] {
      if (left) left->stop();
      self->carryOut(self->_originalRequest);
    });
    return;
  } else {
    _part = nullptr;
    _writing = {0, 0, response.expectedContentLength()};
    _fileStartsAnew = true;
  }
  const bool isWhole = _part || !_request->headers.contains("Range");
  _validator = isWhole && _request->method == "GET" ? ResumeData::validatorOf(response) : std::string();
}

bool HTTPTask::hasFileWork() const {
  // While a question is open it is not known whether the body is wanted.
  if (!std::holds_alternative<std::monostate>(_question)) return false;
  return _fileStartsAnew || (_isDownload && !_body.empty()) || (_outcome && _needsClosing && !_fileIsClosed);
}

void HTTPTask::workOnFile() {
  while (true) {
    Data piece;
    bool startsAnew;
    {
      Lock lock(_lock);
      if (!hasFileWork()) {
        _fileWorkIsPosted = false;
        return;
      }
      startsAnew = std::exchange(_fileStartsAnew, false);
      if (!startsAnew && !_body.empty()) piece = _body.take();
    }
    if (startsAnew) {
      if (Error error = _file.restart()) failOnFile(error);
    } else if (piece) {
      write(piece);
    } else {
      closeFile();
    }
  }
}

void HTTPTask::write(const Data& piece) {
  const Error error = _file.append(piece);
  bytesTaken(piece.length());
  if (error) return failOnFile(error);
  {
    Lock lock(_lock);
    _writing.unreported += static_cast<int64_t>(piece.length());
    _writing.total += static_cast<int64_t>(piece.length());
  }
  flush();
}

void HTTPTask::failOnFile(const Error& error) {
  std::shared_ptr<TransferSource> source;
  {
    Lock lock(_lock);
    source = std::exchange(_source, nullptr);
    if (!_isCancelled) fail(transferError(kURLErrorCannotWriteToFile, _request->url, error));
    _body.clear();
    _validator.clear();
  }
  if (source) source->stop();
}

/// With all written that there is: what has failed midway is kept for later, where that makes sense.
void HTTPTask::closeFile() {
  std::string validator;
  bool hasFailed;
  std::function<void(Data)> handler;
  {
    Lock lock(_lock);
    handler = std::exchange(_resumeDataHandler, nullptr);
    hasFailed = static_cast<bool>(*_outcome);
    if (!_isCancelled || handler) validator = _validator;
  }
  Data resumeData;
  if (hasFailed) {
    if (!validator.empty() && _file.length()) resumeData = keepPart(validator);
    _file.discard();
  } else {
    _file.close();
  }
  if (handler) handler(resumeData);
  {
    Lock lock(_lock);
    if (resumeData) {
      Dictionary userInfo = _outcome->userInfo();
      userInfo.set(kURLSessionDownloadTaskResumeData, resumeData);
      _outcome = Error(_outcome->domain(), _outcome->code(), std::move(userInfo));
    }
    // Not so for a cancellation that came meanwhile.
    _fileIsClosed = !_resumeDataHandler && hasFailed == static_cast<bool>(*_outcome);
  }
  flush();
}

Data HTTPTask::keepPart(const std::string& validator) {
  ResumeData part;
  part.request = *_originalRequest;
  part.validator = validator;
  part.offset = _file.length();
  part.fileName = ResumeData::newFileName();
  return _file.keepAs(part.file()) ? Data() : part.encoded();
}

void HTTPTask::tell(HTTPSessionDelegate& delegate, const Becoming&) {
  delegate.dataTaskDidBecomeDownloadTask(shared_from_this(), reported());
}

void HTTPTask::tell(HTTPSessionDelegate& delegate, const Resumed& resumed) {
  delegate.downloadTaskDidResumeAtOffset(reported(), resumed.offset, resumed.expected);
}

void HTTPTask::tell(HTTPSessionDelegate& delegate, const Writing& writing) {
  delegate.downloadTaskDidWriteData(reported(), writing.unreported, writing.total, writing.expected);
}

void HTTPTask::tell(HTTPSessionDelegate& delegate, const Downloaded&) {
  delegate.downloadTaskDidFinishDownloadingToURL(reported(), _file.location());
  _file.discard();
}

}  // namespace nvxcore
