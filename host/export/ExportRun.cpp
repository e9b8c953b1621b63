// SPDX-License-Identifier: Apache-2.0

#include "host/export/ExportRun.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <omp.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <system_error>

#include "formats/export/LasTarget.hpp"
#include "formats/export/Scaling.hpp"
#include "formats/export/TextExport.hpp"
#include "formats/las/ExceptionEdge.hpp"
#include "host/Session.hpp"
#include "host/Signals.hpp"
#include "host/TileProgress.hpp"

namespace Host {

using Formats::LasExportOptions;
using Formats::WaveformPlace;
using MemCore::Outcome;

namespace {

WaveformPlace placeOf(WaveformChoice choice) {
  switch (choice) {
    case WaveformChoice::External:
      return WaveformPlace::Beside;
    case WaveformChoice::Internal:
      return WaveformPlace::Inside;
    case WaveformChoice::None:
      break;
  }
  return WaveformPlace::Nowhere;
}

LasExportOptions lasOptions(const ExportOptions& options, PointFileKind kind) {
  LasExportOptions las;
  las.pointFormat = options.pointFormat;
  if (options.scale) las.scale = {options.scale->x, options.scale->y, options.scale->z};
  if (options.offset) las.offset = {options.offset->x, options.offset->y, options.offset->z};
  las.isLossy = options.lossy;
  las.isCompressed = kind == PointFileKind::Laz;
  las.waveforms = placeOf(options.waveforms);
  las.isDurable = options.durable;
  return las;
}

std::uint64_t bytesOf(const std::string& path) {
  std::error_code error;
  const auto bytes = std::filesystem::file_size(path, error);
  return error ? 0 : bytes;
}

/// What the files of one source have in common; settled once.
struct Settled {
  std::shared_ptr<const Formats::LasTarget> target;
  Formats::CoordinateGrid grid{};
};

/// Writes files and gathers what there is to tell. Threads: write() may be called at once.
class FileWriter {
 public:
  FileWriter(const ExportOptions& options, bool skipsEmpty)
      : options_(options), skipsEmpty_(skipsEmpty) {}

  ExportedFile write(const PlannedFile& file, const Formats::ExportListener& listener) {
    ExportedFile result;
    result.path = file.path;
    const auto written = Formats::withoutExceptions(file.path, [&] {
      return file.kind == PointFileKind::Text ? writeText(file, listener, result)
                                              : writeLas(file, listener, result);
    });
    if (!written.ok()) result.failure = written.error();
    if (result.result.isWritten) result.bytes = bytesOf(file.path);
    return result;
  }

  /// In the order in which they first came up.
  std::vector<std::string> notes() const { return notes_; }

 private:
  /// What every kind of export is told.
  void describe(const PlannedFile& file, const Formats::ExportListener& listener,
                Formats::PointFileJob& job) const {
    job.path = file.path;
    job.source = file.source.get();
    job.fragments = file.fragments;
    job.choose = file.choose;
    job.choosesBy = file.choosesBy;
    job.skipsEmpty = skipsEmpty_;
    job.listener = listener;
  }

  Outcome<void> writeText(const PlannedFile& file, const Formats::ExportListener& listener,
                          ExportedFile& result) {
    Formats::TextExportJob job;
    describe(file, listener, job);
    job.fields = file.textFields;
    job.isRounded = options_.lossy;
    job.isDurable = options_.durable;
    const auto exported = Formats::exportText(job);
    if (!exported.ok()) return exported.failure();
    result.result = *exported;
    noteLeftOut(file);
    return {};
  }

  /// Fields of the grid that a text file does not have.
  void noteLeftOut(const PlannedFile& file) {
    std::vector<std::string> names;
    for (std::size_t i = 0; i < file.source->fields.size(); ++i) {
      const auto& fields = file.textFields;
      const std::string& name = file.source->fields[i].name;
      const bool isColumn = std::find(fields.begin(), fields.end(), i) != fields.end();
      if (!isColumn && !Formats::isOrderField(name)) names.push_back(name);
    }
    if (file.source->samples) names.emplace_back("Waveforms");
    if (names.empty()) return;
    note(fmt::format("grid {}: {} not in the text; --field takes one along, .csv takes all",
                     file.source->gridName,
                     names.size() > 3 ? fmt::format("{} fields are", names.size())
                                      : fmt::format("{}: is", fmt::join(names, ", "))));
  }

