#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/connection/ConnectionHarness.h"
#include "tests/connection/Ledger.h"
#include "tests/support/NVXTest.h"
#include "tests/support/PlatformScope.h"
#include "tests/support/Proof.h"
#include "tools/geoserver/FaultScript.h"
#include "tools/geoserver/GeoServer.h"

namespace nvxcore {
namespace {

using namespace testing;
using geoserver::Ending;
using geoserver::Exchange;

class LedgerTest : public NVXTest, public ::testing::WithParamInterface<LedgerCase> {
 protected:
  static constexpr size_t kSenders = 4;
  static constexpr size_t kLongestBatch = 49;

  std::shared_ptr<NVXDASHBlocksRequest> request(Ledger& ledger, size_t number,
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

  /// Sends all requests in batches of seeded sizes, each a POST of its own, over a few threads.
  void sendAll(NVXDASHConnectionImpl& connection, Ledger& ledger) {
    std::atomic<size_t> next{0};
    std::vector<std::thread> senders;
    for (size_t sender = 0; sender < kSenders; ++sender) {
      senders.emplace_back([&, sender] {
        std::mt19937_64 random(1234 + sender);
        auto done = std::make_shared<Semaphore>(0);
        for (;;) {
          const size_t length = 1 + random() % (kLongestBatch * 6 / 7);
          const size_t first = next.fetch_add(length);
          if (first >= ledger.size()) return;
          const size_t end = std::min(first + length, ledger.size());
          connection.startNewBatch();
          for (size_t number = first; number < end; ++number) {
            connection.sendRequest(request(ledger, number, done));
          }
          for (size_t number = first; number < end; ++number) {
            if (!done->wait(kPatience)) {
              ADD_FAILURE() << "no outcome within " << kPatience << " s";
              return;
            }
          }
        }
      });
    }
    for (std::thread& sender : senders) sender.join();
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
  if (runsWholeProofs()) {
    const auto counts = script.counts();
    EXPECT_GE(script.faultCount(), 1000u);
    for (size_t kind = 0; kind < counts.size(); ++kind) {
      const auto fault = static_cast<geoserver::FaultKind>(kind);
      if (fault == geoserver::FaultKind::stalledBody || (!GetParam().http2 && geoserver::needsHttp2(fault)))
        continue;
      EXPECT_GE(counts[kind], 50u) << geoserver::faultName(fault);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Protocols, LedgerTest,
                         ::testing::Values(LedgerCase{"HTTP1", false, false},
                                           LedgerCase{"HTTP2", true, true}),
                         [](const auto& parameters) { return std::string(parameters.param.name); });

}  // namespace
}  // namespace nvxcore
