#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "nvxcore/platform/Exception.h"
#include "nvxcore/platform/URLErrors.h"
#include "nvxcore/platform/Value.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcher.h"
#include "tests/connection/FakeConnectionTest.h"
#include "tests/support/Proof.h"

namespace nvxcore {
namespace {

using namespace testing;
using namespace std::string_literals;

/// Replies that a test makes up, in the pieces that it asks for.
class ReplyTest : public FakeConnectionTest {
 protected:
  void reply(const FakeHTTPTaskRef& task, const std::string& body) override {
    std::string bytes = echoReply(body);
    if (change) change(bytes);
    task->sendResponse(status, {{"Content-Type", contentType}});
    size_t at = 0;
    for (size_t cut : cuts) {
      task->sendData(std::string_view(bytes).substr(at, cut - at));
      at = cut;
    }
    task->sendData(std::string_view(bytes).substr(std::min(at, bytes.size())));
    if (completes) task->complete(transferError);
    played.signal();
  }
  /// Sends requests a, b and c in one POST, and answers with how each came out.
  std::string exchange() {
    const size_t before = outcomes.count();
    whileMainIsBusy([&] {
      for (const char* name : {"a", "b", "c"}) send(name);
    });
    EXPECT_TRUE(connection->drain(kPatience));
    EXPECT_EQ(outcomes.count(), before + 3);
    return outcomes.summary();
  }
  bool isProtocolError(const Error& error) { return error.is("com.ovrasoft.Atlas.NVXDASHConnection", 100); }

