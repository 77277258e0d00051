#include "tools/geoserver/internal/SocketStream.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace nvxcore::geoserver {

SocketStream::~SocketStream() { close(_socket); }

IoResult SocketStream::read(char* destination, size_t capacity) {
  for (;;) {
    const ssize_t count = recv(_socket, destination, capacity, 0);
    if (count > 0) return {IoStatus::done, static_cast<size_t>(count)};
    if (count == 0) return {IoStatus::end};
    if (errno == EAGAIN || errno == EWOULDBLOCK) return {IoStatus::wantsRead};
    if (errno != EINTR) return {IoStatus::failed};
  }
}

IoResult SocketStream::write(const iovec* pieces, int count) {
  msghdr message{};
  message.msg_iov = const_cast<iovec*>(pieces);
  message.msg_iovlen = static_cast<size_t>(count);
  for (;;) {
    const ssize_t taken = sendmsg(_socket, &message, MSG_NOSIGNAL);
    if (taken >= 0) return {IoStatus::done, static_cast<size_t>(taken)};
    if (errno == EAGAIN || errno == EWOULDBLOCK) return {IoStatus::wantsWrite};
    if (errno != EINTR) return {IoStatus::failed};
  }
}

void SocketStream::endOutput(bool) { shutdown(_socket, SHUT_WR); }

}  // namespace nvxcore::geoserver
