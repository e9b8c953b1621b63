// SPDX-License-Identifier: Apache-2.0

#include "host/LinkCommand.hpp"

#include <fmt/format.h>

#include <map>
#include <stdexcept>

#include "datamodel/memcore/Console.hpp"
#include "host/InputLoader.hpp"
#include "host/JsonReport.hpp"
#include "host/NumberText.hpp"
#include "host/OutputFile.hpp"
#include "host/TextReport.hpp"
#include "host/TileProgress.hpp"
#include "linked/FragmentIndex.hpp"
#include "operation/RefragmentAndSplit.hpp"
#include "operation/TileFiles.hpp"

namespace Host {

namespace {

/// One tile file, as far as it matters for going together with others.
struct TileFile {
  std::string path;
  Fiber::MultiIndex<3> index;
  GridFacts facts;
};

Result<Fiber::MultiIndex<3>> indexOf(const std::string& path) {
  constexpr const char* kExpected =
      "the name tells no tile, expected one such as F2x0x1T0.000000Gscan.f5";
  constexpr std::uint64_t kMostTiles = std::uint64_t{1} << 31U;  // a negative index wraps
  try {
    const auto index = LidarLib::parseFragmentIndex(LidarLib::fileStem(path));
    if (index && (*index)[0] < kMostTiles && (*index)[1] < kMostTiles && (*index)[2] < kMostTiles) {
      return *index;
    }
  } catch (const std::logic_error&) {
    // An index without digits, or one out of range.
  }
  return failedStop(fmt::format("{}: {}", path, kExpected));
}

Result<TileFile> openTile(const std::string& path) {
  const auto index = indexOf(path);
  if (!index.ok()) return index.stop();
  const auto loaded = loadBundle(path);
  if (!loaded.ok()) return loaded.stop();
  auto grids = gatherFacts(*loaded->bundle, {});
  if (grids.size() != 1 || grids.front().fragments.size() != 1) {
    const std::size_t fragments = grids.size() == 1 ? grids.front().fragments.size() : 0;
    return failedStop(fmt::format("{}: is no tile, found {} with {}, expected one of each", path,
                                  countText(grids.size(), "grid"),
                                  countText(fragments, "fragment")));
  }
  return TileFile{path, *index, std::move(grids.front())};
}

std::string numbersText(const auto& numbers) {
  if (!numbers) return "none";
  return fmt::format("{}", fmt::join(*numbers, " x "));
}

/// What a tile has in common with all others, in words; equal words mean equal facts.
using Trait = std::pair<const char*, std::string>;

std::vector<Trait> traitsOf(const GridFacts& facts) {
  const TilingFacts& tiling = facts.tiling;
  std::vector<std::string> fields;
  for (const FieldFacts& field : facts.fields) fields.push_back(field.name + " " + field.type);
  return {{"time", exactText(facts.time)},
          {"number of tiles", numbersText(tiling.dimensions)},
          {"tile length", numbersText(tiling.fragmentLength)},
          {"overlap", tiling.overlap ? exactText(*tiling.overlap) : "none"},
          {"fields", fmt::format("{}", fmt::join(fields, ", "))}};
}

Check checkInsideTiling(const TileFile& tile) {
  const auto& counts = tile.facts.tiling.dimensions;
  if (!counts) return std::monostate{};
  for (std::size_t axis = 0; axis < 3; ++axis) {
    if (tile.index[axis] < (*counts)[axis]) continue;
    return failedStop(
        fmt::format("{}: lies outside its tiling of {} tiles", tile.path, numbersText(counts)));
  }
  return std::monostate{};
}

/// All from one tiling, with the same fields, and no two for one place.
Check checkTogether(const std::vector<TileFile>& tiles) {
  const std::vector<Trait> expected = traitsOf(tiles.front().facts);
  std::map<std::array<std::uint64_t, 3>, const TileFile*> places;
  for (const TileFile& tile : tiles) {
    const std::vector<Trait> found = traitsOf(tile.facts);
    for (std::size_t i = 0; i < expected.size(); ++i) {
      if (found[i] == expected[i]) continue;
      return failedStop(fmt::format("{}: has another {} than {}, found {}, expected {}", tile.path,
                                    expected[i].first, tiles.front().path, found[i].second,
                                    expected[i].second));
    }
    Check isInside = checkInsideTiling(tile);
    if (!isInside.ok()) return isInside;
    const auto [place, isNew] =
        places.try_emplace({tile.index[0], tile.index[1], tile.index[2]}, &tile);
    if (isNew) continue;
    return failedStop(fmt::format("{}: is tile {} as well as {}", tile.path,
                                  Fiber::tileIndexText(tile.index), place->second->path));
  }
  return std::monostate{};
}

/// The tile files that the user named. Errors: no bundles, or the output among them.
Result<std::vector<std::string>> resolveTiles(const LinkOptions& options,
                                              const std::string& output) {
  const auto input = resolveInput(options.inputs);
  if (!input.ok()) return input.stop();
  if (input->kind != InputKind::Bundles) {
    return usageStop(input->files.front() + ": is no tile, expected a .f5 file");
  }
  for (const std::string& file : input->files) {
    if (file == output) return usageStop(file + ": is the output itself");
  }
  return input->files;
}

Result<std::vector<TileFile>> openTiles(const std::vector<std::string>& files) {
  std::vector<TileFile> tiles;
  for (const std::string& file : files) {
    auto tile = openTile(file);
    if (!tile.ok()) return tile.stop();
    tiles.push_back(std::move(*tile));
  }
  const Check together = checkTogether(tiles);
  if (!together.ok()) return together.stop();
  return tiles;
}

Check linkTiles(const std::vector<std::string>& files, const std::string& output,
                const LinkOptions& options, Session& session) {
  Fiber::StorageTransformations defaults = Fiber::StorageTransformations::defaults();
  defaults.durable = options.durable;
  Fiber::StorageTransformations::setDefaults(defaults);
  LidarLib::RefragmentAndSplit operation;
  operation.inputFiles = MemCore::makeStrong<std::vector<std::string>>(files);
  operation.outputFileName = output;
  operation.storageTransformations = MemCore::makeStrong<Fiber::StorageTransformations>(defaults);
  const auto progress =
      MemCore::makeStrong<TileProgress>(settleProgressMode(session.common(), session.terminal()),
                                        session.terminal().columns, session.messages());
  operation.tileProgress = progress;
  const MemCore::ConsoleRedirection redirection(
      [&](const std::string& message) { session.messages().detail(message); });
  const bool linked = operation.UpdateLinked();
  progress->finish();
  if (linked) return std::monostate{};
  if (operation.messages.empty()) return failedStop(output + ": not written");
  const std::string& reason = operation.messages.back();
  if (reason == "Interrupted") return Stop{ExitCode::Cancelled, "cancelled, nothing was written"};
  return failedStop(reason);
}

}  // namespace

ExitCode runLink(const LinkOptions& options, Session& session) {
  const auto output = prepareOutputFile(options.output, {".f5"}, options.force);
  if (!output.ok()) return session.stop(output.stop());
  const auto files = resolveTiles(options, *output);
  if (!files.ok()) return session.stop(files.stop());
  const auto tiles = openTiles(*files);
  if (!tiles.ok()) return session.stop(tiles.stop());
  const Check linked = linkTiles(*files, *output, options, session);
  if (!linked.ok()) return session.stop(linked.stop());

  LinkReport report;
  report.output = *output;
  report.tiles = files->size();
  const auto bundle = loadBundle(*output);
  if (!bundle.ok()) return session.stop(bundle.stop());
  report.grids = gatherFacts(*bundle->bundle, {});
  report.use = session.use();
  return session.afterPrint(session.print(linkText(report), linkJson(report)), ExitCode::Done);
}

}  // namespace Host
