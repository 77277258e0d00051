// Where preferences lie, and who shares them in this process.

#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "nvxcore/platform/ApplicationFacts.h"
#include "nvxcore/platform/Digest.h"
#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/Preferences.h"
#include "nvxcore/platform/linux/FilePreferences.h"

namespace nvxcore {

namespace {

constexpr char kHexDigits[] = "0123456789abcdef";
constexpr size_t kMostNameLength = 200;

/// A name as the name of a file: what may not stand there is escaped, and a long one is its digest.
std::string fileNameFor(std::string_view name) {
  std::string text;
  for (unsigned char c : name) {
    const bool isPlain = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
                         c == '-' || c == '_' || (c == '.' && !text.empty());
    if (isPlain) {
      text += static_cast<char>(c);
    } else {
      text += {'%', kHexDigits[c >> 4], kHexDigits[c & 15]};
    }
  }
  if (text.size() <= kMostNameLength) return text;
  text = "%";
  for (uint8_t byte : sha256({name})) text += {kHexDigits[byte >> 4], kHexDigits[byte & 15]};
  return text;
}

std::string homeFolder() {
  if (const char* home = ::secure_getenv("HOME"); home && *home == '/') return home;
  passwd entry{};
  passwd* found = nullptr;
  std::array<char, 4096> buffer;
  ::getpwuid_r(::geteuid(), &entry, buffer.data(), buffer.size(), &found);
  return found && found->pw_dir && *found->pw_dir == '/' ? found->pw_dir : "";
}

/// As the XDG base directory specification has it: a path that is not absolute does not count.
std::string dataFolder() {
  if (const char* folder = ::secure_getenv("XDG_DATA_HOME"); folder && *folder == '/') return folder;
  const std::string home = homeFolder();
  return home.empty() ? "" : home + "/.local/share";
}

class FilePreferencesService final : public PreferencesService {
 public:
  explicit FilePreferencesService(PreferencesFolders folders) : _folders(std::move(folders)) {}

  std::shared_ptr<Preferences> standardPreferences() override { return ofApplication("standard"); }
  std::shared_ptr<Preferences> preferencesWithSuiteName(std::string_view suiteName) override {
    return ofApplication("suite-" + fileNameFor(suiteName));
  }
  std::shared_ptr<Preferences> preferencesForApplicationGroup(std::string_view group) override {
    const std::string folder = groupFolder(group);
    return at(folder.empty() ? "" : folder + "/preferences", "group " + std::string(group));
  }
  URL containerForApplicationGroup(std::string_view group) override {
    const std::string folder = groupFolder(group);
    return folder.empty() ? URL() : URL::fileURLWithPath(folder);
  }

 private:
  std::string groupFolder(std::string_view group) const {
    return _folders.groups.empty() ? "" : _folders.groups + "/" + fileNameFor(group);
  }
  std::shared_ptr<Preferences> ofApplication(const std::string& name) {
    return at(_folders.application.empty() ? "" : _folders.application + "/" + name, name);
  }
  /// `name` tells those apart that have no path.
  std::shared_ptr<Preferences> at(const std::string& path, const std::string& name) {
    Lock lock(_lock);
    std::weak_ptr<FilePreferences>& known = _known[path.empty() ? name : path];
    auto preferences = known.lock();
    if (!preferences) {
      preferences = std::make_shared<FilePreferences>(path.empty() ? "" : path + ".nvxprefs");
      known = preferences;
      // In memory only: nobody could read it again.
      if (path.empty()) _kept.push_back(preferences);
    }
    return preferences;
  }

  const PreferencesFolders _folders;
  Mutex _lock;
  std::map<std::string, std::weak_ptr<FilePreferences>> _known NVX_GUARDED_BY(_lock);
  std::vector<std::shared_ptr<FilePreferences>> _kept NVX_GUARDED_BY(_lock);
};

}  // namespace

PreferencesFolders defaultPreferencesFolders(const ApplicationFacts& application) {
  const std::string data = dataFolder();
  if (data.empty()) return {};
  std::string name = application.bundleIdentifier();
  if (name.empty()) name = application.processName();
  if (name.empty()) name = "nvxcore";
  return {data + "/" + fileNameFor(name) + "/nvxcore", data + "/nvxcore-groups"};
}

std::shared_ptr<PreferencesService> preferencesInFolders(PreferencesFolders folders) {
  return std::make_shared<FilePreferencesService>(std::move(folders));
}

}  // namespace nvxcore