  /// Bytes ahead of the first answer: the version, and an empty one to the client's properties.
  static constexpr size_t kHead = 2 + 2 + 4;
  std::function<void(std::string&)> change;
  int status = 200;
  std::string contentType = "application/binary";
  std::vector<size_t> cuts;
  Error transferError;
  bool completes = true;
  Semaphore played{0};
};

TEST_F(ReplyTest, AReplyThatIsNoneFailsEachRequest) {
  struct {
    int status;
    std::string contentType;
    std::string start;
  } cases[] = {{200, "text/html", "\0\x18"s},
               {200, "application/binary; x=y", "\0\x18"s},
               {200, "application/binary", "\0\x19"s},
               {200, "application/binary", "\0"s}};
  expectConsoleLine("Needed 2 bytes, only 1 left");
  size_t count = 0;
  for (const auto& [givenStatus, type, start] : cases) {
    status = givenStatus;
    contentType = type;
    change = [start = start](std::string& bytes) {
      bytes = start.size() == 1 ? start : start + bytes.substr(2);
    };
    exchange();
    for (; count < outcomes.count(); ++count) EXPECT_TRUE(isProtocolError(outcomes.all()[count].error));
  }
}

TEST_F(ReplyTest, AnHTTPErrorIsItsStatusWithTheFirstChunk) {
  status = 503;
  cuts = {5};
  EXPECT_EQ(exchange(), "!a !b !c");
  for (const auto& outcome : outcomes.all()) {
    EXPECT_TRUE(outcome.error.is("com.ovrasoft.HTTPStatus", 503));
    EXPECT_EQ(outcome.error.userInfo().get("data").data().length(), 5u);
  }
}

TEST_F(ReplyTest, AWrongAnswerFailsItsRequestAndAllLaterOnes) {
  // The answer to b, 7 bytes long like all, begins at kHead + 7.
  change = [](std::string& bytes) { bytes[kHead + 8] = 40; };
  EXPECT_EQ(exchange(), "a !b !c");
  EXPECT_TRUE(isProtocolError(outcomes.all()[1].error));
  EXPECT_TRUE(isProtocolError(outcomes.all()[2].error));
}

TEST_F(ReplyTest, EveryTruncationAnswersWhatWasCompleteAndFailsTheRest) {
  expectConsoleLine("Needed ");
  for (size_t length = 0; length <= kHead + 21; ++length) {
    change = [length](std::string& bytes) { bytes.resize(length); };
    const size_t before = outcomes.count();
    exchange();
    const auto all = outcomes.all();
    size_t answered = 0;
    for (size_t i = before; i < all.size(); ++i) answered += all[i].answered;
    EXPECT_EQ(answered, length < kHead ? 0 : (length - kHead) / 7) << length;
  }
}

TEST_F(ReplyTest, ExtraBytesAreReportedAndHarmNobody) {
  expectConsoleLine("Failed to read all the data in non error case");
  change = [](std::string& bytes) { bytes += "more"; };
  EXPECT_EQ(exchange(), "a b c");
}

TEST_F(ReplyTest, EnteringTheReadHandlerIsTheOutcomeWhateverItDoes) {
  auto failed = std::make_shared<std::atomic<int>>(0);
  for (int kind = 0; kind < 4; ++kind) {
    bool entered = false;
    whileMainIsBusy([&] {
      auto odd = NVXDASHBlocksRequest::requestWithID(39, Data::copy("\0\0\0\x01z"s),
                                                     [&](utils::JavaDataInput*) -> bool {
                                                       entered = true;
                                                       if (kind == 0) throw Exception("Odd", "platform");
                                                       if (kind == 1) throw std::runtime_error("standard");
                                                       if (kind == 2) throw 7;
                                                       return false;
                                                     });
      odd->setAsyncRequestFailedHandler([failed](const Error&) { ++*failed; });
      connection->sendRequest(odd);
      send("later");
    });
    ASSERT_TRUE(connection->drain(kPatience));
    EXPECT_TRUE(entered);
  }
  EXPECT_EQ(*failed, 0);
  EXPECT_EQ(outcomes.summary(), "!later !later !later !later");
  // Without a read handler no payload is expected: here one comes, so what follows is out of step.
  whileMainIsBusy([&] {
    connection->sendRequest(NVXDASHBlocksRequest::requestWithID(
        39, [](utils::JavaDataOutput* output) { output->WriteInt(0); }, {}));
    send("later");
  });
  ASSERT_TRUE(connection->drain(kPatience));
  EXPECT_TRUE(isProtocolError(outcomes.all().back().error));
}

TEST_F(ReplyTest, ASerialiserThatThrowsFailsItsPOSTAndNoOther) {
  for (int kind = 0; kind < 3; ++kind) {
    const size_t before = outcomes.count();
    whileMainIsBusy([&] {
      send("before");
      auto bad = NVXDASHBlocksRequest::requestWithID(
          39,
          [kind](utils::JavaDataOutput* output) {
            if (kind == 0) throw std::runtime_error("can't");
            if (kind == 1) throw 7;
            output->WriteUTF(std::string(70000, 'x'));
          },
          [](utils::JavaDataInput*) { return ADD_FAILURE() << "read", true; });
      bad->setAsyncRequestFailedHandler([this](const Error& error) { outcomes.add({"bad", false, error}); });
      connection->sendRequest(bad);
      send("behind");
    });
    ASSERT_TRUE(connection->drain(kPatience));
    ASSERT_EQ(outcomes.count(), before + 3);
    const auto all = outcomes.all();
    for (size_t i = before; i < all.size(); ++i)
      EXPECT_TRUE(isProtocolError(all[i].error)) << all[i].error.description();
    EXPECT_EQ(connection->numberOfConnectionsInProgress(), 0);
    EXPECT_EQ(connection->pendingRequestCount(), 0u);
    send("next");
    ASSERT_TRUE(outcomes.waitForCount(before + 4));
    EXPECT_TRUE(outcomes.all().back().answered);
    ASSERT_TRUE(connection->drain(kPatience));
  }
  int64_t outgoing = 0;
  connection->getOutgoingByteCount(&outgoing, nullptr);
  size_t sent = 0;
  for (const std::string& body : bodies) sent += body.size();
  EXPECT_GT(sent, 0u);
  EXPECT_EQ(outgoing, static_cast<int64_t>(sent));
}

TEST_F(ReplyTest, AFailureBeforeTheBodyIsReadFailsTheRequestsThatItWouldHaveTaken) {
  _network->onResume = [](const FakeHTTPTaskRef& task) {
    task->complete(Error(kURLErrorDomain, kURLErrorCannotConnectToHost));
  };
  EXPECT_EQ(exchange(), "!a !b !c");
  for (const auto& outcome : outcomes.all()) EXPECT_TRUE(outcome.error.is(kURLErrorDomain, -1004));
  int64_t outgoing = -1;
  connection->getOutgoingByteCount(&outgoing, nullptr);
  EXPECT_EQ(outgoing, 0);
  // A body that is asked for afterwards is empty.
  Data late = Data::copy("unset");
  Semaphore pulled(0);
  _network->onResume = [&](const FakeHTTPTaskRef& task) {
    task->sendResponse(500, {});
    task->sendData("no");
    Queue::blocking()->post([&, task] {
      outcomes.waitForCount(6);
      task->pullBody([&, task](const Data& body) {
        late = body;
        task->complete();
        pulled.signal();
      });
    });
  };
  exchange();
  ASSERT_TRUE(pulled.wait(kPatience));
  EXPECT_EQ(late.view(), "");
}

TEST_F(ReplyTest, AFetchThatIsStoppedFailsItsRequestsAsCancelled) {
  expectConsoleLine("Needed ");
  completes = false;
  // Stopped before a byte came, in the middle of an answer, and behind the last one.
  struct {
    size_t length;
    std::string wanted;
  } cases[] = {{0, "!a !b !c"}, {kHead + 14, "a b !c"}, {kHead + 21, "a b c"}};
  for (const auto& [length, wanted] : cases) {
    Outcomes mine;
    change = [length = length](std::string& bytes) { bytes.resize(length); };
    whileMainIsBusy([&] {
      for (const char* name : {"a", "b", "c"}) connection->sendRequest(echoRequest(mine, name));
    });
    const size_t answered = length == 0 ? 0 : (length - kHead) / 7;
    ASSERT_TRUE(mine.waitForCount(answered));
    ASSERT_TRUE(played.wait(kPatience));
    connection->fetcherService()->stopAllFetchers();
    ASSERT_TRUE(connection->drain(kPatience));
    EXPECT_EQ(mine.summary(), wanted);
    for (const auto& outcome : mine.all()) {
      if (!outcome.answered) {
        EXPECT_TRUE(outcome.error.is(kURLErrorDomain, kURLErrorCancelled));
      }
    }
    EXPECT_EQ(connection->numberOfConnectionsInProgress(), 0);
  }
}

TEST_F(ReplyTest, AConnectionCheckLooksAtTheHeadOfTheReplyOnly) {
  auto check = [&] {
    auto answer = std::make_shared<std::optional<bool>>();
    Semaphore called(0);
    connection->checkConnection([&, answer](bool good) {
      EXPECT_TRUE(Queue::main()->isCurrent());
      *answer = good;
      called.signal();
    });
    EXPECT_TRUE(called.wait(kPatience));
    EXPECT_TRUE(connection->drain(kPatience));
    return **answer;
  };
  enqueue("stays");
  EXPECT_TRUE(check());
  EXPECT_EQ(requestsOf(bodies.back()).size(), 1u);
  EXPECT_EQ(connection->pendingEnqueueCount(), 1u);
  status = 404;
  EXPECT_FALSE(check());
  status = 200;
  contentType = "text/plain";
  EXPECT_FALSE(check());
  transferError = Error(kURLErrorDomain, kURLErrorTimedOut);
  contentType = "application/binary";
  change = [](std::string& bytes) { bytes.clear(); };
  EXPECT_FALSE(check());
}

/// The reply to five requests of payloads that make it 200 bytes long.
class CutReplyTest : public ReplyTest {
 protected:
  void SetUp() override {
    for (int i = 0; i < 5; ++i) names.push_back(std::string(i < 4 ? 33 : 30, static_cast<char>('a' + i)));
  }
  /// Sends one POST and checks that each answer is its own.
  void exchangeCut(std::vector<size_t> at) {
    cuts = std::move(at);
    Outcomes mine;
    whileMainIsBusy([&] {
      for (const std::string& name : names) connection->sendRequest(echoRequest(mine, name));
    });
    ASSERT_TRUE(connection->drain(kPatience));
    const auto all = mine.all();
    ASSERT_EQ(all.size(), names.size());
    for (size_t i = 0; i < all.size(); ++i) {
      ASSERT_EQ(all[i].name, names[i]);
      ASSERT_TRUE(all[i].answered);
    }
    bodies.clear();
  }
  static constexpr size_t kLength = 200;
  std::vector<std::string> names;
};

TEST_F(CutReplyTest, EachCutGivesTheSameAnswers) {
  change = [](std::string& bytes) { ASSERT_EQ(bytes.size(), kLength); };
  std::vector<size_t> everyByte;
  for (size_t i = 1; i < kLength; ++i) everyByte.push_back(i);
  exchangeCut(everyByte);
  for (size_t i = 1; i < kLength; ++i) ASSERT_NO_FATAL_FAILURE(exchangeCut({i}));
}

TEST_F(CutReplyTest, EachPairOfCutsGivesTheSameAnswers) {
  const size_t step = proofStep(23);
  size_t number = 0;
  for (size_t i = 1; i < kLength; ++i) {
    for (size_t j = i + 1; j < kLength; ++j) {
      if (number++ % step != 0) continue;
      ASSERT_NO_FATAL_FAILURE(exchangeCut({i, j}));
    }
  }
}

TEST_F(CutReplyTest, SeededCuttingsGiveTheSameAnswers) {
  std::mt19937_64 random(20240607);
  for (size_t run = proofCount(300, 10000); run > 0; --run) {
    std::vector<size_t> at;
    for (size_t i = 1; i < kLength; ++i) {
      if (random() % 16 < run % 16) at.push_back(i);
    }
    ASSERT_NO_FATAL_FAILURE(exchangeCut(at));
  }
}

TEST_F(CutReplyTest, MutatedRepliesGiveEachRequestOneOutcome) {
  expectConsoleLine("");
  std::mt19937_64 random(777);
  change = [&](std::string& bytes) {
    for (size_t mutations = 1 + random() % 4; mutations > 0; --mutations) {
      const size_t at = bytes.empty() ? 0 : random() % bytes.size();
      switch (random() % 5) {
        case 0:
          if (!bytes.empty()) bytes[at] = static_cast<char>(random());
          break;
        case 1:
          if (!bytes.empty()) bytes[at] = static_cast<char>(bytes[at] ^ (1 << random() % 8));
          break;
        case 2:
          bytes.erase(at, random() % 9);
          break;
        case 3:
          bytes.insert(at, std::string(random() % 9, static_cast<char>(random())));
          break;
        default:
          bytes.resize(at);
          break;
      }
    }
    cuts.clear();
    for (size_t i = 1; i < bytes.size(); ++i) {
      if (random() % 32 == 0) cuts.push_back(i);
    }
    transferError = random() % 4 ? Error() : Error(kURLErrorDomain, kURLErrorNetworkConnectionLost);
  };
  size_t answered = 0, failed = 0;
  for (size_t run = proofCount(2000, 100000); run > 0; --run) {
    Outcomes mine;
    whileMainIsBusy([&] {
      for (const std::string& name : names) connection->sendRequest(echoRequest(mine, name));
    });
    ASSERT_TRUE(connection->drain(kPatience));
    ASSERT_EQ(mine.count(), names.size());
    for (const auto& outcome : mine.all()) ++(outcome.answered ? answered : failed);
    bodies.clear();
  }
  std::printf("mutated replies: %zu answered, %zu failed\n", answered, failed);
  EXPECT_GT(answered, 0u);
  EXPECT_GT(failed, 0u);
}

}  // namespace
}  // namespace nvxcore
