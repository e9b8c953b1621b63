// SPDX-License-Identifier: Apache-2.0

#include "formats/text/TextCloudReader.hpp"

#include <fmt/format.h>

#include "formats/las/ExceptionEdge.hpp"
#include "formats/text/GzipText.hpp"
#include "formats/text/TextGrid.hpp"
#include "formats/text/TextSurvey.hpp"

namespace Formats {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

Outcome<std::shared_ptr<const InputFile>> openText(const std::string& path) {
  auto file = InputFile::open(path);
  if (!file) return file;
  const auto packed = isGzip(**file);
  if (!packed) return packed.failure();
  return *packed ? expandGzip(**file) : file;
}

Outcome<SurveyedFile> openFile(const std::string& path, const std::vector<std::string>& columns) {
  const auto bytes = openText(path);
  if (!bytes) return bytes.failure();
  auto format = detectFormat(**bytes, columns);
  if (!format) return format.failure();
  SurveyedFile opened;
  opened.file = std::make_shared<TextFile>();
  opened.file->bytes = *bytes;
  opened.file->format = std::move(*format);
  if (opened.file->format.names.empty()) return opened;
  auto roles = rolesOf(opened.file->format.names);
  if (!roles) return Failure{fmt::format("{}: {}", path, roles.error())};
  opened.roles = std::move(*roles);
  return opened;
}

/// Opens all files, several at once: gzip files take their time.
std::vector<Outcome<SurveyedFile>> openAll(const std::vector<std::string>& paths,
                                           const std::vector<std::string>& columns) {
  std::vector<Outcome<SurveyedFile>> opened(paths.size(), SurveyedFile());
#pragma omp parallel for schedule(dynamic, 1) if (paths.size() > 1)
  for (std::size_t i = 0; i < paths.size(); ++i) {
    opened[i] = withoutExceptions(paths[i], [&] { return openFile(paths[i], columns); });
  }
  return opened;
}

/// Everything that can fail, before the bundle is touched.
struct OpenedText {
  std::vector<SurveyedFile> files;
  std::vector<TextField> fields;
};

Outcome<OpenedText> openFiles(const std::vector<std::string>& paths,
                              const TextCloudOptions& options, TextCloudSummary& summary) {
  OpenedText text;
  std::vector<FileRoles> roles;
  for (auto& file : openAll(paths, options.columns)) {
    if (!file) return file.failure();
    roles.push_back(file->roles);
    text.files.push_back(std::move(*file));
  }
  text.fields = joinTextFields(roles);
  const auto surveyed = surveyFiles(text.files, text.fields, options.cloud.fragmentPoints);
  if (!surveyed) return surveyed.failure();
  for (std::size_t i = 0; i < paths.size(); ++i) {
    if (text.files[i].fragments.empty()) {
      summary.notes.push_back(fmt::format("{}: has no points", paths[i]));
    }
  }
  const auto notes = fieldNotes(text.fields, paths, roles);
  summary.notes.insert(summary.notes.end(), notes.begin(), notes.end());
  return text;
}

Outcome<TextCloudSummary> addFiles(Fiber::Bundle& bundle, const std::vector<std::string>& files,
                                   const TextCloudOptions& options) {
  if (const auto checked = checkCloudOptions(bundle, options.cloud); !checked) {
    return checked.failure();
  }
  if (!options.columns.empty()) {
    const auto roles = rolesOf(options.columns);
    if (!roles) return Failure{"columns: " + roles.error()};
  }
  TextCloudSummary summary;
  summary.notes = repetitionNotes(files);
  const auto text = openFiles(files, options, summary);
  if (!text) return text.failure();
  const auto grid = bundle[options.cloud.time]->newGrid(options.cloud.gridName);
  fillTextGrid(*grid, text->files, text->fields);
  for (const SurveyedFile& file : text->files) {
    summary.fragments += file.fragments.size();
    for (const auto& fragment : file.fragments) summary.points += fragment.source->rowCount();
  }
  if (summary.points == 0) {
    summary.notes.push_back(fmt::format("grid {}: no file has any points: it has no fragments",
                                        options.cloud.gridName));
  }
  return summary;
}

}  // namespace

Outcome<TextCloudSummary> addTextCloud(Fiber::Bundle& bundle, const std::vector<std::string>& files,
                                       const TextCloudOptions& options) {
  if (files.empty()) return Failure{"point cloud: no files given"};
  return withoutExceptions(files.front(), [&] { return addFiles(bundle, files, options); });
}

}  // namespace Formats
