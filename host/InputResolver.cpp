// SPDX-License-Identifier: Apache-2.0

#include "host/InputResolver.hpp"

#include <fmt/format.h>
#include <glob.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <set>
#include <system_error>

namespace Host {

namespace fs = std::filesystem;

namespace {

constexpr const char* kKnownEndings = ".las, .laz, .xyz, .txt, .csv or .f5";

/// The ending of a name in lower case, without ".gz" behind it.
std::string endingOf(const std::string& path) {
  std::string name = fs::path(path).filename().string();
  std::transform(name.begin(), name.end(), name.begin(),
                 [](unsigned char c) { return c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c; });
  const fs::path lower(name);
  if (lower.extension() != ".gz") return lower.extension().string();
  const std::string inner = lower.stem().extension().string();
  return inner == ".xyz" || inner == ".txt" || inner == ".csv" ? inner : ".gz";
}

/// The kind of a file, from the ending of its name in either case.
std::optional<InputKind> kindOf(const std::string& path) {
  const std::string ending = endingOf(path);
  if (ending == ".f5") return InputKind::Bundles;
  if (ending == ".las" || ending == ".laz") return InputKind::PointClouds;
  if (ending == ".xyz" || ending == ".txt" || ending == ".csv") return InputKind::TextClouds;
  return std::nullopt;
}

/// Whether a file in a folder may as well be about the points as hold some.
bool mayBeNotes(const std::string& path) {
  return kindOf(path) == InputKind::TextClouds && endingOf(path) != ".xyz";
}

/// Leaves out what may be notes, unless a folder has nothing else.
void dropNotes(std::vector<std::string>& files) {
  if (std::all_of(files.begin(), files.end(), mayBeNotes)) return;
  files.erase(std::remove_if(files.begin(), files.end(), mayBeNotes), files.end());
}

/// The paths that a pattern matches, in ascending order.
std::vector<std::string> matchesOf(const std::string& pattern) {
  glob_t found{};
  std::vector<std::string> paths;
  if (::glob(pattern.c_str(), 0, nullptr, &found) == 0) {
    paths.assign(found.gl_pathv, found.gl_pathv + found.gl_pathc);
  }
  ::globfree(&found);
  return paths;
}

/// The files of a known kind in a folder, in ascending order.
Result<std::vector<std::string>> filesIn(const std::string& folder) {
  std::vector<std::string> files;
  std::error_code error;
  fs::directory_iterator entries(folder, error);
  for (; !error && entries != fs::directory_iterator(); entries.increment(error)) {
    const std::string path = entries->path().string();
    if (kindOf(path) && entries->is_regular_file(error)) files.push_back(path);
  }
  if (error) {
    return failedStop(
        fmt::format("{}: cannot read the folder, found \"{}\"", folder, error.message()));
  }
  if (files.empty()) {
    return failedStop(
        fmt::format("{}: nothing to read in the folder, expected {} files", folder, kKnownEndings));
  }
  dropNotes(files);
  std::sort(files.begin(), files.end());
  return files;
}

/// The files that one existing path stands for.
Result<std::vector<std::string>> filesOf(const std::string& path) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (fs::is_directory(status)) return filesIn(path);
  if (!fs::exists(status)) {
    const bool isMissing = status.type() == fs::file_type::not_found;
    return failedStop(path + (isMissing ? ": no such file or folder" : ": " + error.message()));
  }
  if (!kindOf(path)) {
    return usageStop(fmt::format("{}: unknown kind of file, expected {}", path, kKnownEndings));
  }
  if (!fs::is_regular_file(status)) return failedStop(path + ": is no regular file");
  return std::vector<std::string>{path};
}

/// The files that one argument stands for: what exists under the name goes before a pattern.
Result<std::vector<std::string>> expand(const std::string& name) {
  std::error_code error;
  const bool isPattern = name.find_first_of("*?[") != std::string::npos;
  if (!isPattern || fs::exists(name, error)) return filesOf(name);
  std::vector<std::string> files;
  for (const std::string& match : matchesOf(name)) {
    auto found = filesOf(match);
    if (!found.ok()) return found;
    files.insert(files.end(), found->begin(), found->end());
  }
  if (files.empty()) return failedStop(name + ": no file matches the pattern");
  return files;
}

/// The path under which a file is known once, however it was named.
std::string identity(const std::string& path) {
  std::error_code error;
  const fs::path canonical = fs::canonical(path, error);
  return error ? path : canonical.string();
}

}  // namespace

Result<ResolvedInput> resolveInput(const std::vector<std::string>& names) {
  ResolvedInput input;
  std::set<std::string> seen;
  std::optional<std::string> first;
  for (const std::string& name : names) {
    auto files = expand(name);
    if (!files.ok()) return files.stop();
    for (const std::string& file : *files) {
      if (!first) {
        first = file;
        input.kind = *kindOf(file);
      }
      if (*kindOf(file) != input.kind) {
        return usageStop(fmt::format(
            "{}: cannot be read together with {}, expected bundles (.f5), LAS files (.las, .laz) "
            "or text files (.xyz, .txt, .csv), one kind alone",
            file, *first));
      }
      if (!seen.insert(identity(file)).second) continue;
      input.files.push_back(fs::absolute(file).lexically_normal().string());
    }
  }
  if (!first) return usageStop(fmt::format("no input given, expected {} files", kKnownEndings));
  return input;
}

}  // namespace Host
