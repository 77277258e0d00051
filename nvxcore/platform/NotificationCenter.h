#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "nvxcore/platform/Dictionary.h"
#include "nvxcore/platform/Export.h"

namespace nvxcore {

/// A named event about an object. `object` is for comparison, and points to what the name says; may be empty.
struct Notification {
  std::string name;
  std::shared_ptr<const void> object;
  Dictionary userInfo;
};

/// Hands notifications to observers, on the thread that posts, in the order of their registration.
/// All operations may be called on any thread, also from an observer.
class NVXCORE_EXPORT NotificationCenter {
 public:
  using Observer = std::function<void(const Notification&)>;

  NotificationCenter();
  virtual ~NotificationCenter();

  /// Calls `observer` for each notification with that name, and of that object unless `object` is null, until
  /// the returned token goes. A call under way on another thread may still end after that.
  [[nodiscard]] virtual std::shared_ptr<void> addObserver(std::string_view name, const void* object,
                                                          Observer observer);
  virtual void post(const Notification& notification);
  /// Whether anybody would be told of a notification with that name: nobody need prepare one otherwise.
  virtual bool hasObserver(std::string_view name) const;

  /// The one of the platform in force.
  static NotificationCenter& defaultCenter();

 private:
  struct State;
  std::shared_ptr<State> _state;
};

}  // namespace nvxcore
