#include "tools/messagegen/Program.h"

#include <filesystem>
#include <map>
#include <optional>
#include <system_error>

#include "tools/messagegen/Emitter.h"
#include "tools/messagegen/Loader.h"
#include "tools/messagegen/OutputFiles.h"
#include "tools/messagegen/Resolver.h"

namespace nvxcore::messagegen {

namespace {

constexpr const char* kUsage =
    "usage: nvxcore-messagegen --out DIR [-I DIR]... [--depfile FILE] FILE.proto...\n"
    "\n"
    "Writes a header and a source with message classes for each file: FILE.pb.h and FILE.pb.cc below DIR, in "
    "the folder\n"
    "that the file has below its import folder.\n"
    "\n"
    "  --out DIR        where to write\n"
    "  -I DIR           a folder that imports, and the files themselves, are looked for in; the present one "
    "if there is\n"
    "                   none; several are searched in their order\n"
    "  --depfile FILE   for build tools: says which files the first header was made from\n"
    "  --export-macro NAME, --export-header HEADER\n"
    "                   for code in a shared library that hides its names: what makes one seen, and where it "
    "is defined\n"
    "  --help           prints this\n"
    "\n"
    "Ends with 0 when all is written; with 1 after errors, told as file:line:column: message, and nothing "
    "written; with 2\n"
    "when the command line is wrong.\n";

struct CommandLine {
  std::string out;
  std::string depfile;
  ExportMacro exportMacro;
  std::vector<std::string> folders;
  std::vector<std::string> files;
};

/// Answers what is wrong, or nothing.
std::string parse(const std::vector<std::string>& arguments, CommandLine& line) {
  for (size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    std::string* value = nullptr;
    std::string folder;
    if (argument == "--out") value = &line.out;
    if (argument == "--depfile") value = &line.depfile;
    if (argument == "--export-macro") value = &line.exportMacro.macro;
    if (argument == "--export-header") value = &line.exportMacro.header;
    if (argument == "-I") value = &folder;
    if (value) {
      if (++i == arguments.size() || arguments[i].empty()) return "expected a value after " + argument;
      *value = arguments[i];
    } else if (argument.compare(0, 2, "-I") == 0) {
      folder = argument.substr(2);
    } else if (argument.compare(0, 1, "-") == 0) {
      return "expected --out, -I, --depfile, --export-macro, --export-header, --help or a file, found " +
             argument;
    } else {
      line.files.push_back(argument);
    }
    if (!folder.empty()) line.folders.push_back(folder);
  }
  if (line.files.empty()) return "expected a file";
  if (line.out.empty()) return "expected --out DIR";
  if (line.folders.empty()) line.folders.push_back(".");
  return "";
}

/// The path as imports would write it: below the first folder that the file stands in.
std::optional<std::string> importPath(const std::string& file, const std::vector<std::string>& folders) {
  namespace fs = std::filesystem;
  std::error_code code;
  const fs::path whole = fs::weakly_canonical(file, code);
  if (code) return std::nullopt;
  for (const std::string& folder : folders) {
    const fs::path base = fs::weakly_canonical(folder, code);
    if (code) continue;
    const fs::path below = whole.lexically_relative(base);
    if (!below.empty() && isImportPath(below.generic_string())) return below.generic_string();
  }
  return std::nullopt;
}

std::string escapedForMake(const std::string& path) {
  std::string result;
  for (char c : path) {
    if (c == ' ' || c == '#' || c == '\\') result += '\\';
    if (c == '$') result += '$';
    result += c;
  }
  return result;
}

}  // namespace

Outcome run(const std::vector<std::string>& arguments) {
  Outcome outcome;
  for (const std::string& argument : arguments) {
    if (argument != "--help" && argument != "-h") continue;
    outcome.output = kUsage;
    return outcome;
  }
  CommandLine line;
  if (const std::string wrong = parse(arguments, line); !wrong.empty()) {
    outcome.status = 2;
    outcome.errors = "nvxcore-messagegen: " + wrong + "\n\n" + kUsage;
    return outcome;
  }
  Diagnostics diagnostics;
  std::map<std::string, std::string> found;
  const auto read = [&](const std::string& path) -> std::optional<std::string> {
    for (const std::string& folder : line.folders) {
      const std::string whole = (std::filesystem::path(folder) / path).string();
      std::string content;
      if (!readFile(whole, Loader::kLargestFile, content)) continue;
      found[path] = whole;
      return content;
    }
    return std::nullopt;
  };
  Loader loader(read, diagnostics);
  std::vector<const File*> wanted;
  for (const std::string& file : line.files) {
    const std::optional<std::string> path = importPath(file, line.folders);
    if (!path) {
      diagnostics.error(file + ": expected a file below an import folder (-I)");
    } else if (const File* loaded = loader.load(*path)) {
      wanted.push_back(loaded);
    }
  }
  // Names that stand in what could not be read would be told as missing.
  if (!diagnostics.failed()) Resolver(diagnostics).resolve(loader.files());
  OutputFiles outputs;
  std::string dependencies;
  for (const File* file : diagnostics.failed() ? std::vector<const File*>() : wanted) {
    const Tables tables = buildTables(*file, diagnostics);
    const std::string header = (std::filesystem::path(line.out) / headerPath(*file)).string();
    outputs.add(header, emitHeader(*file, tables, line.exportMacro));
    outputs.add((std::filesystem::path(line.out) / sourcePath(*file)).string(), emitSource(*file, tables));
    if (dependencies.empty()) dependencies = escapedForMake(header) + ":";
  }
  if (!diagnostics.failed()) {
    for (const auto& [path, whole] : found) dependencies += " \\\n  " + escapedForMake(whole);
    if (!line.depfile.empty()) outputs.add(line.depfile, dependencies + "\n");
    if (const std::string failure = outputs.write(); !failure.empty()) diagnostics.error(failure);
  }
  for (const std::string& error : diagnostics.lines()) outcome.errors += error + "\n";
  outcome.status = diagnostics.failed() ? 1 : 0;
  return outcome;
}

}  // namespace nvxcore::messagegen
