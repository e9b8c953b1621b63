// SPDX-License-Identifier: Apache-2.0

#include "host/export/ExportPlan.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>

#include "datamodel/container/AtomicFile.hpp"
#include "formats/export/OriginalOrder.hpp"
#include "host/BundleFacts.hpp"
#include "host/NumberText.hpp"
#include "host/OutputFile.hpp"
#include "host/export/SourceDivision.hpp"
#include "host/export/TileNames.hpp"
#include "host/export/TileOwnership.hpp"

namespace Host {

namespace fs = std::filesystem;
using Formats::ExportFragment;
using Formats::ExportSource;
using Formats::FragmentColumns;
using Formats::PointChoice;
using Formats::PointChooser;

namespace {

using SourceHandle = std::shared_ptr<const ExportSource>;

/// The points of a tile by the rule for margins.
PointChooser marginChooser(const TileOwnership& ownership, OverlapRule rule) {
  return [ownership, rule](const FragmentColumns& fragment) {
    PointChoice choice;
    if (!fragment.fragment->index) return choice;
    auto owned = ownership.ownedRows(*fragment.positions, *fragment.fragment->index);
    if (rule == OverlapRule::Drop) {
      choice.takesAll = false;
      choice.rows = std::move(owned);
      return choice;
    }
    choice.isMargin.assign(fragment.fragment->pointCount, 1);
    for (const std::uint32_t row : owned) choice.isMargin[row] = 0;
    return choice;
  };
}

Result<PointChooser> chooserFor(const Fiber::Grid& grid, OverlapRule rule) {
  if (rule == OverlapRule::Keep) return Formats::everyPoint();
  const auto ownership = TileOwnership::of(grid);
  if (!ownership.ok()) return ownership.stop();
  if (!*ownership) return Formats::everyPoint();
  return marginChooser(**ownership, rule);
}

Result<SourceHandle> openSource(const SelectedGrid& selected) {
  auto source = Formats::exportSource(*selected.grid);
  if (!source.ok()) return source.failure();
  return SourceHandle(std::make_shared<ExportSource>(std::move(*source)));
}

std::optional<PointFileKind> kindOf(const std::string& ending) {
  if (ending == ".las") return PointFileKind::Las;
  if (ending == ".laz") return PointFileKind::Laz;
  return std::nullopt;
}

/// As its name says in any case of letters; else as the file was.
PointFileKind kindOf(const Formats::SourceFile& file) {
  std::string ending = fs::path(file.name).extension().string();
  for (char& letter : ending) {
    if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
  }
  return kindOf(ending).value_or(file.header.isCompressed ? PointFileKind::Laz
                                                          : PointFileKind::Las);
}

/// A bundle is not to be trusted: a name must not lead out of the folder.
Check checkSourceName(const std::string& name) {
  const bool isPlain = !name.empty() && name != "." && name != ".." &&
                       name.find('/') == std::string::npos && name.find('\\') == std::string::npos;
  if (isPlain) return std::monostate{};
  return failedStop(
      fmt::format("source file: cannot be written under its name, found \"{}\"", name));
}

/// Where a file's waveforms go; empty for none beside it.
std::string packetPathOf(const PlannedFile& file, WaveformChoice waveforms) {
  if (waveforms != WaveformChoice::External || !file.source->samples) return "";
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
      return usageStop("--output: --name and --files are for a folder, expected no .las or .laz");
    }
    const auto output = prepareOutputFile(options_.output, {".las", ".laz"}, options_.force);
    if (!output.ok()) return output.stop();
    const auto source = openSource(grids.front());
    if (!source.ok()) return source.stop();
    const auto choose = chooserFor(*grids.front().grid, options_.overlap);
    if (!choose.ok()) return choose.stop();
    // Points that occur several times have no place in the former order.
    const bool restores = options_.overlap == OverlapRule::Drop;
    plan_.files.push_back({*output, kind, *source, (*source)->fragments, *choose, {}, restores});
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
    const auto source = openSource(grid);
    if (!source.ok()) return source.stop();
    const auto choose = chooserFor(*grid.grid, options_.overlap);
    if (!choose.ok()) return choose.stop();
    const std::string ending = "." + options_.fileType;
    TileNamer namer(grid, (*source)->fragments.size());
    for (std::size_t n = 0; n < (*source)->fragments.size(); ++n) {
      const ExportFragment& fragment = (*source)->fragments[n];
      const auto name = namer.nameOf(options_.name, n, fragment);
      if (!name.ok()) return name.stop();
      plan_.files.push_back({plan_.folder + "/" + *name + ending,
                             kindOf(ending).value_or(PointFileKind::Laz),
                             *source,
                             {fragment},
                             *choose,
                             {},
                             false});
    }
    return std::monostate{};
  }

  Check addSources(const SelectedGrid& grid) {
    const auto source = openSource(grid);
    if (!source.ok()) return source.stop();
    const auto choose = chooserFor(*grid.grid, options_.overlap);
    if (!choose.ok()) return choose.stop();
    auto parts = divideBySource(**source, *choose);
    if (!parts.ok()) return parts.stop();
    for (SourcePart& part : *parts) {
      const std::string& name = part.source->files.front().name;
      const Check acceptable = checkSourceName(name);
      if (!acceptable.ok()) return acceptable.stop();
      plan_.files.push_back({plan_.folder + "/" + name, kindOf(part.source->files.front()),
                             part.source, part.source->fragments, part.choose, part.choosesBy,
                             true});
    }
    return std::monostate{};
  }

  /// Every path once, and none of a file that exists.
  Check checkPaths() const {
    std::set<std::string> paths;
    std::error_code error;
    if (!plan_.folder.empty() && fs::exists(plan_.folder, error) &&
        !fs::is_directory(plan_.folder, error)) {
      return failedStop(plan_.folder + ": is no folder; a single file ends in .las or .laz");
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
};

}  // namespace

Result<ExportPlan> planExport(const std::vector<SelectedGrid>& grids,
                              const ExportOptions& options) {
  const auto kind = kindOf(fs::path(options.output).extension().string());
  return kind ? Planner(options).intoFile(grids, *kind) : Planner(options).intoFolder(grids);
}

}  // namespace Host
