#include "nvxcore/platform/Error.h"

#include <utility>

#include "nvxcore/platform/Value.h"
#include "nvxcore/platform/internal/Pooled.h"

namespace nvxcore {

struct Error::Contents {
  std::string domain;
  int64_t code;
  Dictionary userInfo;
};

Error::Error(std::string_view domain, int64_t code) : Error(domain, code, Dictionary()) {}

Error::Error(std::string_view domain, int64_t code, Dictionary userInfo)
    : _contents(makePooled<Contents>(Contents{std::string(domain), code, std::move(userInfo)})) {}

const std::string& Error::domain() const {
  static const std::string none;
  return _contents ? _contents->domain : none;
}

int64_t Error::code() const { return _contents ? _contents->code : 0; }

const Dictionary& Error::userInfo() const {
  static const Dictionary none;
  return _contents ? _contents->userInfo : none;
}

std::string Error::description() const {
  if (!_contents) return "no error";
  std::string text = _contents->domain + " " + std::to_string(_contents->code);
  for (const auto& [key, value] : _contents->userInfo) {
    text += ", " + key;
    if (const std::string* string = value.string()) {
      text += ": " + *string;
    } else if (Error cause = value.error()) {
      text += ": (" + cause.description() + ")";
    }
  }
  return text;
}

}  // namespace nvxcore
