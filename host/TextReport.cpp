// SPDX-License-Identifier: Apache-2.0

#include "host/TextReport.hpp"

#include <fmt/format.h>

#include <algorithm>

#include "host/NumberText.hpp"
#include "host/PathText.hpp"
#include "host/TextTable.hpp"

namespace Host {

using MemCore::StrongPtr;

namespace {

void addBox(TextTable& table, const StrongPtr<Eagle::BoundingBox>& box, const std::string& none) {
  if (!box) {
    table.add({"Box", none});
    return;
  }
  table.add({"Box", "x " + axisText(*box, 0)});
  table.add({"", "y " + axisText(*box, 1)});
  table.add({"", "z " + axisText(*box, 2)});
}

std::string lengthOrigin(const GridForecast& grid, const TilingOptions& tiling) {
  if (tiling.pointsPerTile) return "for " + countText(*tiling.pointsPerTile) + " points per tile";
  if (!grid.layout.isEstimated) {
    return tiling.fragmentLength[0] > 0.0 ? "as given" : "one tile spans the cloud";
  }
  return fmt::format("estimated from {:.3g} points per square unit", grid.layout.estimatedDensity);
}

std::string overlapText(double overlap) {
  return overlap > 0.0 ? fmt::format(", overlap {} of the length", exactText(overlap)) : "";
}

void addTiling(TextTable& table, const GridForecast& grid, const TilingOptions& tiling) {
  const auto& layout = grid.layout;
  const std::uint64_t inside = grid.pointCount - grid.outsidePoints;
  table.add(
      {"Tiles", fmt::format("{} = {}{}", countsText({layout.nx, layout.ny, layout.nz}),
                            countText(grid.tileCount(), "tile"), overlapText(tiling.overlap))});
  table.add({"Length", fmt::format("{} ({})", lengthsText(layout.fragmentLength),
                                   lengthOrigin(grid, tiling))});
  table.add({"Per tile",
             fmt::format("about {} on average", countText(inside / grid.tileCount(), "point"))});
}

std::string forecastText(const GridForecast& grid, const TilingOptions& tiling) {
  TextTable table;
  table.add(
      {"Cloud", fmt::format("{} at time {}, {}", grid.source.name, exactText(grid.source.time),
                            countText(grid.pointCount, "point"))});
  if (grid.outsidePoints != 0) {
    table.add({"Outside", countText(grid.outsidePoints, "point") + " are left out"});
  }
  if (grid.layout.globalBox) addBox(table, grid.layout.globalBox, "");
  if (grid.failure.empty()) {
    addTiling(table, grid, tiling);
  } else {
    table.add({"Problem", grid.failure});
  }
  return table.text();
}

std::string tileCountsText(const TileSummary& tiles) {
  std::string text =
      fmt::format("{} written, {} kept, {} dropped, {} failed", countText(tiles.written),
                  countText(tiles.kept), countText(tiles.dropped), countText(tiles.failed));
  if (tiles.pending != 0) text += fmt::format(", {} to do", countText(tiles.pending));
  return text;
}

/// "1,000 in, 990 out, 4 outside, 6 in dropped tiles: all accounted for"
std::string balanceText(const PointBalance& balance, bool isCompared) {
  std::string text =
      fmt::format("{} in, {} out", countText(balance.input), countText(balance.output));
  if (balance.outside != 0) text += fmt::format(", {} outside", countText(balance.outside));
  if (balance.dropped != 0) {
    text += fmt::format(", {} in dropped tiles", countText(balance.dropped));
  }
  if (!isCompared) return text;
  return text + (balance.output == balance.expected() ? ": all accounted for" : ": THEY DIFFER");
}

void addBalances(TextTable& table, const SplitReport& report) {
  for (const PointBalance& balance : report.balances) {
    const std::string place = report.balances.size() == 1
                                  ? std::string()
                                  : fmt::format("time {}: ", exactText(balance.time));
    table.add({"Points", place + balanceText(balance, report.isCompared)});
  }
}

std::string useText(std::uint64_t points, const ResourceUse& use) {
  const double rate = use.seconds > 0.0 ? static_cast<double>(points) / use.seconds : 0.0;
  return fmt::format("{}, {}, {} of memory at most", durationText(use.seconds), rateText(rate),
                     byteText(use.peakMemoryBytes));
}

/// A row per grid; returns the points of all.
std::uint64_t addClouds(TextTable& table, const std::vector<GridFacts>& grids) {
  std::uint64_t points = 0;
  for (const GridFacts& grid : grids) {
    points += grid.pointCount;
    table.add({"Cloud", fmt::format("{} at time {}, {} in {}, {}", grid.name, exactText(grid.time),
                                    countText(grid.pointCount, "point"),
                                    countText(grid.fragments.size(), "fragment"),
                                    countText(grid.fields.size(), "field"))});
  }
  return points;
}

std::string verdictText(const VerifyReport& report) {
  if (!report.problems.empty()) {
    return countText(report.problems.size(), "tile") + " NOT as promised";
  }
  return report.quick ? "every file is the one that was linked; points were not read"
                      : "every value is there and as promised";
}

std::string rangeText(const FieldFacts& field) {
  if (field.type == "point" || field.type == "vector3") return "see box";
  if (!field.range) return "unknown";
  if (field.type == "float") {
    return fmt::format("{} to {}", static_cast<float>(field.range->min),
                       static_cast<float>(field.range->max));
  }
  return fmt::format("{} to {}", exactText(field.range->min), exactText(field.range->max));
}

std::string fieldsText(const std::vector<FieldFacts>& fields) {
  TextTable table;
  table.add({"Field", "Type", "Range"});
  for (const FieldFacts& field : fields) {
    std::string type = field.type.empty() ? "?" : field.type;
    if (field.rank > 1) type += fmt::format(", {}D", field.rank);
    table.add({field.name, type, rangeText(field)});
  }
  return table.text(2);
}

/// A fragment's row; its coordinates have the decimals that the grid's box deserves.
std::vector<std::string> fragmentRow(const FragmentFacts& fragment, const GridFacts& grid) {
  std::vector<std::string> row{fragment.name, countText(fragment.pointCount)};
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const double extent = grid.box ? grid.box->diagonal()[axis] : 0.0;
    row.push_back(fragment.box ? axisText(*fragment.box, axis, decimalsFor(extent)) : "unknown");
  }
  row.push_back(fragment.file);
  return row;
}

std::string fragmentsText(const GridFacts& grid, std::size_t most) {
  const std::size_t shown = std::min(most, grid.fragments.size());
  TextTable table({1});
  table.add({"Fragment", "Points", "x", "y", "z", "File"});
  for (std::size_t i = 0; i < shown; ++i) table.add(fragmentRow(grid.fragments[i], grid));
  std::string text = table.text(2);
  if (grid.fragments.size() > shown) {
    text += fmt::format("  ... and {} more (--all lists them)\n",
                        countText(grid.fragments.size() - shown));
  }
  return text;
}

bool hasUnknowns(const GridFacts& grid) {
  if (!grid.box && grid.pointCount != 0) return true;
  return std::any_of(grid.fields.begin(), grid.fields.end(),
                     [](const FieldFacts& field) { return rangeText(field) == "unknown"; });
}

void addTilingFacts(TextTable& table, const TilingFacts& tiling) {
  if (!tiling.dimensions || !tiling.fragmentLength) return;
  const auto& length = *tiling.fragmentLength;
  table.add({"Tiles", fmt::format("{} of {}{}", countsText(*tiling.dimensions),
                                  lengthsText({{length[0], length[1], length[2]}}),
                                  overlapText(tiling.overlap.value_or(0.0)))});
}

std::string gridText(const GridFacts& grid, bool allFragments) {
  constexpr std::size_t kScreenful = 10;
  TextTable head;
  head.add({"Grid", fmt::format("{} at time {}, {} in {}", grid.name, exactText(grid.time),
                                countText(grid.pointCount, "point"),
                                countText(grid.fragments.size(), "fragment"))});
  addTilingFacts(head, grid.tiling);
  addBox(head, grid.box, grid.pointCount == 0 ? "none" : "unknown");
  std::string text = head.text();
  if (!grid.fields.empty()) text += "\n" + fieldsText(grid.fields);
  if (!grid.fragments.empty()) {
    text += "\n" + fragmentsText(grid, allFragments ? grid.fragments.size() : kScreenful);
  }
  if (hasUnknowns(grid)) text += "\n  What is unknown, --ranges finds by reading the points.\n";
  return text;
}

}  // namespace

