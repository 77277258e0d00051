#include <array>
#include <random>

#include "nvxcore/platform/URLErrors.h"
#include "tests/support/Proof.h"
#include "tests/support/SteppedThreading.h"
#include "tests/transport/FetcherHarness.h"

namespace nvxcore::testing {
namespace {

/// One schedule: threads that begin, stop, reset and complete fetches at random. Each fetch has its own
/// record of how it ended.
class Schedule {
 public:
  explicit Schedule(uint64_t seed)
      : _seed(seed),
        _threading(std::make_shared<SteppedThreading>(seed)),
        _scope(Platform{.threading = _threading,
                        .httpSessionService = _http,
                        .backgroundTasks = _background,
                        .application = insecureApplication()}),
        _queue(Queue::serial("callbacks")),
        _service(NVXx_HTKSessionFetcherService::init()) {
    _service->setMaxRunningFetchersPerHost(2);
    _service->setCallbackQueue(_queue);
    _service->setUnusedSessionTimeout(seed % 3 ? 1 : 0.001);
    for (Fetch& fetch : _fetches) fetch.fetcher = _service->fetcherWithURLString("https://host/");
  }

  void run() {
    for (uint64_t thread = 0; thread < 3; ++thread) {
      _threads.push_back(_threading->startThread("operations", [this, thread] {
        std::minstd_rand random(static_cast<unsigned>(_seed * 3 + thread + 1));
        for (int i = 0; i < 12; ++i) operate(random);
      }));
    }
    for (const auto& thread : _threads) thread->join();
    // What is left in the air comes down.
    _threading->runFor(0);
    for (int round = 0; round < 8; ++round) {
      for (const FakeHTTPTaskRef& task : _http->tasks()) {
        if (task->wasResumed()) task->complete();
      }
      _threading->runFor(0);
    }
    check();
  }

  bool sawSomething() const { return _completions > 0; }

 private:
  struct Fetch {
    FetcherRef fetcher;
    bool begun = false;
    int completions = 0;
    bool stopReturned = false;  // on the callback queue
    bool wasStopped = false;
    bool failsToBegin = false;
  };

  void operate(std::minstd_rand& random) {
    Fetch& fetch = _fetches[random() % _fetches.size()];
    switch (random() % 10) {
      case 0:
      case 1:
      case 2:
      case 3:
        if (!std::exchange(fetch.begun, true)) begin(fetch);
        break;
      case 4:
        fetch.wasStopped = true;
        fetch.fetcher->stopFetching();
        break;
      case 5:
        fetch.wasStopped = true;
        _queue->post([&fetch] {
          fetch.fetcher->stopFetching();
          fetch.stopReturned = true;
        });
        break;
      case 6:
        if (random() % 4 == 0) {
          for (Fetch& each : _fetches) each.wasStopped = true;
          _service->stopAllFetchers();
        }
        break;
      case 7:
        _service->resetSession();
        break;
      default:
        if (const FakeHTTPTaskRef task = _http->lastTask(); task && task->wasResumed()) {
          task->sendResponse(200);
          task->sendData("x");
          task->complete();
        }
    }
  }

  void begin(Fetch& fetch) {
    auto heard = [this, &fetch] { EXPECT_FALSE(fetch.stopReturned) << "seed " << _seed; };
    fetch.fetcher->setReceivedProgressBlock([heard](int64_t, int64_t) { heard(); });
    fetch.fetcher->beginFetchWithCompletionHandler([this, &fetch, heard](const Data&, const Error&) {
      heard();
      ++fetch.completions;
      ++_completions;
    });
  }

  void check() {
    EXPECT_EQ(_service->numberOfFetchers(), 0u) << "seed " << _seed;
    EXPECT_EQ(_background->open, 0) << "seed " << _seed;
    for (const Fetch& fetch : _fetches) {
      EXPECT_LE(fetch.completions, 1) << "seed " << _seed;
      if (fetch.begun && !fetch.wasStopped) {
        EXPECT_EQ(fetch.completions, 1) << "seed " << _seed;
      }
      EXPECT_FALSE(fetch.fetcher->sessionTask()) << "seed " << _seed;
      EXPECT_FALSE(fetch.begun && fetch.fetcher->completionHandler()) << "seed " << _seed;
    }
  }

  const uint64_t _seed;
  const std::shared_ptr<FakeHTTPSessionService> _http = std::make_shared<FakeHTTPSessionService>();
  const std::shared_ptr<CountedTasks> _background = std::make_shared<CountedTasks>();
  const std::shared_ptr<SteppedThreading> _threading;
  PlatformScope _scope;
  const QueueRef _queue;
  const std::shared_ptr<NVXx_HTKSessionFetcherService> _service;
  std::array<Fetch, 5> _fetches;
  std::vector<std::unique_ptr<ThreadHandle>> _threads;
  int _completions = 0;
};

class FetcherStressTest : public NVXTest {};

TEST_F(FetcherStressTest, EachFetchEndsOnceWhateverComesBetween) {
  // A session that is given up while a fetch begins makes no task.
  expectConsoleLine("Failed dataTaskWithRequest for ");
  size_t completing = 0;
  const size_t seeds = proofCount(2'000, 50'000);
  for (uint64_t seed = 1; seed <= seeds && !HasFailure(); ++seed) {
    Schedule schedule(seed);
    schedule.run();
    completing += schedule.sawSomething();
  }
  EXPECT_GT(completing, seeds / 3);
}

}  // namespace
}  // namespace nvxcore::testing
