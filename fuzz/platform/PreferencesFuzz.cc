// A preferences file: the bytes as they are, and as entries behind a header that vouches for them. What is
// read must be written the same.

#include <string>

#include "fuzz/support/FuzzInput.h"
#include "nvxcore/platform/Digest.h"
#include "nvxcore/platform/internal/PreferencesFile.h"

namespace {

using namespace nvxcore;

void check(std::string_view bytes) {
  const auto contents = decodedPreferences(Data::copy(bytes));
  if (!contents) return;
  for (const auto& [key, value] : *contents) NVX_MUST_HOLD(value && canBePreference(value));
  NVX_MUST_HOLD(encodedPreferences(*contents).view() == bytes);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  check(input);
  const SHA256Digest digest = sha256({input});
  std::string file("NVXPREF\x01", 8);
  file.append(reinterpret_cast<const char*>(digest.data()), digest.size());
  check(file.append(input));
  return 0;
}
