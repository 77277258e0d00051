#include "tools/geoserver/Subdata.h"

#include <gtest/gtest.h>

#include <limits>

#include "support/PostBuilder.h"

namespace nvxcore::geoserver {
namespace {

constexpr uint16_t kMessage = 300;

// A server whose type 300 answers with `size` bytes that pack well.
MessageType answering(size_t size) {
  MessageType type;
  type.answerMessage = [size](const MessageCall&) { return std::string(size, 'x'); };
  return type;
}

TEST(SubdataTest, CompressedWhenAskedAndLargeEnough) {
  struct Case {
    uint64_t fromBytes;
    bool onlyWhenAsked;
    bool asked;
    size_t size;
    bool compressed;
  };
  const Case cases[] = {
      {Compression::kNever, true, true, 5000, false},
      {Compression::kNever, false, true, 5000, false},
      {0, true, true, 1, true},
      {0, true, true, 0, false},
      {0, true, false, 5000, false},
      {0, false, false, 5000, true},
      {5000, true, true, 4999, false},
      {5000, true, true, 5000, true},
  };
  for (const auto format : {Compression::Format::gzip, Compression::Format::zlib}) {
    for (const Case& c : cases) {
      ServerOptions options;
      options.identity.cohort.reset();
      options.compression = {c.fromBytes, format, c.onlyWhenAsked};
      GeoServer server(options);
      server.registerMessageType(kMessage, answering(c.size));
      PostBuilder post;
      post.message(62, clientProperties(c.asked)).message(kMessage, "");
      const std::string reply = PostReply(server, post).body();
      WireReader reader(reply);
      EXPECT_EQ(reader.readBytes(2 + 2 + 4 + 2), fromHex("0018 003E 00000000 012C"));
      EXPECT_EQ(WireReader(reader).readInt() < 0, c.compressed) << c.size;
      if (c.compressed) {
        const bool gzip = reply.compare(14, 2, "\x1F\x8B") == 0;
        EXPECT_EQ(gzip, format == Compression::Format::gzip);
      }
      EXPECT_EQ(readSubdata(reader), std::string(c.size, 'x'));
      EXPECT_TRUE(reader.atEnd());
    }
  }
}

TEST(SubdataTest, WhatIsNoSubdataThrows) {
  const std::string zlib = fromHex("789C 4B4C 0400 0125 00C3");  // "aa"
  const auto read = [](std::string bytes) {
    WireReader reader(bytes);
    return readSubdata(reader);
  };
  EXPECT_EQ(read(fromHex("FFFFFFF6") + zlib), "aa");
  EXPECT_EQ(read(fromHex("00000000")), "");
  EXPECT_THROW(read(fromHex("FFFFFFF7") + zlib.substr(0, 9)), WireError);        // ends early
  EXPECT_THROW(read(fromHex("FFFFFFF5") + zlib + "!"), WireError);               // bytes behind the end
  EXPECT_THROW(read(fromHex("FFFFFFF6") + zlib.substr(0, 9) + "!"), WireError);  // wrong sum
  EXPECT_THROW(read(fromHex("80000000") + zlib), WireError);
  EXPECT_THROW(read(fromHex("00000003") + "ab"), WireError);
}

}  // namespace
}  // namespace nvxcore::geoserver
