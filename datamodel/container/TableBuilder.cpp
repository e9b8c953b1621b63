// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/TableBuilder.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <map>
#include <new>
#include <string_view>
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

/// One row of a piece of the table.
struct TableRow {
  FragmentTable& piece;
  std::size_t row;

  bool has(Column column) const { return piece.has(column); }
  template <class T>
  void set(Column column, T value, std::size_t entry = 0) const {
    piece.set<T>(row, column, value, entry);
  }
  void setText(Column column, std::string_view text, std::size_t offset = 0) const {
    piece.setText(row, column, text, offset);
  }
};

/// Surveys the rows of a table and fills them. One class of some length: both passes go over the
/// same planned rows and link names, and a column is filled beside what says that it is needed.
class TableBuilder {
 public:
  TableBuilder(PlannedRepresentation& plan, const RepresentationEncoder& encoder,
               const std::string& file)
      : plan_(plan), encoder_(encoder), folder_(paths_.of(file).parent_path()) {}

  /// Everything but how rows are filled.
  TableToWrite plan() {
    numberAttributeSets();
    TableToWrite table;
    table.shape = survey();
    table.rowCount = plan_.rows.size();
    for (const PlannedField& field : plan_.fields) table.fieldNames.push_back(field.dataset);
    table.sourceGroups = groups_.texts();
    return table;
  }

  /// Fills the row of a planned fragment.
  void fill(TableRow out, std::size_t row) const {
    const PlannedRow& planned = plan_.rows[row];
    const std::string name = planned.fragment->name();
    out.setText(Column::kName, storedName(name));
    out.set<std::uint32_t>(Column::kNumber, planned.fragment->number());
    out.set<std::uint64_t>(Column::kStart, planned.start);
    out.set<std::uint64_t>(Column::kPointCount, planned.pointCount);
    if (out.has(Column::kIndex)) fillIndex(out, name);
    fillBox(out, planned.linkedBox.get());
    std::size_t wide = 0;
    for (std::size_t f = 0; f < plan_.fields.size(); ++f) {
      const std::size_t* place = plan_.fields[f].stored.rank > 1 ? &wide : nullptr;
      if (planned.link) {
        fillLinkedPart(out, row, f, place);
      } else {
        fillOwnPart(out, row, f, place);
      }
      wide += place != nullptr ? 1 : 0;
    }
    if (hasGrids_) fillGrid(out, row);
    if (planned.link) fillLink(out, row);
  }

 private:
  static constexpr std::size_t kBlock = 1024;  ///< rows that a thread takes at a time

  void numberAttributeSets() {
    std::vector<std::size_t> rows;  // those that may have some
    for (std::size_t row = 0; row < plan_.rows.size(); ++row) {
      const PlannedRow& planned = plan_.rows[row];
      if (!planned.link || !planned.linkedDetails.empty()) rows.push_back(row);
    }
    for (std::size_t f = 0; f < plan_.fields.size(); ++f) numberAttributeSets(f, rows);
  }

  void numberAttributeSets(std::size_t f, const std::vector<std::size_t>& rows) {
    std::map<std::string, std::uint32_t> known;
    auto& sets = plan_.fields[f].stored.attributeSets;
    sets.clear();
    for (const std::size_t row : rows) {
      // Data that were made meanwhile may have brought some.
      const CreativeArrayBase* creator = keptCreator(row, f);
      if (creator == nullptr || creator->attributes().all().empty()) continue;
      const auto next = static_cast<std::uint32_t>(sets.size() + 1);
      const auto [set, isNew] = known.try_emplace(contentsOf(creator->attributes()), next);
      if (isNew) sets.push_back(creator->attributes());
      if (!hasAttributeSets_) setNumbers_.resize(plan_.rows.size() * plan_.fields.size());
      setNumbers_[row * plan_.fields.size() + f] = set->second;
      hasAttributeSets_ = true;
    }
  }

  const CreativeArrayBase* keptCreator(std::size_t row, std::size_t f) const {
    const PlannedRow& planned = plan_.rows[row];
    if (planned.link) return planned.linkedDetails[f].creator.get();
    return planned.parts[f].creator.get();
  }

