// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/PointCloudReader.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>

#include "formats/cloud/CloudGrid.hpp"
#include "formats/cloud/SourceFiles.hpp"

namespace Formats {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

/// Creators that a grid may have: each takes some hundred bytes, and a header can claim any number
/// of points.
constexpr std::uint64_t kMaxCreators = std::uint64_t{1} << 23;

bool canNameGrid(const std::string& name) {
  const auto isForbidden = [](char c) {
    const auto code = static_cast<unsigned char>(c);
    return code < 0x20 || code == 0x7F || c == '/' || c == '\\';
  };
  return !name.empty() && name.front() != '.' &&
         std::none_of(name.begin(), name.end(), isForbidden);
}

/// The name with control characters spelled out, for messages.
std::string quoted(const std::string& name) {
  std::string text = "\"";
  for (const char c : name) {
    const auto code = static_cast<unsigned char>(c);
    text += code < 0x20 || code == 0x7F ? fmt::format("\\x{:02x}", code) : std::string(1, c);
  }
  return text + '"';
}

Outcome<void> checkOptions(const Fiber::Bundle& bundle, const CloudOptions& options) {
  if (!canNameGrid(options.gridName)) {
    return Failure{
        fmt::format("grid name: cannot be used, found {}, expected a name without '/', '\\', "
                    "control characters or a leading dot",
                    quoted(options.gridName))};
  }
  if (!std::isfinite(options.time)) {
    return Failure{
        fmt::format("time: cannot be used, found {}, expected a finite number", options.time)};
  }
  if (options.fragmentPoints == 0) {
    return Failure{"points per fragment: cannot be used, found 0, expected at least 1"};
  }
  const auto slice = bundle.slices().find(options.time);
  if (slice != bundle.slices().end() && slice->second->findGrid(options.gridName)) {
    return Failure{
        fmt::format("grid {}: exists already at time {}", options.gridName, options.time)};
  }
  return {};
}

/// Positions must be numbers: raw coordinates are 32-bit integers.
Outcome<void> checkReach(const LasFile& file) {
  constexpr double kLargestRaw = 2147483648.0;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const double scale = file.header().scale[axis];
    const double offset = file.header().offset[axis];
    if (std::isfinite(std::abs(scale) * kLargestRaw + std::abs(offset))) continue;
    return Failure{
        fmt::format("{}: {} scale and offset cannot be used, found {} and {}, expected positions "
                    "below {}",
                    file.path(), "xyz"[axis], scale, offset, std::numeric_limits<double>::max())};
  }
  return {};
}

/// The file's waveforms; null where there are none or they cannot be had, which is then noted.
std::shared_ptr<FileWaveforms> openWaveforms(const std::shared_ptr<LasFile>& file,
                                             std::vector<std::string>& notes) {
  if (!WaveformSource::hasWaveforms(*file)) return nullptr;
  const auto opened = WaveformSource::open(file);
  if (!opened) {
    notes.push_back(fmt::format("{}: waveforms are left out", opened.error()));
    return nullptr;
  }
  const std::vector<std::string> unreadable = unreadableDescriptors(**opened);
  notes.insert(notes.end(), unreadable.begin(), unreadable.end());
  if (longestDescribedPacket(**opened) == 0) {
    notes.push_back(fmt::format(
        "{}: no waveform descriptor that can be read: waveforms are left out", file->path()));
    return nullptr;
  }
  auto waveforms = std::make_shared<FileWaveforms>();
  waveforms->source = *opened;
  return waveforms;
}

Outcome<CloudFile> openFile(const std::string& path, const CloudOptions& options,
                            std::vector<std::string>& notes) {
  const auto opened = LasFile::open(path);
  if (!opened) return opened.failure();
  CloudFile cloud;
  cloud.file = *opened;
  notes.insert(notes.end(), cloud.file->notes().begin(), cloud.file->notes().end());
  if (cloud.file->pointCount() == 0) {
    notes.push_back(fmt::format("{}: has no points", path));
    return cloud;
  }
  if (const auto checked = checkReach(*cloud.file); !checked) return checked.failure();
  cloud.waveforms = openWaveforms(cloud.file, notes);
  const std::uint64_t samples =
      cloud.waveforms ? longestDescribedPacket(*cloud.waveforms->source) : 0;
  cloud.fragments = cutIntoFragments(*cloud.file, {options.fragmentPoints, samples});
  return cloud;
}

