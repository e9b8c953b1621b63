// SPDX-License-Identifier: Apache-2.0

#include "host/export/ExportCatalog.hpp"

#include <filesystem>
#include <map>

#include "formats/catalog/Catalog.hpp"

namespace Host {

namespace fs = std::filesystem;

namespace {

/// The files of one cloud, by number in the plan.
using CloudFiles = std::vector<std::size_t>;

/// Clouds in the order of the plan.
std::vector<CloudFiles> cloudsOf(const ExportPlan& plan, const ExportOutcome& outcome) {
  std::vector<CloudFiles> clouds;
  std::map<const Formats::ExportSource*, std::size_t> places;
  for (std::size_t i = 0; i < plan.files.size(); ++i) {
    if (!outcome.files[i].result.isWritten || !outcome.files[i].target) continue;
    const auto [place, isNew] = places.try_emplace(plan.files[i].source.get(), clouds.size());
    if (isNew) clouds.emplace_back();
    clouds[place->second].push_back(i);
  }
  return clouds;
}

Formats::CatalogTile tileOf(const PlannedFile& planned, const ExportedFile& written) {
  Formats::CatalogTile tile;
  tile.file = fs::path(planned.path).filename().string();
  tile.pointCount = written.result.points;
  tile.minimum = written.result.minimum;
  tile.maximum = written.result.maximum;
  const auto& index = planned.fragments.front().index;
  if (index) {
    tile.index = {static_cast<std::int64_t>((*index)[0]), static_cast<std::int64_t>((*index)[1]),
                  static_cast<std::int64_t>((*index)[2])};
  }
  return tile;
}

/// Requires: at least one file.
MemCore::Outcome<Formats::CatalogDescription> describe(const CloudFiles& files,
                                                       const ExportPlan& plan,
                                                       const ExportOutcome& outcome) {
  Formats::CatalogDescription description;
  for (const std::size_t i : files) {
    description.tiles.push_back(tileOf(plan.files[i], outcome.files[i]));
  }
  const Formats::LasWriterOptions& writer = outcome.files[files.front()].target->writer;
  const auto layout =
      Formats::PointLayout::make(writer.header.pointFormat, writer.header.recordBytes, writer.vlrs);
  if (!layout.ok()) return layout.failure();
  description.dimensions = Formats::dimensionsOf(*layout);
  std::vector<Formats::VariableRecord> records = writer.vlrs;
  records.insert(records.end(), writer.evlrs.begin(), writer.evlrs.end());
  description.system = Formats::coordinateSystemOf(records);
  description.datetime = Formats::datetimeOf(writer.header);
  return description;
}

}  // namespace

Result<WrittenCatalogs> writeCatalogs(const ExportPlan& plan, const ExportOutcome& outcome,
                                      const ExportOptions& options) {
  WrittenCatalogs written;
  if (plan.folder.empty() || options.division == FileDivision::Source) return written;
  const std::vector<CloudFiles> clouds = cloudsOf(plan, outcome);
  for (const CloudFiles& files : clouds) {
    auto description = describe(files, plan, outcome);
    if (!description.ok()) return description.failure();
    description->isDurable = options.durable;
    const std::string name = clouds.size() == 1 ? fs::path(plan.folder).filename().string()
                                                : plan.files[files.front()].source->gridName;
    const auto notes = Formats::writeCatalog(plan.folder, name, *description);
    if (!notes.ok()) return notes.failure();
    written.notes.insert(written.notes.end(), notes->begin(), notes->end());
    for (const char* ending : {".vpc", ".geojson"}) {
      written.files.push_back(plan.folder + "/" + name + ending);
    }
  }
  return written;
}

}  // namespace Host
