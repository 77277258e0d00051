// A client that is nothing but a socket, for what no HTTP client would send or tell.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace nvxcore::geoserver {

class RawClient {
 public:
  explicit RawClient(uint16_t port);
  ~RawClient();
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;

  // False when the server has gone.
  bool send(std::string_view bytes);
  // Takes as much as the buffers hold without the other side reading; gives the count.
  size_t sendUntilFull(size_t atMost);
  void endOutput();
  void reset();

  // Reads until what came ends with, or contains, that text; gives all that came since the last call, and
  // what there is when the time is over.
  std::string readUntil(std::string_view text);
  std::string readExactly(size_t count);
  // Reads to the connection's end, and says how that was.
  std::string readToEnd();
  // Reads one reply with a Content-Length.
  std::string readReply();
  bool endedOrderly() const { return _ended && !_wasReset; }
  bool wasReset() const { return _wasReset; }

 private:
  bool fill();

  int _socket;
  std::string _buffer;
  bool _ended = false;
  bool _wasReset = false;
};

inline constexpr std::chrono::seconds kPatience{20};

// A request type that no server knows.
inline constexpr uint16_t kEchoType = 239;

// A POST of the connection's protocol with a good head, and `count` requests of type 239 with `payload` bytes
// each.
std::string postBody(size_t count, size_t payload);
// The reply that it gets.
std::string goodReply(size_t count, size_t payload);
std::string postRequest(std::string_view body, std::string_view path = "/", std::string_view moreFields = {});
std::string getRequest(std::string_view path, std::string_view moreFields = {});
// What stands behind the first empty line.
std::string bodyOf(std::string_view reply);

}  // namespace nvxcore::geoserver
