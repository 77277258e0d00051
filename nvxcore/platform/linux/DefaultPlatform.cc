#include "nvxcore/platform/linux/DefaultPlatform.h"

#include <memory>

#include "nvxcore/platform/ApplicationFacts.h"
#include "nvxcore/platform/NotificationCenter.h"
#include "nvxcore/platform/Preferences.h"
#include "nvxcore/platform/linux/MakeHTTPSessionService.h"
#include "nvxcore/platform/linux/NetlinkReachability.h"
#include "nvxcore/platform/linux/PosixThreading.h"
#include "nvxcore/platform/linux/ProcessFacts.h"
#include "nvxcore/platform/linux/StandardErrorConsole.h"
#include "nvxcore/platform/linux/UnlimitedBackgroundTasks.h"

namespace nvxcore {

Platform completedPlatform(Platform platform) {
  if (!platform.threading) platform.threading = std::make_shared<PosixThreading>();
  if (!platform.notificationCenter) platform.notificationCenter = std::make_shared<NotificationCenter>();
  if (!platform.httpSessionService) platform.httpSessionService = makeHTTPSessionService();
  if (!platform.backgroundTasks) platform.backgroundTasks = std::make_shared<UnlimitedBackgroundTasks>();
  if (!platform.application) platform.application = applicationFactsOfProcess();
  if (!platform.device) platform.device = deviceFactsOfSystem();
  if (!platform.console) platform.console = std::make_shared<StandardErrorConsole>();
  if (!platform.preferences) {
    platform.preferences = preferencesInFolders(defaultPreferencesFolders(*platform.application));
  }
  if (!platform.reachability) platform.reachability = std::make_shared<NetlinkReachability>();
  return platform;
}

}  // namespace nvxcore
