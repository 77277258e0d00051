#include "tools/messagegen/TextFormatInfo.h"

#include <algorithm>

#include "tools/messagegen/Text.h"
#include "tools/messagegen/Wire.h"

namespace nvxcore::messagegen {

namespace {

constexpr size_t kLongestRun = 31;

enum Taking : uint8_t { kAsItIs = 0x00, kFirstSmall = 0x20, kFirstCapital = 0x40, kAllCapital = 0x60 };

/// How much of `wanted` a run from the start of `name` gives.
size_t runLength(std::string_view name, std::string_view wanted, Taking taking) {
  const size_t longest = std::min({name.size(), wanted.size(), kLongestRun});
  size_t length = 0;
  while (length < longest) {
    char c = name[length];
    if (taking == kAllCapital || (taking == kFirstCapital && length == 0)) c = toUpper(c);
    if (taking == kFirstSmall && length == 0) c = toLower(c);
    if (c != wanted[length]) break;
    ++length;
  }
  return length;
}

}  // namespace

std::optional<std::string> textFormatSteps(std::string_view name, std::string_view wanted) {
  std::string steps;
  while (!wanted.empty()) {
    uint8_t step = 0;
    if (wanted[0] == '_' && (name.empty() || name[0] != '_')) {
      step = 0x80;
      wanted.remove_prefix(1);
    }
    size_t best = 0;
    Taking how = kAsItIs;
    for (Taking taking : {kAsItIs, kFirstSmall, kFirstCapital, kAllCapital}) {
      const size_t length = runLength(name, wanted, taking);
      if (length > best) {
        best = length;
        how = taking;
      }
    }
    if (best == 0 && step == 0) return std::nullopt;
    steps += static_cast<char>(step | how | best);
    name.remove_prefix(best);
    wanted.remove_prefix(best);
  }
  return steps;
}

std::optional<std::string> encodeTextFormatInfo(const std::map<uint32_t, TextFormatEntry>& entries) {
  if (entries.empty()) return std::string();
  std::string info;
  std::map<uint32_t, std::string_view> asTheyStand;
  uint32_t count = 0;
  for (const auto& [key, entry] : entries) {
    const std::optional<std::string> steps = textFormatSteps(entry.name, entry.wanted);
    if (!steps) {
      asTheyStand[key] = entry.wanted;
      continue;
    }
    appendVarint(key, info);
    info += *steps;
    info += '\0';
    ++count;
  }
  bool hidden = false;
  const auto write = [&](uint32_t key, std::string_view wanted) {
    appendVarint(key, info);
    info += '\0';
    info += wanted;
    info += '\0';
    // What a reader takes the name before for counts too.
    count += hidden ? 2 : 1;
    hidden = true;
  };
  // Only keys that are the number of a letter can be hidden: these few go first, each before what would hide
  // it.
  std::map<uint32_t, std::string_view> letters;
  for (const auto& [key, wanted] : asTheyStand) {
    if (key < 0x80 && isLetter(static_cast<char>(key))) letters[key] = wanted;
  }
  for (const auto& [key, wanted] : letters) asTheyStand.erase(key);
  while (!letters.empty()) {
    const auto next = std::find_if(letters.begin(), letters.end(), [&](const auto& one) {
      const auto letter = static_cast<unsigned char>(one.second[0]);
      return letter == one.first || letters.count(letter) == 0;
    });
    if (next == letters.end()) return std::nullopt;
    write(next->first, next->second);
    letters.erase(next);
  }
  for (const auto& [key, wanted] : asTheyStand) write(key, wanted);
  std::string result;
  appendVarint(count, result);
  return result + info;
}

}  // namespace nvxcore::messagegen
