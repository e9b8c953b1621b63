// SPDX-License-Identifier: Apache-2.0

#include "host/export/ExportCommand.hpp"

#include <fmt/format.h>

#include "host/InputLoader.hpp"
#include "host/NumberText.hpp"
#include "host/export/ExportCatalog.hpp"
#include "host/export/ExportPlan.hpp"
#include "host/export/ExportReport.hpp"

namespace Host {

namespace {

/// The one bundle that is to be exported.
Result<std::string> resolveBundle(const ExportOptions& options) {
  const auto input = resolveInput(options.inputs);
  if (!input.ok()) return input.stop();
  if (input->kind != InputKind::Bundles) {
    return usageStop(input->files.front() + ": is no bundle, expected a .f5 file");
  }
  if (input->files.size() > 1) {
    return usageStop(fmt::format("{}: expected one bundle, found {} files; link makes one of tiles",
                                 input->files[1], input->files.size()));
  }
  return input->files.front();
}

/// Tells the first few failures; the log file gets all.
void tellFailures(const ExportOutcome& outcome, Messages& messages) {
  constexpr std::size_t kHandful = 3;
  std::size_t told = 0;
  for (const ExportedFile& file : outcome.files) {
    if (file.failure.empty() || file.failure == Formats::kExportStopped) continue;
    if (told++ < kHandful) {
      messages.error(file.failure);
    } else {
      messages.detail(file.failure);
    }
  }
}

std::string cancelledText(const ExportReport& report) {
  const std::uint64_t written = report.filesWritten();
  if (written == 0) return "cancelled, nothing was written";
  return fmt::format("cancelled, {} written; --force writes all again",
                     written == 1 ? "1 file was" : countText(written, "file") + " were");
}

/// What the failures mean for the whole.
ExitCode judge(const ExportReport& report, Session& session) {
  tellFailures(report.outcome, session.messages());
  const std::uint64_t failed = report.filesFailed();
  if (report.outcome.isCancelled) return session.stop({ExitCode::Cancelled, cancelledText(report)});
  if (failed == 0) return ExitCode::Done;
  if (!report.isFolder) return ExitCode::Failed;
  return session.stop({report.filesWritten() == 0 ? ExitCode::Failed : ExitCode::TilesFailed,
                       countText(failed, "file") + " failed; --force writes all again"});
}

/// What is known before anything is written.
ExportReport beginReport(const std::string& input, const ExportPlan& plan,
                         const std::vector<SelectedGrid>& grids) {
  ExportReport report;
  report.input = input;
  report.isFolder = !plan.folder.empty();
  report.output = report.isFolder ? plan.folder : plan.files.front().path;
  for (const SelectedGrid& selected : grids) {
    const auto positions = selected.grid->CartesianPositions();
    for (const auto& id : positions->getFragmentIDs()) {
      const auto creator = positions->getCreator(id);
      if (creator) report.gridPoints += Fiber::pointCountOf(*creator);
    }
  }
  return report;
}

}  // namespace

ExitCode runExport(const ExportOptions& options, Session& session) {
  const auto file = resolveBundle(options);
  if (!file.ok()) return session.stop(file.stop());
  const auto loaded = loadBundle(*file);
  if (!loaded.ok()) return session.stop(loaded.stop());
  const auto grids = selectGrids(*loaded->bundle, options.filters);
  if (!grids.ok()) return session.stop(grids.stop());
  const auto plan = planExport(*grids, options);
  if (!plan.ok()) return session.stop(plan.stop());

  ExportReport report = beginReport(*file, *plan, *grids);
  report.outcome = runPlan(*plan, options, session);
  const auto catalogs = writeCatalogs(*plan, report.outcome, options);
  if (!catalogs.ok()) return session.stop(catalogs.stop());
  report.indexFiles = catalogs->files;
  report.outcome.notes.insert(report.outcome.notes.end(), catalogs->notes.begin(),
                              catalogs->notes.end());
  report.use = session.use();
  session.warnOfAll(report.outcome.notes);
  const bool isWritten = report.filesWritten() > 0;
  const bool printed = !isWritten || session.print(exportText(report), exportJson(report));
  return session.afterPrint(printed, judge(report, session));
}

}  // namespace Host
