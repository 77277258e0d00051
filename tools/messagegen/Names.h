#pragma once

#include <string>
#include <string_view>

#include "tools/messagegen/Model.h"

/// How names of a schema become names in C++, and back in the text format.
namespace nvxcore::messagegen {

/// Camel case: a capital after "_" and after a digit, "_" itself goes; a capital stays where it follows a
/// small letter, and becomes small after another capital. Empty where nothing is left, and "_" leads where a
/// digit would.
std::string camelCase(std::string_view name, bool capitalFirst);

/// The accessor's name with a capital first letter behind a prefix: `setEventArray`.
std::string prefixedAccessor(std::string_view prefix, std::string_view accessor);

/// A word of C++, or a macro of the platform's headers, that no accessor can be called.
bool isReservedWord(std::string_view name);
/// An operation that every message has.
bool isMessageOperation(std::string_view name);
/// The accessors of such a name would hide an operation of every message, or are no names in C++.
bool accessorCollides(std::string_view accessor);
/// The function that gives an extension would hide one of a message or a root class.
bool extensionAccessorCollides(std::string_view accessor);

/// The final base name of a field's accessors by the rules alone: `event` repeated is `eventArray`, `hash` is
/// `hash_p`.
std::string accessorFor(const Field& field);
/// The name of the static function that gives an extension.
std::string extensionAccessorFor(const Field& field);

/// What the runtime makes of an accessor where no text-format information stands: `eventArray` is event
/// again.
std::string rebuiltTextFormatName(std::string_view accessor, const Field& field);
/// The same for an enum value: `StringPiece` is STRING_PIECE.
std::string rebuiltEnumValueName(std::string_view emittedName);

/// The name that the text format shows for a field.
const std::string& textFormatName(const Field& field);

}  // namespace nvxcore::messagegen
