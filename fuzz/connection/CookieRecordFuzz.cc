// The stored record of the user cookie: any bytes; the same signed; and the signed one with one byte altered.

#include <cstring>
#include <memory>
#include <string>

#include "fuzz/support/FuzzInput.h"
#include "nvxcore/connection/CookieStore.h"
#include "nvxcore/connection/internal/SignedCookie.h"
#include "tests/support/InMemoryPreferences.h"

namespace {

using namespace nvxcore;
using dash::SignedCookie;

uint64_t load(std::string_view bytes) {
  auto preferences = std::make_shared<testing::InMemoryPreferences>();
  preferences->setObject(Data::copy(bytes), dash::kUserCookieKey);
  return dash::CookieStore(preferences).LoadCookie();
}

bool vouchesForItself(std::string_view bytes) {
  SignedCookie record, again;
  if (bytes.size() < sizeof record) return false;
  std::memcpy(&record, bytes.data(), sizeof record);
  again = record;
  dash::SignCookie(again);
  return again.digest == record.digest;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const size_t at = data[0];
  const uint8_t change = data[1];
  const std::string_view bytes(reinterpret_cast<const char*>(data + 2), size - 2);
  NVX_MUST_HOLD(load(bytes) == 0 || vouchesForItself(bytes));

  SignedCookie record;
  if (bytes.size() < sizeof record) return 0;
  std::memcpy(&record, bytes.data(), sizeof record);
  dash::SignCookie(record);
  std::string file(bytes);
  std::memcpy(file.data(), &record, sizeof record);
  NVX_MUST_HOLD(load(file) == record.cookie);
  if (at >= file.size() || change == 0) return 0;
  file[at] ^= static_cast<char>(change);
  const bool counts = at < 2 || (at >= 8 && at < 44);
  NVX_MUST_HOLD(load(file) == (counts ? 0 : record.cookie));
  return 0;
}
