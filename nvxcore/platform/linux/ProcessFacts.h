#pragma once

#include <memory>

#include "nvxcore/platform/ApplicationFacts.h"
#include "nvxcore/platform/DeviceFacts.h"

namespace nvxcore {

/// The application as its executable tells of it: its name and folder, no bundle identifier, no information.
std::shared_ptr<ApplicationFacts> applicationFactsOfProcess();
/// The machine as `uname` tells of it.
std::shared_ptr<DeviceFacts> deviceFactsOfSystem();

}  // namespace nvxcore
