#include "nvxcore/transport/NVXx_HTKUserAgent.h"

#include <array>
#include <map>

#include "nvxcore/platform/DeviceFacts.h"
#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/Platform.h"
#include "nvxcore/platform/Value.h"

namespace nvxcore {

namespace {

std::string nonEmptyString(const Dictionary& dictionary, std::string_view key) {
  const std::string* text = dictionary.get(key).string();
  return text ? *text : std::string();
}

/// White space and line breaks of Unicode that take more than one byte.
size_t whiteSpaceLength(std::string_view text) {
  static constexpr std::array<std::string_view, 19> kSpaces = {
      "\u0085", "\u00A0", "\u1680", "\u2000", "\u2001", "\u2002", "\u2003", "\u2004", "\u2005", "\u2006",
      "\u2007", "\u2008", "\u2009", "\u200A", "\u2028", "\u2029", "\u202F", "\u205F", "\u3000"};
  for (std::string_view space : kSpaces) {
    if (text.starts_with(space)) return space.size();
  }
  return 0;
}

std::string makeApplicationIdentifier(const ApplicationFacts& bundle) {
  const Dictionary info = bundle.infoDictionary();
  std::string name = nonEmptyString(info, "HTKUserAgentID");
  if (name.empty()) {
    name = bundle.bundleIdentifier();
    if (name.empty()) name = "proc_" + bundle.processName();
    name = NVXx_HTKFetcherCleanedUserAgentString(name);
  }
  std::string version = nonEmptyString(info, "CFBundleShortVersionString");
  if (version.empty()) version = nonEmptyString(info, "CFBundleVersion");
  version = NVXx_HTKFetcherCleanedUserAgentString(version);
  return version.empty() ? name : name + "/" + version;
}

}  // namespace

std::string NVXx_HTKFetcherCleanedUserAgentString(std::string_view text) {
  static constexpr std::string_view kDropped = "()<>@;:\\\"/[]?={}\t\n\v\f\r";
  std::string result;
  while (!text.empty()) {
    const char c = text.front();
    const size_t space = static_cast<unsigned char>(c) >= 0x80 ? whiteSpaceLength(text) : 0;
    if (c == ' ' || c == ',') {
      result += '_';
    } else if (!space && kDropped.find(c) == std::string_view::npos) {
      result += c;
    }
    text.remove_prefix(space ? space : 1);
  }
  return result;
}

std::string NVXx_HTKFetcherSystemVersionString() {
  const DeviceFacts& device = *Platform::current().device;
  std::string hardware = NVXx_HTKFetcherCleanedUserAgentString(device.machine());
  if (hardware.empty()) hardware = "unk";
  return NVXx_HTKFetcherCleanedUserAgentString(device.model()) + "/" + device.systemVersion() + " hw/" +
         hardware;
}

std::string NVXx_HTKFetcherApplicationIdentifier(const ApplicationFacts* bundle) {
  static auto* lock = new Mutex;
  static auto* known = new std::map<std::string, std::string>;
  const ApplicationFacts& facts = bundle ? *bundle : *Platform::current().application;
  const std::string key = facts.bundleIdentifier();
  {
    Lock held(*lock);
    auto it = known->find(key);
    if (it != known->end()) return it->second;
  }
  // The facts are host code, so they are asked outside the lock; two who ask at once make the same text.
  std::string identifier = makeApplicationIdentifier(facts);
  Lock held(*lock);
  return known->emplace(key, std::move(identifier)).first->second;
}

std::string NVXx_HTKFetcherStandardUserAgentString(const ApplicationFacts* bundle) {
  return NVXx_HTKFetcherApplicationIdentifier(bundle) + " " + NVXx_HTKFetcherSystemVersionString();
}

}  // namespace nvxcore
