// SPDX-License-Identifier: Apache-2.0

#include "host/ImportCommand.hpp"

#include <omp.h>

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <unordered_set>

#include "datamodel/memcore/Cache.hpp"
#include "datamodel/memcore/LoaderProgress.hpp"
#include "host/InputLoader.hpp"
#include "host/JsonReport.hpp"
#include "host/NameRules.hpp"
#include "host/OutputFile.hpp"
#include "host/Signals.hpp"
#include "host/TextReport.hpp"

namespace Host {

namespace {

/// Ends a save when the user has asked to stop.
class StopProgress final : public MemCore::LoaderProgress {
 public:
  bool report(const std::string& /*text*/, std::uint64_t /*current*/,
              std::uint64_t /*total*/) override {
    return !stopRequested();
  }
};

/// The clouds of the input, opened. Errors: also bundles, which need no import.
Result<LoadedInput> openClouds(const ImportOptions& options, ResolvedInput& input) {
  const auto name = checkGridName(options.grid);
  if (!name.ok()) return usageStop("--grid: " + name.error());
  auto resolved = resolveInput(options.inputs);
  if (!resolved.ok()) return resolved.stop();
  if (resolved->kind == InputKind::Bundles) {
    return usageStop(resolved->files.front() + ": is a bundle already, expected point clouds");
  }
  input = *resolved;
  return loadInput(input, {options.grid, options.time, options.keepOrder, options.columns});
}

std::uint64_t bytesOf(const Fiber::CreativeArrayBase& creator) {
  const Fiber::ArrayFacts facts = creator.facts();
  return facts.type && facts.size ? facts.size->elementCount() * facts.type->elementBytes() : 0;
}

/// At least what the columns of any one fragment take.
std::uint64_t largestFragment(const Fiber::Grid& grid) {
  const auto vertices = grid.skeletons().findVertices(-1);
  std::uint64_t sum = 0;
  std::unordered_set<unsigned long long> visited;
  if (!vertices) return sum;
  vertices->iterate_fields(
      [&](const MemCore::WeakPtr<Fiber::BaseSpace>&, Fiber::Representation&, const Fiber::FieldID&,
          const MemCore::StrongPtr<Fiber::Field>& field) {
        std::uint64_t largest = 0;
        for (const auto& id : field->getFragmentIDs()) {
          if (const auto creator = field->getCreator(id)) {
            largest = std::max(largest, bytesOf(*creator));
          }
        }
        sum += largest;
        return true;
      },
      visited);
  return sum;
}

/// LAS files are decoded as the bundle is written, each fragment once and by one thread: a cache
/// beyond those in work would only make each take fresh memory. (Text was parsed before, into the
/// cache.)
void limitCache(InputKind kind, const Fiber::Bundle& bundle) {
  if (kind != InputKind::PointClouds) return;
  std::uint64_t largest = 0;
  for (const auto& [time, slice] : bundle.slices()) {
    for (const auto& [name, grid] : slice->grids()) {
      largest = std::max(largest, largestFragment(*grid));
    }
  }
  const std::uint64_t inWork = 2 * largest * static_cast<std::uint64_t>(omp_get_max_threads());
  const auto cache = MemCore::Cache::MemCache();
  cache->setBudget(std::min(cache->budget(), inWork));
}

Check saveBundle(Fiber::Bundle& bundle, const std::string& output, const StorageOptions& storage) {
  const auto transformations = MemCore::makeStrong<Fiber::StorageTransformations>();
  transformations->kind = storage.kind;
  transformations->durable = storage.durable;
  const auto progress = MemCore::makeStrong<StopProgress>();
  const auto saved = bundle.save(output, progress, transformations);
  if (saved.ok()) return std::monostate{};
  if (stopRequested()) return Stop{ExitCode::Cancelled, "cancelled, nothing was written"};
  return saved.failure();
}

std::uint64_t fileBytes(const std::string& path) {
  std::error_code error;
  const auto bytes = std::filesystem::file_size(path, error);
  return error ? 0 : bytes;
}

}  // namespace

ExitCode runImport(const ImportOptions& options, Session& session) {
  ResolvedInput input;
  const auto loaded = openClouds(options, input);
  if (!loaded.ok()) return session.stop(loaded.stop());
  session.warnOfAll(loaded->notes);
  const auto output = prepareOutputFile(options.output, {".f5"}, options.force);
  if (!output.ok()) return session.stop(output.stop());
  limitCache(input.kind, *loaded->bundle);
  const Check saved = saveBundle(*loaded->bundle, *output, options.storage);
  if (!saved.ok()) return session.stop(saved.stop());
  session.warnOfAll(loaded->lateNotes());

  ImportReport report;
  report.output = *output;
  report.inputs = input.files;
  report.grids = gatherFacts(*loaded->bundle, {});
  report.bytes = fileBytes(*output);
  report.use = session.use();
  return session.afterPrint(session.print(importText(report), importJson(report)), ExitCode::Done);
}

}  // namespace Host
