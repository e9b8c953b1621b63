// SPDX-License-Identifier: Apache-2.0

#include "formats/text/TextSurvey.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <exception>

#include "formats/cloud/CloudOptions.hpp"

namespace Formats {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

/// What is looked at to guess the types and the length of a row.
constexpr std::uint64_t kSampleBytes = std::uint64_t{1} << 16;
/// A fragment of long lines has fewer rows than wanted.
constexpr std::uint64_t kMostFragmentBytes = std::uint64_t{1} << 28;

ByteRange pointsOf(const TextFile& file) {
  return {file.format.pointsBegin, file.bytes->sizeBytes()};
}

/// A guess from the first lines of a file.
struct Sample {
  std::vector<ColumnFacts> facts;
  double bytesPerRow = 0.0;
};

Outcome<Sample> takeSample(const TextFile& file) {
  const ByteRange all = pointsOf(file);
  const auto cuts = cutAtLines(
      *file.bytes, {all.begin, std::min(all.end, all.begin + 2 * kSampleBytes)}, kSampleBytes);
  if (!cuts) return cuts.failure();
  const ByteRange head = cuts->empty() ? ByteRange{all.begin, all.begin} : cuts->front();
  const auto parsed = parseLines(file, head, 0);
  if (!parsed) return parsed.failure();
  const auto rows = static_cast<double>(std::max<std::uint64_t>(parsed->rowCount, 1));
  return Sample{parsed->facts, static_cast<double>(head.byteCount()) / rows};
}

/// One fragment on its way through the survey.
struct Task {
  std::size_t file = 0;
  ByteRange range;
  std::uint64_t expectedRows = 0;
  MemCore::StrongPtr<TextFragmentSource> source;
  Outcome<ParsedLines> result = ParsedLines();
};

/// The fragments of one file, about as long as wanted.
Outcome<void> addTasks(const TextFile& file, std::size_t number, double bytesPerRow,
                       std::uint64_t fragmentPoints, std::vector<Task>& tasks) {
  const double wanted = std::clamp(bytesPerRow * static_cast<double>(fragmentPoints), 1.0,
                                   static_cast<double>(kMostFragmentBytes));
  const auto ranges = cutAtLines(*file.bytes, pointsOf(file), static_cast<std::uint64_t>(wanted));
  if (!ranges) return ranges.failure();
  // A row has at least a digit and a delimiter or line end per column.
  const double leastBytes = 2.0 * static_cast<double>(file.columns.size());
  for (const ByteRange& range : *ranges) {
    constexpr double kSlack = 1.02;
    const double rows =
        kSlack * static_cast<double>(range.byteCount()) / std::max(bytesPerRow, leastBytes);
    tasks.push_back({number, range, static_cast<std::uint64_t>(rows) + 1, nullptr, ParsedLines()});
  }
  return {};
}

Outcome<ParsedLines> surveyOne(Task& task) {
  try {
    return task.source->survey(task.expectedRows);
  } catch (const std::exception& thrown) {
    return Failure{fmt::format("{}: failed, {}", task.source->file().path(), thrown.what())};
  }
}

void surveyAll(std::span<Task> tasks) {
  std::atomic<std::size_t> firstFailed = tasks.size();
#pragma omp parallel for schedule(dynamic, 1) if (tasks.size() > 1)
  for (std::size_t i = 0; i < tasks.size(); ++i) {
    if (i > firstFailed) continue;
    tasks[i].result = surveyOne(tasks[i]);
    if (tasks[i].result && !tasks[i].result->lineFailure) continue;
    std::size_t known = firstFailed;
    while (i < known && !firstFailed.compare_exchange_weak(known, i)) {
    }
  }
}

/// Numbers the lines of all fragments. Errors: the first fragment that could not be read.
Outcome<void> numberLines(std::span<Task> tasks) {
  std::uint64_t line = 0;
  for (std::size_t i = 0; i < tasks.size(); ++i) {
    const Task& task = tasks[i];
    const TextFile& file = task.source->file();
    if (i == 0 || tasks[i - 1].file != task.file) line = file.format.firstLine;
    if (!task.result) return task.result.failure();
    if (task.result->lineFailure) {
      return Failure{describeLine(file, line, *task.result->lineFailure)};
    }
    task.source->setFirstLine(line);
    line += task.result->lineCount;
  }
  return {};
}

/// Takes what the fragments found into their files and fields.
void gather(std::span<const Task> tasks, std::span<SurveyedFile> files,
            std::span<TextField> fields) {
  for (TextField& field : fields) field.facts = ColumnFacts();
  for (const Task& task : tasks) {
    SurveyedFile& file = files[task.file];
    addFacts(fields, task.file, task.result->facts);
    for (std::size_t i = 0; i < file.roles.size(); ++i) {
      if (file.roles[i].kind != ColumnRole::Kind::Axis) continue;
      std::uint8_t& decimals = file.decimals[file.roles[i].axis];
      decimals = std::max(decimals, task.result->facts[i].decimals);
    }
    if (task.source->rowCount() != 0) file.fragments.push_back({task.source, task.result->box});
  }
}

void planAll(std::span<SurveyedFile> files, std::span<const TextField> fields) {
  for (std::size_t i = 0; i < files.size(); ++i) {
    planColumns(*files[i].file, i, files[i].roles, fields);
  }
}

/// The guess of the types, and the tasks for all files.
Outcome<std::vector<Task>> prepare(std::span<SurveyedFile> files, std::span<TextField> fields,
                                   std::uint64_t fragmentPoints) {
  std::vector<Task> tasks;
  planAll(files, fields);
  for (std::size_t i = 0; i < files.size(); ++i) {
    if (files[i].roles.empty()) continue;
    const auto sample = takeSample(*files[i].file);
    if (!sample) return sample.failure();
    addFacts(fields, i, sample->facts);
    const auto added = addTasks(*files[i].file, i, sample->bytesPerRow, fragmentPoints, tasks);
    if (!added) return added.failure();
  }
  constexpr std::uint64_t kPositions = 1;
  const auto checked = checkFragmentCount(tasks.size(), fields.size(), kPositions);
  if (!checked) return checked.failure();
  settleTypes(fields);
  planAll(files, fields);
  return tasks;
}

/// Plans anew after a wrong guess: what was made for it is of no use.
void replan(std::span<SurveyedFile> files, std::span<const TextField> fields) {
  for (std::size_t i = 0; i < files.size(); ++i) {
    const auto planned = std::make_shared<TextFile>(*files[i].file);
    planColumns(*planned, i, files[i].roles, fields);
    files[i].file = planned;
    for (auto& fragment : files[i].fragments) fragment.source = fragment.source->forPlan(planned);
  }
}

}  // namespace

Outcome<void> surveyFiles(std::span<SurveyedFile> files, std::vector<TextField>& fields,
                          std::uint64_t fragmentPoints) {
  Outcome<std::vector<Task>> tasks = prepare(files, fields, fragmentPoints);
  if (!tasks) return tasks.failure();
  for (Task& task : *tasks) {
    task.source = MemCore::makeStrong<TextFragmentSource>(files[task.file].file, task.range);
  }
  surveyAll(*tasks);
  if (auto numbered = numberLines(*tasks); !numbered) return numbered;
  gather(*tasks, files, fields);
  if (settleTypes(fields)) replan(files, fields);
  return {};
}

}  // namespace Formats
