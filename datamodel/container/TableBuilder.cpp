// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/TableBuilder.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <map>
#include <new>
#include <unordered_map>

#include "datamodel/container/CanonicalPaths.hpp"
#include "datamodel/container/ParallelTexts.hpp"
#include "datamodel/container/StoredName.hpp"

namespace Fiber::Container {

using MemCore::Attributes;
using MemCore::Outcome;

namespace {

constexpr double kUnknown = std::numeric_limits<double>::quiet_NaN();
constexpr std::size_t kAxes = 3;

/// Everything that two equal attribute tables have in common, as one text.
std::string contentsOf(const Attributes& attributes) {
  std::string contents;
  for (const auto& [name, value] : attributes.all()) {
    contents += fmt::format("{}:{}:{}:{}:", name.size(), name, value->elementType().name(),
                            value->byteCount());
    contents.append(reinterpret_cast<const char*>(value->bytes()), value->byteCount());
  }
  return contents;
}

class TableBuilder {
 public:
  TableBuilder(PlannedRepresentation& plan, const RepresentationEncoder& encoder,
               const std::string& file)
      : plan_(plan), encoder_(encoder), folder_(paths_.of(file).parent_path()) {}

  TableContents build() {
    numberAttributeSets();
    nameSources();
    contents_.table = FragmentTable(shape(), plan_.rows.size());
    for (const PlannedField& field : plan_.fields) contents_.fieldNames.push_back(field.dataset);
    const auto filled = parallelBlocks(plan_.rows.size(), [this](std::size_t row) {
      fillRow(row);
      return Outcome<void>();
    });
    // The only text there is: what ran out in a thread has run out here.
    if (!filled.ok()) throw std::bad_alloc();
    return std::move(contents_);
  }

 private:
  FragmentTable& table() { return contents_.table; }

  void numberAttributeSets() {
    for (std::size_t f = 0; f < plan_.fields.size(); ++f) {
      std::map<std::string, std::uint32_t> known;
      auto& sets = plan_.fields[f].stored.attributeSets;
      sets.clear();
      for (std::size_t row = 0; row < plan_.rows.size(); ++row) {
        const PlannedRow& planned = plan_.rows[row];
        const CreatorHandle& creator = planned.parts[f].creator;
        // Data that were made meanwhile may have brought some; linked data were not made.
        if (!creator || (planned.link && !planned.parts[f].hasAttributes)) continue;
        if (creator->attributes().all().empty()) continue;
        const auto next = static_cast<std::uint32_t>(sets.size() + 1);
        const auto [set, isNew] = known.try_emplace(contentsOf(creator->attributes()), next);
        if (isNew) sets.push_back(creator->attributes());
        if (!hasAttributeSets_) setNumbers_.resize(plan_.rows.size() * plan_.fields.size());
        setNumbers_[row * plan_.fields.size() + f] = set->second;
        hasAttributeSets_ = true;
      }
    }
  }

  void nameSources() {
    linkNames_.resize(plan_.rows.size());
    groupNumbers_.resize(plan_.rows.size());
    std::map<std::string, std::uint32_t> known;
    for (std::size_t row = 0; row < plan_.rows.size(); ++row) {
      const auto& link = plan_.rows[row].link;
      if (!link) continue;
      linkNames_[row] = relativeName(link->file.path);
      const auto next = static_cast<std::uint32_t>(contents_.sourceGroups.size());
      const auto [group, isNew] = known.try_emplace(link->group, next);
      if (isNew) contents_.sourceGroups.push_back(link->group);
      groupNumbers_[row] = group->second;
    }
  }

  /// A file's name from the folder of the file being written on.
  std::string relativeName(const std::string& path) {
    const std::size_t nameAt = path.rfind('/') + 1;  // 0 without a folder
    const auto [known, isNew] = relativeFolders_.try_emplace(path.substr(0, nameAt));
    if (isNew) {
      const auto folder = paths_.of(path).parent_path().lexically_relative(folder_);
      if (folder != ".") known->second = folder.string() + "/";
    }
    return known->second + path.substr(nameAt);
  }

