// Messages as readable text, in the manner of the published text format: `name: value` and `name { ... }`,
// one field on a line, in the order in which the fields came. A field that the schema does not know, or that
// came with another wire type, has its number for a name; its value tells the wire type: a plain number is a
// varint, 0x and 8 digits fixed 32, 0x and 16 digits fixed 64, a string length-delimited bytes; a group has
// the word "group" before its brace.
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "tools/geoserver/messages/WireMessage.h"

namespace nvxcore::geoserver {

// Of bytes that are no text only the first `bytesAtMost` are shown, and a comment says how many there are.
std::string textFormat(const WireMessage& message, size_t indent = 0, size_t bytesAtMost = SIZE_MAX);

// A string literal of the text format: UTF-8 stays as it is, of `asBytes` only printable ASCII does.
std::string quoted(std::string_view bytes, bool asBytes);

// Says the line in which the text is wrong.
class TextFormatError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Reads what textFormat writes, and the usual liberties of who writes by hand: comments from # to the line's
// end, ':' before a brace, ',' or ';' behind a field, single quotes, strings in pieces. What is in braces
// behind a number is a message.
WireMessage parseTextFormat(std::string_view text, const MessageSchema& schema);

}  // namespace nvxcore::geoserver
