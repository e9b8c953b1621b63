// SPDX-License-Identifier: Apache-2.0

#include "host/PlanFile.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <nlohmann/json.hpp>
#include <span>
#include <system_error>

#include "datamodel/container/AtomicFile.hpp"
#include "datamodel/container/FileDescriptor.hpp"
#include "host/NumberText.hpp"

namespace Host {

using Json = nlohmann::ordered_json;
using MemCore::Failure;
using MemCore::Outcome;

namespace {

constexpr const char* kFormat = "refragment plan";
constexpr int kVersion = 1;

/// Size and modification time: a file that was written anew is another input.
Outcome<std::string> identityOf(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) {
    return Failure{fmt::format("{}: cannot be read, found \"{}\"", path,
                               std::generic_category().message(errno))};
  }
  return fmt::format("{} ({} bytes, modified {}.{:09})", path, status.st_size,
                     status.st_mtim.tv_sec, status.st_mtim.tv_nsec);
}

std::string pointText(const std::optional<Eagle::PhysicalSpace::point>& point) {
  if (!point) return "none";
  return fmt::format("{},{},{}", point->x, point->y, point->z);
}

std::string storageText(Fiber::StorageKind kind) {
  switch (kind) {
    case Fiber::StorageKind::Grid:
      return "grid";
    case Fiber::StorageKind::Deflate:
      return "deflate";
    case Fiber::StorageKind::Raw:
      return "raw";
  }
  return "unknown";
}

std::string fieldsText(const SplitOptions& options) {
  std::string text;
  for (const std::string& field : options.filters.fields) {
    text += (text.empty() ? "" : ",") + field;
  }
  if (text.empty()) text = "all";
  return text + (options.keepOrder ? " in known order" : "");
}

std::string gridText(const LidarLib::TilingLayout& layout) {
  const auto& length = layout.fragmentLength;
  const auto& origin = layout.origin;
  return fmt::format("{} x {} x {} tiles of {} x {} x {} from {},{},{}", layout.nx, layout.ny,
                     layout.nz, length[0], length[1], length[2], origin[0], origin[1], origin[2]);
}

bool isPlan(const Json& json) {
  if (!json.is_object() || json.value("format", Json()) != kFormat ||
      json.value("version", Json()) != kVersion) {
    return false;
  }
  const Json values = json.value("plan", Json());
  const Json output = json.value("output", Json());
  if (!values.is_object() || !output.is_string()) return false;
  for (const auto& value : values) {
    if (!value.is_string()) return false;
  }
  return true;
}

/// The text as it reads back from a file: names of files may hold any bytes, JSON is UTF-8.
std::string asStored(const std::string& text) {
  return Json::parse(Json(text).dump(-1, ' ', false, Json::error_handler_t::replace))
      .get<std::string>();
}

}  // namespace

Result<PlanRecord> describePlan(const SplitOptions& options, const ResolvedInput& input,
                                const SplitPlan& plan, const std::string& outputFile) {
  PlanRecord record;
  record.output = outputFile;
  const auto add = [&record](const std::string& label, const std::string& value) {
    record.values.emplace_back(asStored(label), asStored(value));
  };
  for (std::size_t i = 0; i < input.files.size(); ++i) {
    const auto identity = identityOf(input.files[i]);
    if (!identity.ok()) return identity.failure();
    add(fmt::format("input {}", i + 1), *identity);
  }
  if (!options.columns.empty()) add("columns", fmt::format("{}", fmt::join(options.columns, ",")));
  for (const GridForecast& grid : plan.grids) {
    add(fmt::format("grid {} at time {}", grid.source.name, grid.source.time),
        gridText(grid.layout));
  }
  add("start", pointText(options.tiling.start));
  add("end", pointText(options.tiling.end));
  add("overlap", exactText(options.tiling.overlap));
  add("min points", std::to_string(options.tiling.minPoints));
  add("fields", fieldsText(options));
  add("output grid",
      options.outputGrid.empty() ? plan.grids.front().source.name : options.outputGrid);
  add("storage", storageText(options.storage.kind));
  return record;
}

std::string planDifference(const PlanRecord& existing, const PlanRecord& wanted) {
  for (std::size_t i = 0; i < std::max(existing.values.size(), wanted.values.size()); ++i) {
    const auto none = std::pair<std::string, std::string>("", "none");
    const auto& there = i < existing.values.size() ? existing.values[i] : none;
    const auto& now = i < wanted.values.size() ? wanted.values[i] : none;
    if (there == now) continue;
    const bool isSameLabel = there.first == now.first;
    return isSameLabel ? fmt::format("{}: {} there, {} now", now.first, there.second, now.second)
                       : fmt::format("{} {} there, {} {} now", there.first, there.second, now.first,
                                     now.second);
  }
  return {};
}

std::string planFilePath(const std::string& tileFolder) { return tileFolder + "/plan.json"; }

Outcome<PlanRecord> readPlanFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return Failure{path + ": cannot be read"};
  constexpr bool kThrows = false;
  const Json json = Json::parse(file, nullptr, kThrows);
  if (!isPlan(json)) return Failure{path + ": is no plan of this program"};
  PlanRecord record;
  record.output = json["output"].get<std::string>();
  for (const auto& [label, value] : json["plan"].items()) {
    record.values.emplace_back(label, value.get<std::string>());
  }
  return record;
}

Outcome<void> writePlanFile(const std::string& path, const PlanRecord& record) {
  Json json;
  json["format"] = kFormat;
  json["version"] = kVersion;
  json["output"] = record.output;
  json["plan"] = Json::object();
  for (const auto& [label, value] : record.values) json["plan"][label] = value;
  const std::string text = json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
  auto file = Fiber::Container::AtomicFile::make(path);
  if (!file.ok()) return file.failure();
  auto written =
      Fiber::Container::writeAt(file->descriptor(), 0, std::as_bytes(std::span(text)), path);
  if (!written.ok()) return written;
  return file->commit();
}

}  // namespace Host
