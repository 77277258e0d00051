#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "tests/connection/ConnectionHarness.h"
#include "tests/connection/Ledger.h"
#include "tests/support/NVXTest.h"
#include "tests/support/PlatformScope.h"
#include "tests/support/Proof.h"
#include "tools/geoserver/GeoServer.h"

namespace nvxcore {
namespace {

using namespace testing;
using geoserver::Ending;
using geoserver::Exchange;

class LedgerTest : public NVXTest, public ::testing::WithParamInterface<LedgerCase> {
 protected:
  static std::shared_ptr<NVXDASHBlocksRequest> request(Ledger& ledger, size_t number,
                                                       std::shared_ptr<Semaphore> done) {
    const std::string text = std::to_string(number) + std::string(number % 97, '.');
    auto request = NVXDASHBlocksRequest::requestWithID(
        static_cast<int32_t>(1000 + number % 50000),
        [text](utils::JavaDataOutput* output) {
          output->WriteInt(static_cast<int32_t>(text.size()));
          output->WriteBytes(text.data(), text.size());
        },
        [&ledger, number, text, done](utils::JavaDataInput* input) {
          bool answered = false;
          try {
            const int32_t length = input->ReadInt();
            answered = input->ReadDataOfLength(static_cast<uint32_t>(length)).view() == text;
          } catch (const utils::DataInputProvider::NotEnoughDataException&) {
          }
          ledger.enter(number, answered);
          done->signal();
          return answered;
        });
    request->setAsyncRequestFailedHandler([&ledger, number, done](const Error&) {
      ledger.enter(number, false);
      done->signal();
    });
    return request;
  }

  static void sendAll(NVXDASHConnectionImpl& connection, Ledger& ledger) {
    sendInBatches(ledger.size(), 1234, [&](size_t first, size_t end) {
      auto done = std::make_shared<Semaphore>(0);
      connection.startNewBatch();
      for (size_t number = first; number < end; ++number) {
        connection.sendRequest(request(ledger, number, done));
      }
      for (size_t number = first; number < end; ++number) {
        if (done->wait(kPatience)) continue;
        ADD_FAILURE() << "no outcome within " << kPatience << " s";
        return false;
      }
      return true;
    });
  }

  /// Holds the client's ledger against the server's record.
  void compare(const Ledger& ledger, const std::vector<Exchange>& exchanges) {
    std::vector<int> arrivals(ledger.size());
    size_t answered = 0, compared = 0;
    const std::set<uint64_t> broken = brokenConnections(exchanges);
    for (const Exchange& exchange : exchanges) {
      uint64_t order = 0;
      size_t answeredHere = 0;
      bool failedBefore = false;
      size_t own = 0;  // at the head
      for (const geoserver::PostRequest& sent : exchange.post.requests) {
        if (sent.id == kUserCookieRequest || sent.id == kClientPropertiesRequest) {
          ++own;
          continue;
        }
        const size_t number =
            std::strtoul(std::string(exchange.payload(sent).substr(4)).c_str(), nullptr, 10);
        ASSERT_LT(number, ledger.size());
        ++arrivals[number];
        const Ledger::Entry& entry = ledger.entry(number);
        EXPECT_GT(entry.order, order) << "out of order in its POST: " << exchange.summary();
        order = entry.order;
        EXPECT_FALSE(entry.answered && failedBefore) << exchange.summary();
        failedBefore = failedBefore || !entry.answered;
        answeredHere += entry.answered;
      }
      // What was not handed to the socket can't have been answered. What was, and was not thrown away by a
      // reset, was.
      const size_t answersSent = exchange.answersSent - std::min<size_t>(own, exchange.answersSent);
      EXPECT_LE(answeredHere, answersSent) << exchange.summary();
      if (exchange.ending == Ending::answered && !broken.contains(exchange.connection)) {
        ++compared;
        EXPECT_EQ(answeredHere, answersSent) << exchange.summary();
      }
      answered += answeredHere;
    }
    size_t answeredAtAll = 0;
    for (size_t number = 0; number < ledger.size(); ++number) {
      EXPECT_EQ(ledger.entry(number).outcomes, 1) << "outcomes of request " << number;
      EXPECT_LE(arrivals[number], 1) << "request " << number << " reached the server twice";
      answeredAtAll += ledger.entry(number).answered;
    }
    EXPECT_EQ(answered, answeredAtAll);
    std::printf("%zu requests, %zu answered, %zu exchanges, %zu of them compared to the answer\n",
                ledger.size(), answered, exchanges.size(), compared);
  }
};

TEST_P(LedgerTest, EachRequestHasOneOutcomeAndTheServerAgrees) {
  expectConsoleLine("Needed ");
  expectConsoleLine("Failed to read all the data in non error case");
  PlatformScope scope;
  geoserver::ServerOptions options;
  options.tls = GetParam().tls;
  options.http2 = GetParam().http2;
  geoserver::GeoServer server(options);
  geoserver::FaultScript script(20240901);
  script.attachTo(server);
  // Half of the plans are good replies; a batch has 21.5 requests on average.
  Ledger ledger(proofCount(2600, GetParam().http2 ? 90000 : 60000));
  {
    auto service = serviceFor(server);
    auto connection = makeConnection(server.url(), service);
    sendAll(*connection, ledger);
    EXPECT_TRUE(connection->drain(kPatience));
    EXPECT_EQ(connection->pendingRequestCount(), 0u);
    EXPECT_TRUE(service->waitForCompletionOfAllFetchersWithTimeout(kPatience));
    service->resetSession();
  }
  server.stop();
  compare(ledger, server.exchanges());
  std::printf("%s", script.report().c_str());
  if (runsWholeProofs()) expectEachFault(script, geoserver::FaultScript::defaultWeights(), GetParam().http2);
}

INSTANTIATE_TEST_SUITE_P(Protocols, LedgerTest,
                         ::testing::Values(LedgerCase{"HTTP1", false, false},
                                           LedgerCase{"HTTP2", true, true}),
                         [](const auto& parameters) { return std::string(parameters.param.name); });

}  // namespace
}  // namespace nvxcore
