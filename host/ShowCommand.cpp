// SPDX-License-Identifier: Apache-2.0

#include "host/ShowCommand.hpp"

#include "host/InputLoader.hpp"
#include "host/JsonReport.hpp"
#include "host/TextReport.hpp"

namespace Host {

namespace {

/// The inputs to show one by one: each bundle file for itself, point clouds as the one cloud that
/// they are.
std::vector<ResolvedInput> separate(const ResolvedInput& input) {
  if (input.kind != InputKind::Bundles) return {input};
  std::vector<ResolvedInput> inputs;
  for (const std::string& file : input.files) inputs.push_back({input.kind, {file}});
  return inputs;
}

std::string titleOf(const ResolvedInput& input) {
  std::string title = input.files.front();
  if (input.files.size() > 1) title += " and " + std::to_string(input.files.size() - 1) + " more";
  return title;
}

Result<ShowReport> showInput(const ResolvedInput& input, const ShowOptions& options,
                             Session& session) {
  const auto loaded = loadInput(input, {});
  if (!loaded.ok()) return loaded.stop();
  session.warnOfAll(loaded->notes);
  FactOptions facts;
  facts.computeRanges = options.computeRanges;
  facts.file = input.files.front();
  ShowReport report{titleOf(input), gatherFacts(*loaded->bundle, facts)};
  session.warnOfAll(loaded->lateNotes());
  return report;
}

}  // namespace

ExitCode runShow(const ShowOptions& options, Session& session) {
  const auto resolved = resolveInput(options.inputs);
  if (!resolved.ok()) return session.stop(resolved.stop());
  std::vector<ShowReport> reports;
  std::string words;
  for (const ResolvedInput& input : separate(*resolved)) {
    auto report = showInput(input, options, session);
    if (!report.ok()) return session.stop(report.stop());
    words += (words.empty() ? "" : "\n") + showText(*report, options.allFragments);
    reports.push_back(std::move(*report));
  }
  return session.afterPrint(session.print(words, showJson(reports)), ExitCode::Done);
}

}  // namespace Host
