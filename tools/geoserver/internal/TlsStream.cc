#include "tools/geoserver/internal/TlsStream.h"

#include <openssl/err.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <limits>

namespace nvxcore::geoserver {
namespace {

constexpr size_t kRecordBytes = 16 * 1024;

}  // namespace

TlsStream::TlsStream(const TlsContext& context, int socket)
    : _socket(socket), _ssl(SSL_new(context.context())) {
  if (!_ssl) {
    _failed = true;
    return;
  }
  SSL_set_fd(_ssl.get(), socket);
  SSL_set_accept_state(_ssl.get());
}

TlsStream::~TlsStream() { close(_socket); }

IoResult TlsStream::resultOf(int returned) const {
  if (returned > 0) return {IoStatus::done, static_cast<size_t>(returned)};
  switch (SSL_get_error(_ssl.get(), returned)) {
    case SSL_ERROR_WANT_READ:
      return {IoStatus::wantsRead};
    case SSL_ERROR_WANT_WRITE:
      return {IoStatus::wantsWrite};
    case SSL_ERROR_ZERO_RETURN:
      return {IoStatus::end};
    case SSL_ERROR_SSL:
      // A peer that just closes, without close_notify, is no different from one that ends in order.
      if (ERR_GET_REASON(ERR_peek_error()) == SSL_R_UNEXPECTED_EOF_WHILE_READING) return {IoStatus::end};
      return {IoStatus::failed};
    default:
      return {IoStatus::failed};
  }
}

IoResult TlsStream::handshake() {
  if (_failed) return {IoStatus::failed};
  ERR_clear_error();
  const IoResult result = resultOf(SSL_do_handshake(_ssl.get()));
  _failed = result.status == IoStatus::failed;
  return result;
}

std::string TlsStream::protocol() const {
  const unsigned char* name = nullptr;
  unsigned int length = 0;
  SSL_get0_alpn_selected(_ssl.get(), &name, &length);
  return {reinterpret_cast<const char*>(name), length};
}

IoResult TlsStream::read(char* destination, size_t capacity) {
  if (_failed) return {IoStatus::failed};
  ERR_clear_error();
  const auto wanted = static_cast<int>(std::min<size_t>(capacity, std::numeric_limits<int>::max()));
  const IoResult result = resultOf(SSL_read(_ssl.get(), destination, wanted));
  _failed = result.status == IoStatus::failed;
  return result;
}

IoResult TlsStream::write(const iovec* pieces, int count) {
  if (_failed) return {IoStatus::failed};
  // Small pieces share a record: a head and the body behind it travel together.
  char record[kRecordBytes];
  const char* bytes = static_cast<const char*>(pieces[0].iov_base);
  size_t length = std::min(pieces[0].iov_len, kRecordBytes);
  if (count > 1 && pieces[0].iov_len < kRecordBytes) {
    length = 0;
    for (int i = 0; i < count && length < kRecordBytes; ++i) {
      const size_t part = std::min(pieces[i].iov_len, kRecordBytes - length);
      std::memcpy(record + length, pieces[i].iov_base, part);
      length += part;
    }
    bytes = record;
  }
  ERR_clear_error();
  const IoResult result = resultOf(SSL_write(_ssl.get(), bytes, static_cast<int>(length)));
  _failed = result.status == IoStatus::failed || result.status == IoStatus::end;
  return _failed ? IoResult{IoStatus::failed} : result;
}

void TlsStream::endOutput(bool orderly) {
  if (orderly && !_failed && SSL_is_init_finished(_ssl.get())) {
    ERR_clear_error();
    SSL_shutdown(_ssl.get());
  }
  shutdown(_socket, SHUT_WR);
}

}  // namespace nvxcore::geoserver
