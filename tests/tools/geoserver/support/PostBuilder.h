// Bytes of a POST and of its reply, put together and taken apart by hand.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "support/RawClient.h"
#include "tools/geoserver/GeoServer.h"

namespace nvxcore::geoserver {

// Bytes as they stand in hexadecimal; blanks are passed over.
std::string fromHex(std::string_view digits);

class PostBuilder {
 public:
  explicit PostBuilder(int64_t cookie = 0);

  PostBuilder& request(uint16_t id, std::string_view payload = {});
  // With its length in front.
  PostBuilder& message(uint16_t id, std::string_view bytes);
  PostBuilder& message(uint16_t id, const WireMessage& message) {
    return this->message(id, message.serialised());
  }
  const std::string& bytes() const { return _bytes; }

 private:
  std::string _bytes;
};

// A client-properties request of a client that takes compressed answers, or does not.
WireMessage clientProperties(bool gzip);

// Sends the POST on a connection of its own, and reads what comes back.
class PostReply {
 public:
  PostReply(const GeoServer& server, const PostBuilder& post, std::string_view moreFields = {});

  const std::string& body() const { return _body; }
  const std::string& raw() const { return _raw; }
  // Behind the answers read so far: one of that ID, with a cookie or a message.
  int64_t cookie();
  WireMessage message(uint16_t id, const MessageSchema& schema);
  // The same message, and whether it came compressed.
  bool lastWasCompressed() const { return _compressed; }
  bool atEnd() const { return _at == _body.size(); }

 private:
  WireReader answer(uint16_t id);

  std::string _raw;
  std::string _body;
  size_t _at = 2;
  bool _compressed = false;
};

}  // namespace nvxcore::geoserver
