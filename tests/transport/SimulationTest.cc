#include "nvxcore/platform/Files.h"
#include "tests/transport/FetcherHarness.h"

namespace nvxcore::testing {
namespace {

/// Fetches that a test block answers in place of the network.
class SimulationTest : public FetcherTest {
 protected:
  ~SimulationTest() override {
    removeFile(folder);
    for (const auto& session : http->sessions()) EXPECT_TRUE(session->wasInvalidated());
  }

  FetcherRef simulated(int status, const char* body, Error error = {}, const char* url = "https://host:8/p") {
    const FetcherRef fetcher = makeFetcher(url);
    fetcher->setTestBlock([=](const FetcherRef&, const FetcherTestResponse& respond) {
      respond(URLResponse::http(URL::withString("https://host:8/p"), status, "HTTP/1.1", {}),
              body ? Data::copy(body) : Data(), error);
    });
    return fetcher;
  }
  FetcherProgressBlock progress(const std::string& word) {
    return [=, this](int64_t bytes, int64_t total, int64_t expected) {
      journal.add(word + std::to_string(bytes) + "/" + std::to_string(total) + "/" +
                  std::to_string(expected));
    };
  }
  const URL folder = uniqueTemporaryFile("simulation-test");
};

TEST_F(SimulationTest, CallsAllHandlersInTheirOrder) {
  for (const bool accumulates : {false, true}) {
    const FetcherRef fetcher = simulated(201, "12345");
    fetcher->setBodyData(Data::copy("seven77"));
    fetcher->setWillRedirectBlock(
        [&](const URLResponse& response, const URLRequest& request, const RedirectHandler&) {
          journal.add("redirect" + std::to_string(response.statusCode()) + request.method);
        });
    fetcher->setChallengeBlock(
        [&](const FetcherRef&, const AuthenticationChallenge& challenge, const ChallengeHandler&) {
          const ProtectionSpace& space = challenge.protectionSpace;
          EXPECT_EQ(space.authenticationMethod, kAuthenticationMethodHTTPBasic);
          journal.add(space.scheme + space.host + std::to_string(space.port));
        });
    fetcher->setDidReceiveResponseBlock([&](const URLResponse&, const ResponseDispositionHandler&) {
      journal.add("response" + std::to_string(fetcher->statusCode()));
    });
    fetcher->setSendProgressBlock(progress("sent"));
    if (accumulates) fetcher->setAccumulateDataBlock([&](const Data& piece) { journal.add(piece.string()); });
    fetcher->setReceivedProgressBlock([&](int64_t bytes, int64_t total) {
      journal.add(std::to_string(bytes) + "/" + std::to_string(total));
    });
    fetcher->setWillCacheURLResponseBlock([&](const CachedURLResponse& cached, const CachedResponseHandler&) {
      journal.add("cache" + std::to_string(cached.data.length()));
    });
    begin(fetcher);
    EXPECT_EQ(happened(),
              std::string("redirect201POST httpshost8 response201 sent3/3/7 sent3/6/7 sent1/7/7 ") +
                  (accumulates ? "12345 " : "") + "2/2 2/4 1/5 cache5 " +
                  (accumulates ? "done:nothing" : "done:\"12345\""));
    EXPECT_FALSE(std::static_pointer_cast<FakeHTTPTask>(task())->wasResumed());
    EXPECT_TRUE(task()->wasCancelled());
    EXPECT_FALSE(fetcher->sessionTask());
  }
}

TEST_F(SimulationTest, TheErrorCodePassesAsAStatus) {
  const struct {
    int status;
    int64_t code;  // -1 for no error
    const char* outcome;
  } cases[] = {
      {200, -1, "done:\"b\""},
      {500, -1, "done:\"b\",HTTPStatus500"},
      {200, 250, "done:\"b\""},
      {200, 399, "done:\"b\""},
      {404, 399, "done:\"b\",HTTPStatus404"},
      {200, 400, "done:\"b\",dom400"},
      {200, 199, "done:\"b\",dom199"},
  };
  for (const auto& c : cases) {
    begin(simulated(c.status, "b", c.code < 0 ? Error() : Error("dom", c.code)));
    EXPECT_EQ(happened(), c.outcome) << c.code;
  }
  begin(simulated(204, nullptr));
  EXPECT_EQ(happened(), "done:nothing");
}

TEST_F(SimulationTest, WithNothingAtAllTheNetworkIsAsked) {
  const FetcherRef fetcher = makeFetcher();
  fetcher->setTestBlock([](const FetcherRef&, const FetcherTestResponse& respond) { respond({}, {}, {}); });
  begin(fetcher);
  EXPECT_TRUE(task()->wasResumed());
  task()->sendResponse(200);
  task()->sendData("real");
  task()->complete();
  EXPECT_EQ(happened(), "done:\"real\"");
}

TEST_F(SimulationTest, BodiesComeFromAFileOrAStream) {
  ASSERT_FALSE(writeFile(folder, Data::copy("a file")));
  FetcherRef fetcher = simulated(200, "x", Error("dom", 1));
  fetcher->setBodyFileURL(folder);
  fetcher->setSendProgressBlock(progress(""));
  begin(fetcher);
  // Reading the file well leaves no error at all.
  EXPECT_EQ(happened(), "3/3/6 3/6/6 done:\"x\"");

  for (const bool fails : {false, true}) {
    fetcher = simulated(200, "x");
    fetcher->setSendProgressBlock(progress(""));
    fetcher->setBodyStreamProvider([&](const BodyStreamHandler& answer) {
      answer(fails ? InputStream::streamWithURL(URL::fileURLWithPath("/no/such"))
                   : InputStream::streamWithData(Data::copy(std::string(1000, 'z'))));
    });
    begin(fetcher);
    EXPECT_EQ(happened(), fails ? "done:\"x\""  // A code of 260 counts as a good status.
                                : "334/334/1000 334/668/1000 332/1000/1000 done:\"x\"");
  }
  Error error;
  EXPECT_FALSE(NVXx_HTKDataFromInputStream(*InputStream::streamWithURL(URL::fileURLWithPath("/")), &error));
  EXPECT_EQ(error.code(), kFileReadUnknownError);
  EXPECT_EQ(
      NVXx_HTKDataFromInputStream(*InputStream::streamWithData(Data::copy(std::string(512, 'z'))), &error)
          .length(),
      512u);
  EXPECT_FALSE(error);
}

TEST_F(SimulationTest, ADestinationIsWritten) {
  FetcherRef fetcher = simulated(200, "1234");
  fetcher->setDestinationFileURL(folder);
  fetcher->setDownloadProgressBlock(progress(""));
  begin(fetcher);
  EXPECT_EQ(happened(), "2/2/4 2/4/4 done:nothing");
  EXPECT_EQ(readFile(folder, nullptr).string(), "1234");
  fetcher = simulated(200, "1234");
  fetcher->setDestinationFileURL(folder.appendingPathComponent("x"));
  begin(fetcher);
  EXPECT_EQ(happened(), "done:nothing,NSCocoaErrorDomain512");
}

TEST_F(SimulationTest, AStoppedOneDoesNothingMore) {
  FetcherTestResponse respond;
  const FetcherRef fetcher = makeFetcher();
  fetcher->setTestBlock(
      [&](const FetcherRef&, FetcherTestResponse response) { respond = std::move(response); });
  fetcher->setDestinationFileURL(folder);
  begin(fetcher);
  fetcher->stopFetching();
  respond(URLResponse::http(URL(), 200, "HTTP/1.1", {}), Data::copy("late"), {});
  respond = nullptr;
  EXPECT_EQ(happened(), "");
  EXPECT_TRUE(checkFileIsReachable(folder));
}

TEST_F(SimulationTest, OneBlockAnswersForTheProcessAndAServiceCanMock) {
  NVXx_HTKSessionFetcher::setGlobalTestBlock([](const FetcherRef& self, const FetcherTestResponse& respond) {
    respond(URLResponse::http(self->request()->url, 200, "HTTP/1.1", {}), Data::copy("global"), {});
  });
  begin(makeFetcher());
  EXPECT_EQ(happened(), "done:\"global\"");
  NVXx_HTKSessionFetcher::setGlobalTestBlock(nullptr);

  for (const bool fails : {false, true}) {
    service = NVXx_HTKSessionFetcherService::mockFetcherServiceWithFakedData(
        Data::copy("faked"), fails ? Error("dom", 7) : Error());
    const FetcherRef fetcher = makeFetcher("http://anywhere/");
    begin(fetcher);
    EXPECT_EQ(happened(), fails ? "done:\"faked\",dom7" : "done:\"faked\"");
    EXPECT_EQ(fetcher->statusCode(), fails ? 500 : 200);
    service->resetSession();
    service = nullptr;
  }
  scope.settle();
}

}  // namespace
}  // namespace nvxcore::testing
