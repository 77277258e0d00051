#pragma once

#include <string>

#include "tools/messagegen/Diagnostics.h"
#include "tools/messagegen/Model.h"
#include "tools/messagegen/Tables.h"

namespace nvxcore::messagegen {

/// `folder/places.proto` gives `folder/places.pb.h` and `folder/places.pb.cc`.
std::string headerPath(const File& file);
std::string sourcePath(const File& file);

/// For code that becomes a part of a shared library: what stands before the names that are to be seen outside
/// of it, and the header that defines it. Both empty where everything is seen.
struct ExportMacro {
  std::string macro;
  std::string header;
};

/// The text of the header and of the source for a resolved file. The same file always gives the same text.
std::string emitHeader(const File& file, const Tables& tables, const ExportMacro& exportMacro);
std::string emitSource(const File& file, const Tables& tables);

}  // namespace nvxcore::messagegen
