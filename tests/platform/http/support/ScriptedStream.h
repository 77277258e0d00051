#pragma once

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <utility>

#include "nvxcore/platform/InputStream.h"
#include "nvxcore/platform/Queue.h"

namespace nvxcore::testing {

/// A body that hands out its pieces one at a time, each when it is there, and keeps count of how it is used.
class ScriptedStream final : public InputStream {
 public:
  void add(std::string piece) {
    std::lock_guard lock(_mutex);
    _pieces.push_back(std::move(piece));
    _changed.notify_all();
  }
  void end() {
    std::lock_guard lock(_mutex);
    _isEnded = true;
    _changed.notify_all();
  }
  void failWith(Error error) {
    std::lock_guard lock(_mutex);
    _error = std::move(error);
    _fails = true;
    _changed.notify_all();
  }

  void open() override { ++opened; }
  void close() override {
    std::lock_guard lock(_mutex);
    ++closed;
    _changed.notify_all();
  }
  int64_t read(uint8_t* buffer, size_t maxLength) override {
    std::unique_lock lock(_mutex);
    ++reads;
    _changed.notify_all();
    _changed.wait(lock, [this] { return !_pieces.empty() || _isEnded || _fails; });
    if (_fails) return -1;
    if (_pieces.empty()) return 0;
    std::string& piece = _pieces.front();
    const size_t count = std::min(maxLength, piece.size());
    std::memcpy(buffer, piece.data(), count);
    piece.erase(0, count);
    if (piece.empty()) _pieces.pop_front();
    bytesRead += static_cast<int64_t>(count);
    return static_cast<int64_t>(count);
  }
  Error streamError() const override {
    std::lock_guard lock(_mutex);
    return _error;
  }
  bool hasBytesAvailable() const override {
    std::lock_guard lock(_mutex);
    return !_pieces.empty() || _isEnded || _fails;
  }

  bool waitUntilRead(int times) {
    return wait([&] { return reads >= times; });
  }
  bool waitUntilClosed() {
    return wait([&] { return closed > 0; });
  }

  std::atomic<int> opened{0}, closed{0}, reads{0};
  std::atomic<int64_t> bytesRead{0};

 private:
  bool wait(const std::function<bool()>& condition) {
    std::unique_lock lock(_mutex);
    return _changed.wait_for(lock, std::chrono::seconds(20), condition);
  }

  mutable std::mutex _mutex;
  std::condition_variable _changed;
  std::deque<std::string> _pieces;
  bool _isEnded = false;
  bool _fails = false;
  Error _error;
};

}  // namespace nvxcore::testing
