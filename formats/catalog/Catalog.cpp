// SPDX-License-Identifier: Apache-2.0

#include "formats/catalog/Catalog.hpp"

#include <fmt/format.h>

#include <set>
#include <string_view>
#include <utility>

#include "formats/catalog/CatalogJson.hpp"
#include "formats/catalog/FootprintProjector.hpp"
#include "formats/catalog/StacItem.hpp"
#include "formats/catalog/TileIndex.hpp"
#include "formats/las/ExceptionEdge.hpp"
#include "formats/las/OutputFile.hpp"

namespace Formats {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

using Notes = std::vector<std::string>;

/// A collection of features, one to a line.
class FeatureFile {
 public:
  static Outcome<FeatureFile> create(const std::string& path, const std::string& name) {
    Outcome<OutputFile> file = OutputFile::create(path);
    if (!file) return file.failure();
    FeatureFile features(std::move(*file));
    const std::string head = fmt::format(R"({{"type":"FeatureCollection","name":{},"features":[)",
                                         lineOf(CatalogJson(name)));
    if (const auto begun = features.append(head); !begun) return begun.failure();
    return features;
  }

  Outcome<void> add(const std::string& feature) {
    const char* separator = std::exchange(isFirst_, false) ? "\n" : ",\n";
    if (auto done = append(separator); !done) return done;
    return append(feature);
  }

  Outcome<void> finish() { return append("\n]}\n"); }
  Outcome<void> publish(bool durable) { return file_.publish(durable); }

 private:
  explicit FeatureFile(OutputFile file) : file_(std::move(file)) {}
  Outcome<void> append(std::string_view text) {
    return file_.append(std::as_bytes(std::span(text)));
  }

  OutputFile file_;
  bool isFirst_ = true;
};

Outcome<void> checkNames(const std::string& path, const std::string& name,
                         const CatalogDescription& description) {
  if (name.empty() || name.find('/') != std::string::npos) {
    return Failure{fmt::format("{}: catalog cannot be named, found \"{}\", expected a file's name",
                               path, name)};
  }
  for (const CatalogTile& tile : description.tiles) {
    if (!tile.file.empty() && tile.file.front() != '/') continue;
    return Failure{
        fmt::format("{}: tile file cannot be named, found \"{}\", expected a path from the "
                    "catalog's folder",
                    path, tile.file)};
  }
  return {};
}

bool isUtf8(const std::string& text) {
  try {
    static_cast<void>(CatalogJson(text).dump());
    return true;
  } catch (const CatalogJson::exception&) {
    return false;
  }
}

/// Names of items, without their ending as long as that tells them apart.
class ItemNames {
 public:
  std::string nameOf(const std::string& file) {
    const std::size_t slash = file.find_last_of('/');
    const std::size_t dot = file.find_last_of('.');
    const std::size_t nameAt = slash == std::string::npos ? 0 : slash + 1;
    const bool hasEnding = dot != std::string::npos && dot > nameAt;
    std::string name = file.substr(0, hasEnding ? dot : file.size());
    if (!used_.insert(name).second) name = file;
    used_.insert(name);
    return name;
  }

 private:
  std::set<std::string> used_;
};

/// Writes tile after tile and counts what is missing.
class CatalogWriter {
 public:
  CatalogWriter(std::string path, const CatalogDescription& description)
      : path_(std::move(path)), description_(description) {}

  Outcome<Notes> write(FeatureFile& cloud, FeatureFile& index) {
    findSystem();
    settleDate();
    for (const CatalogTile& tile : description_.tiles) {
      const std::optional<Footprint> footprint = footprintOf(tile);
      if (!isUtf8(tile.file)) {
        note(fmt::format("tile {}: its name is no UTF-8 and cannot be found by it", tile.file));
      }
      const std::string item =
          stacItem(tile, names_.nameOf(tile.file), footprint, description_, context_);
      if (const auto added = cloud.add(item); !added) return added.failure();
      if (const auto added = index.add(tileFeature(tile, footprint)); !added) {
        return added.failure();
      }
    }
    if (missing_ > 0) {
      note(
          fmt::format("{} of {} tiles have no outline: they cannot be transformed to longitude "
                      "and latitude, or cross the meridian of 180 degrees",
                      missing_, description_.tiles.size()));
    }
    return std::move(notes_);
  }

 private:
  void note(const std::string& text) { notes_.push_back(path_ + ": " + text); }

  void findSystem() {
    if (!description_.system) {
      return note("the coordinate system is not known: there are no outlines");
    }
    // What cannot be read may still mean something to others.
    context_.wkt2 = description_.system->wkt;
    Outcome<FootprintProjector> made = FootprintProjector::make(*description_.system);
    if (!made) return note(made.error() + ": there are no outlines");
    projector_ = std::move(*made);
    if (!projector_->wkt2().empty()) context_.wkt2 = projector_->wkt2();
    context_.epsg = projector_->epsg();
  }

  void settleDate() {
    context_.datetime = description_.datetime.value_or(kUnknownDatetime);
    if (!description_.datetime) {
      note(fmt::format("the date of the points is not known: {} stands for it", kUnknownDatetime));
    }
  }

  std::optional<Footprint> footprintOf(const CatalogTile& tile) {
    if (!projector_ || !hasBox(tile)) return std::nullopt;
    std::optional<Footprint> footprint = projector_->project(tile.minimum, tile.maximum);
    if (!footprint) ++missing_;
    return footprint;
  }

  std::string path_;
  const CatalogDescription& description_;
  std::optional<FootprintProjector> projector_;
  StacContext context_;
  ItemNames names_;
  Notes notes_;
  std::uint64_t missing_ = 0;
};

Outcome<Notes> write(const std::string& path, const std::string& name,
                     const CatalogDescription& description) {
  if (const auto fit = checkNames(path, name, description); !fit) return fit.failure();
  Outcome<FeatureFile> cloud = FeatureFile::create(path + ".vpc", name);
  if (!cloud) return cloud.failure();
  Outcome<FeatureFile> index = FeatureFile::create(path + ".geojson", name);
  if (!index) return index.failure();
  Outcome<Notes> notes = CatalogWriter(path + ".vpc", description).write(*cloud, *index);
  if (!notes) return notes;
  for (FeatureFile* file : {&*cloud, &*index}) {
    if (const auto done = file->finish(); !done) return done.failure();
  }
  for (FeatureFile* file : {&*index, &*cloud}) {
    if (const auto done = file->publish(description.isDurable); !done) return done.failure();
  }
  return notes;
}

}  // namespace

Outcome<Notes> writeCatalog(const std::string& folder, const std::string& name,
                            const CatalogDescription& description) {
  const std::string path = folder + "/" + name;
  return withoutExceptions(path, [&] { return write(path, name, description); });
}

}  // namespace Formats
