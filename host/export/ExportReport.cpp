// SPDX-License-Identifier: Apache-2.0

#include "host/export/ExportReport.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <numeric>

#include "host/NumberText.hpp"
#include "host/TextTable.hpp"

namespace Host {

namespace {

using Json = nlohmann::ordered_json;

/// "LAS 1.4, point format 6", for each kind of file that was written.
std::vector<std::string> formatTexts(const std::vector<ExportedFile>& files) {
  std::vector<std::string> texts;
  for (const ExportedFile& file : files) {
    if (!file.result.isWritten || !file.target) continue;
    const Formats::LasHeader& header = file.target->writer.header;
    std::string text =
        fmt::format("LAS 1.{}, point format {}", header.versionMinor, header.pointFormat);
    if (std::find(texts.begin(), texts.end(), text) == texts.end()) texts.push_back(text);
  }
  return texts;
}

std::string useText(const ExportReport& report) {
  const double seconds = report.use.seconds;
  const double rate = seconds > 0.0 ? static_cast<double>(report.points()) / seconds : 0.0;
  return fmt::format("{}, {}, {} of memory at most", durationText(seconds), rateText(rate),
                     byteText(report.use.peakMemoryBytes));
}

Json fileJson(const ExportedFile& file) {
  Json json;
  json["path"] = file.path;
  json["points"] = file.result.points;
  json["bytes"] = file.bytes;
  if (!file.failure.empty()) {
    json["failure"] = file.failure;
    return json;
  }
  if (!file.result.isWritten || !file.target) return json;
  json["pointFormat"] = file.target->writer.header.pointFormat;
  json["version"] = fmt::format("1.{}", file.target->writer.header.versionMinor);
  json["scale"] = file.scale;
  return json;
}

}  // namespace

std::uint64_t ExportReport::points() const {
  return std::accumulate(
      outcome.files.begin(), outcome.files.end(), std::uint64_t{0},
      [](std::uint64_t sum, const ExportedFile& file) { return sum + file.result.points; });
}

std::uint64_t ExportReport::bytes() const {
  return std::accumulate(
      outcome.files.begin(), outcome.files.end(), std::uint64_t{0},
      [](std::uint64_t sum, const ExportedFile& file) { return sum + file.bytes; });
}

std::uint64_t ExportReport::filesWritten() const {
  return static_cast<std::uint64_t>(
      std::count_if(outcome.files.begin(), outcome.files.end(),
                    [](const ExportedFile& file) { return file.result.isWritten; }));
}

std::uint64_t ExportReport::filesFailed() const {
  return static_cast<std::uint64_t>(
      std::count_if(outcome.files.begin(), outcome.files.end(),
                    [](const ExportedFile& file) { return !file.failure.empty(); }));
}

std::string exportText(const ExportReport& report) {
  TextTable table;
  table.add({"Points", countText(report.points())});
  if (report.isFolder) table.add({"Files", countText(report.filesWritten())});
  std::string label = "Format";
  for (const std::string& format : formatTexts(report.outcome.files)) {
    table.add({std::exchange(label, ""), format});
  }
  table.add({"Time", useText(report)});
  table.add({"Output", fmt::format("{} ({})", report.output, byteText(report.bytes()))});
  for (const std::string& file : report.indexFiles) table.add({"Index", file});
  return table.text();
}

std::string exportJson(const ExportReport& report) {
  Json json;
  json["input"] = report.input;
  json["output"] = report.output;
  json["points"] = report.points();
  json["gridPoints"] = report.gridPoints;
  json["bytes"] = report.bytes();
  json["files"] = Json::array();
  for (const ExportedFile& file : report.outcome.files) json["files"].push_back(fileJson(file));
  json["index"] = report.indexFiles;
  json["notes"] = report.outcome.notes;
  json["seconds"] = report.use.seconds;
  json["peakMemoryBytes"] = report.use.peakMemoryBytes;
  return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace Host