  /// A text that occurs many times in a row, as a number in a list.
  class NumberedTexts {
   public:
    std::uint32_t numberOf(std::string_view text) {
      if (!texts_.empty() && texts_[last_] == text) return last_;
      const auto next = static_cast<std::uint32_t>(texts_.size());
      const auto [number, isNew] = numbers_.try_emplace(std::string(text), next);
      if (isNew) texts_.emplace_back(text);
      return last_ = number->second;
    }
    const std::vector<std::string>& texts() const { return texts_; }

   private:
    std::vector<std::string> texts_;
    std::unordered_map<std::string, std::uint32_t> numbers_;
    std::uint32_t last_ = 0;
  };

  /// The name of a linked file and its representation. Folder and group are numbers, in the lists
  /// of its block of rows at first, and in those of the table once all blocks are known.
  struct LinkName {
    std::uint32_t folder = 0;
    std::uint32_t group = 0;
    std::uint32_t nameAt = 0;  ///< place in the path; 0 without a folder
  };

  /// What the rows of one block need of the table.
  struct BlockSurvey {
    TableShape shape;
    NumberedTexts folders;
    NumberedTexts groups;
    std::vector<std::size_t> fileBytes;  ///< by folder; of the longest name, without its folder
  };

  /// Looks at every row once, blocks of them at the same time. The lists of folders and groups are
  /// then joined in the order of the blocks: that of the first row that needs an entry.
  TableShape survey() {
    links_.resize(plan_.rows.size());
    std::vector<BlockSurvey> blocks((plan_.rows.size() + kBlock - 1) / kBlock);
    eachBlock(blocks.size(), [&](std::size_t b) {
      for (std::size_t row = b * kBlock; row < endOf(b); ++row) surveyRow(blocks[b], row);
    });
    hasGrids_ = needsGrids();
    TableShape shape;
    for (std::size_t b = 0; b < blocks.size(); ++b) joinBlock(blocks[b], b, shape);
    shape.fieldCount = plan_.fields.size();
    for (const PlannedField& field : plan_.fields) {
      shape.wideFieldCount += field.stored.rank > 1 ? 1 : 0;
    }
    shape.hasFieldExtents = !plan_.sharesExtents;
    shape.hasGrids = hasGrids_;
    shape.hasAttributeSets = hasAttributeSets_;
    return shape;
  }

  std::size_t endOf(std::size_t block) const {
    return std::min(plan_.rows.size(), (block + 1) * kBlock);
  }

  /// Runs step(block) for every block of rows.
  template <class Step>
  static void eachBlock(std::size_t blocks, const Step& step) {
    const auto done =
        parallelTexts(blocks, blocks < 4 ? 0 : kWorthThreadsBytes, [&](std::size_t b) {
          step(b);
          return Outcome<void>();
        });
    // The only text there is: what ran out in a thread has run out here.
    if (!done.ok()) throw std::bad_alloc();
  }

  void surveyRow(BlockSurvey& block, std::size_t row) {
    const PlannedRow& planned = plan_.rows[row];
    const std::string name = planned.fragment->name();
    TableShape& shape = block.shape;
    shape.nameBytes = std::max(shape.nameBytes, storedName(name).size());
    shape.hasIndex = shape.hasIndex || parseTileIndex(name);
    shape.hasChecksums = shape.hasChecksums || hasChecksum(planned);
    if (!planned.link) return;
    const std::string_view path = planned.link->file.path;
    LinkName& link = links_[row];
    link.nameAt = static_cast<std::uint32_t>(path.rfind('/') + 1);
    link.folder = block.folders.numberOf(path.substr(0, link.nameAt));
    link.group = block.groups.numberOf(planned.link->group);
    block.fileBytes.resize(block.folders.texts().size());
    std::size_t& fileBytes = block.fileBytes[link.folder];
    fileBytes = std::max(fileBytes, path.size() - link.nameAt);
  }

