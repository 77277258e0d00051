#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>

#include "nvxcore/platform/Exception.h"
#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/Preferences.h"
#include "nvxcore/platform/internal/PreferencesFile.h"

namespace nvxcore::testing {

/// Preferences that end with the object.
class InMemoryPreferences final : public Preferences {
 public:
  Value objectForKey(std::string_view key) override {
    Lock lock(_lock);
    auto entry = _values.find(key);
    return entry == _values.end() ? Value() : entry->second;
  }
  void setObject(Value value, std::string_view key) override {
    if (!canBePreference(value)) throw Exception(kInvalidArgumentException, "can't be kept");
    Lock lock(_lock);
    if (value) {
      _values.insert_or_assign(std::string(key), std::move(value));
    } else if (auto entry = _values.find(key); entry != _values.end()) {
      _values.erase(entry);
    }
  }
  bool synchronize() override {
    Lock lock(_lock);
    ++_synchronizations;
    return true;
  }
  size_t synchronizations() const {
    Lock lock(_lock);
    return _synchronizations;
  }

 private:
  mutable Mutex _lock;
  PreferencesContents _values NVX_GUARDED_BY(_lock);
  size_t _synchronizations NVX_GUARDED_BY(_lock) = 0;
};

class InMemoryPreferencesService final : public PreferencesService {
 public:
  std::shared_ptr<Preferences> standardPreferences() override { return at("standard"); }
  std::shared_ptr<Preferences> preferencesWithSuiteName(std::string_view name) override {
    return at("suite " + std::string(name));
  }
  std::shared_ptr<Preferences> preferencesForApplicationGroup(std::string_view group) override {
    return at("group " + std::string(group));
  }
  URL containerForApplicationGroup(std::string_view group) override {
    return URL::fileURLWithPath("/groups/" + std::string(group));
  }

 private:
  std::shared_ptr<Preferences> at(const std::string& name) {
    Lock lock(_lock);
    std::shared_ptr<Preferences>& known = _known[name];
    if (!known) known = std::make_shared<InMemoryPreferences>();
    return known;
  }

  Mutex _lock;
  std::map<std::string, std::shared_ptr<Preferences>> _known NVX_GUARDED_BY(_lock);
};

}  // namespace nvxcore::testing
