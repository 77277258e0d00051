#pragma once

#include <functional>

#include "nvxcore/platform/Export.h"
#include "nvxcore/platform/Queue.h"
#include "nvxcore/platform/TimeInterval.h"

namespace nvxcore {

/// True when the label of the queue that runs on this thread equals the label of `queue`: queues with one
/// label are taken for one another. Any thread.
NVXCORE_EXPORT bool NVXIsOnQueue(const QueueRef& queue);

/// Runs `block` on the one serial queue for all file work of the library, labelled
/// "com.ovrasoft.Atlas.FileIO", within a background task named "FileIOBlock". It runs to its end also when
/// that task expires. Any thread.
NVXCORE_EXPORT void NVXScheduleFileIOBlock(std::function<void()> block);
/// Waits until that queue has nothing left, for at most `timeout` seconds, taken in whole milliseconds. True
/// when it was empty. Any thread but the queue's own.
NVXCORE_EXPORT bool NVXWaitForFileIOQueueWithTimeout(TimeInterval timeout);

/// True when this process is an extension of an application: the path of its bundle contains ".appex". Any
/// thread.
NVXCORE_EXPORT bool NVXIsAppExtension();

}  // namespace nvxcore
