#pragma once

#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/internal/PoolQueue.h"
#include "nvxcore/platform/internal/TaskList.h"

namespace nvxcore {

/// Starts tasks in order, on at most `width` workers at a time.
class ConcurrentQueue final : public PoolQueue {
 public:
  static constexpr size_t kUnlimited = ~size_t{0};

  ConcurrentQueue(std::shared_ptr<Executors> executors, WorkerLane lane, std::string_view label,
                  size_t width);

  using Queue::post;
  void post(Task task) override NVX_EXCLUDES(_mutex);
  bool endsAfterTurn() override NVX_EXCLUDES(_mutex);
  QueueSnapshot snapshot() override NVX_EXCLUDES(_mutex);

 protected:
  void run() override NVX_EXCLUDES(_mutex);

 private:
  const size_t _width;
  Mutex _mutex;
  TaskList _waiting NVX_GUARDED_BY(_mutex);
  size_t _workers NVX_GUARDED_BY(_mutex) = 0;  // asked for, and not yet back without work
  size_t _running NVX_GUARDED_BY(_mutex) = 0;
};

}  // namespace nvxcore
