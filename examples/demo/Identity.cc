// Who the client is: it starts without an identity, gets one with its first answer, and comes back with it in
// the next run. Messages, compressed answers, retries, and claims about where it is.

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <utility>

#include "examples/demo/Demo.h"
#include "nvxcore/connection/NVXDASHProtobufferRequest.h"
#include "nvxcore/message/schema/client_parameters.pb.h"
#include "nvxcore/message/schema/location_descriptor.pb.h"
#include "nvxcore/message/schema/resource.pb.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcher.h"
#include "tools/geoserver/Faults.h"
#include "tools/geoserver/GeoServer.h"

namespace demo {

using namespace nvxcore;
using geoserver::Exchange;
using geoserver::ReplyPlan;

namespace {

constexpr int32_t kResourceRequest = 39;
constexpr int32_t kParametersRequest = 75;

/// A folder with one resource, gone with the object.
class ServedFolder {
 public:
  ServedFolder() {
    char path[] = "/tmp/nvxcore-demo-XXXXXX";
    if (!mkdtemp(path)) std::abort();
    _path = path;
    mkdir((_path + "/resources").c_str(), 0700);
    std::ofstream(file()) << contents();
  }
  ~ServedFolder() {
    unlink(file().c_str());
    rmdir((_path + "/resources").c_str());
    rmdir(_path.c_str());
  }
  const std::string& path() const { return _path; }
  static std::string contents() {
    std::string text;
    for (int i = 0; i < 400; ++i) text += "legend line " + std::to_string(i % 10) + "\n";
    return text;
  }

 private:
  std::string file() const { return _path + "/resources/legend.txt"; }
  std::string _path;
};

std::string idsOf(const Exchange& exchange) {
  std::string ids;
  for (const geoserver::PostRequest& sent : exchange.post.requests) ids += " " + std::to_string(sent.id);
  return ids;
}

bool carries(const Exchange& exchange, int32_t id) {
  for (const geoserver::PostRequest& sent : exchange.post.requests) {
    if (sent.id == id) return true;
  }
  return false;
}

Ref<NVXx_LOCULocationDescriptor> descriptor(int producer, int32_t latitudeE7, int32_t longitudeE7) {
  auto made = NVXx_LOCULocationDescriptor::message();
  made->setProducer(LOCULocationProducer(producer));
  made->latlng().setLatitudeE7(latitudeE7);
  made->latlng().setLongitudeE7(longitudeE7);
  return made;
}

/// The client, and the conversation that it has.
class Conversation {
 public:
  explicit Conversation(bool isVerbose) : _server(options(_folder)) {
    const auto level = isVerbose ? geoserver::LogLevel::verbose : geoserver::LogLevel::brief;
    _server.setObserver(
        [this, level](const Exchange& exchange) { journal.text(_server.describe(exchange, level)); });
    _server.setScript([this](const Exchange& exchange) -> std::optional<ReplyPlan> {
      if (_failures <= 0 || !carries(exchange, kParametersRequest)) return std::nullopt;
      --_failures;
      return geoserver::faults::status(503, "too busy");
    });
    _connection = connectTo(_server.url());
  }

  void run() {
    identity();
    resource();
    retries();
    location();
    checks.equal(_server.counters().clientFaults, 0, "faults that the server found in the client");
  }

 private:
  static geoserver::ServerOptions options(const ServedFolder& folder) {
    geoserver::ServerOptions options;
    options.folder = folder.path();
    options.identity.cohort = "demo";
    options.identity.legalCountry = "CH";
    options.compression.fromBytes = 64;
    options.keepReplies = true;
    return options;
  }

  void identity() {
    const uint64_t before = _connection->clientState()->userCookie();
    if (before) {
      _server.rememberCookie(static_cast<int64_t>(before));
      journal.line("the client comes back with its cookie, 0x%016llx, and waits for nothing",
                   static_cast<unsigned long long>(before));
    } else {
      journal.line("the client has no identity; two groups of requests are handed in, one waits");
    }
    Client client(_connection);
    {
      MainThreadIsBusy busy;
      for (const char* name : {"first 1", "first 2"}) client.send(name);
      _connection->startNewBatch();
      for (const char* name : {"second 1", "second 2"}) client.send(name);
      checks.equal(_connection->numberOfConnectionsInProgress(), before ? 2 : 1, "POSTs decided");
    }
    checks.expect(_connection->drain(kPatience), "both groups end");
    client.checkEachHasOneOutcome();
    waitForEnd();
    const std::vector<Exchange> posts = _server.exchanges();
    checks.expect(idsOf(posts[0]) == (before ? " 62 239 239" : " 15 62 239 239"),
                  "the first POST's requests:" + idsOf(posts[0]));
    checks.expect(idsOf(posts[1]) == " 62 239 239", "the second POST's requests:" + idsOf(posts[1]));
    for (const Exchange& post : posts) {
      checks.expect(post.identity.cookie != geoserver::CookieStanding::unknown,
                    "the server knows the cookie");
    }
    const NVXDASHClientState& state = *_connection->clientState();
    journal.line("the client now has the cookie 0x%016llx, cohort %s, country %s",
                 static_cast<unsigned long long>(state.userCookie()),
                 state.clientCohort().value_or("none").c_str(), _connection->legalCountry().c_str());
    checks.expect(state.userCookie() != 0, "there is a cookie");
    checks.expect(before == 0 || state.userCookie() == before, "the cookie is the one of the run before");
    checks.expect(state.clientCohort() == "demo" && _connection->legalCountry() == "CH",
                  "cohort and country are those that the server gave");
    checks.expect(!_connection->isWaitingForCookies(), "nothing waits for an identity");
  }