  void joinBlock(const BlockSurvey& block, std::size_t b, TableShape& shape) {
    shape.nameBytes = std::max(shape.nameBytes, block.shape.nameBytes);
    shape.hasIndex = shape.hasIndex || block.shape.hasIndex;
    shape.hasChecksums = shape.hasChecksums || block.shape.hasChecksums;
    std::vector<std::uint32_t> folders;
    for (std::size_t i = 0; i < block.fileBytes.size(); ++i) {
      folders.push_back(folders_.numberOf(block.folders.texts()[i]));
      if (folders.back() == relativeFolders_.size()) {
        relativeFolders_.push_back(relativeFolder(block.folders.texts()[i]));
      }
      const std::size_t folderBytes = relativeFolders_[folders.back()].size();
      shape.fileBytes = std::max(shape.fileBytes, folderBytes + block.fileBytes[i]);
    }
    std::vector<std::uint32_t> groups;
    for (const std::string& group : block.groups.texts()) groups.push_back(groups_.numberOf(group));
    for (std::size_t row = b * kBlock; row < endOf(b); ++row) {
      if (!plan_.rows[row].link) continue;
      links_[row].folder = folders[links_[row].folder];
      links_[row].group = groups[links_[row].group];
    }
  }

  /// A folder, given with the '/' behind it, from the folder of the file being written on.
  std::string relativeFolder(const std::string& folder) {
    const auto relative = paths_.of(folder).parent_path().lexically_relative(folder_);
    return relative == "." ? std::string() : relative.string() + "/";
  }

  bool hasChecksum(const PlannedRow& planned) const {
    if (!planned.link) return encoder_.hasChecksums() && !plan_.fields.empty();
    return std::any_of(planned.linkedDetails.begin(), planned.linkedDetails.end(),
                       [](const LinkedDetails& details) {
                         return details.creator && details.creator->place().checksum;
                       });
  }

  /// Whether fragments bring grids of their own: several in this file, or linked ones.
  bool needsGrids() const {
    bool anyOwn = false;
    for (std::size_t row = 0; row < plan_.rows.size(); ++row) {
      anyOwn = anyOwn || encoder_.gridOf(row).has_value();
      if (plan_.rows[row].linkedGrid) return true;
    }
    return anyOwn && !sharedGrid(plan_, encoder_);
  }

  static void fillIndex(TableRow out, const std::string& name) {
    constexpr std::uint64_t kNone = std::numeric_limits<std::uint64_t>::max();
    const auto index = parseTileIndex(name).value_or(MultiIndex<3>{{kNone, kNone, kNone}});
    for (std::size_t axis = 0; axis < kAxes; ++axis) {
      out.set<std::uint64_t>(Column::kIndex, index[axis], axis);
    }
  }

  static void fillVector(TableRow out, Column column, const std::array<double, kAxes>& values) {
    for (std::size_t axis = 0; axis < kAxes; ++axis) {
      out.set<double>(column, values[axis], axis);
    }
  }

  static void fillBox(TableRow out, const Eagle::BoundingBox* box) {
    constexpr Eagle::PhysicalSpace::point kNowhere = {kUnknown, kUnknown, kUnknown};
    const auto& min = box == nullptr ? kNowhere : box->min();
    const auto& max = box == nullptr ? kNowhere : box->max();
    fillVector(out, Column::kBoxMin, {min.x, min.y, min.z});
    fillVector(out, Column::kBoxMax, {max.x, max.y, max.z});
  }

  static void fillExtents(TableRow out, std::size_t f, std::uint64_t start, std::uint64_t rows) {
    if (!out.has(Column::kFieldStart)) return;
    out.set<std::uint64_t>(Column::kFieldStart, start, f);
    out.set<std::uint64_t>(Column::kFieldRows, rows, f);
  }

  static void fillRange(TableRow out, std::size_t f, const ValueRange& range) {
    out.set<double>(Column::kFieldMin, range.min, f);
    out.set<double>(Column::kFieldMax, range.max, f);
  }

  /// `wide`: the field's place among those of rank above 1; null for the others.
  void fillOwnPart(TableRow out, std::size_t row, std::size_t f, const std::size_t* wide) const {
    const PlannedPart& part = plan_.rows[row].parts[f];
    fillExtents(out, f, part.start, part.rows);
    if (wide != nullptr) fillShape(out, part.size, *wide);
    if (!part.creator) return fillRange(out, f, kUnknownRange);
    const ArrayFacts facts = part.creator->facts();
    if (facts.box && plan_.fields[f].stored.name == kPositions) fillBox(out, facts.box.get());
    fillRange(out, f, facts.range.value_or(kUnknownRange));
    fillPresent(out, row, f, encoder_.hasChecksums() ? encoder_.checksumOf(row, f) : 0);
  }

