// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/CloudGrid.hpp"

#include <fmt/format.h>

#include <algorithm>

#include "formats/cloud/PointFragmentSource.hpp"
#include "formats/cloud/SourceOrder.hpp"

namespace Formats {

using Fiber::ArrayFacts;
using Fiber::DynamicSize;
using Fiber::FiberTypeBase;
using Fiber::Field;
using Fiber::FragmentHandle;
using MemCore::Chunk;
using MemCore::makeStrong;
using MemCore::StrongPtr;

namespace {

using TypeHandle = StrongPtr<FiberTypeBase>;
using SourceHandle = StrongPtr<DecodedFragmentSource>;

/// The creator of a column of waveforms.
StrongPtr<Fiber::CreativeArrayBase> columnCreator(const TypeHandle& type,
                                                  const std::optional<DynamicSize>& size,
                                                  const SourceHandle& source, std::size_t column) {
  return makeStrong<ColumnCreator>(ArrayFacts{type, size, nullptr, std::nullopt}, source, column);
}

/// The creator of a column of points.
StrongPtr<Fiber::CreativeArrayBase> pointCreator(const TypeHandle& type,
                                                 const StrongPtr<PointFragmentSource>& source,
                                                 std::size_t column) {
  const DynamicSize size{source->range().pointCount};
  return makeStrong<PointColumnCreator>(ArrayFacts{type, size, nullptr, std::nullopt}, source,
                                        column);
}

/// Which fields a grid has beyond those of the records.
struct GridParts {
  bool hasWaveforms = false;
  bool keepsOrder = false;
};

/// Adds fragments to the fields of one grid.
class GridFiller {
 public:
  GridFiller(Fiber::Grid& grid, const CloudFields& fields, const GridParts& parts,
             std::shared_ptr<RecordSpill> spill)
      : representation_(*grid.makeCartesianRepresentation(3, Fiber::kCartesianChart, 0)),
        fields_(fields),
        spill_(std::move(spill)),
        positions_(makeField("Positions")) {
    for (const CloudField& field : fields.fields) {
      const auto made = makeField(field.name);
      made->properties() = field.properties;
      fieldHandles_.push_back({made, fiberTypeOf(field.type)});
    }
    if (parts.hasWaveforms) {
      samples_ = makeField(kWaveformsField);
      lengths_ = makeField(kWaveformLengthField);
    }
    if (parts.keepsOrder) {
      sourceFiles_ = makeField(kSourceFileField);
      sourceIndices_ = makeField(kSourceIndexField);
    }
  }

  void setGridHint(const LasHeader& header) {
    positions_->properties().setAttribute(
        "GridScale", makeStrong<Chunk<double>>(std::span<const double>(header.scale)));
    positions_->properties().setAttribute(
        "GridOffset", makeStrong<Chunk<double>>(std::span<const double>(header.offset)));
  }

  void addFile(const CloudFile& file, std::size_t fileNumber) {
    const auto columns = columnsOf(file, fileNumber);
    const auto records = std::make_shared<FileRecords>();
    records->file = file.file;
    records->spill = spill_;
    records->spillOffset = spilledBytes_;
    spilledBytes_ += decodedBytes(*file.file);
    for (std::size_t i = 0; i < file.fragments.size(); ++i) {
      const auto own = std::make_shared<RecordSource>(records, file.fragments[i], i);
      records->fragments.push_back(own);
      const auto source = PointFragmentSource::make(columns, own);
      const FragmentHandle fragment =
          positions_->makeFragmentID(fmt::format("{}-{}", fileNumber, i));
      addPoints(fragment, source);
      addFields(fragment, source, fileNumber);
      if (samples_) addWaveforms(fragment, file, source);
      if (sourceFiles_) addOrder(fragment, fileNumber, file.fragments[i]);
    }
  }

 private:
  struct FieldHandle {
    StrongPtr<Field> field;
    TypeHandle type;
  };

  StrongPtr<Field> makeField(const std::string& name) {
    const auto id = representation_.makeFieldID(name);
    return representation_.makeField(id, representation_.fragments(), nullptr);
  }

  /// What the decoder takes out of the file's records: all the fields that the file itself has.
  std::shared_ptr<const PointColumns> columnsOf(const CloudFile& file, std::size_t fileNumber) {
    auto columns = std::make_shared<PointColumns>();
    columns->file = file.file;
    columns->scaling = {file.file->header().scale, file.file->header().offset};
    for (const CloudField& field : fields_.fields) {
      const FieldSupply& supply = field.supplies[fileNumber];
      if (supply.field != nullptr) {
        columns->fields.push_back({supply.field, supply.conversion});
      }
    }
    return columns;
  }

