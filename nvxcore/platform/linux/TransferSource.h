#pragma once

namespace nvxcore {

/// Where a task's reply comes from: the network, a file, the text of a data URL. Calls may come on any
/// thread; none waits.
class TransferSource {
 public:
  virtual ~TransferSource() = default;
  virtual void start() = 0;
  /// There is room for more of the body, which the task had refused to take.
  virtual void proceed() = 0;
  /// The host has answered, or taken, what the transfer waited for: its idle time counts from now.
  virtual void hostAnswered() = 0;
  /// Nothing more is wanted. Calls to the task may still be under way; it ignores them.
  virtual void stop() = 0;
};

}  // namespace nvxcore
