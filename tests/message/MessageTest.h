#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "nvxcore/message/NVXx_PBGeneratedMessage.h"
#include "nvxcore/platform/Data.h"
#include "nvxcore/platform/Exception.h"
#include "tests/support/NVXTest.h"

namespace nvxcore::testing {

/// Bytes from hexadecimal digits; blanks don't count.
std::string fromHex(std::string_view hex);
std::string toHex(std::string_view bytes);
inline Data bytesOf(std::string_view hex) { return Data::copy(fromHex(hex)); }

/// What a call throws, as "name: reason"; empty when it returns.
std::string thrownBy(const std::function<void()>& call);

/// The bytes of a file of golden bytes: hexadecimal digits, with comments from "#" to the end of the line.
std::string goldenBytes(std::string_view name);

class MessageTest : public NVXTest {};

}  // namespace nvxcore::testing
