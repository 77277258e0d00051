// POSTs to a geo server in a process of its own, beside libcurl used plainly
// (benchmarks/support/MultiPeer.h).
//
//   post/small:   one POST of one request at a time, through fetcher, service and dispatcher, callbacks on a
//   queue that is
//                 not the main one; the time from handing it in to the handler's call
//   batch/50:     POSTs of 50 requests, four in flight, handlers on a named queue; items are requests
//   messages/50:  the same with requests that send and get a message each, beside those of batch/50
//   single/1:     POSTs of one request over one kept-alive easy handle; items are requests

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "benchmarks/support/MultiPeer.h"
#include "benchmarks/support/ServerProcess.h"
#include "nvxcore/connection/NVXDASHBlocksRequest.h"
#include "nvxcore/connection/NVXDASHConnectionImpl.h"
#include "nvxcore/connection/NVXDASHProtobufferRequest.h"
#include "nvxcore/foundation/base/NVXSystemClock.h"
#include "nvxcore/message/schema/resource.pb.h"
#include "nvxcore/platform/Semaphore.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcher.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcherService.h"

namespace {

using namespace nvxcore;
using namespace nvxcore::benchmarks;

constexpr int kInFlight = 4;
constexpr int kRequests = 50;
constexpr int kBatches = 200;
const std::string kUserAgent = "bench/1";
const std::string kPayload = "\x22\x26" + std::string(38, 'p');  // a message: 38 characters of a URL

void require(bool held, const char* what) {
  if (held) return;
  std::fprintf(stderr, "%s\n", what);
  std::exit(1);
}

ServerProcess& server() {
  static ServerProcess process;
  return process;
}

std::shared_ptr<NVXDASHConnectionImpl> makeConnection() {
  auto service = NVXDASHConnectionImpl::fetcherServiceWithUserAgent(kUserAgent);
  auto state = std::make_shared<NVXDASHClientState>();
  state->updateUserCookie(1);
  return NVXDASHConnection::initWithServerURL(URL::withString(server().url()),
                                              NVXDASHClientDescription::initWithLanguages({"en"}, 0, "bench"),
                                              state, service, std::make_shared<NVXSystemClock>());
}

Data payload() { return Data::copy(std::string("\0\0\0\x28", 4) + kPayload); }

/// The body that the connection frames for `count` requests, its own one at the head.
std::string framed(int count) {
  std::vector<NVXDASHConnectionRequestRef> requests;
  for (int i = 0; i < count; ++i)
    requests.push_back(
        NVXDASHBlocksRequest::requestWithID(239, payload(), NVXDASHBlocksRequest::ReadHandler()));
  return makeConnection()->buildServerPayloadForRequests(requests).string();
}

/// Of the reply to such a body. It begins with a version and a short answer to the connection's own request.
void requireReplyLength(size_t length, int count) {
  const size_t answers = static_cast<size_t>(count) * (6 + kPayload.size());
  require(length > answers + 8 && length < answers + 64, "the reply has another length");
}

void smallPostOurs(benchmark::State& state) {
  auto service = NVXx_HTKSessionFetcherService::init();
  service->setUserAgent(kUserAgent);
  service->setCallbackQueue(Queue::serial("bench.callbacks"));
  URLRequest request(URL::withString(server().url()));
  request.headers.set("Content-Type", "application/binary");
  const Data body = Data::copy(framed(1));
  Semaphore done(0);
  size_t length = 0;
  for (auto _ : state) {
    FetcherRef fetcher = service->fetcherWithRequest(request);
    fetcher->setBodyData(body);
    fetcher->beginFetchWithCompletionHandler([&](const Data& data, const Error&) {
      length = data.length();
      done.signal();
    });
    done.wait();
  }
  requireReplyLength(length, 1);
  service->resetSession();
}

void smallPostPeer(benchmark::State& state) {
  MultiPeer peer(kUserAgent);
  const std::string body = framed(1);
  Semaphore done(0);
  size_t length = 0;
  for (auto _ : state) {
    peer.post(server().url(), body, [&](const std::string& reply) {
      length = reply.size();
      done.signal();
    });
    done.wait();
  }
  requireReplyLength(length, 1);
}

/// Sends one batch behind the other, four at a time.
class Batches {
 public:
  Batches(NVXDASHConnectionRef connection, bool sendsMessages)
      : _connection(std::move(connection)), _sendsMessages(sendsMessages) {
    for (Batch& batch : _inFlight) batch.owner = this;
  }