std::string planText(const SplitPlan& plan, const TilingOptions& tiling) {
  std::string text;
  for (const GridForecast& grid : plan.grids) {
    text += (text.empty() ? "" : "\n") + forecastText(grid, tiling);
  }
  return text;
}

std::string splitText(const SplitReport& report) {
  TextTable table;
  table.add({"Tiles", tileCountsText(report.tiles)});
  addBalances(table, report);
  table.add({"Time", useText(inputPoints(report), report.use)});
  table.add({"Output", report.output});
  table.add({"Next", "refragment show " + shellWord(report.output)});
  return table.text();
}

std::string showText(const ShowReport& report, bool allFragments) {
  std::string text = report.file + "\n";
  for (const GridFacts& grid : report.grids) text += "\n" + gridText(grid, allFragments);
  if (report.grids.empty()) text += "\nholds no grid\n";
  return text;
}

std::string linkText(const LinkReport& report) {
  TextTable table;
  table.add({"Tiles", countText(report.tiles) + " linked"});
  const std::uint64_t points = addClouds(table, report.grids);
  table.add({"Time", useText(points, report.use)});
  table.add({"Output", report.output});
  table.add({"Next", "refragment verify " + shellWord(report.output)});
  return table.text();
}

std::string verifyText(const std::vector<VerifyReport>& reports) {
  std::string text;
  for (const VerifyReport& report : reports) {
    TextTable table;
    table.add({"Bundle", report.file});
    table.add({"Tiles", countText(report.tiles) + ", " + countText(report.points, "point")});
    table.add({"Check", verdictText(report)});
    text += (text.empty() ? "" : "\n") + table.text();
  }
  return text;
}

std::string importText(const ImportReport& report) {
  TextTable table;
  const std::uint64_t points = addClouds(table, report.grids);
  table.add({"Time", useText(points, report.use)});
  table.add({"Output", fmt::format("{} ({})", report.output, byteText(report.bytes))});
  table.add({"Next", "refragment show " + shellWord(report.output)});
  return table.text();
}

std::string synthText(const SynthReport& report) {
  TextTable table;
  table.add({"Survey", fmt::format("{} from {}", countText(report.pointCount, "point"),
                                   countText(report.pulseCount, "pulse"))});
  table.add({"Time", useText(report.pointCount, report.use)});
  table.add({"Output", fmt::format("{} ({})", report.output, byteText(report.bytes))});
  table.add({"Next", "refragment info " + shellWord(report.output)});
  return table.text();
}

}  // namespace Host
