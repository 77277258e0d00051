#include "nvxcore/connection/CookieStore.h"

#include <cstring>
#include <utility>

#include "nvxcore/connection/internal/SignedCookie.h"
#include "nvxcore/foundation/base/NVXDateProvider.h"

namespace nvxcore::dash {

CookieStore::CookieStore(std::shared_ptr<Preferences> preferences) : _preferences(std::move(preferences)) {}

uint64_t CookieStore::LoadCookie() const {
  const Data bytes = _preferences ? _preferences->dataForKey(kUserCookieKey) : Data();
  SignedCookie record;
  if (bytes.length() < sizeof record) return 0;
  std::memcpy(&record, bytes.bytes(), sizeof record);
  SignedCookie expected;
  expected.version = record.version;
  expected.time = record.time;
  expected.cookie = record.cookie;
  SignCookie(expected);
  return record.digest == expected.digest ? record.cookie : 0;
}

uint64_t CookieStore::SaveCookie(uint64_t cookie) {
  if (!_preferences) return cookie;
  SignedCookie record;
  record.time = NVXSystemDateProvider::systemDateProvider()->timeIntervalSinceReferenceDate();
  record.cookie = cookie;
  SignCookie(record);
  _preferences->setObject(Data::copy(&record, sizeof record), kUserCookieKey);
  _preferences->synchronize();
  return cookie;
}

void CookieStore::DeleteCookie() {
  if (!_preferences) return;
  _preferences->removeObjectForKey(kUserCookieKey);
  _preferences->synchronize();
}

}  // namespace nvxcore::dash
