// URL arguments: any text unescapes to UTF-8 or to nothing, what is escaped comes back, and a dictionary of
// arguments survives the way through its text.

#include <string>

#include "fuzz/support/FuzzInput.h"
#include "nvxcore/platform/Value.h"
#include "nvxcore/transport/transforms/NVXx_HTKURLArguments.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace nvxcore;
  const std::string_view text(reinterpret_cast<const char*>(data), size);

  const std::string escaped = NVXx_htk_stringByEscapingForURLArgument(text);
  for (const char c : escaped)
    NVX_MUST_HOLD(c > ' ' && c < 127 && c != '+' && c != '&' && c != '=' && c != '#');
  const auto back = NVXx_htk_stringByUnescapingFromURLArgument(escaped);
  NVX_MUST_HOLD(!back || *back == text);
  const auto plain = NVXx_htk_stringByUnescapingFromURLArgument(text);
  if (plain) {
    NVX_MUST_HOLD(plain->size() <= text.size());
    const std::string again = NVXx_htk_stringByEscapingForURLArgument(*plain);
    NVX_MUST_HOLD(NVXx_htk_stringByUnescapingFromURLArgument(again) == plain);
  }

  const Dictionary arguments = NVXx_htk_dictionaryWithHttpArgumentsString(text);
  const std::string written = NVXx_htk_httpArgumentsString(arguments);
  const Dictionary read = NVXx_htk_dictionaryWithHttpArgumentsString(written);
  NVX_MUST_HOLD(read.size() == arguments.size());
  for (const auto& [key, value] : arguments) {
    const Value* found = read.find(key);
    NVX_MUST_HOLD(found && found->string() && *found->string() == *value.string());
  }
  NVX_MUST_HOLD(NVXx_htk_httpArgumentsString(read) == written);
  return 0;
}
