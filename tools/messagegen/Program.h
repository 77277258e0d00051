#pragma once

#include <string>
#include <vector>

namespace nvxcore::messagegen {

/// What a run has to say, and what it ends with: 0 when all was written, 1 for errors in sources or files, 2
/// for a command line that it does not understand.
struct Outcome {
  int status = 0;
  std::string output;
  std::string errors;
};

/// Runs the generator with the arguments behind the program's name.
Outcome run(const std::vector<std::string>& arguments);

}  // namespace nvxcore::messagegen
