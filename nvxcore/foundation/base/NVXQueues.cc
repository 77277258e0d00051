#include "nvxcore/foundation/base/NVXQueues.h"

#include <cmath>
#include <memory>
#include <utility>

#include "nvxcore/foundation/base/BackgroundGrant.h"
#include "nvxcore/platform/ApplicationFacts.h"
#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/Platform.h"

namespace nvxcore {

namespace {

/// The queue belongs to the platform in force: a test that brings one of its own gets a queue that runs on
/// it.
struct FileQueue {
  explicit FileQueue(std::weak_ptr<Threading> platform)
      : owner(std::move(platform)),
        queue(Queue::serial("com.ovrasoft.Atlas.FileIO")),
        group(std::make_shared<DispatchGroup>()) {}
  bool belongsTo(const std::weak_ptr<Threading>& platform) const {
    return !owner.owner_before(platform) && !platform.owner_before(owner);
  }
  /// By its owner, since a later platform may get the same address.
  const std::weak_ptr<Threading> owner;
  QueueRef queue;
  std::shared_ptr<DispatchGroup> group;
};

std::shared_ptr<FileQueue> fileQueue() {
  static auto* lock = new Mutex;
  static auto* current = new std::shared_ptr<FileQueue>;
  std::shared_ptr<FileQueue> replaced;
  const std::weak_ptr<Threading> platform = Platform::current().threading;
  Lock held(*lock);
  if (!*current || !(*current)->belongsTo(platform)) {
    replaced = std::move(*current);
    *current = std::make_shared<FileQueue>(platform);
  }
  return *current;
}

}  // namespace

bool NVXIsOnQueue(const QueueRef& queue) { return queue && Queue::currentLabel() == queue->label(); }

void NVXScheduleFileIOBlock(std::function<void()> block) {
  std::shared_ptr<BackgroundGrant> grant =
      BackgroundGrant::begin(Platform::current().backgroundTasks, "FileIOBlock");
  std::shared_ptr<FileQueue> files = fileQueue();
  files->queue->post(*files->group, [block = std::move(block), grant = std::move(grant)] {
    if (block) block();
    grant->end();
  });
}

bool NVXWaitForFileIOQueueWithTimeout(TimeInterval timeout) {
  return fileQueue()->group->wait(std::trunc(timeout * 1000.0) / 1000.0);
}

bool NVXIsAppExtension() {
  return Platform::current().application->bundlePath().find(".appex") != std::string::npos;
}

}  // namespace nvxcore
