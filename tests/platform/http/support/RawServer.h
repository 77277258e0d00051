#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace nvxcore::testing {

/// A listening socket on loopback whose connections the test plays by hand.
class RawServer {
 public:
  class Connection {
   public:
    explicit Connection(int descriptor) : _descriptor(descriptor) {}
    Connection(Connection&& other) noexcept;
    ~Connection();

    /// Reads to the empty line, which must come within some seconds.
    std::string readHead();
    /// At most that many bytes; 0 at the end.
    size_t readSome(size_t most);
    void send(std::string_view bytes);
    /// Waits until the client has read all that was sent.
    bool waitUntilTaken();
    void reset();

   private:
    int _descriptor;
  };

  RawServer();
  ~RawServer();
  RawServer(const RawServer&) = delete;
  RawServer& operator=(const RawServer&) = delete;

  std::string url(std::string_view path) const;
  Connection accept();

 private:
  int _descriptor;
  uint16_t _port = 0;
};

}  // namespace nvxcore::testing
