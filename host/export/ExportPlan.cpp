// SPDX-License-Identifier: Apache-2.0

#include "host/export/ExportPlan.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>

#include "datamodel/container/AtomicFile.hpp"
#include "formats/export/LasTarget.hpp"
#include "host/NameRules.hpp"
#include "host/NumberText.hpp"
#include "host/OutputFile.hpp"
#include "host/export/MarginChoice.hpp"
#include "host/export/SourceDivision.hpp"
#include "host/export/TileNames.hpp"
#include "host/export/TileOwnership.hpp"

namespace Host {

namespace fs = std::filesystem;
using Formats::ExportFragment;
using Formats::ExportSource;

namespace {

using SourceHandle = std::shared_ptr<const ExportSource>;

std::string lowerCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  return text;
}

/// The ending that tells the kind of a file, in lower case: the one in front of .gz.
std::string endingOf(const std::string& path) {
  const fs::path whole(path);
  const std::string ending = lowerCase(whole.extension().string());
  return ending == ".gz" ? lowerCase(whole.stem().extension().string()) : ending;
}

/// The grid with the fields that the user wants, and those that tell the points' order.
Result<SourceHandle> openSource(const SelectedGrid& selected, const FilterOptions& filters) {
  auto source = Formats::exportSource(*selected.grid);
  if (!source.ok()) return source.failure();
  if (!filters.fields.empty()) {
    std::erase_if(source->fields, [&](const Formats::ExportField& field) {
      return filters.fields.count(field.name) == 0 && !Formats::isOrderField(field.name);
    });
    if (filters.fields.count("Waveforms") == 0) source->samples = nullptr;
  }
  return SourceHandle(std::make_shared<ExportSource>(std::move(*source)));
}

/// Where a file's waveforms go; empty for none beside it.
std::string packetPathOf(const PlannedFile& file, WaveformChoice waveforms) {
  const bool isBeside = waveforms == WaveformChoice::External && file.source->samples;
  if (!isBeside || file.kind == PointFileKind::Text) return "";
  return fs::path(file.path).replace_extension(".wdp").string();
}

/// What a tile's name can be made of, the same for all tiles of a grid but for the tile itself.
class TileNamer {
 public:
  TileNamer(const SelectedGrid& grid, std::size_t fragmentCount) {
    facts_.grid = grid.name;
    facts_.time = grid.time;
    facts_.count = fragmentCount;
    place_ = tilingPlaceOf(*grid.grid);
    if (const auto positions = MemCore::handleCast<Fiber::RegularlyFragmentedField<3>>(
            grid.grid->CartesianPositions())) {
      facts_.counts = positions->counts().components;
    }
  }

  Result<std::string> nameOf(const std::string& wanted, std::size_t number,
                             const ExportFragment& fragment) {
    facts_.number = number;
    facts_.index.reset();
    facts_.corner.reset();
    if (fragment.index) facts_.index = fragment.index->components;
    if (fragment.box)
      facts_.corner = {fragment.box->min().x, fragment.box->min().y, fragment.box->min().z};
    if (place_ && fragment.index) facts_.corner = cornerOf(*fragment.index);
    return tileName(wanted.empty() ? usualTileName(fragment.index.has_value()) : wanted, facts_);
  }

 private:
  std::array<double, 3> cornerOf(const Fiber::MultiIndex<3>& index) const {
    std::array<double, 3> corner{};
    for (std::size_t axis = 0; axis < 3; ++axis) {
      corner[axis] = static_cast<double>(index[axis]) * place_->length[axis] + place_->origin[axis];
    }
    return corner;
  }

  TileNameFacts facts_;
  std::optional<TilingPlace> place_;
};

/// Of single files.
const std::vector<std::string> kEndings{".las", ".laz", ".xyz", ".txt", ".csv", ".gz"};

/// The fields of a text file: those that were named; without names all that are one number per
/// point, but none in a file without a header, which could not tell what they are.
std::vector<std::size_t> textFieldsOf(const ExportSource& source, const std::string& path,
                                      const FilterOptions& filters) {
  std::vector<std::size_t> fields;
  const bool hasHeader = endingOf(path) != ".xyz";
  if (!hasHeader && filters.fields.empty()) return fields;
  for (std::size_t i = 0; i < source.fields.size(); ++i) {
    const Formats::ExportField& field = source.fields[i];
    if (field.components == 1 && !Formats::isOrderField(field.name)) fields.push_back(i);
  }
  return fields;
}

/// Plans into one ExportPlan.
class Planner {
 public:
  explicit Planner(const ExportOptions& options) : options_(options) {}

  Result<ExportPlan> intoFile(const std::vector<SelectedGrid>& grids, PointFileKind kind) {
    if (grids.size() != 1) {
      return usageStop(fmt::format(
          "--output: {} is one file, but there are {}; choose one with --grid or --time, or name "
          "a folder",
          options_.output, countText(grids.size(), "grid")));
    }
    if (options_.division == FileDivision::Source || !options_.name.empty()) {
      return usageStop("--output: --name and --files are for a folder, not for a single file");
    }
    const auto output = prepareOutputFile(options_.output, kEndings, options_.force);
    if (!output.ok()) return output.stop();
    const auto source = openSource(grids.front(), options_.filters);
    if (!source.ok()) return source.stop();
    const auto choose = chooserFor(*grids.front().grid, options_.overlap);
    if (!choose.ok()) return choose.stop();
    // Points that occur several times have no place in the former order.
    const bool restores = options_.overlap == OverlapRule::Drop;
    PlannedFile file{*output, kind, *source, (*source)->fragments, *choose, {}, restores, {}};
    add(std::move(file));
    const Check free = checkPaths();
    if (!free.ok()) return free.stop();
    return std::move(plan_);
  }

