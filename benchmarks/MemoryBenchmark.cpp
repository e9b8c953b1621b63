// SPDX-License-Identifier: Apache-2.0
//
// How much memory does the program take when its input is ten times larger than the budget that
// --memory gives it? Measured from outside, on the program itself. Allowed are the budget, one tile
// per thread with all its values, and 100 MB for everything else; the ratio is peak to that. Where
// nothing is built tile by tile, a fragment counts as the tile.
//
//   split, split --single-file, import, export    of a LAS survey; split and import of LAZ, too
//   link                                          of the tiles of that split

#include <fmt/format.h>

#include <algorithm>

#include "benchmarks/ChildProgram.hpp"
#include "benchmarks/Program.hpp"
#include "benchmarks/SurveyInput.hpp"
#include "datamodel/fiber/Bundle.hpp"

namespace Benchmarks {

namespace {

constexpr std::uint64_t kEverythingElse = 100'000'000;
constexpr std::uint64_t kBudgetShare = 10;
constexpr int kThreads = 2;
const Goal kPeak{"3", Bound::AtMost, 1.0};

struct Scene {
  std::string program;
  InputFacts las;
  InputFacts laz;
  double tiles = 100.0;

  /// Never less than some fragments: a tiny input would be decoded for every tile.
  std::uint64_t budget() const {
    constexpr std::uint64_t kLeast = 40'000'000;
    return std::max(kLeast, las.plainBytes() / kBudgetShare);
  }
};

/// Bytes of one fragment with all its fields.
std::uint64_t fragmentBytes(const Fiber::Representation& vertices,
                            const Fiber::FragmentHandle& fragment) {
  std::uint64_t bytes = 0;
  for (const auto& [name, field] : vertices.fields()) {
    const auto creator = field->getCreator(fragment);
    if (!creator) continue;
    const auto facts = creator->facts();
    if (facts.type && facts.size) bytes += facts.size->elementCount() * facts.type->elementBytes();
  }
  return bytes;
}

/// Bytes of the largest fragment of a bundle file.
MemCore::Outcome<std::uint64_t> largestFragment(const std::string& file) {
  bool ok = false;
  std::string failure;
  const auto bundle = Fiber::Bundle::load(
      ok, MemCore::makeStrong<MemCore::LoaderParameters>(MemCore::LoaderParameters{{file}, false}),
      nullptr, &failure);
  if (!ok) return MemCore::Failure{failure};
  std::uint64_t largest = 0;
  for (const auto& [time, slice] : bundle->slices()) {
    for (const auto& [name, grid] : slice->grids()) {
      const auto vertices = grid->getCartesianRepresentation("");
      for (const auto& fragment : vertices->fragments()->all()) {
        largest = std::max(largest, fragmentBytes(*vertices, fragment));
      }
    }
  }
  return largest;
}

/// One use of the program; `unit` is the bundle whose largest fragment one thread may hold.
struct Use {
  std::string name;
  std::vector<std::string> arguments;
  std::string unit;
};

void measure(Bench& bench, const Scene& scene, Use use) {
  use.arguments.insert(use.arguments.end(), {"--memory", std::to_string(scene.budget()),
                                             "--threads", std::to_string(kThreads), "--quiet"});
  // Once is enough: unlike time, a peak of memory hardly varies.
  const auto measured = measureProgram(scene.program, use.arguments, bench.workspace.folder());
  if (!measured.ok()) return bench.report.fail(use.name + ": " + measured.error());
  const auto unit = largestFragment(use.unit);
  if (!unit.ok()) return bench.report.fail(use.name + ": " + unit.error());
  const std::uint64_t allowed = scene.budget() + kThreads * *unit + kEverythingElse;
  Finding finding;
  finding.goal = kPeak;
  finding.name =
      fmt::format("{}, budget {:.0f} MB", use.name, static_cast<double>(scene.budget()) / 1e6);
  finding.ratio = static_cast<double>(measured->peakBytes) / static_cast<double>(allowed);
  finding.peakBytes = measured->peakBytes;
  finding.figures = {{"MB allowed", static_cast<double>(allowed) / 1e6},
                     {"MB per tile", static_cast<double>(*unit) / 1e6},
                     {"s", measured->seconds}};
  bench.report.add(finding);
}

/// The uses in an order in which each finds what it reads.
std::vector<Use> allUses(const Bench& bench, const Scene& scene) {
  const auto in = [&](const char* name) { return bench.workspace.path(name); };
  const std::string length = fmt::format("{:.3f}", scene.las.edgeForTiles(scene.tiles));
  const auto split = [&](const InputFacts& input, const std::string& output) {
    return std::vector<std::string>{"split",     input.path,          "-o",  output,
                                    "--no-sync", "--fragment-length", length};
  };
  auto single = split(scene.las, in("single.f5"));
  single.emplace_back("--single-file");
  return {{"split LAS", split(scene.las, in("las.f5")), in("las.f5")},
          {"split LAZ", split(scene.laz, in("laz.f5")), in("laz.f5")},
          {"split --single-file", single, in("single.f5")},
          {"link", {"link", in("las"), "-o", in("linked.f5")}, in("linked.f5")},
          {"import LAS",
           {"import", scene.las.path, "-o", in("import.f5"), "--no-sync"},
           in("import.f5")},
          {"import LAZ",
           {"import", scene.laz.path, "-o", in("laz_import.f5"), "--no-sync"},
           in("laz_import.f5")},
          {"export LAS", {"export", in("las.f5"), "-o", in("export.las")}, in("las.f5")},
          {"export LAZ", {"export", in("las.f5"), "-o", in("export.laz")}, in("las.f5")},
          {"export of tiles", {"export", in("las.f5"), "-o", in("tiles_out")}, in("las.f5")},
          {"export of one bundle",
           {"export", in("import.f5"), "-o", in("import.laz")},
           in("import.f5")}};
}

void run(Bench& bench, Scene scene, std::uint64_t points) {
  const auto las = makeSurvey(bench.workspace.path("survey.las"), points);
  if (!las.ok()) return bench.report.fail(las.error());
  const auto laz = makeSurvey(bench.workspace.path("survey.laz"), points);
  if (!laz.ok()) return bench.report.fail(laz.error());
  scene.las = *las;
  scene.laz = *laz;
  bench.report.say(fmt::format("{} points, {:.0f} MB as LAS, {} threads", las->points,
                               static_cast<double>(las->plainBytes()) / 1e6, kThreads));
  for (Use& use : allUses(bench, scene)) measure(bench, scene, std::move(use));
}

}  // namespace

}  // namespace Benchmarks

int main(int argc, char** argv) {
  Benchmarks::Program program("memory_benchmark",
                              "Measures the program's memory against its budget");
  Benchmarks::Scene scene;
  scene.program = Benchmarks::builtProgram();
  std::uint64_t points = 20'000'000;
  program.flags().add_option("--program", scene.program, "The program [as built beside this one]");
  program.flags().add_option("--points", points, "Points of the synthetic survey");
  return program.run(argc, argv, [&](Benchmarks::Bench& bench) {
    if (bench.isSmoke) scene.tiles = 9.0;
    Benchmarks::run(bench, scene, bench.isSmoke ? 20'000 : points);
  });
}
