// What a server remembers of its exchanges, and waiting for it to change.
#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "tools/geoserver/Exchange.h"
#include "tools/geoserver/ServerOptions.h"
#include "tools/geoserver/internal/PostReading.h"

namespace nvxcore::geoserver {

// Exchanges under way are written by the loop thread alone, and under the record's lock wherever another
// thread could look; so the loop thread reads them without it.
class Record {
 public:
  explicit Record(RecordLevel level) : _level(level) {}

  // Loop thread.
  void began(const std::shared_ptr<Exchange>& exchange);
  void received(Exchange& exchange, std::shared_ptr<const std::string> body, Post post, PostReading reading);
  void ended(Exchange& exchange, Ending ending);
  // Changes fields of an exchange, or of the counters, that other threads may be looking at.
  template <class Change>
  void change(Change change) {
    {
      std::lock_guard lock(_mutex);
      change(_counters);
    }
    _changed.notify_all();
  }
  void countIn(uint64_t bytes) { _bytesIn.fetch_add(bytes, std::memory_order_relaxed); }
  void countOut(uint64_t bytes) { _bytesOut.fetch_add(bytes, std::memory_order_relaxed); }

  // Any thread.
  std::vector<Exchange> exchanges() const;
  Counters counters() const;
  // Forgets the exchanges that have ended; the counters go on.
  void clear();
  bool waitFor(const std::function<bool(const Counters&)>& condition,
               std::chrono::milliseconds timeout) const;

 private:
  Counters countersLocked() const;

  const RecordLevel _level;
  std::atomic<uint64_t> _bytesIn{0};
  std::atomic<uint64_t> _bytesOut{0};
  mutable std::mutex _mutex;  // guards what follows
  mutable std::condition_variable _changed;
  std::vector<std::shared_ptr<Exchange>> _exchanges;
  Counters _counters;
};

}  // namespace nvxcore::geoserver
