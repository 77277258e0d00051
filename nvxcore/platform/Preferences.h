#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "nvxcore/platform/Data.h"
#include "nvxcore/platform/Export.h"
#include "nvxcore/platform/Value.h"

namespace nvxcore {

class ApplicationFacts;

/// A store of values under text keys that lasts longer than the process. Any thread.
///
/// A change is seen at once by all who share the store in this process; `synchronize` makes it last.
class NVXCORE_EXPORT Preferences {
 public:
  virtual ~Preferences() = default;

  /// Nothing when there is none.
  virtual Value objectForKey(std::string_view key) = 0;
  /// Keeps any value but an error or an object, of which a store throws kInvalidArgumentException, also for
  /// one within a dictionary. Nothing as a value removes the key.
  virtual void setObject(Value value, std::string_view key) = 0;
  void removeObjectForKey(std::string_view key) { setObject(Value(), key); }
  /// Writes what was changed, and takes over what other processes have written. Blocks until it is on disk.
  /// False when that can't be done: the changes then stay in memory, and are written as soon as that can be
  /// done again.
  virtual bool synchronize() = 0;

  /// Nothing unless a string is there.
  std::optional<std::string> stringForKey(std::string_view key);
  /// Nothing unless bytes are there.
  Data dataForKey(std::string_view key);
};

/// Where preferences are kept. Any thread.
class NVXCORE_EXPORT PreferencesService {
 public:
  virtual ~PreferencesService() = default;

  /// The application's own. For one name, all who hold its store hold the same one; never null.
  virtual std::shared_ptr<Preferences> standardPreferences() = 0;
  /// Others of the application.
  virtual std::shared_ptr<Preferences> preferencesWithSuiteName(std::string_view suiteName) = 0;
  /// Those that all applications of a group share.
  virtual std::shared_ptr<Preferences> preferencesForApplicationGroup(std::string_view group) = 0;
  /// The folder that all applications of a group share; it need not be there yet. Nothing when there can be
  /// none.
  virtual URL containerForApplicationGroup(std::string_view group) = 0;
};

/// Absolute paths. Without one, what would be kept there stays in memory.
struct PreferencesFolders {
  std::string application;  ///< A file for each suite of the application.
  std::string groups;       ///< A folder for each application group. The same for all applications.
};

/// Below $XDG_DATA_HOME, or ~/.local/share: a folder by the application's bundle identifier, or its process
/// name without one, and a common one for the groups.
NVXCORE_EXPORT PreferencesFolders defaultPreferencesFolders(const ApplicationFacts& application);
/// Files in these folders, which are made when something is first written. Any number of processes may share
/// them: writers take turns, and what one has written is lost to none.
NVXCORE_EXPORT std::shared_ptr<PreferencesService> preferencesInFolders(PreferencesFolders folders);

}  // namespace nvxcore