  TableShape shape() {
    TableShape shape;
    shape.fieldCount = plan_.fields.size();
    for (const PlannedField& field : plan_.fields) {
      shape.wideFieldCount += field.stored.rank > 1 ? 1 : 0;
    }
    hasGrids_ = needsGrids();
    for (std::size_t row = 0; row < plan_.rows.size(); ++row) {
      const std::string& name = plan_.rows[row].fragment->name();
      shape.nameBytes = std::max(shape.nameBytes, storedName(name).size());
      shape.fileBytes = std::max(shape.fileBytes, linkNames_[row].size());
      shape.hasIndex = shape.hasIndex || parseTileIndex(name);
      shape.hasChecksums = shape.hasChecksums || hasChecksum(row);
    }
    shape.hasFieldExtents = !plan_.sharesExtents;
    shape.hasGrids = hasGrids_;
    shape.hasAttributeSets = hasAttributeSets_;
    return shape;
  }

  /// Whether fragments bring grids of their own: several in this file, or linked ones.
  bool needsGrids() const {
    bool anyOwn = false;
    for (std::size_t row = 0; row < plan_.rows.size(); ++row) {
      anyOwn = anyOwn || encoder_.gridOf(row).has_value();
      if (linkedGrid(row) != nullptr) return true;
    }
    return anyOwn && !sharedGrid(plan_, encoder_);
  }

  const StoredPlace* linkedPlace(std::size_t row, std::size_t f) const {
    const PlannedRow& planned = plan_.rows[row];
    return planned.link ? planned.parts[f].place : nullptr;
  }

  const CoordinateGrid* linkedGrid(std::size_t row) const {
    for (std::size_t f = 0; f < plan_.fields.size(); ++f) {
      const StoredPlace* place = linkedPlace(row, f);
      if (place != nullptr && place->grid) return place->grid.get();
    }
    return nullptr;
  }

  bool hasChecksum(std::size_t row) const {
    for (std::size_t f = 0; f < plan_.fields.size(); ++f) {
      if (!plan_.rows[row].link && encoder_.hasChecksums()) return true;
      const StoredPlace* place = linkedPlace(row, f);
      if (place != nullptr && place->checksum) return true;
    }
    return false;
  }

  void fillRow(std::size_t row) {
    const PlannedRow& planned = plan_.rows[row];
    table().setText(row, Column::kName, storedName(planned.fragment->name()));
    table().set<std::uint32_t>(row, Column::kNumber, planned.fragment->number());
    table().set<std::uint64_t>(row, Column::kStart, planned.start);
    table().set<std::uint64_t>(row, Column::kPointCount, planned.pointCount);
    if (table().has(Column::kIndex)) fillIndex(row, planned.fragment->name());
    fillVector(row, Column::kBoxMin, {kUnknown, kUnknown, kUnknown});
    fillVector(row, Column::kBoxMax, {kUnknown, kUnknown, kUnknown});
    std::size_t wide = 0;
    for (std::size_t f = 0; f < plan_.fields.size(); ++f) {
      fillPart(row, f);
      if (plan_.fields[f].stored.rank > 1) fillShape(row, f, wide++);
    }
    if (hasGrids_) fillGrid(row);
    if (planned.link) fillLink(row);
  }

  void fillIndex(std::size_t row, const std::string& name) {
    constexpr std::uint64_t kNone = std::numeric_limits<std::uint64_t>::max();
    const auto index = parseTileIndex(name).value_or(MultiIndex<3>{{kNone, kNone, kNone}});
    for (std::size_t axis = 0; axis < kAxes; ++axis) {
      table().set<std::uint64_t>(row, Column::kIndex, index[axis], axis);
    }
  }

  void fillVector(std::size_t row, Column column, const std::array<double, kAxes>& values) {
    for (std::size_t axis = 0; axis < kAxes; ++axis) {
      table().set<double>(row, column, values[axis], axis);
    }
  }

