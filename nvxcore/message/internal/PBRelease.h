#pragma once

#include "nvxcore/message/internal/PBMessageAccess.h"

namespace nvxcore {

/// Lets go of messages and what hangs on them, without recursion, and gives an input that many of them pinned
/// back at once.
class PBReleaseWalk {
 public:
  PBReleaseWalk() = default;
  PBReleaseWalk(const PBReleaseWalk&) = delete;
  PBReleaseWalk& operator=(const PBReleaseWalk&) = delete;
  ~PBReleaseWalk();

  /// Takes over one reference; so do the next ones.
  void drop(NVXx_PBGeneratedMessage* message);
  void dropArray(NVXx_PBMutableArray* array);
  void dropElements(NVXx_PBArray& array);
  /// Of a message whose last reference is gone.
  void end(NVXx_PBGeneratedMessage& message);
  /// The fields, extensions and unknown fields of a message; its storage is not cleared.
  void letGo(NVXx_PBGeneratedMessage& message);

 private:
  friend struct PBMessageMemory;
  void unpin(PBBlock* input) {
    if (_input != input) {
      giveBack();
      _input = input;
    }
    ++_pins;
  }
  void giveBack();
  void run();
  NVXx_PBGeneratedMessage* _waiting = nullptr;  // linked through their words for the side record
  PBBlock* _input = nullptr;
  uint32_t _pins = 0;
};

}  // namespace nvxcore