  void fillLinkedPart(TableRow out, std::size_t row, std::size_t f, const std::size_t* wide) const {
    const PlannedRow& planned = plan_.rows[row];
    const LinkedPart& part = plan_.linkedPart(planned, f);
    LinkedDetails details;
    if (!planned.linkedDetails.empty()) {
      details = planned.linkedDetails[f];
    } else if (part.isPresent) {
      details = {planned.start, planned.pointCount, nullptr};
    }
    fillExtents(out, f, details.start, details.rows);
    fillRange(out, f, part.range);
    if (!part.isPresent) return;
    if (wide != nullptr) {
      fillShape(out, details.creator->facts().size.value_or(DynamicSize()), *wide);
    }
    fillPresent(out, row, f, details.creator ? details.creator->place().checksum.value_or(0) : 0);
  }

  void fillPresent(TableRow out, std::size_t row, std::size_t f, std::uint32_t checksum) const {
    out.set<std::uint8_t>(Column::kPresent, 1, f);
    if (hasAttributeSets_) {
      out.set<std::uint32_t>(Column::kAttributeSet, setNumbers_[row * plan_.fields.size() + f], f);
    }
    if (out.has(Column::kChecksum)) {
      out.set<std::uint32_t>(Column::kChecksum, checksum, f);
    }
  }

  static void fillShape(TableRow out, const DynamicSize& size, std::size_t wide) {
    for (std::size_t d = 0; d + 1 < size.rank(); ++d) {
      out.set<std::uint64_t>(Column::kRowShape, size[d], kAxes * wide + d);
    }
  }

  void fillGrid(TableRow out, std::size_t row) const {
    const CoordinateGrid* linked = plan_.rows[row].linkedGrid.get();
    const auto own = encoder_.gridOf(row);
    for (std::size_t axis = 0; axis < kAxes; ++axis) {
      const AxisGrid grid = linked != nullptr ? (*linked)[axis]
                            : own             ? (*own)[axis]
                                              : AxisGrid{kUnknown, kUnknown};
      out.set<double>(Column::kGridScale, grid.scale, axis);
      out.set<double>(Column::kGridOffset, grid.offset, axis);
    }
  }

  void fillLink(TableRow out, std::size_t row) const {
    const FileIdentity& file = plan_.rows[row].link->file;
    const std::string& folder = relativeFolders_[links_[row].folder];
    out.setText(Column::kFile, folder);
    out.setText(Column::kFile, std::string_view(file.path).substr(links_[row].nameAt),
                folder.size());
    out.set<std::uint64_t>(Column::kFileSize, file.sizeBytes);
    out.set<std::uint64_t>(Column::kContentId, file.contentId);
    out.set<std::uint32_t>(Column::kSourceGroup, links_[row].group);
  }

  PlannedRepresentation& plan_;
  const RepresentationEncoder& encoder_;
  CanonicalPaths paths_;
  std::filesystem::path folder_;
  NumberedTexts folders_;
  std::vector<std::string> relativeFolders_;  ///< by folder
  NumberedTexts groups_;
  std::vector<LinkName> links_;            ///< by row; nothing where the data are in this file
  std::vector<std::uint32_t> setNumbers_;  ///< by row and field; 0 = none
  bool hasAttributeSets_ = false;
  bool hasGrids_ = false;
};

}  // namespace

std::optional<CoordinateGrid> sharedGrid(const PlannedRepresentation& plan,
                                         const RepresentationEncoder& encoder) {
  std::optional<CoordinateGrid> shared;
  for (std::size_t row = 0; row < plan.rows.size(); ++row) {
    const auto grid = encoder.gridOf(row);
    if (!grid) continue;
    if (shared && *shared != *grid) return std::nullopt;
    shared = grid;
  }
  return shared;
}

TableToWrite planTable(PlannedRepresentation& plan, const RepresentationEncoder& encoder,
                       const std::string& file) {
  const auto builder = std::make_shared<TableBuilder>(plan, encoder, file);
  TableToWrite table = builder->plan();
  table.fill = [builder](FragmentTable& piece, std::size_t pieceBegin, std::size_t begin,
                         std::size_t end) {
    for (std::size_t row = begin; row < end; ++row) builder->fill({piece, row - pieceBegin}, row);
  };
  return table;
}

}  // namespace Fiber::Container
