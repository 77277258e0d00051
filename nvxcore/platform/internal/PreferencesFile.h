#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>

#include "nvxcore/platform/Data.h"
#include "nvxcore/platform/Value.h"

/// The bytes of a preferences file: eight bytes of which the last is the version, the SHA-256 of all that
/// follows, and the entries in the order of their keys. Numbers are big-endian, lengths of four bytes.
namespace nvxcore {

using PreferencesContents = std::map<std::string, Value, std::less<>>;

/// A longer file is neither written nor read.
inline constexpr size_t kMostPreferencesBytes = size_t{64} << 20;

/// Whether a file can hold the value: no error, no object, and dictionaries no deeper than 32.
bool canBePreference(const Value& value);
/// Nothing when it would be too long.
Data encodedPreferences(const PreferencesContents& contents);
/// Nothing when the bytes are not, to the last one, what `encodedPreferences` gives.
std::optional<PreferencesContents> decodedPreferences(const Data& bytes);

}  // namespace nvxcore
