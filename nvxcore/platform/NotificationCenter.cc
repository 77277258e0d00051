#include "nvxcore/platform/NotificationCenter.h"

#include <atomic>
#include <utility>
#include <vector>

#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/Platform.h"

namespace nvxcore {

namespace {

/// One observer; the token that its owner holds.
struct Registration {
  Registration(std::string_view observedName, const void* observedObject, NotificationCenter::Observer called)
      : name(observedName), object(observedObject), observer(std::move(called)) {}

  const std::string name;
  const void* const object;
  const NotificationCenter::Observer observer;
  std::atomic<bool> gone{false};
};
using Registrations = std::vector<std::shared_ptr<Registration>>;

}  // namespace

struct NotificationCenter::State {
  void remove(const std::shared_ptr<Registration>& registration) {
    registration->gone = true;
    std::shared_ptr<const Registrations> before;  // Goes without the lock.
    Lock lock(mutex);
    auto left = std::make_shared<Registrations>(*registrations);
    std::erase(*left, registration);
    before = std::exchange(registrations, std::move(left));
  }

  Mutex mutex;
  // Replaced, never changed: a notification goes through the ones that it found.
  std::shared_ptr<const Registrations> registrations NVX_GUARDED_BY(mutex) =
      std::make_shared<Registrations>();
};

NotificationCenter::NotificationCenter() : _state(std::make_shared<State>()) {}

NotificationCenter::~NotificationCenter() = default;

std::shared_ptr<void> NotificationCenter::addObserver(std::string_view name, const void* object,
                                                      Observer observer) {
  /// Removes the observer with the last copy of the token.
  struct Token {
    std::shared_ptr<Registration> registration;
    std::weak_ptr<State> state;
    ~Token() {
      if (const auto center = state.lock()) center->remove(registration);
    }
  };
  auto registration = std::make_shared<Registration>(name, object, std::move(observer));
  auto token = std::make_shared<Token>();
  token->registration = registration;
  token->state = _state;
  std::shared_ptr<const Registrations> before;
  {
    Lock lock(_state->mutex);
    auto more = std::make_shared<Registrations>(*_state->registrations);
    more->push_back(std::move(registration));
    before = std::exchange(_state->registrations, std::move(more));
  }
  return token;
}

void NotificationCenter::post(const Notification& notification) {
  std::shared_ptr<const Registrations> registrations;
  {
    Lock lock(_state->mutex);
    registrations = _state->registrations;
  }
  for (const auto& registration : *registrations) {
    if (registration->gone || registration->name != notification.name) continue;
    if (registration->object && registration->object != notification.object.get()) continue;
    if (registration->observer) registration->observer(notification);
  }
}

NotificationCenter& NotificationCenter::defaultCenter() { return *Platform::current().notificationCenter; }

}  // namespace nvxcore
