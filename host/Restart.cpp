// SPDX-License-Identifier: Apache-2.0

#include "host/Restart.hpp"

#include <fmt/format.h>

#include <filesystem>
#include <system_error>

#include "host/NumberText.hpp"
#include "operation/TileFiles.hpp"

namespace Host {

namespace fs = std::filesystem;

namespace {

constexpr const char* kRemedy = "--force deletes them, or choose another --output";

/// Whether two paths name the same thing, which exists.
bool isSame(const fs::path& a, const fs::path& b) {
  std::error_code error;
  return fs::equivalent(a, b, error) && !error;
}

/// Where a bundle that was split to `file` has its tiles, unless told otherwise.
fs::path usualTileFolder(const fs::path& file) {
  return file.parent_path() / LidarLib::fileStem(file.string());
}

/// Whether the tiles in the output's folder belong to an input bundle.
bool ownsTiles(const std::string& bundle, const OutputPlace& place) {
  const auto plan = readPlanFile(planFilePath(place.tileFolder));
  if (plan.ok() && isSame(bundle, plan->output)) return true;
  return isSame(usualTileFolder(bundle), place.tileFolder);
}

Check checkFile(const OutputPlace& place, InputKind kind, const std::string& file) {
  if (isSame(file, place.file)) {
    return usageStop(file + ": is both input and output, choose another --output");
  }
  if (isSame(fs::path(file).parent_path(), place.tileFolder)) {
    return usageStop(file + ": lies where the tiles would go, choose another --output");
  }
  if (kind == InputKind::Bundles && ownsTiles(file, place)) {
    return usageStop(
        fmt::format("{}: its own tiles are in {}, where the new ones would go, choose another "
                    "--output",
                    file, place.tileFolder));
  }
  return std::monostate{};
}

Check remove(const std::string& path) {
  std::error_code error;
  fs::remove(path, error);
  if (!error) return std::monostate{};
  return failedStop(fmt::format("{}: cannot be deleted, found \"{}\"", path, error.message()));
}

}  // namespace

Check checkInputIsSafe(const OutputPlace& place, const ResolvedInput& input) {
  for (const std::string& file : input.files) {
    Check check = checkFile(place, input.kind, file);
    if (!check.ok()) return check;
  }
  return std::monostate{};
}

Result<StartKind> judgeExisting(const OutputPlace& place, const PlanRecord& wanted) {
  const std::size_t tileCount = listTileFiles(place.tileFolder).size();
  const auto plan = readPlanFile(planFilePath(place.tileFolder));
  const std::string difference = plan.ok() ? planDifference(*plan, wanted) : "";
  if (plan.ok() && difference.empty()) return StartKind::Resumed;
  if (tileCount != 0 && plan.ok()) {
    return failedStop(fmt::format("{}: holds {} of another plan ({}); {}", place.tileFolder,
                                  countText(tileCount, "tile"), difference, kRemedy));
  }
  if (tileCount != 0) {
    return failedStop(fmt::format("{}: holds {} of an unknown plan ({}); {}", place.tileFolder,
                                  countText(tileCount, "tile"), plan.error(), kRemedy));
  }
  std::error_code error;
  if (fs::exists(place.file, error)) {
    return failedStop(place.file + ": exists already; --force replaces it");
  }
  return StartKind::Fresh;
}

Check deleteExisting(const OutputPlace& place) {
  std::vector<std::string> paths{place.file, planFilePath(place.tileFolder)};
  for (const std::string& name : listTileFiles(place.tileFolder)) {
    paths.push_back(place.tileFolder + "/" + name);
  }
  for (const std::string& path : paths) {
    Check check = remove(path);
    if (!check.ok()) return check;
  }
  return std::monostate{};
}

}  // namespace Host
