#include "support/RawClient.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "tools/geoserver/WireCodec.h"

namespace nvxcore::geoserver {

RawClient::RawClient(uint16_t port) : _socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (connect(_socket, reinterpret_cast<sockaddr*>(&address), sizeof(address)) < 0) {
    throw std::system_error(errno, std::generic_category(), "connect");
  }
  const int on = 1;
  setsockopt(_socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
}

RawClient::~RawClient() {
  if (_socket >= 0) close(_socket);
}

bool RawClient::send(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent < 0) return false;
    bytes.remove_prefix(static_cast<size_t>(sent));
  }
  return true;
}

size_t RawClient::sendUntilFull(size_t atMost) {
  const std::string block(64 * 1024, 'x');
  size_t total = 0;
  while (total < atMost) {
    const ssize_t sent =
        ::send(_socket, block.data(), std::min(block.size(), atMost - total), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent > 0) {
      total += static_cast<size_t>(sent);
      continue;
    }
    // Full for now; it stays full when the other side does not read.
    pollfd room{_socket, POLLOUT, 0};
    if (poll(&room, 1, 300) <= 0) break;
  }
  return total;
}

void RawClient::endOutput() { shutdown(_socket, SHUT_WR); }

void RawClient::reset() {
  const linger atOnce{1, 0};
  setsockopt(_socket, SOL_SOCKET, SO_LINGER, &atOnce, sizeof(atOnce));
  close(std::exchange(_socket, -1));
}

bool RawClient::fill() {
  if (_ended) return false;
  pollfd waiting{_socket, POLLIN, 0};
  if (poll(&waiting, 1, static_cast<int>(std::chrono::milliseconds(kPatience).count())) <= 0) return false;
  char bytes[64 * 1024];
  const ssize_t count = recv(_socket, bytes, sizeof(bytes), 0);
  if (count > 0) {
    _buffer.append(bytes, static_cast<size_t>(count));
    return true;
  }
  _ended = true;
  _wasReset = count < 0 && errno == ECONNRESET;
  return false;
}

std::string RawClient::readUntil(std::string_view text) {
  size_t found = 0;
  while ((found = _buffer.find(text)) == std::string::npos) {
    if (!fill()) return std::exchange(_buffer, {});
  }
  return readExactly(found + text.size());
}

std::string RawClient::readExactly(size_t count) {
  while (_buffer.size() < count && fill()) {
  }
  std::string bytes = _buffer.substr(0, count);
  _buffer.erase(0, count);
  return bytes;
}

std::string RawClient::readToEnd() {
  while (fill()) {
  }
  return std::exchange(_buffer, {});
}

std::string RawClient::readReply() {
  const std::string head = readUntil("\r\n\r\n");
  const size_t field = head.find("Content-Length: ");
  if (field == std::string::npos) return head;
  return head + readExactly(std::stoul(head.substr(field + 16)));
}

std::string postBody(size_t count, size_t payload) {
  std::string body;
  WireWriter writer(body);
  writer.writeShort(24);
  writer.writeLong(7);
  for (const char* text : {"en", "linux:test", "1.0", "channel"}) writer.writeUtf(text);
  for (size_t i = 0; i < count; ++i) {
    writer.writeShort(kEchoType);
    writer.writeCountedBytes(std::string(payload, static_cast<char>('a' + i % 26)));
  }
  return body;
}

std::string goodReply(size_t count, size_t payload) {
  const std::string body = postBody(count, payload);
  return body.substr(0, 2) + body.substr(postBody(0, 0).size());
}

std::string postRequest(std::string_view body, std::string_view path, std::string_view moreFields) {
  return "POST " + std::string(path) + " HTTP/1.1\r\nHost: test\r\n" + std::string(moreFields) +
         "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + std::string(body);
}

std::string getRequest(std::string_view path, std::string_view moreFields) {
  return "GET " + std::string(path) + " HTTP/1.1\r\nHost: test\r\n" + std::string(moreFields) + "\r\n";
}

std::string bodyOf(std::string_view reply) {
  const size_t end = reply.find("\r\n\r\n");
  return end == std::string_view::npos ? std::string() : std::string(reply.substr(end + 4));
}

}  // namespace nvxcore::geoserver
