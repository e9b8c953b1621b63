// SPDX-License-Identifier: Apache-2.0

#include "benchmarks/Program.hpp"

#include <exception>

namespace Benchmarks {

void Bench::compare(const Goal& goal, const std::string& name, const Measure& floor,
                    const Measure& work,
                    const std::function<std::string(Finding&, const Comparison&)>& complete) {
  const auto compared = compareInTurn(repetitions, floor, work);
  workspace.giveBackSpace();
  if (!compared.ok()) return report.fail(name + ": " + compared.error());
  Finding finding = findingOf(goal, name, *compared);
  const std::string wrong = complete ? complete(finding, *compared) : std::string();
  if (!wrong.empty()) return report.fail(name + ": " + wrong);
  report.add(finding);
}

Program::Program(std::string name, const std::string& purpose)
    : name_(std::move(name)), flags_(purpose) {
  flags_.add_option("--folder", folder_,
                    "Where files go, in a new folder whose emptied files stay; without it, a "
                    "folder for temporary files, removed at the end");
  flags_.add_option("--results", results_, "File to append one JSON object per measurement to");
  flags_.add_option("--repetitions", repetitions_, "Measurements per line; the best counts")
      ->check(CLI::PositiveNumber);
  flags_.add_flag("--smoke", isSmoke_, "One tiny pass");
}

int Program::run(int argc, char** argv, const std::function<void(Bench&)>& work) {
  CLI11_PARSE(flags_, argc, argv);
  if (isSmoke_) repetitions_ = 1;
  return runWork(work);
}

int Program::runWork(const std::function<void(Bench&)>& work) {
  Report report(name_, results_);
  try {
    Workspace workspace(folder_, name_);
    Bench bench{workspace, report, repetitions_, isSmoke_};
    work(bench);
  } catch (const std::exception& error) {
    report.fail(error.what());
  }
  return report.ok() ? 0 : 1;
}

}  // namespace Benchmarks
