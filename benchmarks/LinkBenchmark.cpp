// SPDX-License-Identifier: Apache-2.0
//
// What a bundle over very many tile files costs. Every step stands beside the floor of the same
// run: opening each file, reading its first block and closing it again.
//
//   link     UpdateLinked over all files
//   open     loading the linked bundle: the facts of every tile
//   look up  opening, and then the box of every tile by its index, in scattered order
//   verify   whether every tile is the one that was linked, points unread
//
// All tiles are copies of one small file under different names.

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>

#include "benchmarks/MeasuredChild.hpp"
#include "datamodel/container/StoredCreator.hpp"
#include "datamodel/memcore/Console.hpp"
#include "operation/RefragmentAndSplit.hpp"

namespace fs = std::filesystem;

namespace Benchmarks {

namespace {

using Eagle::PhysicalSpace;
using MemCore::Failure;
using MemCore::Outcome;

struct Scene {
  std::string folder;
  std::uint32_t edge = 0;  ///< tiles along x and y
  std::vector<std::string> tiles;

  std::string linked() const { return folder + "/linked.f5"; }
};

Fiber::BundlePtr load(const std::string& file) {
  bool ok = false;
  return Fiber::Bundle::load(
      ok, MemCore::makeStrong<MemCore::LoaderParameters>(MemCore::LoaderParameters{{file}, false}),
      nullptr);
}

/// One tile of a hundred points in a tiling of edge x edge tiles.
Outcome<void> saveTile(const std::string& file, std::uint32_t edge) {
  const Fiber::BundlePtr bundle(new Fiber::Bundle);
  const auto grid = (*(*bundle)[0.0])["points"];
  const auto dims = MemCore::makeStrong<MemCore::Chunk<unsigned int>>(
      std::initializer_list<unsigned int>{edge, edge, 1});
  grid->attributes().setAttribute("FragDims", dims);
  const auto points = MemCore::makeStrong<MemCore::Chunk<PhysicalSpace::point>>();
  for (int i = 0; i < 100; ++i) points->push_back({0.25 * i, 0.5 * i, 1.0});
  const auto representation = grid->makeCartesianRepresentation(3, "", 0);
  representation->makeField(representation->makeFieldID("Positions"), nullptr,
                            Fiber::makeArray<PhysicalSpace::point>(points));
  return bundle->save(file, nullptr, nullptr);
}

Outcome<Scene> makeScene(const std::string& folder, std::uint64_t count) {
  Scene scene{folder, static_cast<std::uint32_t>(std::ceil(std::sqrt(double(count)))), {}};
  fs::remove_all(folder);
  fs::create_directories(folder);
  const std::string first = folder + "/first.f5";
  if (auto saved = saveTile(first, scene.edge); !saved.ok()) return saved.failure();
  for (std::uint64_t t = 0; t < count; ++t) {
    scene.tiles.push_back(
        fmt::format("{}/F{}x{}x0T0.000000Gpoints.f5", folder, t % scene.edge, t / scene.edge));
    fs::copy_file(first, scene.tiles.back());
  }
  return scene;
}

Outcome<std::uint64_t> openAndClose(const Scene& scene) {
  std::array<char, 4096> block{};
  std::uint64_t opened = 0;
  for (const std::string& tile : scene.tiles) {
    const int file = ::open(tile.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) return Failure{tile + ": cannot be opened"};
    opened += ::read(file, block.data(), block.size()) > 0 ? 1 : 0;
    ::close(file);
  }
  return opened;
}

Outcome<std::uint64_t> linkAll(const Scene& scene) {
  const MemCore::ConsoleRedirection quiet([](const std::string&) {});
  LidarLib::RefragmentAndSplit operation;
  operation.inputFiles = MemCore::makeStrong<std::vector<std::string>>(scene.tiles);
  operation.outputFileName = scene.linked();
  if (!operation.UpdateLinked()) return Failure{"link failed"};
  return scene.tiles.size();
}

MemCore::StrongPtr<Fiber::Field> positionsOf(const Fiber::BundlePtr& bundle) {
  const auto grid = bundle ? (*(*bundle)[0.0]).findGrid("LinkedGrid") : nullptr;
  return grid ? grid->CartesianPositions() : nullptr;
}

Outcome<std::uint64_t> openLinked(const Scene& scene) {
  const auto positions = positionsOf(load(scene.linked()));
  if (!positions) return Failure{"the linked bundle cannot be opened"};
  return positions->getFragmentIDs().size();
}

Outcome<std::uint64_t> verifyAll(const Scene& scene) {
  const auto bundle = load(scene.linked());
  const auto positions = positionsOf(bundle);
  if (!positions) return Failure{"the linked bundle cannot be opened"};
  const auto ids = positions->getFragmentIDs();
  std::uint64_t good = 0;
#pragma omp parallel for schedule(dynamic, 16) reduction(+ : good)
  for (std::size_t i = 0; i < ids.size(); ++i) {
    const auto stored =
        MemCore::handleCast<Fiber::Container::StoredCreator>(positions->getCreator(ids[i]));
    good += stored && stored->checkSource().ok() ? 1 : 0;
  }
  return good;
}

/// Asks for the boxes of all tiles in scattered order.
Outcome<std::uint64_t> lookUpMany(const Scene& scene) {
  const auto regular =
      MemCore::handleCast<Fiber::RegularlyFragmentedField<3>>(positionsOf(load(scene.linked())));
  if (!regular) return Failure{"the linked bundle cannot be opened"};
  std::uint64_t found = 0;
  for (std::size_t t = 0; t < scene.tiles.size(); ++t) {
    const std::size_t at = t * 7919 % scene.tiles.size();
    const auto creator =
        regular->getCreator(regular->fragmentAt({{at % scene.edge, at / scene.edge, 0}}));
    found += creator && creator->facts().box ? 1 : 0;
  }
  return found;
}

int runAll(const std::string& folder, std::uint64_t count) {
  const auto scene = makeScene(folder, count);
  if (!scene.ok()) {
    fmt::print(stderr, "link_benchmark: {}\n", scene.error());
    return 1;
  }
  struct Step {
    const char* name;
    Outcome<std::uint64_t> (*work)(const Scene&);
  };
  constexpr std::array kSteps = {Step{"floor: open, read a block, close", openAndClose},
                                 Step{"link", linkAll}, Step{"open the linked bundle", openLinked},
                                 Step{"open and look up every tile", lookUpMany},
                                 Step{"verify, points unread", verifyAll}};
  double floor = 0.0;
  int status = 0;
  for (const Step& step : kSteps) {
    const auto measured = measureInChild([&] { return step.work(*scene); });
    if (!measured.ok() || measured->points != count) {
      fmt::print(stderr, "link_benchmark: {}: {}\n", step.name,
                 measured.ok() ? "wrong answer" : measured.error());
      status = 1;
      continue;
    }
    if (floor == 0.0) floor = measured->seconds;
    fmt::print("{:<34} {:8.3f} s  {:8.2f} us per tile  peak {:6.0f} MB | ratio to floor {:6.2f}\n",
               step.name, measured->seconds, measured->seconds / static_cast<double>(count) * 1e6,
               static_cast<double>(measured->peakBytes) / 1e6, measured->seconds / floor);
    std::fflush(stdout);
  }
  fs::remove_all(folder);
  return status;
}

}  // namespace

}  // namespace Benchmarks

int main(int argc, char** argv) {
  CLI::App app("Measures bundles over very many tile files");
  std::string folder = (fs::temp_directory_path() / fmt::format("link_benchmark.{}", ::getpid()));
  std::uint64_t count = 100'000;
  bool isSmoke = false;
  app.add_option("--folder", folder, "Working folder, made, emptied and removed");
  app.add_option("--tiles", count, "Number of tile files");
  app.add_flag("--smoke", isSmoke, "One tiny pass");
  CLI11_PARSE(app, argc, argv);
  return Benchmarks::runAll(folder, isSmoke ? 20 : std::max<std::uint64_t>(1, count));
}
