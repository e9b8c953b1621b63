// SPDX-License-Identifier: Apache-2.0

#include "host/ImportCommand.hpp"

#include <algorithm>
#include <filesystem>
#include <system_error>

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

/// LAS files are decoded as the bundle is written, each fragment once: a cache beyond those in work
/// would only make each take fresh memory. (Text was parsed before, into the cache.)
void limitCache(InputKind kind) {
  if (kind != InputKind::PointClouds) return;
  constexpr std::uint64_t kFragmentsInWork = std::uint64_t{256} << 20U;
  const auto cache = MemCore::Cache::MemCache();
  cache->setBudget(std::min(cache->budget(), kFragmentsInWork));
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
  limitCache(input.kind);
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
