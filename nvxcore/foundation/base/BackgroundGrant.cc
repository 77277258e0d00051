#include "nvxcore/foundation/base/BackgroundGrant.h"

#include <utility>

namespace nvxcore {

std::shared_ptr<BackgroundGrant> BackgroundGrant::begin(std::shared_ptr<BackgroundTasks> tasks,
                                                        std::string_view name) {
  std::shared_ptr<BackgroundGrant> grant(new BackgroundGrant(std::move(tasks)));
  if (!grant->_tasks) return grant;
  grant->_task = grant->_tasks->begin(name, [weakGrant = std::weak_ptr<BackgroundGrant>(grant)] {
    if (auto expired = weakGrant.lock()) expired->end();
  });
  // An expiry that came before the number was stored has found nothing to end.
  if (grant->_isOver) grant->end();
  return grant;
}

void BackgroundGrant::end() {
  _isOver = true;
  const BackgroundTaskIdentifier task = _task.exchange(kInvalidBackgroundTask);
  if (task != kInvalidBackgroundTask) _tasks->end(task);
}

}  // namespace nvxcore
