#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace nvxcore::benchmarks {

/// A thread that runs closures: a mutex, a condition variable and a deque.
class PlainThread {
 public:
  PlainThread();
  ~PlainThread();
  void post(std::function<void()> work);

 private:
  void run();
  std::mutex _mutex;
  std::condition_variable _wake;
  std::deque<std::function<void()>> _work;
  bool _ends = false;
  std::thread _thread;
};

/// What a C++ user would write with libcurl: the multi interface on a thread of its own, handles and
/// connections kept, and each answer handed over twice, to a thread that collects and to one that handles it.
///
///   loop: take new requests; curl_multi_perform; for each that is done hand its bytes on; curl_multi_poll
class MultiPeer {
 public:
  explicit MultiPeer(std::string userAgent);
  ~MultiPeer();
  /// Posts `body`; `handler` gets the reply on the second thread.
  void post(const std::string& url, const std::string& body, std::function<void(std::string reply)> handler);

 private:
  struct Transfer;
  void run();
  void start(std::unique_ptr<Transfer> transfer);

  const std::string _userAgent;
  void* _multi;
  std::mutex _mutex;
  std::deque<std::unique_ptr<Transfer>> _new;
  bool _ends = false;
  std::deque<void*> _idleHandles;
  PlainThread _collector, _handlers;
  std::thread _thread;
};

/// One request after another over one easy handle: answers how many seconds `count` of them took.
double postOneByOne(const std::string& url, const std::string& userAgent, const std::string& body, int count);

}  // namespace nvxcore::benchmarks
