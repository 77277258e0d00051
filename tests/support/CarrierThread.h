#pragma once

#include <atomic>
#include <cstdint>
#include <functional>

namespace nvxcore::testing {

/// The right to run, which one thread at a time has.
class Baton {
 public:
  /// Hands it to the thread that waits here, or will.
  void give();
  /// Waits for it. False when `seconds` of real time passed first; 0 waits for ever.
  bool take(int seconds = 0);

 private:
  std::atomic<uint32_t> _word{0};
};

/// A system thread that runs one body after the other, so that a new thread in a schedule costs a hand-over
/// instead of a start. It parks between them, and lasts as long as the process.
class CarrierThread {
 public:
  /// One that is free, else a new one. It runs `body` once it is given its baton.
  static CarrierThread& obtain(std::function<void(CarrierThread&)> body);
  /// Called at the end of its body: from now on it may be obtained again.
  void setFree();
  Baton& baton() { return _baton; }

 private:
  CarrierThread() = default;
  void run();

  Baton _baton;
  std::function<void(CarrierThread&)> _body;
};

}  // namespace nvxcore::testing
