#include "nvxcore/platform/Exception.h"

#include <utility>

namespace nvxcore {

Exception::Exception(std::string name, std::string reason)
    : _name(std::move(name)), _reason(std::move(reason)), _what(_name + ": " + _reason) {}

Exception::~Exception() = default;

}  // namespace nvxcore
