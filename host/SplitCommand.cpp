// SPDX-License-Identifier: Apache-2.0

#include "host/SplitCommand.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "datamodel/container/AtomicFile.hpp"
#include "datamodel/memcore/Console.hpp"
#include "host/InputLoader.hpp"
#include "host/JsonReport.hpp"
#include "host/NameRules.hpp"
#include "host/NumberText.hpp"
#include "host/OutputFile.hpp"
#include "host/Restart.hpp"
#include "host/RunListener.hpp"
#include "host/Signals.hpp"
#include "host/SourceOrder.hpp"
#include "host/TextReport.hpp"
#include "host/TileProgress.hpp"
#include "host/export/TileOwnership.hpp"

namespace Host {

namespace {

/// What a split has gathered on its way.
struct SplitJob {
  const SplitOptions& options;
  Session& session;
  OutputPlace place{};
  std::string runOutput{};  ///< what the run writes: the output, or what becomes it
  ResolvedInput input{};
  LoadedInput loaded{};
  LidarLib::RefragmentAndSplit operation{};
  SplitPlan plan{};
  PlanRecord record{};
  StartKind start = StartKind::Fresh;
  std::vector<DroppedTiles> dropped{};
  TileEvidence evidence{};
};

/// Whether the input can tell the order of its points, where that is asked for.
Check checkOrder(const SplitJob& job) {
  if (!job.options.keepOrder) return std::monostate{};
  FilterOptions places = job.options.filters;
  places.fields.clear();
  const auto grids = selectGrids(*job.loaded.bundle, places);
  return grids.ok() ? checkSourceOrder(*grids) : Check(grids.stop());
}

/// Opens the input and makes sure that it survives the run.
Check openJob(SplitJob& job) {
  auto place = settleOutputPlace(job.options.output, job.options.outputDirectory);
  if (!place.ok()) return place.stop();
  job.place = std::move(*place);
  auto input = resolveInput(job.options.inputs);
  if (!input.ok()) return input.stop();
  job.input = std::move(*input);
  Check isSafe = checkInputIsSafe(job.place, job.input);
  if (!isSafe.ok()) return isSafe;
  CloudPlace cloud;
  cloud.keepOrder = job.options.keepOrder;
  cloud.columns = job.options.columns;
  cloud.spillFolder = nearestFolder(job.place);
  auto loaded = loadInput(job.input, cloud);
  if (!loaded.ok()) return loaded.stop();
  job.loaded = std::move(*loaded);
  job.session.warnOfAll(job.loaded.notes);
  return checkOrder(job);
}

std::string sourceText(const std::vector<std::string>& files) {
  const std::string first = std::filesystem::path(files.front()).filename().string();
  return files.size() == 1 ? first : fmt::format("{} and {} more", first, files.size() - 1);
}

/// Gives the operation everything that it needs to know.
void configure(SplitJob& job, const std::string& firstGrid) {
  LidarLib::RefragmentAndSplit& operation = job.operation;
  applyOptions(job.options.tiling, job.options.filters, operation);
  operation.inputBundle = job.loaded.bundle;
  operation.outputDirectory = job.place.directory;
  // A single file gets its name when the run has come to its end: one that was cancelled has
  // written only some of the tiles.
  job.runOutput = job.options.singleFile ? job.place.file + ".unfinished" : job.place.file;
  operation.outputFileName = job.runOutput;
  operation.outputGridName = job.options.outputGrid.empty() ? firstGrid : job.options.outputGrid;
  operation.provenanceSource = sourceText(job.input.files);
  operation.provenanceDescription = "refragment " REFRAGMENT_VERSION;
}

/// Settles which grids are split and how.
Check planJob(SplitJob& job) {
  const auto grids = selectGrids(*job.loaded.bundle, job.options.filters);
  if (!grids.ok()) return grids.stop();
  Check isDistinct = checkDistinctTimes(*grids);
  if (!isDistinct.ok()) return isDistinct;
  configure(job, grids->front().name);
  const auto name = checkOutputGridName(job.operation.outputGridName);
  if (!name.ok()) return usageStop("--output-grid: " + name.error());

  job.plan = makePlan(*grids, job.options.tiling, job.operation);
  const std::string failure = job.plan.failure();
  if (!failure.empty()) return failedStop(failure);
  for (const std::string& detail : job.plan.details) job.session.messages().detail(detail);
  for (const std::string& note : job.plan.notes) job.session.messages().note(note);
  job.session.warnOfAll(job.plan.warnings);
  auto record = describePlan(job.options, job.input, job.plan, job.place.file);
  if (!record.ok()) return record.stop();
  job.record = std::move(*record);
  return std::monostate{};
}

/// Removes what dead runs left in the folders of the output.
Check removeLeftovers(const OutputPlace& place) {
  const std::string outputFolder = std::filesystem::path(place.file).parent_path().string();
  for (const std::string& folder : {outputFolder, place.tileFolder}) {
    const auto removed = Fiber::Container::removeStaleTemporaries(folder);
    if (!removed.ok()) return removed.failure();
  }
  return std::monostate{};
}

/// Takes the place in possession: folders, plan file, nothing of other plans.
Check occupyPlace(SplitJob& job) {
  if (stopRequested()) return Stop{ExitCode::Cancelled, "cancelled, nothing was written"};
  if (job.options.singleFile) {
    const auto output = prepareOutputFile(job.options.output, {".f5"}, job.options.force);
    return output.ok() ? Check(std::monostate{}) : Check(output.stop());
  }
  if (job.options.force) {
    const auto start = judgeExisting(job.place, job.record);
    if (!start.ok()) {
      Check deleted = deleteExisting(job.place);
      if (!deleted.ok()) return deleted;
    }
  }
  const auto start = judgeExisting(job.place, job.record);
  if (!start.ok()) return start.stop();
  job.start = *start;
  Check made = makeFolders(job.place);
  if (!made.ok()) return made;
  Check isClean = removeLeftovers(job.place);
  if (!isClean.ok()) return isClean;
  const auto written = writePlanFile(planFilePath(job.place.tileFolder), job.record);
  if (written.ok()) return std::monostate{};
  std::error_code ignored;  // the folder goes away only if nothing is in it
  std::filesystem::remove(job.place.tileFolder, ignored);
  return written.failure();
}

void setStorage(const StorageOptions& storage) {
  Fiber::StorageTransformations defaults = Fiber::StorageTransformations::defaults();
  defaults.kind = storage.kind;
  defaults.durable = storage.durable;
  Fiber::StorageTransformations::setDefaults(defaults);
}

/// Runs the operation and counts what can only be counted while it runs. Errors: the output
/// directory cannot be entered.
/// Tiles inherit what the grids of the input say.
void keepTilingOrigins(const SplitPlan& plan) {
  for (const GridForecast& forecast : plan.grids) {
    keepTilingOrigin(*forecast.source.grid, forecast.layout);
  }
}

Check runOperation(SplitJob& job) {
  const auto inside = WorkingFolder::enter(job.place.directory);
  if (!inside.ok()) return inside.stop();
  setStorage(job.options.storage);
  keepTilingOrigins(job.plan);
  Session& session = job.session;
  const auto progress =
      MemCore::makeStrong<TileProgress>(settleProgressMode(session.common(), session.terminal()),
                                        session.terminal().columns, session.messages());
  job.operation.tileProgress = progress;
  RunListener listener(
      session.messages(),
      [&](std::size_t grid) {
        progress->beginGrid(grid < job.plan.grids.size() ? job.plan.grids[grid].pointCount : 0);
      },
      job.options.singleFile ? kUnlinkedGridBegins : kSplitGridBegins);
  job.evidence.filesBefore = listTileFiles(job.place.tileFolder).size();
  {
    const MemCore::ConsoleRedirection redirection(
        [&listener](const std::string& message) { listener.hear(message); });
    if (job.options.singleFile) {
      job.operation.RunUnlinked();
    } else {
      job.operation.Run();
    }
  }
  progress->finish();
  job.evidence.filesAfter = listTileFiles(job.place.tileFolder).size();
  job.evidence.withData = progress->tilesWithData();
  job.dropped = listener.dropped();
  return std::monostate{};
}

/// The text with every `from` replaced.
std::string replaced(std::string text, const std::string& from, const std::string& to) {
  for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  return text;
}

RunMessages sortedMessages(const SplitJob& job) {
  return sortMessages(job.operation.messages, job.options.singleFile ? job.place.file + ": tile "
                                                                     : job.place.tileFolder + "/");
}

/// Says what went wrong, the first few tiles by name.
void tellFailures(const RunMessages& sorted, Messages& messages) {
  constexpr std::size_t kHandful = 3;
  const auto& tiles = sorted.tileFailures;
  for (std::size_t i = 0; i < std::min(kHandful, tiles.size()); ++i) messages.error(tiles[i]);
  for (std::size_t i = kHandful; i < tiles.size(); ++i) messages.detail(tiles[i]);
  for (const std::string& failure : sorted.failures) messages.error(failure);
}

/// Why a single file must not get its name: it lacks tiles.
Check requireAllTiles(SplitJob& job) {
  const RunMessages sorted = sortedMessages(job);
  if (sorted.interrupted != 0) return Stop{ExitCode::Cancelled, "cancelled, nothing was written"};
  tellFailures(sorted, job.session.messages());
  if (!sorted.tileFailures.empty()) {
    return failedStop(countText(sorted.tileFailures.size(), "tile") +
                      " failed, nothing was written");
  }
  if (!sorted.failures.empty()) return failedStop(job.place.file + ": nothing was written");
  return std::monostate{};
}

/// Gives a single file its name, or removes it when it lacks tiles.
Check publishSingleFile(SplitJob& job) {
  if (!job.options.singleFile) return std::monostate{};
  for (std::string& text : job.operation.messages) {
    text = replaced(text, job.runOutput, job.place.file);
  }
  std::error_code error;
  Check isWhole = requireAllTiles(job);
  if (!isWhole.ok()) {
    std::filesystem::remove(job.runOutput, error);
    return isWhole;
  }
  std::filesystem::rename(job.runOutput, job.place.file, error);
  if (error) return failedStop(job.place.file + ": cannot be written: " + error.message());
  if (!job.options.storage.durable) return std::monostate{};
  const auto synced = Fiber::Container::syncFolder(job.place.file);
  return synced.ok() ? Check(std::monostate{}) : Check(synced.failure());
}

/// Tiles that a bundle holds data of.
std::uint64_t tilesIn(const Fiber::BundlePtr& bundle) {
  std::uint64_t tiles = 0;
  if (!bundle) return tiles;
  for (const GridFacts& grid : gatherFacts(*bundle, {})) tiles += grid.fragments.size();
  return tiles;
}

/// The operation's messages and the host's warnings, once each.
std::vector<std::string> allMessages(const SplitJob& job) {
  std::vector<std::string> messages;
  bool wasInterrupted = false;
  for (const std::string& message : job.operation.messages) {
    const bool isRepeated = message == "Interrupted" && std::exchange(wasInterrupted, true);
    if (!isRepeated) messages.push_back(message);
  }
  for (std::string& warning : job.session.messages().warnings()) {
    messages.push_back(std::move(warning));
  }
  return messages;
}

SplitReport makeReport(SplitJob& job, const RunMessages& messages) {
  const auto written = loadBundle(job.place.file);
  const Fiber::BundlePtr output = written.ok() ? written->bundle : Fiber::BundlePtr();
  if (job.options.singleFile) job.evidence.filesAfter = tilesIn(output);
  SplitReport report;
  report.output = job.place.file;
  if (!job.options.singleFile) report.tileFolder = job.place.tileFolder;
  report.plan = job.plan;
  report.tiling = job.options.tiling;
  report.isResumed = job.start == StartKind::Resumed;
  report.tiles = summariseTiles(job.plan, job.evidence, messages, job.dropped);
  report.balances = balancePoints(job.plan, job.dropped, output, job.operation.outputGridName);
  report.isCompared = output && job.options.tiling.overlap == 0.0 && report.tiles.failed == 0 &&
                      report.tiles.pending == 0;
  report.messages = allMessages(job);
  report.use = job.session.use();
  return report;
}

void tellDifferences(const SplitReport& report, Messages& messages) {
  for (const PointBalance& balance : report.balances) {
    if (balance.output == balance.expected()) continue;
    messages.error(
        fmt::format("grid {} at time {}: point totals differ, found {} in the output, expected {}",
                    balance.grid, exactText(balance.time), countText(balance.output),
                    countText(balance.expected())));
  }
}

/// Says what went wrong and settles the exit status.
ExitCode judge(const SplitReport& report, const RunMessages& sorted, Messages& messages) {
  tellFailures(sorted, messages);
  if (sorted.interrupted != 0) {
    messages.error(fmt::format("cancelled with {} to do; the same command again goes on from here",
                               countText(report.tiles.pending, "tile")));
    return ExitCode::Cancelled;
  }
  if (!sorted.tileFailures.empty()) {
    messages.error(fmt::format("{} failed; the same command again goes on with them",
                               countText(sorted.tileFailures.size(), "tile")));
    return ExitCode::TilesFailed;
  }
  if (!sorted.failures.empty()) return ExitCode::Failed;
  if (!differs(report)) return ExitCode::Done;
  tellDifferences(report, messages);
  return ExitCode::Differs;
}

ExitCode conclude(SplitJob& job) {
  Session& session = job.session;
  session.warnOfAll(job.loaded.lateNotes());
  const RunMessages sorted = sortedMessages(job);
  const SplitReport report = makeReport(job, sorted);
  const bool printed = session.print("\n" + splitText(report), splitJson(report));
  return session.afterPrint(printed, judge(report, sorted, session.messages()));
}

}  // namespace

ExitCode runSplit(const SplitOptions& asked, Session& session) {
  SplitOptions options = asked;
  if (options.keepOrder) options.filters = withSourceOrder(options.filters);
  SplitJob job{options, session};
  for (const auto step : {openJob, planJob, occupyPlace}) {
    const Check done = step(job);
    if (!done.ok()) return session.stop(done.stop());
  }
  if (!session.print(planText(job.plan, options.tiling), "")) {
    return session.afterPrint(false, ExitCode::Failed);
  }
  if (job.start == StartKind::Resumed) {
    session.messages().note(fmt::format(
        "going on with {} of the same plan in {}",
        countText(listTileFiles(job.place.tileFolder).size(), "tile"), job.place.tileFolder));
  }
  for (const auto step : {runOperation, publishSingleFile}) {
    const Check done = step(job);
    if (!done.ok()) return session.stop(done.stop());
  }
  return conclude(job);
}

}  // namespace Host
