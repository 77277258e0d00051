#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/Preferences.h"
#include "nvxcore/platform/internal/PreferencesFile.h"

namespace nvxcore {

/// Preferences in a file. What was read last and what was changed since are kept apart, so that a write can
/// put the changes into what the file has by then.
class FilePreferences final : public Preferences, public std::enable_shared_from_this<FilePreferences> {
 public:
  /// Reads the file. Without a path nothing is ever written.
  explicit FilePreferences(std::string path);
  ~FilePreferences() override;

  Value objectForKey(std::string_view key) override;
  void setObject(Value value, std::string_view key) override;
  bool synchronize() override;

 private:
  struct Change {
    Value value;
    uint64_t number;
  };
  using Changes = std::map<std::string, Change, std::less<>>;

  bool exchangeWithFile();
  bool write(const Changes& changes, PreferencesContents& contents) const;
  void tryAgainLater();

  const std::string _path;
  /// Held while the file is read and written.
  Mutex _fileLock;
  Mutex _lock;
  PreferencesContents _contents NVX_GUARDED_BY(_lock);
  Changes _changes NVX_GUARDED_BY(_lock);
  uint64_t _lastChange NVX_GUARDED_BY(_lock) = 0;
  TimeInterval _retryDelay NVX_GUARDED_BY(_lock);
  bool _retryIsDue NVX_GUARDED_BY(_lock) = false;
};

}  // namespace nvxcore