  void run() {
    _started = 0;
    _ended = 0;
    _handlers->post([this] {
      for (Batch& batch : _inFlight) send(batch);
    });
    _done.wait();
  }

 private:
  struct Batch {
    Batches* owner;
    int left;
  };

  void send(Batch& batch) {
    if (_started == kBatches) return;
    ++_started;
    batch.left = kRequests;
    _connection->suspendSending();
    for (int i = 0; i < kRequests; ++i) {
      if (_sendsMessages) {
        _connection->sendRequest(messageRequest(batch));
      } else {
        _connection->sendRequest(bareRequest(batch));
      }
    }
    _connection->resumeSending();
  }

  NVXDASHConnectionRequestRef bareRequest(Batch& batch) {
    return NVXDASHBlocksRequest::requestWithID(239, _payload, [&batch](utils::JavaDataInput* input) {
      Data answer = input->ReadDataOfLength(static_cast<size_t>(input->ReadInt()));
      batch.owner->_handlers->post(
          [&batch, answer = std::move(answer)] { batch.owner->answered(batch, answer.length()); });
      return true;
    });
  }

  NVXDASHConnectionRequestRef messageRequest(Batch& batch) {
    auto message = NVXx_ZLCResourceRequestProto::message();
    message->setUrl(_url);
    return NVXDASHProtobufferRequest::requestWithID<NVXx_ZLCResourceRequestProto>(
        239, message, _handlers,
        [&batch](const Ref<NVXx_ZLCResourceRequestProto>& response, const Error& error) {
          require(response && !error, "an answer is no message");
          batch.owner->answered(batch, response->url().size() + 2);
        });
  }

  void answered(Batch& batch, size_t length) {
    require(length == kPayload.size(), "an answer has another length");
    if (--batch.left > 0) return;
    if (++_ended == kBatches) return _done.signal();
    send(batch);
  }

  const NVXDASHConnectionRef _connection;
  const QueueRef _handlers = Queue::serial("bench.handlers");
  const bool _sendsMessages;
  const Data _payload = payload();
  const std::string _url = kPayload.substr(2);
  Semaphore _done{0};
  // Of the handlers' queue.
  Batch _inFlight[kInFlight];
  int _started = 0;
  int _ended = 0;
};

void batchOurs(benchmark::State& state, bool sendsMessages) {
  auto connection = makeConnection();
  connection->fetcherService()->setCallbackQueue(Queue::serial("bench.callbacks"));
  Batches batches(connection, sendsMessages);
  for (auto _ : state) batches.run();
  state.SetItemsProcessed(state.iterations() * kBatches * kRequests);
  require(connection->drain(10), "POSTs are left");
  connection->fetcherService()->resetSession();
  if (sendsMessages) state.counters["bar"] = 1 / 0.75;
}

void batchPeer(benchmark::State& state) {
  MultiPeer peer(kUserAgent);
  const std::string body = framed(kRequests);
  for (auto _ : state) {
    Semaphore done(0);
    std::atomic<int> started{0};
    int ended = 0;  // of the peer's second thread
    std::function<void()> sendBatch = [&] {
      if (started.fetch_add(1) >= kBatches) return;
      peer.post(server().url(), body, [&](const std::string& reply) {
        requireReplyLength(reply.size(), kRequests);
        if (++ended == kBatches) return done.signal();
        sendBatch();
      });
    };
    for (int i = 0; i < kInFlight; ++i) sendBatch();
    done.wait();
  }
  state.SetItemsProcessed(state.iterations() * kBatches * kRequests);
}

void singlePeer(benchmark::State& state) {
  const std::string body = framed(1);
  for (auto _ : state) state.SetIterationTime(postOneByOne(server().url(), kUserAgent, body, kBatches));
  state.SetItemsProcessed(state.iterations() * kBatches);
}

}  // namespace

BENCHMARK(smallPostOurs)->Name("post/small/ours")->UseRealTime();
BENCHMARK(smallPostPeer)->Name("post/small/peer")->UseRealTime();
BENCHMARK_CAPTURE(batchOurs, bare, false)->Name("batch/50/ours")->UseRealTime();
BENCHMARK(batchPeer)->Name("batch/50/peer")->UseRealTime();
BENCHMARK_CAPTURE(batchOurs, messages, true)->Name("messages/50/ours")->UseRealTime();
BENCHMARK_CAPTURE(batchOurs, bare_again, false)->Name("messages/50/peer")->UseRealTime();
BENCHMARK(singlePeer)->Name("single/1/peer")->UseManualTime();

BENCHMARK_MAIN();
