// The folder that a server serves resources and client parameters from. It is read anew for each request, so
// that what is changed in it shows at once.
//
//   resources/     one file for each resource; the path of its URL is its path there, host and query aside
//   parameters/    one file for each parameter group: NAME.txt in text format, or NAME.pb serialised
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/geoserver/messages/WireMessage.h"

namespace nvxcore::geoserver {

// FNV-1a of 64 bits: what the server tells of contents, so that a client can ask whether they have changed.
uint64_t contentHash(std::string_view bytes);

// Loop thread, but for the constructor.
class ContentFolder {
 public:
  static constexpr uint64_t kLargestFile = 64 * 1024 * 1024;

  // Throws std::system_error when there is no such folder. An empty path is a folder without anything.
  explicit ContentFolder(const std::string& path);

  // Each answers a request; what it finds worth telling goes to `notes`.
  //
  // One Response for the URL: 200 with body, hash and content type, 304 without a body when the request has
  // the hash, 404 for what is not there or not beneath the folder, 413 for a file of more than 64 MiB.
  WireMessage answerResource(const WireMessage& request, std::vector<std::string>& notes) const;
  // A group for each that was asked for, in that order, or for every file when none was. Without a hash, and
  // so unchanged for the client: one whose hash the request has, and one that no file has.
  WireMessage answerParameters(const WireMessage& request, std::vector<std::string>& notes) const;

  // The parameter groups of all files, each with type and hash; what can't be read is left out and noted.
  std::vector<WireMessage> parameterGroups(std::vector<std::string>& notes) const;

 private:
  struct File {
    int code = 404;
    std::string bytes;
  };

  // A regular file beneath the folder, symbolic links resolved.
  File read(const std::string& relativePath, std::vector<std::string>& notes) const;

  std::string _root;  // with symbolic links resolved; empty without a folder
};

// The path of a resource beneath its folder; nothing when the URL's path has no file's name, or has parts
// that lead elsewhere. Escapes are decoded.
std::optional<std::string> resourcePath(std::string_view url);

// By the ending of a file's name.
const char* contentTypeOf(std::string_view path);

}  // namespace nvxcore::geoserver
