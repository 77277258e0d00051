#include "nvxcore/platform/linux/ProcessFacts.h"

#include <limits.h>
#include <net/if.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <memory>
#include <utility>

namespace nvxcore {

namespace {

class SystemFacts final : public DeviceFacts {
 public:
  SystemFacts() {
    if (uname(&_system) != 0) _system = {};
  }
  std::string model() const override { return "Linux"; }
  std::string systemVersion() const override { return _system.release; }
  std::string machine() const override { return _system.machine; }
  std::vector<std::string> networkInterfaceNames() const override {
    std::vector<std::string> names;
    const std::unique_ptr<struct if_nameindex[], decltype(&::if_freenameindex)> interfaces(
        ::if_nameindex(), ::if_freenameindex);
    for (size_t i = 0; interfaces && interfaces[i].if_name; ++i) names.emplace_back(interfaces[i].if_name);
    return names;
  }

 private:
  utsname _system;
};

}  // namespace

std::shared_ptr<ApplicationFacts> applicationFactsOfProcess() {
  ApplicationDescription description;
  char buffer[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", buffer, sizeof buffer);
  if (length > 0) {
    std::string path(buffer, static_cast<size_t>(length));
    // What an update has replaced under a running process still goes by its name.
    constexpr std::string_view kDeleted = " (deleted)";
    if (path.ends_with(kDeleted)) path.resize(path.size() - kDeleted.size());
    const size_t slash = path.rfind('/');
    description.processName = path.substr(slash + 1);
    description.bundlePath = path.substr(0, slash == 0 ? 1 : slash);
  }
  return applicationFactsWithDescription(std::move(description));
}

std::shared_ptr<DeviceFacts> deviceFactsOfSystem() { return std::make_shared<SystemFacts>(); }

}  // namespace nvxcore