  Result<ExportPlan> intoFolder(const std::vector<SelectedGrid>& grids) {
    plan_.folder = fs::absolute(options_.output).lexically_normal().string();
    if (plan_.folder.ends_with('/')) plan_.folder.pop_back();
    for (const SelectedGrid& grid : grids) {
      const Check added =
          options_.division == FileDivision::Source ? addSources(grid) : addTiles(grid);
      if (!added.ok()) return added.stop();
    }
    if (plan_.files.empty()) {
      return failedStop(grids.front().name + ": has no points; a single file can be without");
    }
    const Check free = checkPaths();
    if (!free.ok()) return free.stop();
    std::error_code error;
    fs::create_directories(plan_.folder, error);
    if (error) {
      return failedStop(
          fmt::format("{}: cannot make the folder, found \"{}\"", plan_.folder, error.message()));
    }
    static_cast<void>(Fiber::Container::removeStaleTemporaries(plan_.folder));
    return std::move(plan_);
  }

 private:
  Check addTiles(const SelectedGrid& grid) {
    const auto source = openSource(grid, options_.filters);
    if (!source.ok()) return source.stop();
    const auto choose = chooserFor(*grid.grid, options_.overlap);
    if (!choose.ok()) return choose.stop();
    const std::string ending = "." + options_.fileType;
    TileNamer namer(grid, (*source)->fragments.size());
    for (std::size_t n = 0; n < (*source)->fragments.size(); ++n) {
      const ExportFragment& fragment = (*source)->fragments[n];
      const auto name = namer.nameOf(options_.name, n, fragment);
      if (!name.ok()) return name.stop();
      const std::string path = plan_.folder + "/" + *name + ending;
      add({path, pointFileKind(path).value_or(PointFileKind::Laz), *source, {fragment}, *choose});
    }
    return std::monostate{};
  }

  Check addSources(const SelectedGrid& grid) {
    const auto source = openSource(grid, options_.filters);
    if (!source.ok()) return source.stop();
    const auto choose = chooserFor(*grid.grid, options_.overlap);
    if (!choose.ok()) return choose.stop();
    auto parts = divideBySource(**source, *choose);
    if (!parts.ok()) return parts.stop();
    for (SourcePart& part : *parts) {
      const auto path = sourcePath(part.source->files.front().name);
      if (!path.ok()) return path.stop();
      add({*path,
           *pointFileKind(*path),
           part.source,
           part.source->fragments,
           part.choose,
           part.choosesBy,
           true,
           {}});
    }
    return std::monostate{};
  }

  void add(PlannedFile file) {
    if (file.kind == PointFileKind::Text) {
      file.textFields = textFieldsOf(*file.source, file.path, options_.filters);
    }
    plan_.files.push_back(std::move(file));
  }

  /// The path for a source file; files of one name from several folders are numbered. Errors: a
  /// name that could lead out of the folder, or that is of no kind we write.
  Result<std::string> sourcePath(const std::string& name) {
    const auto acceptable = checkGridName(name);
    const auto kind = pointFileKind(name);
    if (!acceptable.ok() || !kind || *kind == PointFileKind::Text) {
      return failedStop(fmt::format("{}: cannot be the name of a file to write", name));
    }
    const fs::path own(name);
    const std::size_t number = ++sourceNames_[name];
    const std::string suffix = number == 1 ? "" : fmt::format("_{}", number);
    return fmt::format("{}/{}{}{}", plan_.folder, own.stem().string(), suffix,
                       own.extension().string());
  }

  /// Every path once, and none of a file that exists.
  Check checkPaths() const {
    std::set<std::string> paths;
    std::error_code error;
    if (!plan_.folder.empty() && fs::exists(plan_.folder, error) &&
        !fs::is_directory(plan_.folder, error)) {
      return failedStop(plan_.folder +
                        ": is no folder; a single file ends in .las, .laz, .xyz, .txt or .csv");
    }
    for (const PlannedFile& file : plan_.files) {
      if (!paths.insert(file.path).second) {
        return usageStop(
            fmt::format("{}: two parts would get this name; --name tells them apart", file.path));
      }
      const std::string packets = packetPathOf(file, options_.waveforms);
      if (!packets.empty() && !paths.insert(packets).second) {
        return usageStop(fmt::format(
            "{}: two files would get these waveforms; --waveforms internal keeps them apart",
            packets));
      }
      for (const std::string& path : {file.path, packets}) {
        if (options_.force || path.empty() || !fs::exists(path, error)) continue;
        return failedStop(path + ": exists already; --force replaces it");
      }
    }
    return std::monostate{};
  }

  const ExportOptions& options_;
  ExportPlan plan_;
  std::map<std::string, std::size_t> sourceNames_;  ///< how often each occurred
};

}  // namespace

std::optional<PointFileKind> pointFileKind(const std::string& path) {
  const std::string ending = endingOf(path);
  const bool isPacked = lowerCase(fs::path(path).extension().string()) == ".gz";
  if (!isPacked && ending == ".las") return PointFileKind::Las;
  if (!isPacked && ending == ".laz") return PointFileKind::Laz;
  const bool isText = ending == ".xyz" || ending == ".txt" || ending == ".csv";
  return isText ? std::optional(PointFileKind::Text) : std::nullopt;
}

Result<ExportPlan> planExport(const std::vector<SelectedGrid>& grids,
                              const ExportOptions& options) {
  const auto kind = pointFileKind(options.output);
  return kind ? Planner(options).intoFile(grids, *kind) : Planner(options).intoFolder(grids);
}

}  // namespace Host
