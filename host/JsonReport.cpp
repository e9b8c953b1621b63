// SPDX-License-Identifier: Apache-2.0

#include "host/JsonReport.hpp"

#include <cmath>
#include <nlohmann/json.hpp>

namespace Host {

using Json = nlohmann::ordered_json;
using MemCore::StrongPtr;

namespace {

Json number(double value) { return std::isfinite(value) ? Json(value) : Json(); }

template <class Vector>
Json vector3(const Vector& v) {
  return Json::array({number(v[0]), number(v[1]), number(v[2])});
}

Json boxJson(const StrongPtr<Eagle::BoundingBox>& box) {
  if (!box) return {};
  Json json;
  json["min"] = vector3(box->min());
  json["max"] = vector3(box->max());
  return json;
}

Json forecastJson(const GridForecast& forecast) {
  const auto& layout = forecast.layout;
  Json json;
  json["time"] = number(forecast.source.time);
  json["name"] = forecast.source.name;
  json["points"] = forecast.pointCount;
  json["box"] = boxJson(layout.globalBox);
  json["fragmentLength"] = vector3(layout.fragmentLength);
  json["tiles"] = Json::array({layout.nx, layout.ny, layout.nz});
  json["tiledBox"] = boxJson(layout.tiledBox);
  json["estimated"] = layout.isEstimated;
  json["density"] = number(layout.isEstimated ? layout.estimatedDensity : forecast.boxDensity());
  json["message"] = forecast.failure;
  json["boxDensity"] = number(forecast.boxDensity());
  json["outsidePoints"] = forecast.outsidePoints;
  return json;
}

Json gridsJson(const SplitPlan& plan) {
  Json json;
  json["grids"] = Json::array();
  for (const GridForecast& forecast : plan.grids) json["grids"].push_back(forecastJson(forecast));
  return json;
}

Json tilesJson(const TileSummary& tiles) {
  Json json;
  json["total"] = tiles.total;
  json["withData"] = tiles.withData;
  json["written"] = tiles.written;
  json["kept"] = tiles.kept;
  json["dropped"] = tiles.dropped;
  json["failed"] = tiles.failed;
  json["pending"] = tiles.pending;
  return json;
}

Json balanceJson(const PointBalance& balance) {
  Json json;
  json["time"] = number(balance.time);
  json["name"] = balance.grid;
  json["input"] = balance.input;
  json["outside"] = balance.outside;
  json["dropped"] = balance.dropped;
  json["output"] = balance.output;
  return json;
}

Json pointsJson(const SplitReport& report) {
  Json json;
  json["input"] = inputPoints(report);
  json["output"] = outputPoints(report);
  std::uint64_t outside = 0;
  std::uint64_t dropped = 0;
  Json grids = Json::array();
  for (const PointBalance& balance : report.balances) {
    outside += balance.outside;
    dropped += balance.dropped;
    grids.push_back(balanceJson(balance));
  }
  json["outside"] = outside;
  json["dropped"] = dropped;
  json["compared"] = report.isCompared;
  json["agree"] = report.isCompared ? Json(!differs(report)) : Json();
  json["grids"] = grids;
  return json;
}

void addUse(Json& json, const ResourceUse& use) {
  json["seconds"] = number(use.seconds);
  json["peakMemoryBytes"] = use.peakMemoryBytes;
}

Json fieldJson(const FieldFacts& field) {
  Json json;
  json["name"] = field.name;
  json["type"] = field.type.empty() ? Json() : Json(field.type);
  json["rank"] = field.rank == 0 ? Json() : Json(field.rank);
  json["min"] = field.range ? number(field.range->min) : Json();
  json["max"] = field.range ? number(field.range->max) : Json();
  return json;
}

Json fragmentJson(const FragmentFacts& fragment) {
  Json json;
  json["name"] = fragment.name;
  json["index"] = fragment.index ? Json(fragment.index->components) : Json();
  json["points"] = fragment.pointCount;
  json["box"] = boxJson(fragment.box);
  json["file"] = fragment.file.empty() ? Json() : Json(fragment.file);
  return json;
}

Json tilingJson(const TilingFacts& tiling) {
  Json json;
  json["FragLength"] = tiling.fragmentLength ? vector3(*tiling.fragmentLength) : Json();
  json["FragDims"] = tiling.dimensions ? Json(*tiling.dimensions) : Json();
  json["NormalizeOverlap"] = tiling.overlap ? number(*tiling.overlap) : Json();
  return json;
}

Json gridJson(const GridFacts& grid) {
  Json json;
  json["name"] = grid.name;
  json["points"] = grid.pointCount;
  json["box"] = boxJson(grid.box);
  json["attributes"] = tilingJson(grid.tiling);
  json["fields"] = Json::array();
  for (const FieldFacts& field : grid.fields) json["fields"].push_back(fieldJson(field));
  json["fragments"] = Json::array();
  for (const auto& fragment : grid.fragments) json["fragments"].push_back(fragmentJson(fragment));
  return json;
}

Json slicesJson(const std::vector<GridFacts>& grids) {
  Json slices = Json::array();
  for (std::size_t i = 0; i < grids.size(); ++i) {
    if (i == 0 || grids[i].time != grids[i - 1].time) {
      Json slice;
      slice["time"] = number(grids[i].time);
      slice["grids"] = Json::array();
      slices.push_back(slice);
    }
    slices.back()["grids"].push_back(gridJson(grids[i]));
  }
  return slices;
}

Json showJson(const ShowReport& report) {
  Json json;
  json["file"] = report.file;
  json["slices"] = slicesJson(report.grids);
  return json;
}

/// Names of files and grids may hold any bytes: what is no UTF-8 is replaced.
std::string dumped(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

/// The grids in short, and the points of all.
void addGrids(Json& json, const std::vector<GridFacts>& grids) {
  json["grids"] = Json::array();
  std::uint64_t points = 0;
  for (const GridFacts& grid : grids) {
    Json entry;
    entry["time"] = number(grid.time);
    entry["name"] = grid.name;
    entry["points"] = grid.pointCount;
    entry["fragments"] = grid.fragments.size();
    entry["fields"] = grid.fields.size();
    entry["box"] = boxJson(grid.box);
    json["grids"].push_back(entry);
    points += grid.pointCount;
  }
  json["points"] = points;
}

Json verifyJson(const VerifyReport& report) {
  Json json;
  json["file"] = report.file;
  json["tiles"] = report.tiles;
  json["points"] = report.points;
  json["pointsRead"] = !report.quick;
  json["problems"] = report.problems;
  return json;
}

}  // namespace

std::string infoJson(const SplitPlan& plan) {
  Json json = gridsJson(plan);
  json["messages"] = plan.warnings;
  return dumped(json);
}

std::string splitJson(const SplitReport& report) {
  Json json;
  json["output"] = report.output;
  json["plan"] = gridsJson(report.plan);
  json["tiles"] = tilesJson(report.tiles);
  json["points"] = pointsJson(report);
  json["messages"] = report.messages;
  addUse(json, report.use);
  json["tileFolder"] = report.tileFolder;
  json["resumed"] = report.isResumed;
  return dumped(json);
}

std::string showJson(const std::vector<ShowReport>& reports) {
  if (reports.size() == 1) return dumped(showJson(reports.front()));
  Json json;
  json["files"] = Json::array();
  for (const ShowReport& report : reports) json["files"].push_back(showJson(report));
  return dumped(json);
}

std::string linkJson(const LinkReport& report) {
  Json json;
  json["output"] = report.output;
  json["tiles"] = report.tiles;
  addGrids(json, report.grids);
  addUse(json, report.use);
  return dumped(json);
}

std::string verifyJson(const std::vector<VerifyReport>& reports) {
  if (reports.size() == 1) return dumped(verifyJson(reports.front()));
  Json json;
  json["files"] = Json::array();
  for (const VerifyReport& report : reports) json["files"].push_back(verifyJson(report));
  return dumped(json);
}

std::string importJson(const ImportReport& report) {
  Json json;
  json["output"] = report.output;
  json["inputs"] = report.inputs;
  addGrids(json, report.grids);
  json["bytes"] = report.bytes;
  addUse(json, report.use);
  return dumped(json);
}

std::string synthJson(const SynthReport& report) {
  Json json;
  json["output"] = report.output;
  json["points"] = report.pointCount;
  json["pulses"] = report.pulseCount;
  json["waveformBytes"] = report.waveformBytes;
  json["bytes"] = report.bytes;
  addUse(json, report.use);
  return dumped(json);
}

}  // namespace Host