  void fillPart(std::size_t row, std::size_t f) {
    const PlannedPart& part = plan_.rows[row].parts[f];
    table().set<double>(row, Column::kFieldMin, kUnknown, f);
    table().set<double>(row, Column::kFieldMax, kUnknown, f);
    if (table().has(Column::kFieldStart)) {
      table().set<std::uint64_t>(row, Column::kFieldStart, part.start, f);
      table().set<std::uint64_t>(row, Column::kFieldRows, part.rows, f);
    }
    if (!part.creator) return;
    table().set<std::uint8_t>(row, Column::kPresent, 1, f);
    fillFacts(row, f, part.creator->facts());
    if (hasAttributeSets_) {
      table().set<std::uint32_t>(row, Column::kAttributeSet,
                                 setNumbers_[row * plan_.fields.size() + f], f);
    }
    if (table().has(Column::kChecksum)) {
      const StoredPlace* place = linkedPlace(row, f);
      const std::uint32_t own = encoder_.hasChecksums() ? encoder_.checksumOf(row, f) : 0;
      table().set<std::uint32_t>(row, Column::kChecksum,
                                 place != nullptr ? place->checksum.value_or(0) : own, f);
    }
  }

  void fillFacts(std::size_t row, std::size_t f, const ArrayFacts& facts) {
    if (facts.box && plan_.fields[f].stored.name == kPositions) {
      const auto& min = facts.box->min();
      const auto& max = facts.box->max();
      fillVector(row, Column::kBoxMin, {min.x, min.y, min.z});
      fillVector(row, Column::kBoxMax, {max.x, max.y, max.z});
    }
    if (!facts.range) return;
    table().set<double>(row, Column::kFieldMin, facts.range->min, f);
    table().set<double>(row, Column::kFieldMax, facts.range->max, f);
  }

  void fillShape(std::size_t row, std::size_t f, std::size_t wide) {
    const DynamicSize& size = plan_.rows[row].parts[f].size;
    for (std::size_t d = 0; d + 1 < size.rank(); ++d) {
      table().set<std::uint64_t>(row, Column::kRowShape, size[d], kAxes * wide + d);
    }
  }

  void fillGrid(std::size_t row) {
    const CoordinateGrid* linked = linkedGrid(row);
    const auto& own = encoder_.gridOf(row);
    for (std::size_t axis = 0; axis < kAxes; ++axis) {
      const AxisGrid grid = linked != nullptr ? (*linked)[axis]
                            : own             ? (*own)[axis]
                                              : AxisGrid{kUnknown, kUnknown};
      table().set<double>(row, Column::kGridScale, grid.scale, axis);
      table().set<double>(row, Column::kGridOffset, grid.offset, axis);
    }
  }

  void fillLink(std::size_t row) {
    const FileIdentity& file = plan_.rows[row].link->file;
    table().setText(row, Column::kFile, linkNames_[row]);
    table().set<std::uint64_t>(row, Column::kFileSize, file.sizeBytes);
    table().set<std::uint64_t>(row, Column::kContentId, file.contentId);
    table().set<std::uint32_t>(row, Column::kSourceGroup, groupNumbers_[row]);
  }

  PlannedRepresentation& plan_;
  const RepresentationEncoder& encoder_;
  CanonicalPaths paths_;
  std::filesystem::path folder_;
  std::unordered_map<std::string, std::string> relativeFolders_;
  TableContents contents_;
  std::vector<std::string> linkNames_;       ///< by row; "" where the data are in this file
  std::vector<std::uint32_t> groupNumbers_;  ///< by row
  std::vector<std::uint32_t> setNumbers_;    ///< by row and field; 0 = none
  bool hasAttributeSets_ = false;
  bool hasGrids_ = false;
};

}  // namespace

std::optional<CoordinateGrid> sharedGrid(const PlannedRepresentation& plan,
                                         const RepresentationEncoder& encoder) {
  std::optional<CoordinateGrid> shared;
  for (std::size_t row = 0; row < plan.rows.size(); ++row) {
    const auto& grid = encoder.gridOf(row);
    if (!grid) continue;
    if (shared && *shared != *grid) return std::nullopt;
    shared = grid;
  }
  return shared;
}

TableContents buildTable(PlannedRepresentation& plan, const RepresentationEncoder& encoder,
                         const std::string& file) {
  return TableBuilder(plan, encoder, file).build();
}

}  // namespace Fiber::Container