/// Counted before anything is made for it.
Outcome<void> checkCreators(std::span<const CloudFile> files, const CloudFields& fields) {
  constexpr std::uint64_t kFixedFields =
      5;  // Positions, Waveforms, FWFLength, SourceFile, SourceIndex
  std::uint64_t fragments = 0;
  for (const CloudFile& file : files) fragments += file.fragments.size();
  const std::uint64_t most = kMaxCreators / (fields.fields.size() + kFixedFields);
  if (fragments <= most) return {};
  return Failure{fmt::format(
      "point cloud: too many fragments for {} fields, found {}, expected at most {}: more points "
      "per fragment make fewer",
      fields.fields.size(), fragments, most)};
}

void noteMissingWaveforms(std::span<const CloudFile> files, std::vector<std::string>& notes) {
  for (const CloudFile& file : files) {
    if (file.waveforms || file.fragments.empty()) continue;
    notes.push_back(
        fmt::format("{}: has no waveforms: empty ones are supplied", file.file->path()));
  }
}

void noteRepetitions(const std::vector<std::string>& files, std::vector<std::string>& notes) {
  std::set<std::string> seen;
  for (const std::string& file : files) {
    if (!seen.insert(file).second) {
      notes.push_back(fmt::format("{}: given more than once: its points are, too", file));
    }
  }
}

/// Everything that can fail, before the bundle is touched.
struct OpenedCloud {
  std::vector<CloudFile> files;
  std::vector<std::shared_ptr<LasFile>> lasFiles;  ///< The same files.
  CloudFields fields;
};

Outcome<OpenedCloud> openCloud(const std::vector<std::string>& paths, const CloudOptions& options,
                               std::vector<std::string>& notes) {
  OpenedCloud cloud;
  for (const std::string& path : paths) {
    Outcome<CloudFile> file = openFile(path, options, notes);
    if (!file) return file.failure();
    cloud.lasFiles.push_back(file->file);
    cloud.files.push_back(std::move(*file));
  }
  Outcome<CloudFields> fields = joinFields(cloud.lasFiles);
  if (!fields) return fields.failure();
  cloud.fields = std::move(*fields);
  if (const auto checked = checkCreators(cloud.files, cloud.fields); !checked) {
    return checked.failure();
  }
  return cloud;
}

}  // namespace

std::vector<std::string> CloudSummary::lateNotes() const {
  std::vector<std::string> lines;
  for (const auto& file : waveforms) {
    const std::uint64_t lost = file->lostPackets;
    if (lost == 0) continue;
    lines.push_back(fmt::format(
        "{}: waveform packets of {} points lie past the end of the data or cannot be read: they "
        "count as without waveforms",
        file->source->packetPath(), lost));
  }
  return lines;
}

Outcome<CloudSummary> addPointCloud(Fiber::Bundle& bundle, const std::vector<std::string>& files,
                                    const CloudOptions& options) {
  if (files.empty()) return Failure{"point cloud: no files given"};
  if (const auto checked = checkOptions(bundle, options); !checked) return checked.failure();
  CloudSummary summary;
  noteRepetitions(files, summary.notes);
  const Outcome<OpenedCloud> cloud = openCloud(files, options, summary.notes);
  if (!cloud) return cloud.failure();

  const auto grid = bundle[options.time]->newGrid(options.gridName);
  fillGrid(*grid, cloud->files, cloud->fields, options.keepOrder, summary);
  summary.notes.insert(summary.notes.end(), cloud->fields.notes.begin(), cloud->fields.notes.end());
  if (summary.hasWaveforms) noteMissingWaveforms(cloud->files, summary.notes);
  const auto unkept = keepSourceFiles(grid->attributes(), cloud->lasFiles);
  summary.notes.insert(summary.notes.end(), unkept.begin(), unkept.end());
  if (summary.points == 0) {
    summary.notes.push_back(
        fmt::format("grid {}: no file has any points: it has no fragments", options.gridName));
  }
  return summary;
}

}  // namespace Formats
