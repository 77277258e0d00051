#include "nvxcore/platform/linux/FilePreferences.h"

#include <algorithm>
#include <utility>

#include "nvxcore/platform/Exception.h"
#include "nvxcore/platform/Queue.h"
#include "nvxcore/platform/linux/SharedFile.h"

namespace nvxcore {

namespace {

constexpr TimeInterval kFirstRetryDelay = 1.0;
constexpr TimeInterval kLongestRetryDelay = 300.0;

/// What the file has; a damaged one has nothing. False when that can't be told.
bool contentsOf(const SharedFile::Reading& reading, PreferencesContents& contents, bool& isDamaged) {
  isDamaged = false;
  contents.clear();
  if (reading.outcome == SharedFile::Outcome::Missing) return true;
  if (reading.outcome == SharedFile::Outcome::Unreadable) return false;
  auto decoded = decodedPreferences(reading.bytes);
  isDamaged = !decoded;
  if (decoded) contents = std::move(*decoded);
  return true;
}

}  // namespace

FilePreferences::FilePreferences(std::string path) : _path(std::move(path)), _retryDelay(kFirstRetryDelay) {
  bool isDamaged;
  if (!_path.empty()) contentsOf(SharedFile::read(_path, kMostPreferencesBytes), _contents, isDamaged);
}

FilePreferences::~FilePreferences() {
  if (!_path.empty() && !_changes.empty()) exchangeWithFile();
}

Value FilePreferences::objectForKey(std::string_view key) {
  Lock lock(_lock);
  if (auto change = _changes.find(key); change != _changes.end()) return change->second.value;
  auto entry = _contents.find(key);
  return entry == _contents.end() ? Value() : entry->second;
}

void FilePreferences::setObject(Value value, std::string_view key) {
  if (!canBePreference(value)) {
    throw Exception(kInvalidArgumentException, "Preferences can't keep the value for " + std::string(key));
  }
  if (value.kind() == Value::Kind::Data) value = value.data() ? Value(value.data().compacted()) : Value();
  Lock lock(_lock);
  _changes.insert_or_assign(std::string(key), Change{std::move(value), ++_lastChange});
}

bool FilePreferences::synchronize() {
  if (_path.empty()) return false;
  const bool done = exchangeWithFile();
  if (!done) tryAgainLater();
  return done;
}

bool FilePreferences::exchangeWithFile() {
  Lock fileLock(_fileLock);
  Changes changes;
  uint64_t last;
  {
    Lock lock(_lock);
    changes = _changes;
    last = _lastChange;
  }
  PreferencesContents contents;
  bool isDamaged;
  const bool done = changes.empty()
                        ? contentsOf(SharedFile::read(_path, kMostPreferencesBytes), contents, isDamaged)
                        : write(changes, contents);
  if (!done) return false;
  Lock lock(_lock);
  _contents.swap(contents);
  std::erase_if(_changes, [last](const auto& change) { return change.second.number <= last; });
  _retryDelay = kFirstRetryDelay;
  return true;
}

bool FilePreferences::write(const Changes& changes, PreferencesContents& contents) const {
  SharedFile file(_path);
  if (!file.isLocked()) return false;
  const SharedFile::Reading reading = SharedFile::read(_path, kMostPreferencesBytes);
  bool isDamaged;
  if (!contentsOf(reading, contents, isDamaged)) return false;
  for (const auto& [key, change] : changes) {
    if (change.value) {
      contents.insert_or_assign(key, change.value);
    } else {
      contents.erase(key);
    }
  }
  const Data bytes = encodedPreferences(contents);
  if (!bytes || (isDamaged && !file.keepAside())) return false;
  // Nothing new, but the one who wrote it may have got no further than that.
  return bytes == reading.bytes ? file.syncFolder() : file.replace(bytes);
}

void FilePreferences::tryAgainLater() {
  TimeInterval delay;
  {
    Lock lock(_lock);
    if (_retryIsDue || _changes.empty()) return;
    _retryIsDue = true;
    delay = _retryDelay;
    _retryDelay = std::min(2 * delay, kLongestRetryDelay);
  }
  Queue::blocking()->postAfter(delay, [weakSelf = weak_from_this()] {
    const auto self = weakSelf.lock();
    if (!self) return;
    {
      Lock lock(self->_lock);
      self->_retryIsDue = false;
      if (self->_changes.empty()) return;
    }
    self->synchronize();
  });
}

}  // namespace nvxcore
