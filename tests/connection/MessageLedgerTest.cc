// The ledger with messages: compressed answers, retries, abandoned requests, and a client that has to get its
// identity on the way.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "nvxcore/connection/NVXDASHProtobufferRequest.h"
#include "nvxcore/message/schema/client_properties.pb.h"
#include "nvxcore/message/schema/resource.pb.h"
#include "tests/connection/ConnectionHarness.h"
#include "tests/connection/Ledger.h"
#include "tests/support/NVXTest.h"
#include "tests/support/PlatformScope.h"
#include "tests/support/Proof.h"

namespace nvxcore {
namespace {

using namespace testing;
using geoserver::Exchange;
using Message = NVXx_ZLCResourceRequestProto;

class MessageLedgerTest : public NVXTest, public ::testing::WithParamInterface<LedgerCase> {
 protected:
  static constexpr uint16_t kFirstID = 500;

  // What becomes of a request is a matter of its number.
  static bool isAbandoned(size_t number) { return number % 23 == 5; }
  static bool isRetried(size_t number) { return number % 3 != 0; }
  static std::string textOf(size_t number) {
    return std::to_string(number) + "/" + std::string(number % 97 * (number % 13), 'x');
  }

  /// `done` is signalled at the outcome.
  NVXDASHProtobufferRequestRef request(Ledger& ledger, size_t number, std::shared_ptr<Semaphore> done) {
    auto message = Message::message();
    message->setUrl(textOf(number));
    auto request = NVXDASHProtobufferRequest::requestWithID<Message>(
        kFirstID, message, handlers,
        [this, &ledger, number, done](const Ref<Message>& response, const Error& error) {
          EXPECT_FALSE(_wasAbandoned[number]) << "request " << number << " called after its end";
          ledger.enter(number, !error && response && response->url() == textOf(number));
          done->signal();
        });
    request->setRetryEnabled(isRetried(number));
    request->setStartingRetryInterval(0.005);
    return request;
  }

  /// What is held back behind a POST that failed unread goes with the next request.
  static NVXDASHConnectionRequestRef nudge() {
    return NVXDASHBlocksRequest::requestWithID(
        501, Data::copy(std::string(4, '\0')),
        [](utils::JavaDataInput* input) { return input->ReadInt() == 0; });
  }
  static bool waitForOutcome(NVXDASHConnectionImpl& connection, Semaphore& done) {
    constexpr TimeInterval kTurn = 2.0;
    for (TimeInterval waited = 0; waited < kPatience; waited += kTurn) {
      if (done.wait(kTurn)) return true;
      connection.sendRequest(nudge());
    }
    ADD_FAILURE() << "no outcome within " << kPatience << " s";
    return false;
  }

  void sendAll(NVXDASHConnectionImpl& connection, Ledger& ledger) {
    sendInBatches(ledger.size(), 4321, [&](size_t first, size_t end) {
      auto done = std::make_shared<Semaphore>(0), unheard = std::make_shared<Semaphore>(0);
      connection.startNewBatch();
      for (size_t number = first; number < end; ++number) {
        const auto sent = request(ledger, number, isAbandoned(number) ? unheard : done);
        connection.sendRequest(sent);
        if (!isAbandoned(number)) continue;
        handlers->post([this, sent, number] {
          sent->abandon();
          _wasAbandoned[number] = true;
        });
      }
      for (size_t number = first; number < end; ++number) {
        if (!isAbandoned(number) && !waitForOutcome(connection, *done)) return false;
      }
      return true;
    });
  }

  /// Where a request was last sent, and how often.
  struct Arrival {
    int count = 0;
    const Exchange* last = nullptr;
    size_t place = 0;
  };
  std::vector<Arrival> arrivalsOf(const std::vector<Exchange>& exchanges, size_t requests) {
    std::vector<Arrival> arrivals(requests);
    for (const Exchange& exchange : exchanges) {
      EXPECT_NE(exchange.identity.cookie, geoserver::CookieStanding::unknown) << exchange.summary();
      EXPECT_TRUE(exchange.clientFaults.empty()) << exchange.summary();
      for (size_t place = 0; place < exchange.post.requests.size(); ++place) {
        const geoserver::PostRequest& sent = exchange.post.requests[place];
        if (sent.id != kFirstID) continue;
        const auto message = Message::parseFromData(Data::copy(exchange.payload(sent).substr(4)));
        const size_t number = std::strtoul(std::string(message->url()).c_str(), nullptr, 10);
        EXPECT_LT(number, requests);
        EXPECT_EQ(message->url(), textOf(number));
        if (number >= requests) continue;
        Arrival& arrival = arrivals[number];
        arrival = {arrival.count + 1, &exchange, place};
      }
    }
    return arrivals;
  }

