#include "benchmarks/support/MultiPeer.h"

#include <curl/curl.h>

#include <chrono>
#include <cstdlib>
#include <utility>

namespace nvxcore::benchmarks {

namespace {

size_t append(char* bytes, size_t size, size_t count, void* text) {
  static_cast<std::string*>(text)->append(bytes, size * count);
  return size * count;
}

curl_slist* headers() {
  static curl_slist* list =
      curl_slist_append(curl_slist_append(nullptr, "Content-Type: application/binary"), "Expect:");
  return list;
}

void prepare(CURL* handle, const std::string& url, const std::string& userAgent, const std::string& body,
             std::string* reply) {
  curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
  curl_easy_setopt(handle, CURLOPT_POST, 1L);
  curl_easy_setopt(handle, CURLOPT_POSTFIELDS, body.data());
  curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
  curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers());
  // So that both sides send the same bytes.
  curl_easy_setopt(handle, CURLOPT_USERAGENT, userAgent.c_str());
  curl_easy_setopt(handle, CURLOPT_ACCEPT_ENCODING, "gzip, deflate, br");
  curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, append);
  curl_easy_setopt(handle, CURLOPT_WRITEDATA, reply);
  curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
}

}  // namespace

PlainThread::PlainThread() : _thread([this] { run(); }) {}

PlainThread::~PlainThread() {
  {
    std::lock_guard<std::mutex> lock(_mutex);
    _ends = true;
  }
  _wake.notify_one();
  _thread.join();
}

void PlainThread::post(std::function<void()> work) {
  {
    std::lock_guard<std::mutex> lock(_mutex);
    _work.push_back(std::move(work));
  }
  _wake.notify_one();
}

void PlainThread::run() {
  std::unique_lock<std::mutex> lock(_mutex);
  for (;;) {
    _wake.wait(lock, [this] { return _ends || !_work.empty(); });
    if (_work.empty()) return;
    std::function<void()> work = std::move(_work.front());
    _work.pop_front();
    lock.unlock();
    work();
    work = nullptr;
    lock.lock();
  }
}

struct MultiPeer::Transfer {
  std::string url, body, reply;
  std::function<void(std::string)> handler;
};

MultiPeer::MultiPeer(std::string userAgent)
    : _userAgent(std::move(userAgent)), _multi(curl_multi_init()), _thread([this] { run(); }) {}

MultiPeer::~MultiPeer() {
  {
    std::lock_guard<std::mutex> lock(_mutex);
    _ends = true;
  }
  curl_multi_wakeup(static_cast<CURLM*>(_multi));
  _thread.join();
  for (void* handle : _idleHandles) curl_easy_cleanup(static_cast<CURL*>(handle));
  curl_multi_cleanup(static_cast<CURLM*>(_multi));
}

void MultiPeer::post(const std::string& url, const std::string& body,
                     std::function<void(std::string)> handler) {
  auto transfer = std::make_unique<Transfer>(Transfer{url, body, {}, std::move(handler)});
  {
    std::lock_guard<std::mutex> lock(_mutex);
    _new.push_back(std::move(transfer));
  }
  curl_multi_wakeup(static_cast<CURLM*>(_multi));
}

void MultiPeer::start(std::unique_ptr<Transfer> transfer) {
  CURL* handle;
  if (_idleHandles.empty()) {
    handle = curl_easy_init();
  } else {
    handle = static_cast<CURL*>(_idleHandles.back());
    _idleHandles.pop_back();
  }
  prepare(handle, transfer->url, _userAgent, transfer->body, &transfer->reply);
  curl_easy_setopt(handle, CURLOPT_PRIVATE, transfer.release());
  curl_multi_add_handle(static_cast<CURLM*>(_multi), handle);
}

void MultiPeer::run() {
  auto* multi = static_cast<CURLM*>(_multi);
  for (;;) {
    std::deque<std::unique_ptr<Transfer>> fresh;
    {
      std::lock_guard<std::mutex> lock(_mutex);
      if (_ends) return;
      fresh.swap(_new);
    }
    for (auto& transfer : fresh) start(std::move(transfer));
    int running = 0, left = 0;
    curl_multi_perform(multi, &running);
    while (CURLMsg* message = curl_multi_info_read(multi, &left)) {
      if (message->msg != CURLMSG_DONE) continue;
      if (message->data.result != CURLE_OK) std::abort();
      CURL* handle = message->easy_handle;
      char* text = nullptr;
      curl_easy_getinfo(handle, CURLINFO_PRIVATE, &text);
      std::shared_ptr<Transfer> transfer(reinterpret_cast<Transfer*>(text));
      curl_multi_remove_handle(multi, handle);
      _idleHandles.push_back(handle);
      _collector.post([this, transfer] {
        _handlers.post([transfer] { transfer->handler(std::move(transfer->reply)); });
      });
    }
    curl_multi_poll(multi, nullptr, 0, 1000, nullptr);
  }
}

double postOneByOne(const std::string& url, const std::string& userAgent, const std::string& body,
                    int count) {
  CURL* handle = curl_easy_init();
  std::string reply;
  prepare(handle, url, userAgent, body, &reply);
  if (curl_easy_perform(handle) != CURLE_OK) std::abort();
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < count; ++i) {
    reply.clear();
    if (curl_easy_perform(handle) != CURLE_OK) std::abort();
  }
  const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
  curl_easy_cleanup(handle);
  return time.count();
}

}  // namespace nvxcore::benchmarks