  void addPoints(const FragmentHandle& fragment, const StrongPtr<PointFragmentSource>& source) {
    const auto creator = pointCreator(pointType_, source, kPositionColumn);
    source->setPositions(creator);
    positions_->setCreator(fragment, creator);
  }

  void addFields(const FragmentHandle& fragment, const StrongPtr<PointFragmentSource>& source,
                 std::size_t fileNumber) {
    const DynamicSize size{source->range().pointCount};
    std::size_t column = kFirstFieldColumn;
    for (std::size_t i = 0; i < fieldHandles_.size(); ++i) {
      const auto& [field, type] = fieldHandles_[i];
      if (fields_.fields[i].supplies[fileNumber].field == nullptr) {
        field->setCreator(fragment, makeStrong<ZeroCreator>(type, size));
      } else {
        field->setCreator(fragment, pointCreator(type, source, column++));
      }
    }
  }

  void addWaveforms(const FragmentHandle& fragment, const CloudFile& file,
                    const StrongPtr<PointFragmentSource>& points) {
    const std::uint64_t count = points->range().pointCount;
    if (!file.waveforms) {
      samples_->setCreator(fragment, makeStrong<ZeroCreator>(sampleType_, DynamicSize{1, count}));
      lengths_->setCreator(fragment, makeStrong<ZeroCreator>(sampleType_, DynamicSize{count}));
      return;
    }
    // How many samples the longest packet has is known once the packets are read.
    const SourceHandle source = makeStrong<WaveformFragmentSource>(file.waveforms, points);
    samples_->setCreator(fragment,
                         columnCreator(sampleType_, std::nullopt, source, kWaveformColumn));
    lengths_->setCreator(
        fragment, columnCreator(sampleType_, DynamicSize{count}, source, kWaveformLengthColumn));
  }

  void addOrder(const FragmentHandle& fragment, std::size_t fileNumber, const PointRange& range) {
    const auto order = makeSourceOrder(static_cast<std::uint32_t>(fileNumber), range);
    sourceFiles_->setCreator(fragment, order.file);
    sourceIndices_->setCreator(fragment, order.index);
  }

  Fiber::Representation& representation_;
  const CloudFields& fields_;
  std::shared_ptr<RecordSpill> spill_;  ///< Null: records are not spilled.
  std::uint64_t spilledBytes_ = 0;      ///< Of the files so far.
  StrongPtr<Field> positions_;
  std::vector<FieldHandle> fieldHandles_;  ///< In the order of `fields_`.
  StrongPtr<Field> samples_;               ///< Empty: no waveforms.
  StrongPtr<Field> lengths_;
  StrongPtr<Field> sourceFiles_;  ///< Empty: the order is not kept.
  StrongPtr<Field> sourceIndices_;
  TypeHandle pointType_ = FiberTypeBase::find(typeid(Eagle::PhysicalSpace::point));
  TypeHandle sampleType_ = FiberTypeBase::find(typeid(std::uint16_t));
};

/// Tells the waveforms of a file where the fields that name packets stand among its columns.
void findPacketColumns(const CloudFields& fields, std::size_t fileNumber,
                       FileWaveforms& waveforms) {
  std::size_t column = kFirstFieldColumn;
  for (const CloudField& field : fields.fields) {
    if (field.supplies[fileNumber].field == nullptr) continue;
    if (field.name == kWaveDescriptorField) waveforms.packetColumns[0] = column;
    if (field.name == kWaveOffsetField) waveforms.packetColumns[1] = column;
    if (field.name == kWaveSizeField) waveforms.packetColumns[2] = column;
    ++column;
  }
}

}  // namespace

std::uint64_t decodedBytes(const LasFile& file) {
  return file.isCompressed() ? file.pointCount() * file.recordBytes() : 0;
}

void fillGrid(Fiber::Grid& grid, std::span<const CloudFile> files, const CloudFields& fields,
              bool keepOrder, CloudSummary& summary) {
  summary.hasWaveforms = std::any_of(
      files.begin(), files.end(), [](const CloudFile& file) { return file.waveforms != nullptr; });
  GridFiller filler(grid, fields, {summary.hasWaveforms, keepOrder}, summary.spill);
  bool hasHint = false;
  for (std::size_t i = 0; i < files.size(); ++i) {
    const CloudFile& file = files[i];
    if (file.fragments.empty()) continue;
    if (!std::exchange(hasHint, true)) filler.setGridHint(file.file->header());
    if (file.waveforms) {
      findPacketColumns(fields, i, *file.waveforms);
      summary.waveforms.push_back(file.waveforms);
    }
    filler.addFile(file, i);
    summary.fragments += file.fragments.size();
    for (const PointRange& range : file.fragments) summary.points += range.pointCount;
  }
}

}  // namespace Formats