  Outcome<void> writeLas(const PlannedFile& file, const Formats::ExportListener& listener,
                         ExportedFile& result) {
    const auto settled = settle(file);
    if (!settled.ok()) return settled.failure();
    Formats::LasExportJob job;
    describe(file, listener, job);
    job.target = (*settled)->target.get();
    job.grid = (*settled)->grid;
    job.isLossy = options_.lossy;
    job.restoresOrder = file.restoresOrder;
    const auto exported = Formats::exportLas(job);
    if (!exported.ok()) return exported.failure();
    result.result = *exported;
    result.target = (*settled)->target;
    for (std::size_t axis = 0; axis < 3; ++axis) result.scale[axis] = job.grid[axis].scale;
    for (const std::string& field : exported->lossyFields) {
      note("field " + field + ": some values were rounded or cut to fit");
    }
    return {};
  }

  /// Target and scaling of a file's source, or why there are none; found out once.
  Outcome<std::shared_ptr<const Settled>> settle(const PlannedFile& file) {
    const std::lock_guard lock(mutex_);
    auto& known = settled_[file.source.get()];
    if (!known) known = settleAnew(file);
    return *known;
  }

  Outcome<std::shared_ptr<const Settled>> settleAnew(const PlannedFile& file) {
    const LasExportOptions las = lasOptions(options_, file.kind);
    auto target = Formats::lasTargetOf(*file.source, las);
    if (!target.ok()) return target.failure();
    const auto grid = Formats::settleScaling(*file.source, las);
    if (!grid.ok()) return grid.failure();
    for (const std::string& text : target->notes) noteLocked(text);
    return std::make_shared<const Settled>(
        Settled{std::make_shared<const Formats::LasTarget>(std::move(*target)), *grid});
  }

  void note(const std::string& text) {
    const std::lock_guard lock(mutex_);
    noteLocked(text);
  }

  void noteLocked(const std::string& text) {
    if (noted_.insert(text).second) notes_.push_back(text);
  }

  const ExportOptions& options_;
  const bool skipsEmpty_;
  std::mutex mutex_;
  std::map<const Formats::ExportSource*, std::optional<Outcome<std::shared_ptr<const Settled>>>>
      settled_;
  std::set<std::string> noted_;
  std::vector<std::string> notes_;
};

/// One after the other; progress counts fragments.
void writeInTurn(const ExportPlan& plan, FileWriter& writer, TileProgress& progress,
                 std::vector<ExportedFile>& results) {
  std::size_t total = 0;
  for (const PlannedFile& file : plan.files) total += file.fragments.size();
  std::size_t before = 0;
  for (std::size_t i = 0; i < plan.files.size(); ++i) {
    if (stopRequested()) return;
    results[i] = writer.write(plan.files[i], [&](std::size_t done) {
      return progress.report("Exporting #", before + done, total);
    });
    before += plan.files[i].fragments.size();
  }
}

/// Shared out among the threads; progress counts files.
void writeAtOnce(const ExportPlan& plan, FileWriter& writer, TileProgress& progress,
                 std::vector<ExportedFile>& results) {
  std::atomic<std::uint64_t> begun = 0;
  const auto count = static_cast<std::int64_t>(plan.files.size());
#pragma omp parallel for schedule(dynamic, 1)
  for (std::int64_t n = 0; n < count; ++n) {
    const auto i = static_cast<std::size_t>(n);
    if (!progress.report("Exporting #", begun++, plan.files.size())) continue;
    results[i] = writer.write(plan.files[i], [](std::size_t) { return !stopRequested(); });
  }
}

std::uint64_t pointsOf(const ExportPlan& plan) {
  std::uint64_t points = 0;
  for (const PlannedFile& file : plan.files) {
    for (const auto& fragment : file.fragments) points += fragment.pointCount;
  }
  return points;
}

}  // namespace

ExportOutcome runPlan(const ExportPlan& plan, const ExportOptions& options, Session& session) {
  ExportOutcome outcome;
  outcome.files.resize(plan.files.size());
  FileWriter writer(options, !plan.folder.empty());
  TileProgress progress(settleProgressMode(session.common(), session.terminal()),
                        session.terminal().columns, session.messages());
  progress.beginGrid(pointsOf(plan));
  const auto threads = static_cast<std::size_t>(omp_get_max_threads());
  if (plan.files.size() < 4 * threads) {
    writeInTurn(plan, writer, progress, outcome.files);
  } else {
    writeAtOnce(plan, writer, progress, outcome.files);
  }
  progress.finish();
  outcome.isCancelled = stopRequested();
  outcome.notes = plan.notes;
  for (std::string& note : writer.notes()) outcome.notes.push_back(std::move(note));
  return outcome;
}

}  // namespace Host
