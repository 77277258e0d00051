// A compressed answer of 1 MB as a request reads it, from its length to the message, beside plain zlib into a
// buffer of the right size and the parse of that.

#include <benchmark/benchmark.h>
#include <zlib.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

#include "benchmarks/message/Rows.h"
#include "nvxcore/connection/JavaDataInputPBSupport.h"
#include "nvxcore/connection/java_data/JavaDataOutput.h"
#include "nvxcore/message/schema/resource.pb.h"
#include "nvxcore/transport/transforms/NVXx_HTKNSDataZlib.h"

namespace {

using namespace nvxcore;
using Answer = NVXx_ZLCResourceResponseProto;

/// Resources as a server has them: texts that compress, images that don't.
Data answerOf(size_t length) {
  std::mt19937 random(3);
  auto answer = Answer::message();
  for (size_t size = 0; size < length;) {
    auto resource = NVXx_ZLCResourceResponseProto_Response::message();
    const std::string number = std::to_string(random());
    resource->setUrl("https://geo.example/resources/icons/" + number + ".png");
    resource->setResponseCode(200);
    resource->setHash_p(random());
    std::string body;
    while (body.size() < 600) body += "<a href=\"" + std::to_string(random() % 100) + "\">place</a> ";
    while (body.size() < 900) body += static_cast<char>(random());
    resource->setBody(Data::copy(body));
    resource->setContentType("image/png");
    size += body.size() + 80;
    answer->responseArray().addObject(resource);
  }
  return answer->data();
}

Data inflatedPlainly(const uint8_t* bytes, size_t length, size_t plainLength) {
  z_stream stream{};
  inflateInit2(&stream, 47);
  MutableData out(plainLength);
  stream.next_in = const_cast<Bytef*>(bytes);
  stream.avail_in = static_cast<uInt>(length);
  stream.next_out = out.extend(plainLength);
  stream.avail_out = static_cast<uInt>(plainLength);
  inflate(&stream, Z_NO_FLUSH);
  inflateEnd(&stream);
  return Data::take(std::move(out));
}

}  // namespace

int main(int argc, char** argv) {
  const Data plain = answerOf(1 << 20), compressed = NVXx_htk_dataByGzippingData(plain);
  utils::JavaDataOutput output;
  output.WriteInt(-static_cast<int32_t>(compressed.length()));
  output.WriteData(compressed);
  const Data wire = Data::take(output.takeData());

  const auto ours = [wire] {
    utils::PtrDataInputProvider provider(wire.bytes(), wire.length());
    utils::JavaDataInput input(&provider);
    Error error;
    return dash::JavaDataInputPBSupport(&input).ReadProtocolBufferOfClass(Answer::messageClass(), nullptr,
                                                                          &error);
  };
  const auto peer = [compressed, length = plain.length()] {
    return Answer::parseFromData(inflatedPlainly(compressed.bytes(), compressed.length(), length));
  };
  if (ours()->data() != plain || peer()->data() != plain) {
    std::fprintf(stderr, "the two sides differ\n");
    return 1;
  }
  rows::ours("subdata/1m", 1.1, [ours](benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(ours().get());
  });
  rows::peer("subdata/1m", [peer](benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(peer().get());
  });
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
