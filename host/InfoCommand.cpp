// SPDX-License-Identifier: Apache-2.0

#include "host/InfoCommand.hpp"

#include "datamodel/memcore/Console.hpp"
#include "host/InputLoader.hpp"
#include "host/JsonReport.hpp"
#include "host/TextReport.hpp"

namespace Host {

namespace {

/// The operation's own report, with its console messages as details.
std::string operationReport(LidarLib::RefragmentAndSplit& operation, Session& session) {
  const MemCore::ConsoleRedirection redirection(
      [&session](const std::string& message) { session.messages().detail(message); });
  return operation.GetSomeInfo();
}

}  // namespace

ExitCode runInfo(const InfoOptions& options, Session& session) {
  CloudPlace place;
  place.columns = options.columns;
  const auto loaded = openInput(options.inputs, place);
  if (!loaded.ok()) return session.stop(loaded.stop());
  session.warnOfAll(loaded->notes);
  const auto grids = selectGrids(*loaded->bundle, options.filters);
  if (!grids.ok()) return session.stop(grids.stop());

  LidarLib::RefragmentAndSplit operation;
  operation.inputBundle = loaded->bundle;
  applyOptions(options.tiling, options.filters, operation);
  const SplitPlan plan = makePlan(*grids, options.tiling, operation);
  for (const std::string& detail : plan.details) session.messages().detail(detail);
  for (const std::string& note : plan.notes) session.messages().note(note);
  session.warnOfAll(plan.warnings);

  std::string words = planText(plan, options.tiling);
  if (session.common().verbosity == Verbosity::Verbose) {
    words += "\n" + operationReport(operation, session);
  }
  const bool printed = session.print(words, infoJson(plan));
  const std::string failure = plan.failure();
  if (printed && !failure.empty()) return session.stop(failedStop(failure));
  return session.afterPrint(printed, ExitCode::Done);
}

}  // namespace Host
