#include "tests/platform/http/support/RawServer.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <thread>
#include <utility>

namespace nvxcore::testing {

namespace {

constexpr int kPatienceMillis = 10'000;

bool isReadable(int descriptor) {
  pollfd waiting{descriptor, POLLIN, 0};
  return ::poll(&waiting, 1, kPatienceMillis) == 1;
}

}  // namespace

RawServer::RawServer() : _descriptor(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  // Small, so that the client sees of what is read.
  const int bytes = 64 << 10;
  ::setsockopt(_descriptor, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof(bytes));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof(address);
  EXPECT_EQ(::bind(_descriptor, reinterpret_cast<sockaddr*>(&address), length), 0);
  EXPECT_EQ(::listen(_descriptor, 16), 0);
  EXPECT_EQ(::getsockname(_descriptor, reinterpret_cast<sockaddr*>(&address), &length), 0);
  _port = ntohs(address.sin_port);
}

RawServer::~RawServer() { ::close(_descriptor); }

std::string RawServer::url(std::string_view path) const {
  return "http://127.0.0.1:" + std::to_string(_port) + std::string(path);
}

RawServer::Connection RawServer::accept() {
  EXPECT_TRUE(isReadable(_descriptor));
  const int descriptor = ::accept4(_descriptor, nullptr, nullptr, SOCK_CLOEXEC);
  const int yes = 1;
  ::setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof(yes));
  return Connection(descriptor);
}

RawServer::Connection::Connection(Connection&& other) noexcept
    : _descriptor(std::exchange(other._descriptor, -1)) {}

RawServer::Connection::~Connection() {
  if (_descriptor >= 0) ::close(_descriptor);
}

std::string RawServer::Connection::readHead() {
  std::string head;
  char byte;
  while (!head.ends_with("\r\n\r\n") && isReadable(_descriptor) && ::recv(_descriptor, &byte, 1, 0) == 1)
    head += byte;
  EXPECT_TRUE(head.ends_with("\r\n\r\n")) << head;
  return head;
}

size_t RawServer::Connection::readSome(size_t most) {
  std::string buffer(most, '\0');
  if (!isReadable(_descriptor)) return 0;
  const ssize_t count = ::recv(_descriptor, buffer.data(), most, 0);
  return count > 0 ? static_cast<size_t>(count) : 0;
}

void RawServer::Connection::send(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::send(_descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count <= 0) return;
    bytes.remove_prefix(static_cast<size_t>(count));
  }
}

bool RawServer::Connection::waitUntilTaken() {
  // Loopback acknowledges on delivery; what the client has not read by then it finds before it looks at time.
  const auto limit = std::chrono::steady_clock::now() + std::chrono::milliseconds(kPatienceMillis);
  int unsent = 1;
  while (unsent && std::chrono::steady_clock::now() < limit) {
    if (::ioctl(_descriptor, SIOCOUTQ, &unsent) != 0) return false;
    std::this_thread::yield();
  }
  return !unsent;
}

void RawServer::Connection::reset() {
  const linger now{1, 0};
  ::setsockopt(_descriptor, SOL_SOCKET, SO_LINGER, &now, sizeof(now));
  ::close(std::exchange(_descriptor, -1));
}

}  // namespace nvxcore::testing
