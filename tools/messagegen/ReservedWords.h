#pragma once

#include <string_view>

namespace nvxcore::messagegen {

/// A field whose accessor would be one of these gets `_p` behind it. The list is published in
/// docs/messagegen.md, and only grows: each word decides the names in somebody's code.
inline constexpr std::string_view kReservedWords[] = {
    // Words of C++, and those that mean something to it in some place.
    "alignas", "alignof", "and", "and_eq", "asm", "atomic_cancel", "atomic_commit", "atomic_noexcept", "auto",
    "bitand", "bitor", "bool", "break", "case", "catch", "char", "char8_t", "char16_t", "char32_t", "class",
    "co_await", "co_return", "co_yield", "compl", "concept", "const", "const_cast", "consteval", "constexpr",
    "constinit", "continue", "decltype", "default", "delete", "do", "double", "dynamic_cast", "else", "enum",
    "explicit", "export", "extern", "false", "final", "float", "for", "friend", "goto", "if", "import",
    "inline", "int", "long", "module", "mutable", "namespace", "new", "noexcept", "not", "not_eq", "nullptr",
    "operator", "or", "or_eq", "override", "private", "protected", "public", "reflexpr", "register",
    "reinterpret_cast", "requires", "restrict", "return", "short", "signed", "sizeof", "static",
    "static_assert", "static_cast", "struct", "switch", "synchronized", "template", "this", "thread_local",
    "throw", "true", "try", "typedef", "typeid", "typename", "typeof", "union", "unsigned", "using",
    "virtual", "void", "volatile", "wchar_t", "while", "xor", "xor_eq",
    // Types that generated code is written with.
    "int32_t", "int64_t", "std", "uint32_t", "uint64_t",
    // Words that names of the schema's other users keep clear of.
    "id", "in", "nil", "out", "self", "super",
    // Macros of the C library's and the system's headers.
    "alloca", "assert", "bcopy", "bzero", "errno", "fpclassify", "gnu_dev_major", "gnu_dev_makedev",
    "gnu_dev_minor", "htonl", "htons", "i386", "isfinite", "isgreater", "isinf", "isless", "isnan",
    "isnormal", "isunordered", "linux", "major", "makedev", "minor", "ntohl", "ntohs", "offsetof", "setjmp",
    "sigaction", "sigmask", "signbit", "stderr", "stdin", "stdout", "unix"};

/// The operations of every message, by the names that an accessor would hide.
inline constexpr std::string_view kMessageOperations[] = {
    // Of every object.
    "autorelease", "class", "copy", "dealloc", "debugDescription", "description", "hash", "init", "isEqual",
    "isa", "load", "mutableCopy", "new", "release", "retain", "retainCount", "superclass", "zone",
    // Of every message.
    "addExtension", "addExtensionValue", "autocreator", "classOfMessage", "clear", "clearAutocreator",
    "clearExtension", "clearExtensionField", "copyFieldsInto", "copyWithZone", "data", "deepCopy",
    "delimitedData", "descriptor", "descriptorOfMessage", "encodeWithCoder", "extensionRegistry",
    "extensionsCurrentlySet", "extensionsSerializedSize", "getExistingExtension", "getExtension",
    "getExtensionValue", "globallyRegisterExtension", "hasExtension", "hasExtensionField", "hasValueForName",
    "initWithCoder", "isInitialized", "mergeDelimitedFromCodedInputStream", "mergeFrom",
    "mergeFromCodedInputStream", "mergeFromData", "mergeUnknownFields", "message", "messageClass",
    "mutableCopyWithZone", "mutableUnknownFields", "newMessageWithAutocreator",
    "parseDelimitedFromCodedInputStream", "parseFromCodedInputStream", "parseFromData", "parseMessageSet",
    "parseUnknownField", "serializedSize", "setExtension", "setExtensionValue", "setUnknownFields",
    "setValueForName", "sortedExtensionsInUse", "supportsSecureCoding", "unknownFields", "valueForName",
    "wasAutocreatedBy", "writeDelimitedToCodedOutputStream", "writeDelimitedToOutputStream",
    "writeExtensionsToCodedOutputStream", "writeField", "writeToCodedOutputStream", "writeToOutputStream"};

/// The operations of root classes, which the functions for extensions keep clear of too.
inline constexpr std::string_view kRootOperations[] = {"extensionNamed", "file"};

}  // namespace nvxcore::messagegen
