#include "nvxcore/transport/NVXx_HTKSessionFetcher.h"

#include <stdexcept>

#include "nvxcore/platform/Files.h"
#include "nvxcore/platform/Semaphore.h"
#include "nvxcore/platform/URLErrors.h"
#include "nvxcore/transport/NVXx_HTKSessionCookieStorage.h"
#include "tests/transport/FetcherHarness.h"

namespace nvxcore::testing {
namespace {

using Fetcher = NVXx_HTKSessionFetcher;

class FetcherCoreTest : public FetcherTest {
 protected:
  ~FetcherCoreTest() override { removeFile(folder); }
  std::string contents(const URL& file) { return readFile(file, nullptr).string(); }
  const URL folder = uniqueTemporaryFile("fetcher-test");
};

TEST_F(FetcherCoreTest, CallbacksComeInTheirOrderAndOnce) {
  const auto started = note(NVXx_kHTKSessionFetcherStartedNotification, "started");
  const auto stopped = note(NVXx_kHTKSessionFetcherStoppedNotification, "stopped");
  const auto invoked = note(NVXx_kHTKSessionFetcherCompletionInvokedNotification, "invoked");
  const FetcherRef fetcher = makeFetcher();
  fetcher->setCallbackQueue(queue);
  fetcher->setBodyData(Data::copy("body"));
  fetcher->setTaskDescription("label");
  fetcher->setTaskPriority(0.5f);
  fetcher->setChallengeBlock([&](const FetcherRef&, AuthenticationChallenge, ChallengeHandler answer) {
    journal.add("challenge");
    answer(AuthChallengeDisposition::Cancel, nullptr);
  });
  ResponseDispositionHandler again;
  fetcher->setDidReceiveResponseBlock([&](URLResponse response, ResponseDispositionHandler answer) {
    journal.add("response" + std::to_string(response.statusCode()));
    answer(ResponseDisposition::Allow);
    again = answer;
  });
  fetcher->setSendProgressBlock([&](int64_t a, int64_t b, int64_t c) {
    journal.add("sent" + std::to_string(a) + "/" + std::to_string(b) + "/" + std::to_string(c));
  });
  fetcher->setReceivedProgressBlock(
      [&](int64_t piece, int64_t) { journal.add("got" + std::to_string(piece)); });
  begin(fetcher);
  EXPECT_EQ(happened(), "started");
  EXPECT_EQ(task()->originalRequest().method, "POST");
  EXPECT_EQ(task()->originalRequest().body.view(), "body");
  EXPECT_EQ(task()->taskDescription(), "label");
  EXPECT_EQ(task()->priority(), 0.5f);
  task()->challenge({});
  task()->sendProgress(4, 4, 4);
  task()->sendResponse(200, {{"A", "b"}});
  EXPECT_EQ(happened(), "challenge sent4/4/4 response200");
  task()->sendData("ab");
  task()->sendData("");
  task()->sendData("c");
  EXPECT_EQ(happened(), "got2 got1");
  EXPECT_EQ(task()->challengeAnswer(), AuthChallengeDisposition::Cancel);
  EXPECT_EQ(task()->disposition(), ResponseDisposition::Allow);
  again(ResponseDisposition::Allow);  // The first answer counts: nothing of the body goes.
  EXPECT_EQ(fetcher->downloadedLength(), 3);
  EXPECT_TRUE(fetcher->isFetching());
  task()->complete();
  EXPECT_EQ(happened(), "stopped done:\"abc\" invoked");
  EXPECT_FALSE(fetcher->isFetching());
  EXPECT_EQ(fetcher->statusCode(), 200);
  EXPECT_EQ(fetcher->responseHeaders().value("a"), "b");
  EXPECT_EQ(fetcher->bodyLength(), 0);  // What the task says that it has sent.
  fetcher->stopFetching();
  EXPECT_EQ(happened(), "");
  EXPECT_TRUE(http->sessions()[0]->wasInvalidated());
}

TEST_F(FetcherCoreTest, TellsSuccessFromFailureByStatusAndError) {
  const struct {
    int status;
    const char* body;
    Error error;
    const char* outcome;
  } cases[] = {
      {200, "", {}, "done:\"\""},
      {299, "x", {}, "done:\"x\""},
      {300, "", {}, "done:nothing,HTTPStatus300"},
      {404, "why", {}, "done:\"why\",HTTPStatus404"},
      {200, "par", Error(kURLErrorDomain, kURLErrorTimedOut), "done:\"par\",NSURLErrorDomain-1001"},
  };
  for (const auto& c : cases) {
    const FetcherRef fetcher = makeFetcher();
    Error last;
    const auto token = NotificationCenter::defaultCenter().addObserver(
        NVXx_kHTKSessionFetcherCompletionInvokedNotification, fetcher.get(), [&](const Notification& n) {
          last = n.userInfo.get(NVXx_kHTKSessionFetcherCompletionErrorKey).error();
          EXPECT_EQ(n.userInfo.contains(NVXx_kHTKSessionFetcherCompletionDataKey), c.status != 300);
        });
    begin(fetcher);
    task()->sendResponse(c.status);
    if (*c.body) task()->sendData(c.body);
    task()->complete(c.error);
    EXPECT_EQ(happened(), c.outcome);
    if (last.domain() == NVXx_kHTKSessionFetcherStatusDomain) {
      EXPECT_EQ(last.userInfo().get(NVXx_kHTKSessionFetcherStatusDataKey).data().string(), c.body);
    }
  }
}

TEST_F(FetcherCoreTest, AnotherResponseVoidsWhatCameBefore) {
  for (const bool accumulates : {false, true}) {
    const FetcherRef fetcher = makeFetcher();
    if (accumulates)
      fetcher->setAccumulateDataBlock([&](Data piece) { journal.add(piece ? piece.string() : "void"); });
    begin(fetcher);
    task()->sendResponse(200);
    task()->sendResponse(200);
    task()->sendData("old");
    task()->sendData("er");
    task()->sendResponse(200);
    task()->sendData("new");
    task()->complete();
    EXPECT_EQ(happened(), accumulates ? "old er void new done:nothing" : "done:\"new\"");
    EXPECT_EQ(fetcher->downloadedLength(), 3);
  }
}

TEST_F(FetcherCoreTest, FailuresToBeginSayWhy) {
  const auto stopped = note(NVXx_kHTKSessionFetcherStoppedNotification, "stopped");
  begin(makeFetcher(""));
  EXPECT_EQ(happened(), "done:nothing,HTKSessionFetcher-1");

  // The second begin replaces the handler: the first hears nothing more.
  FetcherRef fetcher = makeFetcher();
  begin(fetcher, "first");
  begin(fetcher, "second");
  EXPECT_EQ(happened(), "second:nothing,HTKSessionFetcher-1");
  task()->sendResponse(200);
  task()->complete();
  EXPECT_EQ(happened(), "stopped");

  expectConsoleLine("Failed dataTaskWithRequest for ");
  http->makesNoTask = true;
  fetcher = makeFetcher();
  begin(fetcher);
  EXPECT_EQ(happened(), "done:nothing,HTKSessionFetcher-6");
  EXPECT_TRUE(http->sessions().back()->wasInvalidated());
  http->makesNoTask = false;
  http->makesNoSession = true;
  begin(makeFetcher());
  EXPECT_EQ(happened(), "done:nothing,HTKSessionFetcher-6");
  http->makesNoSession = false;

  expectConsoleLine("Body file is unreachable: /no/such\n  ");
  fetcher = makeFetcher();
  fetcher->setBodyFileURL(URL::fileURLWithPath("/no/such"));
  begin(fetcher);
  EXPECT_EQ(happened(), "done:nothing,NSCocoaErrorDomain260");

  expectConsoleLine("No session could be made for ");
  fetcher = makeFetcher();
  fetcher->setConfigurationBlock(
      [](const FetcherRef&, HTTPSessionConfiguration&) { throw std::runtime_error("no"); });
  begin(fetcher);
  EXPECT_EQ(happened(), "done:nothing,HTKSessionFetcher-1");
  EXPECT_FALSE(fetcher->isFetching());
}

TEST_F(FetcherCoreTest, InsecureRequestsNeedLeave) {
  const struct {
    const char* url;
    bool allowsLocalhost;
    bool allowsScheme;
    bool passes;
  } cases[] = {
      {"HTTPS://h/", false, false, true},        {"http://h/", false, false, false},
      {"http://h/", true, false, false},         {"Http://h/", false, true, true},
      {"http://LocalHost/", true, false, true},  {"http://localhost/", false, false, false},
      {"http://[::1]/", true, false, true},      {"http://127.0.0.1/", true, false, true},
      {"http://127.0.0.2/", true, false, false}, {"file:///x", true, false, true},
      {"file:///x", false, false, false},        {"data:,x", false, false, true},
      {"DATA:,x", false, false, false},          {"x", false, true, false},
  };
  expectConsoleLine("Insecure fetch disallowed for ");
  for (const auto& c : cases) {
    const size_t before = http->tasks().size();
    const FetcherRef fetcher = makeFetcher(c.url);
    fetcher->setAllowLocalhostRequest(c.allowsLocalhost);
    if (c.allowsScheme) fetcher->setAllowedInsecureSchemes({"ftp", "HTTP", ""});
    begin(fetcher);
    EXPECT_EQ(http->tasks().size() > before, c.passes) << c.url;
    if (!c.passes) {
      EXPECT_EQ(happened(), "done:nothing,HTKSessionFetcher-5") << c.url;
    }
    fetcher->stopFetching();
  }
  // Where the platform refuses insecure loads by itself, the scheme is none of the fetcher's business.
  PlatformScope strict{
      Platform{.httpSessionService = http, .application = applicationFactsWithDescription({})}};
  const FetcherRef fetcher = makeFetcher("http://h/");
  begin(fetcher);
  EXPECT_TRUE(fetcher->sessionTask());
  fetcher->stopFetching();
  strict.settle();
}

TEST_F(FetcherCoreTest, TheBodyAndTheMethodDecideTheTask) {
  const Data data = Data::copy("d");
  struct Case {
    std::function<void(Fetcher&)> prepare;
    TaskKind kind;
    const char* method;
    TimeInterval ceiling;
  };
  auto overrides = [](const char* method) {
    return [method](Fetcher& f) { f.setRequestValue(method, "X-HTTP-Method-Override"); };
  };
  auto method = [](const char* name) { return [name](Fetcher& f) { f.mutableRequest()->method = name; }; };
  const auto provider = [](const BodyStreamHandler& answer) { answer(nullptr); };
  const URL file = URL::fileURLWithPath("/proc/self/exe");
  const Case cases[] = {
      {[](Fetcher&) {}, TaskKind::Data, "GET", 60},
      {method(""), TaskKind::Data, "", 60},
      {method("HEAD"), TaskKind::Data, "HEAD", 60},
      {method("PUT"), TaskKind::Data, "PUT", 600},
      {overrides("POST"), TaskKind::Data, "GET", 600},
      {overrides(""), TaskKind::Data, "GET", 600},
      {[&](Fetcher& f) { f.setBodyData(data), method("PATCH")(f), overrides("GET")(f); }, TaskKind::Data,
       "POST", 600},
      {[&](Fetcher& f) { f.setBodyData(data), f.setUseUploadTask(true); }, TaskKind::Upload, "POST", 600},
      {[&](Fetcher& f) { f.setBodyFileURL(file); }, TaskKind::Upload, "GET", 60},
      {[&](Fetcher& f) { f.setBodyFileURL(file), f.setBodyStreamProvider(provider); }, TaskKind::Upload,
       "POST", 600},
      {[&](Fetcher& f) { f.setDestinationFileURL(folder), f.setBodyData(data); }, TaskKind::Download, "POST",
       600},
      {[&](Fetcher& f) { f.setMaxRetryInterval(5); }, TaskKind::Data, "GET", 5},
  };
  for (const Case& c : cases) {
    const FetcherRef fetcher = makeFetcher();
    fetcher->setRetryEnabled(true);
    c.prepare(*fetcher);
    begin(fetcher);
    EXPECT_EQ(task()->kind(), c.kind) << &c - cases;
    EXPECT_EQ(task()->originalRequest().method, c.method) << &c - cases;
    EXPECT_EQ(fetcher->maxRetryInterval(), c.ceiling) << &c - cases;
    // With a file and a stream the file counts.
    if (fetcher->bodyFileURL()) {
      EXPECT_EQ(task()->bodyFile, file);
    }
    fetcher->stopFetching();
  }
  expectConsoleLine("Upload task needs body data, https://host/path");
  const FetcherRef empty = makeFetcher();
  empty->setUseUploadTask(true);
  begin(empty);
  empty->stopFetching();
  scope.settle();
}

TEST_F(FetcherCoreTest, AStreamedBodyIsAskedForOnTheCallbackQueue) {
  const FetcherRef fetcher = makeFetcher();
  fetcher->setBodyStreamProvider([&](const BodyStreamHandler& answer) {
    EXPECT_TRUE(queue->isCurrent());
    answer(InputStream::streamWithData(Data::copy("streamed")));
  });
  EXPECT_EQ(fetcher->bodyLength(), kUnknownTransferSize);
  begin(fetcher);
  task()->pullBody([&](Data body) {
    journal.add(body.string());
    task()->sendResponse(200);
    task()->complete();
  });
  EXPECT_EQ(happened(), "streamed done:\"\"");
  EXPECT_EQ(fetcher->bodyLength(), 8);
}

// Delayed fetchers are stopped in the tests of the service.
TEST_F(FetcherCoreTest, StopAtEachStageEndsQuietly) {
  const auto stopped = note(NVXx_kHTKSessionFetcherStoppedNotification, "stopped");
  for (const bool onQueue : {false, true}) {
    const FetcherRef created = makeFetcher();
    created->stopFetching();
    const size_t tasks = http->tasks().size();
    begin(created);  // Delivers nothing, and goes nowhere.
    EXPECT_EQ(happened(), "");
    EXPECT_EQ(http->tasks().size(), tasks);
    EXPECT_FALSE(created->completionHandler());

    for (const bool completes : {false, true}) {
      const FetcherRef fetcher = makeFetcher();
      fetcher->setReceivedProgressBlock([&](int64_t, int64_t) { journal.add("progress"); });
      fetcher->setDidReceiveResponseBlock([&](URLResponse, ResponseDispositionHandler answer) {
        journal.add("response");
        answer(ResponseDisposition::Allow);
      });
      begin(fetcher);
      Semaphore delivered(0), gate(0), returned(0);
      queue->post([&, fetcher] {
        gate.wait();
        if (onQueue) fetcher->stopFetching();
        returned.signal();
      });
      task()->sendResponse(201);
      task()->sendData("x");
      if (completes) task()->complete();
      fetcher->sessionDelegateQueue()->post([&] { delivered.signal(); });
      delivered.wait();
      if (!onQueue) fetcher->stopFetching();
      gate.signal();
      returned.wait();
      task()->sendData("y");
      // Of what waits behind the stop only the response is told, since it wants its answer.
      scope.settle();
      const std::string heard = journal.take();
      EXPECT_TRUE(heard == "stopped response" || heard == "response stopped") << heard;
      EXPECT_NE(task()->wasCancelled(), completes);
      EXPECT_EQ(fetcher->statusCode(), 201);
      EXPECT_FALSE(fetcher->isFetching());
      EXPECT_TRUE(http->sessions().back()->wasInvalidated());
    }
  }
}

TEST_F(FetcherCoreTest, ResumeDataComesFromAStopAndFromAFailure) {
  FetcherRef fetcher = makeFetcher();
  fetcher->setDestinationFileURL(folder);
  auto block = [&](Data resumeData) {
    EXPECT_TRUE(queue->isCurrent());
    journal.add("resume:" + resumeData.string());
  };
  fetcher->setResumeDataBlock(block);
  begin(fetcher);
  task()->resumeDataToProduce = Data::copy("half");
  fetcher->stopFetching();
  EXPECT_TRUE(fetcher->waitForCompletionWithTimeout(10));
  EXPECT_EQ(happened(), "resume:half");

  fetcher = Fetcher::fetcherWithDownloadResumeData(Data::copy("half"));
  EXPECT_EQ(fetcher->comment(), "Resuming download");
  EXPECT_NE(fetcher->description().find("(<download resume data>)"), std::string::npos);
  fetcher->setCallbackQueue(queue);
  fetcher->setDestinationFileURL(folder);
  fetcher->setResumeDataBlock(block);
  begin(fetcher);
  EXPECT_EQ(task()->givenResumeData.view(), "half");
  task()->complete(Error(kURLErrorDomain, kURLErrorNetworkConnectionLost,
                         {{kURLSessionDownloadTaskResumeData, Data::copy("more")}}));
  EXPECT_EQ(happened(), "resume:more done:nothing,NSURLErrorDomain-1005");
}

TEST_F(FetcherCoreTest, DownloadsArePlacedOrSayWhyNot) {
  const URL destination = folder.appendingPathComponent("a").appendingPathComponent("b");
  auto download = [&](int status, const URL& to) {
    const FetcherRef fetcher = makeFetcher();
    fetcher->setDestinationFileURL(to);
    fetcher->setDownloadProgressBlock([&](int64_t, int64_t total, int64_t expected) {
      journal.add(std::to_string(total) + "/" + std::to_string(expected));
    });
    begin(fetcher);
    task()->sendResponse(status);
    task()->writeDownload("bytes" + std::to_string(status), status == 200 ? 8 : 3);
    scope.settle();  // A progress that is still queued at the end is dropped.
    task()->complete();
    std::string text = happened();
    EXPECT_EQ(fetcher->downloadedLength(), 8);
    return text;
  };
  EXPECT_EQ(download(200, destination), "8/8 done:nothing");
  EXPECT_EQ(contents(destination), "bytes200");
  EXPECT_EQ(download(201, destination), "8/-1 done:nothing");
  EXPECT_EQ(contents(destination), "bytes201");
  EXPECT_EQ(download(200, destination.appendingPathComponent("below a file")),
            "8/8 done:nothing,NSCocoaErrorDomain512");
  EXPECT_EQ(download(404, destination), "8/-1 done:nothing,HTTPStatus404");
  EXPECT_TRUE(checkFileIsReachable(destination));

  // A data URL has a data task, whose bytes are written at the end.
  for (const bool fits : {true, false}) {
    const URL to = fits ? destination : destination.appendingPathComponent("x");
    const FetcherRef fetcher = makeFetcher("data:,text");
    fetcher->setDestinationFileURL(to);
    begin(fetcher);
    EXPECT_EQ(task()->kind(), TaskKind::Data);
    task()->sendData("text");
    task()->complete();
    EXPECT_EQ(happened(), fits ? "done:nothing" : "done:\"text\",NSCocoaErrorDomain512");
  }
  EXPECT_EQ(contents(destination), "text");
}

TEST_F(FetcherCoreTest, ARedirectIsRefusedAndAnUnaskedChallengeHandledByDefault) {
  begin(makeFetcher());
  task()->challenge({});
  task()->redirect(302, URL::withString("https://other/"));
  task()->complete();
  EXPECT_EQ(happened(), "done:nothing,HTTPStatus302");
  EXPECT_TRUE(task()->redirectWasRefused());
  EXPECT_EQ(task()->challengeAnswer(), AuthChallengeDisposition::PerformDefaultHandling);
}

TEST_F(FetcherCoreTest, TheSessionIsMadeFromItsConfiguration) {
  const auto given = HTTPSessionConfiguration::ephemeral();
  given->tlsMinimumSupportedProtocol = 4;
  const FetcherRef fetcher = Fetcher::initWithRequest(URLRequest(URL::withString("https://h/")), given);
  const auto cookies = std::make_shared<NVXx_HTKSessionCookieStorage>();
  fetcher->setCookieStorage(cookies);
  fetcher->setConfigurationBlock([&](const FetcherRef& self, HTTPSessionConfiguration& configuration) {
    EXPECT_EQ(self, fetcher);
    EXPECT_EQ(configuration.httpCookieStorage, cookies);
    configuration.proxy = "http://proxy/";
  });
  begin(fetcher);
  EXPECT_EQ(http->sessions()[0]->configuration.httpCookieStorage, cookies);
  EXPECT_EQ(http->sessions()[0]->configuration.proxy, "http://proxy/");
  EXPECT_EQ(http->sessions()[0]->configuration.tlsMinimumSupportedProtocol, 4);
  EXPECT_EQ(http->sessions()[0]->delegate(), fetcher);
  const FetcherRef plain = makeFetcher();
  begin(plain);
  EXPECT_EQ(http->sessions()[1]->configuration.tlsMinimumSupportedProtocol, kTLSProtocol12);
  EXPECT_EQ(http->sessions()[1]->configuration.httpCookieStorage, Fetcher::staticCookieStorage());
  for (const auto& f : {fetcher, plain}) f->stopFetching();
  scope.settle();
}

TEST_F(FetcherCoreTest, SettingsHoldWhileItFetches) {
  const FetcherRef fetcher = makeFetcher();
  fetcher->addPropertiesFromDictionary({{"a", 1}});
  fetcher->setProperty("x", "b");
  fetcher->setProperty(Value(), "a");
  EXPECT_EQ(fetcher->properties().size(), 1u);
  fetcher->setRequestValue("1", "H");
  begin(fetcher);
  fetcher->setRequestValue("2", "H");
  fetcher->setRequest(URLRequest());
  fetcher->setSessionDelegateQueue(queue);
  EXPECT_EQ(fetcher->request()->headers.value("h"), "1");
  EXPECT_EQ(fetcher->sessionDelegateQueue(), Queue::main());
  fetcher->updateRequestValue("3", "H");
  EXPECT_EQ(fetcher->request()->headers.value("h"), "3");
  EXPECT_NE(fetcher->description().find("(https://host/path)"), std::string::npos);
  EXPECT_NE(makeFetcher("")->description().find("(<no request>)"), std::string::npos);
  fetcher->stopFetching();
  fetcher->setBodyFileURL(URL::fileURLWithPath("/no/such"));
  EXPECT_EQ(fetcher->bodyLength(), -1);
  fetcher->setBodyData(Data::copy("four"));
  EXPECT_EQ(fetcher->bodyLength(), 4);
  scope.settle();
}

TEST_F(FetcherCoreTest, WaitsSeeQueuedCallbacksOnAnyThread) {
  // Off the main thread.
  FetcherRef fetcher = makeFetcher();
  begin(fetcher);
  EXPECT_FALSE(fetcher->waitForCompletionWithTimeout(0.002));
  EXPECT_FALSE(fetcher->waitForCompletionWithTimeout(-1e30));
  task()->sendResponse(200);
  task()->complete();
  EXPECT_TRUE(fetcher->waitForCompletionWithTimeout(1e30));
  EXPECT_EQ(journal.take(), "done:\"\"");

  // On it, with the callbacks there too: the wait turns the loop.
  Semaphore waited(0);
  Queue::main()->post([&] {
    fetcher = Fetcher::fetcherWithURLString("https://h/");
    fetcher->beginFetchWithCompletionHandler([&](Data, const Error&) { journal.add("on main"); });
    EXPECT_FALSE(fetcher->waitForCompletionWithTimeout(0.002));
    task()->sendResponse(200);
    task()->complete();
    EXPECT_TRUE(fetcher->waitForCompletionWithTimeout(10));
    EXPECT_EQ(journal.take(), "on main");
    waited.signal();
  });
  EXPECT_TRUE(waited.wait(20));
}

TEST_F(FetcherCoreTest, ATargetLivesUntilItWasCalled) {
  auto target = std::make_shared<int>(7);
  const std::weak_ptr<int> watched = target;
  std::weak_ptr<Fetcher> watchedFetcher;
  {
    const FetcherRef fetcher = makeFetcher();
    watchedFetcher = fetcher;
    fetcher->beginFetchWithDelegate(target,
                                    [&, raw = target.get()](const FetcherRef& f, const Data&, const Error&) {
                                      journal.add(std::to_string(*raw) + std::to_string(f->statusCode()));
                                    });
    target.reset();
    task()->sendResponse(204);
    task()->complete();
  }
  EXPECT_EQ(happened(), "7204");
  EXPECT_TRUE(watched.expired());
}

}  // namespace
}  // namespace nvxcore::testing