  void resource() {
    journal.line("a resource, by a message; its answer comes compressed");
    auto message = NVXx_ZLCResourceRequestProto::message();
    message->setUrl("http://resources.example/legend.txt");
    Semaphore answered(0);
    _connection->sendRequest(NVXDASHProtobufferRequest::requestWithID<NVXx_ZLCResourceResponseProto>(
        kResourceRequest, message, Queue::main(),
        [&](const Ref<NVXx_ZLCResourceResponseProto>& response, const Error& error) {
          checks.expect(!error, "no error: " + error.description());
          if (response && response->responseArray().count() == 1) {
            const auto& first =
                response->responseArray().messageAtIndex<NVXx_ZLCResourceResponseProto_Response>(0);
            journal.line("  code %d, %.*s, %zu bytes", first.responseCode(),
                         static_cast<int>(first.contentType().size()), first.contentType().data(),
                         first.body().size());
            checks.equal(first.responseCode(), 200, "code of the resource");
            checks.expect(first.body() == ServedFolder::contents(), "the resource is the file");
          } else {
            checks.expect(false, "the answer has one resource");
          }
          answered.signal();
        }));
    finish(answered);
    const Exchange post = _server.exchanges().back();
    checks.expect(post.replyBytesSent < ServedFolder::contents().size() / 4, "the reply was compressed");
  }

  /// Sends a request whose POSTs fail a number of times; answers with the error that the handler got.
  Error failing(int failures, uint32_t maxRetries) {
    _failures = failures;
    auto request = NVXDASHProtobufferRequest::requestWithID<NVXx_ZLCClientParametersResponseProto>(
        kParametersRequest, NVXx_ZLCClientParametersRequestProto::message(), Queue::main(),
        [this](const Ref<NVXx_ZLCClientParametersResponseProto>& response, const Error& error) {
          journal.line("  the handler hears: %s", error ? error.description().c_str() : "an answer");
          checks.expect(static_cast<bool>(response) != static_cast<bool>(error), "an answer or an error");
          _outcome = error;
          _heard.signal();
        });
    request->setRetryEnabled(true);
    request->setStartingRetryInterval(0.2);
    request->setMaxRetries(maxRetries);
    const size_t before = _server.exchanges().size();
    _connection->sendRequest(request);
    finish(_heard);
    const std::vector<Exchange> posts = _server.exchanges();
    checks.equal(request->retryCount(), posts.size() - before - 1, "retries, beside the POSTs");
    double earlier = 0;
    for (size_t i = before + 1; i < posts.size(); ++i) {
      const double wait = std::chrono::duration<double>(posts[i].headArrived - posts[i - 1].ended).count();
      journal.line("  retry %zu came after %.2f s", i - before, wait);
      checks.expect(wait > earlier * 1.5, "waits grow");
      earlier = wait;
    }
    return _outcome;
  }

  void retries() {
    journal.line("a request that fails twice, and is sent again with growing waits");
    checks.expect(!failing(2, 2), "the third attempt succeeds");
    journal.line("one that goes on failing, and gives up after one retry");
    checks.expect(failing(100, 1).is(NVXx_kHTKSessionFetcherStatusDomain, 503),
                  "it ends with the server's status");
    _failures = 0;
  }

  void location() {
    journal.line("two claims about where the client is, and a request that knows better");
    _connection->setLocationDescriptors(
        {descriptor(1, 473769000, 85417000), descriptor(12, 474000000, 85000000)});
    Client client(_connection);
    {
      MainThreadIsBusy busy;
      client.send("here");
      auto elsewhere = client.request("elsewhere");
      elsewhere->addLocationDescriptorOverride(descriptor(12, 10000000, 20000000));
      _connection->sendRequest(elsewhere);
      client.send("here too");
    }
    checks.expect(_connection->drain(kPatience), "they end");
    client.checkEachHasOneOutcome();
    waitForEnd();
    const std::vector<Exchange> posts = _server.exchanges();
    const Exchange *common = nullptr, *alone = nullptr;
    for (const Exchange& post : posts) {
      if (post.sequence + 2 <= posts.back().sequence) continue;
      (callersRequests(post) == 2 ? common : alone) = &post;
    }
    if (!common || !alone) return checks.expect(false, "the override goes in a POST of its own");
    for (const Exchange* post : {common, alone}) {
      const std::string text(post->headers.value("X-Geo"));
      journal.line("  X-Geo of POST %llu: %s", static_cast<unsigned long long>(post->sequence), text.c_str());
      checks.equal(post->identity.locationDescriptors.size(), 2, "descriptors in X-Geo");
    }
    checks.expect(common->headers.value("X-Geo") != alone->headers.value("X-Geo"), "the override shows");
  }

  /// Waits for the handler, and until the server has put everything down.
  void finish(Semaphore& heard) {
    checks.expect(heard.wait(kPatience), "the handler is called");
    checks.expect(_connection->drain(kPatience), "the POST ends");
    waitForEnd();
  }
  void waitForEnd() {
    const geoserver::Counters counters = _server.counters();
    _server.waitForEndedCount(counters.exchangesStarted, std::chrono::seconds(20));
  }

  const ServedFolder _folder;
  geoserver::GeoServer _server;
  std::shared_ptr<NVXDASHConnectionImpl> _connection;
  std::atomic<int> _failures{0};
  Semaphore _heard{0};
  Error _outcome;
};

}  // namespace

void showIdentity(bool isVerbose) { Conversation(isVerbose).run(); }

}  // namespace demo
