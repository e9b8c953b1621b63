// SPDX-License-Identifier: Apache-2.0

#include "host/VerifyCommand.hpp"

#include <fmt/format.h>

#include <atomic>
#include <map>

#include "datamodel/container/StoredCreator.hpp"
#include "host/InputLoader.hpp"
#include "host/JsonReport.hpp"
#include "host/NumberText.hpp"
#include "host/Signals.hpp"
#include "host/TextReport.hpp"
#include "host/TileProgress.hpp"

namespace Host {

namespace {

/// One field's part of a fragment.
struct Part {
  std::string field;
  Fiber::CreatorHandle creator;
};

/// One fragment of a grid with all its fields.
struct Fragment {
  std::string title;  ///< for problems
  std::uint64_t points = 0;
  std::vector<Part> parts;
};

void addFragments(const Fiber::Representation& representation, const std::string& gridTitle,
                  std::vector<Fragment>& fragments) {
  std::map<unsigned, Fragment> byNumber;
  for (const auto& [name, field] : representation.fields()) {
    for (const auto& id : field->getFragmentIDs()) {
      const auto creator = field->getCreator(id);
      if (!creator) continue;
      Fragment& fragment = byNumber[id->number()];
      fragment.title = gridTitle + "tile " + id->name();
      if (name == "Positions") fragment.points = Fiber::pointCountOf(*creator);
      fragment.parts.push_back({name, creator});
    }
  }
  for (auto& [number, fragment] : byNumber) fragments.push_back(std::move(fragment));
}

std::vector<Fragment> fragmentsOf(const Fiber::Bundle& bundle) {
  std::size_t grids = 0;
  for (const auto& [time, slice] : bundle.slices()) grids += slice->grids().size();
  std::vector<Fragment> fragments;
  for (const auto& [time, slice] : bundle.slices()) {
    for (const auto& [name, grid] : slice->grids()) {
      const auto vertices = grid->skeletons().findVertices(-1);
      if (!vertices) continue;
      const std::string title =
          grids == 1 ? "" : fmt::format("grid {} at time {}, ", name, exactText(time));
      for (const auto& [chart, entry] : vertices->representations().all()) {
        addFragments(*entry.representation, title, fragments);
      }
    }
  }
  return fragments;
}

std::string cornersText(const Eagle::BoundingBox& box) {
  const auto text = [](const Eagle::PhysicalSpace::point& p) {
    return fmt::format("({}, {}, {})", p.x, p.y, p.z);
  };
  return text(box.min()) + " to " + text(box.max());
}

/// Whether the file that has the part is there and is the one that was meant.
std::string fileProblem(const Part& part) {
  const auto stored = MemCore::handleCast<Fiber::Container::StoredCreator>(part.creator);
  const auto checked = stored ? stored->checkSource() : MemCore::Outcome<void>();
  return checked.ok() ? std::string() : checked.error();
}

/// Compares what the bundle tells of a part with its values.
std::string valueProblem(const Part& part) {
  const Fiber::ArrayFacts promised = part.creator->facts();
  const auto data = part.creator->data();
  if (!data) return part.creator->failure();
  Fiber::MemoryCreator found(data);
  if (promised.range) {
    const auto range = Fiber::computeRange(found);
    if (range && (range->min != promised.range->min || range->max != promised.range->max)) {
      return fmt::format("{}: another range, found {} to {}, expected {} to {}", part.field,
                         range->min, range->max, promised.range->min, promised.range->max);
    }
  }
  if (!promised.box) return {};
  MemCore::StrongPtr<Eagle::BoundingBox> box;
  Fiber::ExpandBBox(box, found, Fiber::DataCreationMode::KnownOrCreate);
  if (box && (box->min() != promised.box->min() || box->max() != promised.box->max())) {
    return fmt::format("{}: another box, found {}, expected {}", part.field, cornersText(*box),
                       cornersText(*promised.box));
  }
  return {};
}

/// The first problem of a fragment; empty when all is as promised.
std::string problemOf(const Fragment& fragment, bool quick) {
  for (const Part& part : fragment.parts) {
    std::string problem = fileProblem(part);
    if (problem.empty() && !quick) problem = valueProblem(part);
    if (!problem.empty()) return fragment.title + ": " + problem;
  }
  return {};
}

/// Looks at all fragments, several at once. Returns a text per fragment.
std::vector<std::string> findProblems(const std::vector<Fragment>& fragments, bool quick,
                                      TileProgress& progress) {
  std::vector<std::string> problems(fragments.size());
  std::atomic<std::uint64_t> done = 0;
  const auto count = static_cast<std::int64_t>(fragments.size());
#pragma omp parallel for schedule(dynamic, 1)
  for (std::int64_t i = 0; i < count; ++i) {
    const auto at = static_cast<std::size_t>(i);
    if (!progress.report("Verifying #", done++, fragments.size())) continue;
    problems[at] = problemOf(fragments[at], quick);
  }
  return problems;
}

Result<VerifyReport> verifyFile(const std::string& file, const VerifyOptions& options,
                                Session& session) {
  const auto loaded = loadBundle(file);
  if (!loaded.ok()) return loaded.stop();
  const std::vector<Fragment> fragments = fragmentsOf(*loaded->bundle);
  VerifyReport report;
  report.file = file;
  report.quick = options.quick;
  report.tiles = fragments.size();
  for (const Fragment& fragment : fragments) report.points += fragment.points;

  TileProgress progress(settleProgressMode(session.common(), session.terminal()),
                        session.terminal().columns, session.messages());
  progress.beginGrid(report.points);
  std::vector<std::string> problems = findProblems(fragments, options.quick, progress);
  progress.finish();
  if (stopRequested()) return Stop{ExitCode::Cancelled, "cancelled"};
  for (std::string& problem : problems) {
    if (!problem.empty()) report.problems.push_back(std::move(problem));
  }
  return report;
}

/// Tells the first few problems; the log file gets all.
void tellProblems(const VerifyReport& report, Messages& messages) {
  constexpr std::size_t kHandful = 10;
  for (std::size_t i = 0; i < report.problems.size(); ++i) {
    if (i < kHandful) {
      messages.error(report.problems[i]);
    } else {
      messages.detail(report.problems[i]);
    }
  }
  if (report.problems.size() > kHandful) {
    messages.error(
        fmt::format("and {} more (-v shows all)", countText(report.problems.size() - kHandful)));
  }
}

}  // namespace

ExitCode runVerify(const VerifyOptions& options, Session& session) {
  const auto input = resolveInput(options.inputs);
  if (!input.ok()) return session.stop(input.stop());
  if (input->kind != InputKind::Bundles) {
    return session.stop(usageStop(input->files.front() + ": is no bundle, expected a .f5 file"));
  }
  std::vector<VerifyReport> reports;
  ExitCode code = ExitCode::Done;
  for (const std::string& file : input->files) {
    auto report = verifyFile(file, options, session);
    if (!report.ok()) return session.stop(report.stop());
    tellProblems(*report, session.messages());
    if (!report->problems.empty()) code = ExitCode::Differs;
    reports.push_back(std::move(*report));
  }
  return session.afterPrint(session.print(verifyText(reports), verifyJson(reports)), code);
}

}  // namespace Host
