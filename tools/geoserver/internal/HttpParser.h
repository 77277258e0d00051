// Incremental parser of HTTP/1 requests (RFC 9112).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "tools/geoserver/HeaderList.h"

namespace nvxcore::geoserver {

struct RequestHead {
  std::string method;
  std::string target;
  std::string version;  // "HTTP/1.0" or "HTTP/1.1"
  HeaderList headers;
};

// Pulls events out of input that arrives in pieces of any size. It is strict where leniency lets two parties
// see different messages: a length and a chunked coding together, lengths that differ, folded lines, blanks
// before a colon.
class HttpParser {
 public:
  enum class Event {
    needsMore,
    head,      // head() is filled; a body or `complete` follows
    body,      // bodyPiece() is filled, a view into the input
    complete,  // trailers() is filled; call reset() before the next message
    error,     // errorStatus() and errorText() are filled; nothing more can be read
  };

  HttpParser(size_t maxHeadBytes, uint64_t maxBodyBytes)
      : _maxHeadBytes(maxHeadBytes), _maxBodyBytes(maxBodyBytes) {}

  // Takes what it can use off the front of `input`.
  Event next(std::string_view& input);
  void reset();

  RequestHead& head() { return _head; }
  HeaderList& trailers() { return _trailers; }
  std::string_view bodyPiece() const { return _bodyPiece; }
  // The announced length; 0 when the body is chunked or there is none.
  uint64_t contentLength() const { return _contentLength; }

  int errorStatus() const { return _errorStatus; }
  const std::string& errorText() const { return _errorText; }

 private:
  enum class State { requestLine, fields, body, chunkSize, chunkData, chunkEnd, trailers, complete, failed };

  bool takeLine(std::string_view& input, std::string_view& line);
  bool parseRequestLine(std::string_view line);
  bool parseField(std::string_view line, HeaderList& fields);
  bool endHead();
  bool parseContentLength();
  bool parseChunkSize(std::string_view line);
  Event takeBody(std::string_view& input, State whenDone);
  bool fail(int status, std::string text);

  const size_t _maxHeadBytes;
  const uint64_t _maxBodyBytes;
  State _state = State::requestLine;
  std::string _line;        // the part of a line that came with earlier input
  bool _lineTaken = false;  // _line was handed out and is to be cleared
  size_t _headBytes = 0;
  RequestHead _head;
  HeaderList _trailers;
  bool _chunked = false;
  uint64_t _contentLength = 0;
  uint64_t _left = 0;  // of the body, or of the chunk
  uint64_t _bodyBytes = 0;
  std::string_view _bodyPiece;
  int _errorStatus = 0;
  std::string _errorText;
};

}  // namespace nvxcore::geoserver
