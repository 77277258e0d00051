#include "nvxcore/platform/Threading.h"

namespace nvxcore {

// Time that runs by itself never jumps, so nobody is ever called.
std::shared_ptr<void> Threading::addJumpListener(std::function<void()>) { return nullptr; }

}  // namespace nvxcore
