// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/PointCloudReader.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "datamodel/memcore/Cache.hpp"
#include "formats/cloud/CloudGrid.hpp"
#include "formats/cloud/RecordSpill.hpp"
#include "formats/cloud/SourceFiles.hpp"

namespace Formats {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

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
  return checkFragmentCount(fragments, fields.fields.size(), kFixedFields);
}

void noteMissingWaveforms(std::span<const CloudFile> files, std::vector<std::string>& notes) {
  for (const CloudFile& file : files) {
    if (file.waveforms || file.fragments.empty()) continue;
    notes.push_back(
        fmt::format("{}: has no waveforms: empty ones are supplied", file.file->path()));
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

/// A spill, where one is wanted and the decoded points do not fit into the cache.
void openSpill(const OpenedCloud& cloud, const std::string& folder, CloudSummary& summary) {
  if (folder.empty()) return;
  std::uint64_t bytes = 0;
  for (const auto& file : cloud.lasFiles) bytes += decodedBytes(*file);
  if (bytes <= MemCore::Cache::MemCache()->budget()) return;
  const auto spill = RecordSpill::make(folder, bytes);
  if (spill) {
    summary.spill = *spill;
  } else {
    summary.notes.push_back(spill.error());
  }
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
  if (spill && !spill->failure().empty()) lines.push_back(spill->failure());
  return lines;
}

std::uint64_t CloudSummary::chunks() const {
  std::uint64_t count = 0;
  for (const auto& file : compressedFiles) count += file->runs().size();
  return count;
}

std::uint64_t CloudSummary::decodedChunks() const {
  std::uint64_t count = 0;
  for (const auto& file : compressedFiles) count += file->decodedChunks();
  return count;
}

Outcome<CloudSummary> addPointCloud(Fiber::Bundle& bundle, const std::vector<std::string>& files,
                                    const CloudOptions& options) {
  if (files.empty()) return Failure{"point cloud: no files given"};
  if (const auto checked = checkCloudOptions(bundle, options); !checked) return checked.failure();
  CloudSummary summary;
  summary.notes = repetitionNotes(files);
  const Outcome<OpenedCloud> cloud = openCloud(files, options, summary.notes);
  if (!cloud) return cloud.failure();

  for (const auto& file : cloud->lasFiles) {
    if (file->isCompressed()) summary.compressedFiles.push_back(file);
  }
  openSpill(*cloud, options.spillFolder, summary);
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
