#include "nvxcore/foundation/base/NVXQueues.h"

#include <atomic>
#include <cmath>
#include <memory>
#include <utility>

#include "nvxcore/platform/ApplicationFacts.h"
#include "nvxcore/platform/BackgroundTasks.h"
#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/Platform.h"

namespace nvxcore {

namespace {

/// The queue belongs to the platform in force: a test that brings one of its own gets a queue that runs on
/// it.
struct FileQueue {
  explicit FileQueue(const void* platform)
      : owner(platform),
        queue(Queue::serial("com.ovrasoft.Atlas.FileIO")),
        group(std::make_shared<DispatchGroup>()) {}
  const void* owner;
  QueueRef queue;
  std::shared_ptr<DispatchGroup> group;
};

std::shared_ptr<FileQueue> fileQueue() {
  static auto* lock = new Mutex;
  static auto* current = new std::shared_ptr<FileQueue>;
  std::shared_ptr<FileQueue> replaced;
  const void* platform = Platform::current().threading.get();
  Lock held(*lock);
  if (!*current || (*current)->owner != platform) {
    replaced = std::move(*current);
    *current = std::make_shared<FileQueue>(platform);
  }
  return *current;
}

/// A background task that two roads may end: whoever takes the number first does.
struct SharedTask {
  std::atomic<BackgroundTaskIdentifier> number{kInvalidBackgroundTask};
  std::atomic<bool> over{false};

  void end(BackgroundTasks& tasks) {
    over = true;
    const BackgroundTaskIdentifier mine = number.exchange(kInvalidBackgroundTask);
    if (mine != kInvalidBackgroundTask) tasks.end(mine);
  }
};

}  // namespace

bool NVXIsOnQueue(const QueueRef& queue) { return queue && Queue::currentLabel() == queue->label(); }

void NVXScheduleFileIOBlock(std::function<void()> block) {
  std::shared_ptr<BackgroundTasks> tasks = Platform::current().backgroundTasks;
  auto task = std::make_shared<SharedTask>();
  task->number = tasks->begin("FileIOBlock", [tasks, task] { task->end(*tasks); });
  // An expiry that came before the number was stored has found nothing to end.
  if (task->over) task->end(*tasks);
  std::shared_ptr<FileQueue> files = fileQueue();
  files->queue->post(*files->group, [block = std::move(block), tasks, task] {
    if (block) block();
    task->end(*tasks);
  });
}

bool NVXWaitForFileIOQueueWithTimeout(TimeInterval timeout) {
  return fileQueue()->group->wait(std::trunc(timeout * 1000.0) / 1000.0);
}

bool NVXIsAppExtension() {
  return Platform::current().application->bundlePath().find(".appex") != std::string::npos;
}

}  // namespace nvxcore
