#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "nvxcore/message/NVXx_PBGeneratedMessage.h"
#include "nvxcore/message/NVXx_PBRef.h"
#include "nvxcore/platform/Date.h"
#include "nvxcore/platform/Error.h"
#include "nvxcore/platform/Export.h"

/// Whole messages in files and in texts. Any thread, as far as the messages and the file system allow it: two
/// who save to one path at a time interleave.
namespace nvxcore {

/// The message in the file: nothing where there is no file, where it is a directory, and where its bytes are
/// no message. A file that can't be read gives an empty message. `modTime`, where it isn't null, gets the
/// file's modification date, also when its bytes are no message; it is left as it is when there is no file.
/// Blocks.
NVXCORE_EXPORT Ref<NVXx_PBGeneratedMessage> NVXLoadProtoModTime(const PBClass& messageClass,
                                                                std::string_view path, Date* modTime);
NVXCORE_EXPORT Ref<NVXx_PBGeneratedMessage> NVXLoadProto(const PBClass& messageClass, std::string_view path);
/// Writes the message into the file, which is made or emptied for it: not atomically, so that a failure in
/// the middle leaves a part. False when writing fails; an empty message has nothing to fail with. Blocks.
NVXCORE_EXPORT bool NVXSaveProto(const NVXx_PBGeneratedMessage& message, std::string_view path);

/// As `mergeFrom`, but a repeated field with elements replaces the destination's, all the way down; unknown
/// fields and extensions stay as they are. Does nothing unless both are of one class.
NVXCORE_EXPORT void NVXMergeProtoIntoProto(const NVXx_PBGeneratedMessage& source,
                                           NVXx_PBGeneratedMessage& destination);

/// The message, where there is one. Else throws NSInternalInconsistencyException for an error, and answers
/// nothing without one.
NVXCORE_EXPORT Ref<NVXx_PBGeneratedMessage> NVXRaiseExceptionOnParseError(
    Ref<NVXx_PBGeneratedMessage> message, const Error& error);

/// The serialised message in the URL-safe Base64 of RFC 4648, section 5, without padding. Nothing for no
/// message. An empty message throws NSRangeException: it can't be told from no text.
NVXCORE_EXPORT std::optional<std::string> NVXWebsafeEncodeProto(const NVXx_PBGeneratedMessage* message);
/// The same behind a "0".
NVXCORE_EXPORT std::string NVXWebsafeEncodeAndPrefixProto(const NVXx_PBGeneratedMessage& message);
/// Takes both alphabets of Base64, with padding or without. What is no Base64 is read as no bytes, which is
/// an empty message; bytes that are no message give nothing, and the error. A prefix is the caller's to
/// strip.
NVXCORE_EXPORT Ref<NVXx_PBGeneratedMessage> NVXWebsafeDecodeProto(const PBClass& messageClass,
                                                                  std::string_view string, Error* error);
/// Throws NSInternalInconsistencyException where that gives an error.
NVXCORE_EXPORT Ref<NVXx_PBGeneratedMessage> NVXDeprecatedWebsafeDecodeProto(const PBClass& messageClass,
                                                                            std::string_view string);

// The same, typed.

template <class T>
Ref<T> NVXLoadProtoModTime(std::string_view path, Date* modTime) {
  return Ref<T>::adopt(static_cast<T*>(NVXLoadProtoModTime(T::messageClass(), path, modTime).take()));
}
template <class T>
Ref<T> NVXLoadProto(std::string_view path) {
  return Ref<T>::adopt(static_cast<T*>(NVXLoadProto(T::messageClass(), path).take()));
}
template <class T>
Ref<T> NVXWebsafeDecodeProto(std::string_view string, Error* error) {
  return Ref<T>::adopt(static_cast<T*>(NVXWebsafeDecodeProto(T::messageClass(), string, error).take()));
}
template <class T>
Ref<T> NVXDeprecatedWebsafeDecodeProto(std::string_view string) {
  return Ref<T>::adopt(static_cast<T*>(NVXDeprecatedWebsafeDecodeProto(T::messageClass(), string).take()));
}

}  // namespace nvxcore
