#pragma once

#include <string>

#include "nvxcore/platform/Data.h"

namespace nvxcore {

/// The right to replace a file that several processes share, held for a scope. Writers take turns by a lock
/// on a file beside it, which stays; readers need none, since they see the old bytes or the new ones.
class SharedFile {
 public:
  /// Makes the folder when it is missing, and waits for its turn.
  explicit SharedFile(std::string path);
  ~SharedFile();
  SharedFile(const SharedFile&) = delete;
  SharedFile& operator=(const SharedFile&) = delete;

  /// False when the folder can't be written.
  bool isLocked() const { return _lock >= 0; }
  /// Puts `bytes` in the place of what is there. When it returns true they are on disk.
  bool replace(const Data& bytes);
  /// Gives the file another name, for somebody to look at; an earlier one by that name goes.
  bool keepAside();
  bool syncFolder() const;

  enum class Outcome { Read, Missing, Unreadable };
  struct Reading {
    Outcome outcome = Outcome::Unreadable;
    Data bytes;
  };
  /// Of a file that is longer, `mostBytes` and one more. Needs no lock.
  static Reading read(const std::string& path, size_t mostBytes);

 private:
  const std::string _path;
  const std::string _folder;
  int _lock;
};

}  // namespace nvxcore
