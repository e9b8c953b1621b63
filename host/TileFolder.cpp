// SPDX-License-Identifier: Apache-2.0

#include "host/TileFolder.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "operation/TileFiles.hpp"

namespace Host {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kEnding = ".f5";

std::string absolutePath(const std::string& path) {
  return fs::absolute(path).lexically_normal().string();
}

/// The problem with an output name; empty when there is none.
std::string nameProblem(const std::string& output) {
  const std::string name = fs::path(output).filename().string();
  if (!name.ends_with(kEnding)) return "does not end in .f5";
  if (name.find('\\') != std::string::npos) return "holds a \\";
  const std::string stem = LidarLib::fileStem(name);
  if (stem.empty() || stem.front() == '.') return "has no stem that could name a folder";
  return {};
}

/// The path without a slash at its end.
std::string withoutEndSlash(std::string path) {
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  return path;
}

/// Takes a run of digits off the front; false when there is none.
bool takeDigits(std::string_view& text) {
  const std::size_t end = std::min(text.find_first_not_of("0123456789"), text.size());
  text.remove_prefix(end);
  return end != 0;
}

bool takeLetter(std::string_view& text, char letter) {
  if (!text.starts_with(letter)) return false;
  text.remove_prefix(1);
  return true;
}

}  // namespace

Result<OutputPlace> settleOutputPlace(const std::string& output, const std::string& directory) {
  const std::string problem = nameProblem(output);
  if (!problem.empty()) {
    return usageStop(
        fmt::format("--output: \"{}\" {}, expected a name such as out.f5", output, problem));
  }
  OutputPlace place;
  place.file = absolutePath(output);
  const std::string parent = fs::path(place.file).parent_path().string();
  place.directory = directory.empty() ? parent : withoutEndSlash(absolutePath(directory));
  place.tileFolder = (fs::path(place.directory) / LidarLib::fileStem(place.file)).string();
  std::error_code error;
  if (fs::is_directory(place.file, error)) {
    return failedStop(place.file + ": is a folder, expected a file to write");
  }
  if (fs::exists(place.tileFolder, error) && !fs::is_directory(place.tileFolder, error)) {
    return failedStop(place.tileFolder + ": is a file, expected a folder for the tiles");
  }
  return place;
}

std::string nearestFolder(const OutputPlace& place) {
  fs::path folder = place.directory;
  std::error_code ignored;
  while (!fs::is_directory(folder, ignored) && folder.has_relative_path()) {
    folder = folder.parent_path();
  }
  return folder.string();
}

Check makeFolders(const OutputPlace& place) {
  const std::string outputFolder = fs::path(place.file).parent_path().string();
  for (const std::string& folder : {outputFolder, place.tileFolder}) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) {
      return failedStop(
          fmt::format("{}: cannot make the folder, found \"{}\"", folder, error.message()));
    }
    if (::access(folder.c_str(), W_OK | X_OK) != 0) {
      return failedStop(folder + ": the folder cannot be written to");
    }
  }
  return std::monostate{};
}

bool isTileFileName(const std::string& name) {
  std::string_view rest = name;
  if (!takeLetter(rest, 'F') || !takeDigits(rest) || !takeLetter(rest, 'x') || !takeDigits(rest) ||
      !takeLetter(rest, 'x') || !takeDigits(rest) || !takeLetter(rest, 'T')) {
    return false;
  }
  const std::size_t grid = rest.find('G');
  return grid != std::string_view::npos && grid != 0 && rest.ends_with(kEnding) &&
         rest.size() > grid + 1 + kEnding.size();
}

std::vector<std::string> listTileFiles(const std::string& folder) {
  std::vector<std::string> names;
  std::error_code error;
  fs::directory_iterator entries(folder, error);
  for (; !error && entries != fs::directory_iterator(); entries.increment(error)) {
    std::string name = entries->path().filename().string();
    if (isTileFileName(name)) names.push_back(std::move(name));
  }
  std::sort(names.begin(), names.end());
  return names;
}

Result<WorkingFolder> WorkingFolder::enter(const std::string& folder) {
  std::error_code error;
  std::string former = fs::current_path(error).string();
  if (!error) fs::current_path(folder, error);
  if (error) {
    return failedStop(
        fmt::format("{}: cannot enter the folder, found \"{}\"", folder, error.message()));
  }
  return WorkingFolder(std::move(former));
}

WorkingFolder::~WorkingFolder() {
  std::error_code ignored;  // nothing could be done about it here
  if (!former_.empty()) fs::current_path(former_, ignored);
}

}  // namespace Host
