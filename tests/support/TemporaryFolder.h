#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

namespace nvxcore::testing {

/// A new folder that goes with the object, with all that is in it.
class TemporaryFolder {
 public:
  TemporaryFolder() : _path((std::filesystem::temp_directory_path() / "nvxcore-test-XXXXXX").string()) {
    if (!::mkdtemp(_path.data())) std::abort();
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(_path, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::string& path() const { return _path; }
  std::string operator/(const std::string& name) const { return _path + "/" + name; }

 private:
  std::string _path;
};

}  // namespace nvxcore::testing
