// SPDX-License-Identifier: Apache-2.0
//
// What a bundle over very many tile files costs. Linking stands beside opening and closing each
// file with the HDF5 library, everything else beside opening each file, reading its first block and
// closing it again.
//
//   link     UpdateLinked over all files
//   open     loading the linked bundle: the facts of every tile
//   look up  opening, and then the box of every tile by its index, in scattered order
//   verify   whether every tile is the one that was linked, points unread
//
// All tiles are copies of one small file under different names. A bundle over far more tiles than
// fit a disk is the matter of TableBenchmark.cpp.

#include <fcntl.h>
#include <fmt/format.h>
#include <hdf5.h>
#include <unistd.h>

#include <array>

#include "benchmarks/LinkScene.hpp"
#include "benchmarks/Program.hpp"
#include "datamodel/container/StoredCreator.hpp"
#include "datamodel/fiber/Bundle.hpp"

namespace Benchmarks {

namespace {

using MemCore::Failure;
using MemCore::Outcome;

Fiber::BundlePtr load(const std::string& file) {
  bool ok = false;
  return Fiber::Bundle::load(
      ok, MemCore::makeStrong<MemCore::LoaderParameters>(MemCore::LoaderParameters{{file}, false}),
      nullptr);
}

Outcome<std::uint64_t> openAndClose(const LinkScene& scene) {
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

Outcome<std::uint64_t> openAndCloseWithLibrary(const LinkScene& scene) {
  std::uint64_t opened = 0;
  for (const std::string& tile : scene.tiles) {
    const hid_t file = H5Fopen(tile.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT);
    if (file < 0) return Failure{tile + ": cannot be opened"};
    opened += H5Fclose(file) >= 0 ? 1 : 0;
  }
  return opened;
}

MemCore::StrongPtr<Fiber::Field> positionsOf(const Fiber::BundlePtr& bundle) {
  const auto grid = bundle ? (*(*bundle)[0.0]).findGrid("LinkedGrid") : nullptr;
  return grid ? grid->CartesianPositions() : nullptr;
}

Outcome<std::uint64_t> openLinked(const LinkScene& scene) {
  const auto positions = positionsOf(load(scene.linked()));
  if (!positions) return Failure{"the linked bundle cannot be opened"};
  return positions->getFragmentIDs().size();
}

Outcome<std::uint64_t> verifyAll(const LinkScene& scene) {
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
Outcome<std::uint64_t> lookUpMany(const LinkScene& scene) {
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

using Work = Outcome<std::uint64_t> (*)(const LinkScene&);

struct Step {
  Goal goal;
  const char* name;
  Work floor;
  Work work;
};

void compare(Bench& bench, const LinkScene& scene, const Step& step) {
  const auto count = static_cast<double>(scene.tiles.size());
  bench.compare(step.goal, fmt::format("{} ({:.0f} tiles)", step.name, count),
                inChild([&] { return step.floor(scene); }),
                inChild([&] { return step.work(scene); }),
                [&](Finding& finding, const Comparison& compared) {
                  finding.figures.emplace_back("us per tile", compared.work.seconds / count * 1e6);
                  const bool isRight = compared.work.points == scene.tiles.size() &&
                                       compared.floor.points == scene.tiles.size();
                  return std::string(isRight ? "" : "wrong answer");
                });
}

void run(Bench& bench, std::uint64_t count) {
  const auto scene = makeLinkScene(bench.workspace.path("tiles"), count);
  if (!scene.ok()) return bench.report.fail(scene.error());
  // Made once before anything is measured: the steps after linking read what it writes.
  const auto linked = measureInChild([&] { return linkAll(*scene); });
  if (!linked.ok()) return bench.report.fail(linked.error());
  bench.report.say(fmt::format("{} tile files of 100 points", count));
  const Goal linking{"7a", Bound::AtMost, 1.5};
  for (const Step& step :
       {Step{{}, "link, to open + close by the system", openAndClose, linkAll},
        Step{{}, "open the linked bundle", openAndClose, openLinked},
        Step{{}, "open and look up every tile", openAndClose, lookUpMany},
        Step{{}, "verify, points unread", openAndClose, verifyAll},
        Step{linking, "link, to open + close by HDF5", openAndCloseWithLibrary, linkAll}}) {
    compare(bench, *scene, step);
  }
}

}  // namespace

}  // namespace Benchmarks

int main(int argc, char** argv) {
  Benchmarks::Program program("link_benchmark", "Measures bundles over very many tile files");
  std::uint64_t count = 100'000;
  program.flags().add_option("--tiles", count, "Number of tile files")->check(CLI::PositiveNumber);
  return program.run(argc, argv, [&](Benchmarks::Bench& bench) {
    Benchmarks::run(bench, bench.isSmoke ? 20 : count);
  });
}