  /// Holds the client's ledger against the server's record.
  void compare(const Ledger& ledger, const std::vector<Exchange>& exchanges) {
    const std::vector<Arrival> arrivals = arrivalsOf(exchanges, ledger.size());
    const std::set<uint64_t> broken = brokenConnections(exchanges);
    size_t answered = 0, retries = 0, compared = 0;
    std::map<uint64_t, std::map<size_t, uint64_t>> orders;  // by exchange and place
    for (size_t number = 0; number < ledger.size(); ++number) {
      const Ledger::Entry& entry = ledger.entry(number);
      const auto& [count, last, place] = arrivals[number];
      EXPECT_LE(count, isRetried(number) ? 3 : 1) << "arrivals of request " << number;
      if (count > 1) retries += static_cast<size_t>(count) - 1;
      if (isAbandoned(number)) {
        EXPECT_LE(entry.outcomes, 1) << "outcomes of abandoned request " << number;
        continue;
      }
      EXPECT_EQ(entry.outcomes, 1) << "outcomes of request " << number;
      // An answer that was altered may leave the client in step: those behind it are good.
      if (entry.answered) {
        ++answered;
        EXPECT_TRUE(last && last->status == 200 && place < last->answersPlanned)
            << "request " << number << " has an answer that was never sent";
        if (last) orders[last->sequence][place] = entry.order;
      } else if (last && last->ending == geoserver::Ending::answered && !broken.contains(last->connection) &&
                 last->spoiledAnswer != place) {
        ++compared;
        EXPECT_GE(place, last->answersSent) << "the answer to request " << number << " is lost";
      }
    }
    // The answers of a POST come to a serial queue in their order.
    for (const auto& [exchange, places] : orders) {
      uint64_t before = 0;
      for (const auto& [place, order] : places) {
        EXPECT_GT(order, before) << "out of order in exchange " << exchange;
        before = order;
      }
    }
    EXPECT_GT(retries, exchanges.size() / 20);
    std::printf("%zu requests, %zu answered, %zu sent again, %zu exchanges, %zu failures compared\n",
                ledger.size(), answered, retries, exchanges.size(), compared);
  }

  std::vector<std::atomic<bool>> _wasAbandoned;
  QueueRef handlers;
};

TEST_P(MessageLedgerTest, EachRequestHasOneOutcomeAndTheServerAgrees) {
  expectConsoleLine("Needed ");
  expectConsoleLine("Failed to read all the data in non error case");
  PlatformScope scope;
  handlers = Queue::serial("ledger.handlers");
  geoserver::ServerOptions options;
  options.tls = GetParam().tls;
  options.http2 = GetParam().http2;
  options.compression.fromBytes = 200;
  geoserver::GeoServer server(options);
  server.registerMessageType(kFirstID, {.name = "echo",
                                        .request = nullptr,
                                        .answer = nullptr,
                                        .answerMessage = [](const geoserver::MessageCall& call) {
                                          return std::string(call.bytes);
                                        }});
  geoserver::FaultScript script(20261123, geoserver::FaultScript::messageWeights());
  script.attachTo(server);
  Ledger ledger(proofCount(2000, GetParam().http2 ? 90000 : 60000));
  _wasAbandoned = std::vector<std::atomic<bool>>(ledger.size());
  const NVXDASHClientStateRef state = clientStateWithCookie(0);
  {
    auto service = serviceFor(server);
    auto connection = NVXDASHConnection::initWithServerURL(
        URL::withString(server.url()), NVXDASHClientDescription::initWithLanguages({"en"}, 1, "c", "1.0"),
        state, service, std::make_shared<NVXSystemClock>());
    sendAll(*connection, ledger);
    EXPECT_TRUE(connection->drain(kPatience));
    connection->sendRequest(nudge());
    EXPECT_TRUE(connection->drain(kPatience));
    EXPECT_EQ(connection->pendingRequestCount(), 0u);
    EXPECT_TRUE(service->waitForCompletionOfAllFetchersWithTimeout(kPatience));
    service->resetSession();
  }
  server.stop();
  EXPECT_TRUE(state->oatcakeToken());
  const std::vector<int64_t> cookies = server.issuedCookies();
  EXPECT_TRUE(std::find(cookies.begin(), cookies.end(), static_cast<int64_t>(state->userCookie())) !=
              cookies.end());
  compare(ledger, server.exchanges());
  std::printf("%s", script.report().c_str());
  if (runsWholeProofs()) expectEachFault(script, geoserver::FaultScript::messageWeights(), GetParam().http2);
}

INSTANTIATE_TEST_SUITE_P(Protocols, MessageLedgerTest,
                         ::testing::Values(LedgerCase{"HTTP1", false, false},
                                           LedgerCase{"HTTP2", true, true}),
                         [](const auto& parameters) { return std::string(parameters.param.name); });

}  // namespace
}  // namespace nvxcore
