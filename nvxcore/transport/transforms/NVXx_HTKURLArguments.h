#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "nvxcore/platform/Dictionary.h"
#include "nvxcore/platform/Export.h"

/// The arguments of a URL's query. Any thread.
namespace nvxcore {

/// Percent-encodes (RFC 3986, 2.1) the UTF-8 of all but letters, digits, "-", ".", "_" and "~". A blank is
/// "%20".
NVXCORE_EXPORT std::string NVXx_htk_stringByEscapingForURLArgument(std::string_view string);
/// A plus sign is a blank. Nothing where an escape is malformed, or the result is no UTF-8.
NVXCORE_EXPORT std::optional<std::string> NVXx_htk_stringByUnescapingFromURLArgument(std::string_view string);

/// "a=1&b=2" as strings under their keys, in the order in which they stand there. The first of a repeated key
/// counts; a key without "=", and what can't be unescaped, has the empty string.
NVXCORE_EXPORT Dictionary NVXx_htk_dictionaryWithHttpArgumentsString(std::string_view argString);
/// The way back: keys and descriptions of values, escaped.
NVXCORE_EXPORT std::string NVXx_htk_httpArgumentsString(const Dictionary& dictionary);

}  // namespace nvxcore
