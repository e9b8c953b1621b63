// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/BundlePlan.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "datamodel/container/CanonicalPaths.hpp"
#include "datamodel/container/FormatNames.hpp"
#include "datamodel/container/ParallelTexts.hpp"
#include "datamodel/container/StoredName.hpp"

namespace Fiber::Container {

using MemCore::Failure;
using MemCore::Outcome;
using MemCore::StrongPtr;

namespace {

/// Plans one representation.
class RepresentationPlanner {
 public:
  RepresentationPlanner(const Representation& representation, const std::string& file,
                        bool linkFragments)
      : representation_(representation),
        file_(paths_.of(file)),
        fileName_(file_.filename().string()),
        linkFragments_(linkFragments) {}

  Outcome<PlannedRepresentation> plan() {
    listFields();
    if (auto listed = listRows(); !listed.ok()) return listed.failure();
    if (auto asked = askCreators(); !asked.ok()) return asked.failure();
    for (PlannedRow& row : plan_.rows) {
      if (auto alike = settleTypes(row); !alike.ok()) return alike.failure();
      row.pointCount = pointCountOf(row);
      row.link = linkOf(row);
    }
    dropVacantRows();
    placeRows();
    return std::move(plan_);
  }

 private:
  void listFields() {
    for (const auto& [name, field] : representation_.fields()) {
      PlannedField planned;
      planned.field = field;
      planned.dataset = storedName(name, kRepresentationWords);
      planned.stored.name = name;
      describeField(*field, planned.stored);
      plan_.fields.push_back(std::move(planned));
    }
    std::sort(plan_.fields.begin(), plan_.fields.end(),
              [](const PlannedField& a, const PlannedField& b) { return a.dataset < b.dataset; });
  }

  static void describeField(const Field& field, StoredField& stored) {
    stored.properties = field.properties();
    stored.propertyBits = field.propertyBits;
    stored.box = field.findInterface<Eagle::BoundingBox>();
    if (const auto range = field.findInterface<DataRangeBase>()) stored.range = range->range();
    if (const auto* regular = dynamic_cast<const RegularlyFragmentedField<3>*>(&field)) {
      stored.fragmentCounts = regular->counts();
      stored.fragmentationName = regular->creatorName();
    }
  }

  /// The fragments of the representation and of fields that have a collection of their own.
  Outcome<void> listRows() {
    std::map<unsigned, FragmentHandle> others;
    const auto& shared = representation_.fragments();
    for (const PlannedField& planned : plan_.fields) {
      if (planned.field->getFragmentIDCollection() == shared) continue;
      for (const FragmentHandle& fragment : planned.field->getFragmentIDs()) {
        const FragmentHandle known = shared->findFragmentID(fragment->number());
        const FragmentHandle& first =
            known ? known : others.try_emplace(fragment->number(), fragment).first->second;
        if (first->name() == fragment->name()) continue;
        return Failure{
            fmt::format("field {}: fragment {} has another name than in the other "
                        "fields, found {}, expected {}",
                        planned.stored.name, fragment->number(), fragment->name(), first->name())};
      }
    }
    for (FragmentHandle& fragment : shared->all()) addRow(std::move(fragment));
    if (others.empty()) return {};
    for (auto& [number, fragment] : others) addRow(fragment);
    std::sort(plan_.rows.begin(), plan_.rows.end(), [](const PlannedRow& a, const PlannedRow& b) {
      return a.fragment->number() < b.fragment->number();
    });
    return {};
  }

  void addRow(FragmentHandle fragment) {
    PlannedRow row;
    row.fragment = std::move(fragment);
    plan_.rows.push_back(std::move(row));
  }

  /// A place of a regular fragmentation that no field has data for is no more than its index, which
  /// the counts give back: a tiling of a scattered cloud is stored in the size of its tiles.
  void dropVacantRows() {
    const auto regular = std::find_if(
        plan_.fields.begin(), plan_.fields.end(),
        [](const PlannedField& field) { return field.stored.fragmentCounts.has_value(); });
    if (regular == plan_.fields.end()) return;
    const MultiIndex<3>& counts = *regular->stored.fragmentCounts;
    std::erase_if(plan_.rows, [&](const PlannedRow& row) {
      const bool isVacant =
          std::none_of(row.parts.begin(), row.parts.end(),
                       [](const PlannedPart& part) { return part.creator != nullptr; });
      return isVacant && isPlaceOf(*row.fragment, counts);
    });
  }

  /// Whether a fragment has the name and number that its place in a tiling gives it.
  static bool isPlaceOf(const FragmentID& fragment, const MultiIndex<3>& counts) {
    const auto index = parseTileIndex(fragment.name());
    return index && (*index)[0] < counts[0] && (*index)[1] < counts[1] &&
           (*index)[0] + counts[0] * ((*index)[1] + counts[1] * (*index)[2]) == fragment.number();
  }

  Failure within(const PlannedRow& row, std::size_t f, const std::string& text) const {
    return Failure{fmt::format("field {}, fragment {}: {}", plan_.fields[f].stored.name,
                               row.fragment->name(), text)};
  }

  /// Asks all creators what they know, some rows at a time: there may be millions.
  Outcome<void> askCreators() {
    return parallelBlocks(plan_.rows.size(), [this](std::size_t r) -> Outcome<void> {
      PlannedRow& row = plan_.rows[r];
      row.parts.resize(plan_.fields.size());
      for (std::size_t f = 0; f < plan_.fields.size(); ++f) {
        PlannedPart& part = row.parts[f];
        part.creator = plan_.fields[f].field->getCreator(row.fragment);
        if (!part.creator) continue;
        if (auto asked = ask(part); !asked.ok()) return within(row, f, asked.error());
      }
      return {};
    });
  }

  /// All fragments of a field must be of one type and rank.
  Outcome<void> settleTypes(const PlannedRow& row) {
    for (std::size_t f = 0; f < plan_.fields.size(); ++f) {
      if (!row.parts[f].creator) continue;
      auto alike = settleType(plan_.fields[f].stored, row.parts[f]);
      if (!alike.ok()) return within(row, f, alike.error());
    }
    return {};
  }

  /// The positions tell how many points there are; without them, the longest field.
  std::uint64_t pointCountOf(const PlannedRow& row) const {
    std::uint64_t longest = 0;
    for (std::size_t f = 0; f < row.parts.size(); ++f) {
      const PlannedPart& part = row.parts[f];
      if (part.creator && plan_.fields[f].stored.name == kPositions) return part.rows;
      longest = std::max(longest, part.rows);
    }
    return longest;
  }

  static StrongPtr<FiberTypeBase> typeOf(CreativeArrayBase& creator) {
    if (auto known = creator.facts().type) return known;
    const auto data = creator.data();
    return data ? data->type() : nullptr;
  }

  static Outcome<void> ask(PlannedPart& part) {
    CreativeArrayBase& creator = *part.creator;
    const ArrayFacts facts = creator.facts();
    const auto size = facts.size ? facts.size : getSize(creator);
    part.type = facts.type ? facts.type.get() : typeOf(creator).get();
    if (!size || part.type == nullptr) {
      const std::string reason = creator.failure();
      return Failure{reason.empty() ? "its extents or type are not known" : reason};
    }
    if (size->rank() == 0) return Failure{"an array without dimensions cannot be stored"};
    part.size = *size;
    part.rows = (*size)[size->rank() - 1];
    part.hasAttributes = !creator.attributes().all().empty();
    if (const auto* stored = dynamic_cast<const StoredCreator*>(&creator)) {
      part.place = &stored->place();
    }
    return {};
  }

  static Outcome<void> settleType(StoredField& stored, const PlannedPart& part) {
    if (!stored.type) {
      stored.type = typeOf(*part.creator);
      stored.rank = part.size.rank();
    }
    const bool isSame = stored.type.get() == part.type || stored.type->name() == part.type->name();
    if (isSame && stored.rank == part.size.rank()) return {};
    return Failure{
        fmt::format("other type or rank than in other fragments, found {} of rank {}, "
                    "expected {} of rank {}",
                    part.type->name(), part.size.rank(), stored.type->name(), stored.rank)};
  }

  /// The other file that holds all data of a fragment; empty when there is no such file.
  std::shared_ptr<const StoredSource> linkOf(PlannedRow& row) {
    if (!linkFragments_) return nullptr;
    std::shared_ptr<const StoredSource> source;
    for (std::size_t f = 0; f < row.parts.size(); ++f) {
      if (!row.parts[f].creator) continue;
      const StoredPlace* place = row.parts[f].place;
      if (place == nullptr || *place->dataset != plan_.fields[f].dataset) return nullptr;
      if (source && !isSame(*source, *place->source)) return nullptr;
      source = place->source;
      row.parts[f].start = place->start;
    }
    return source && !isTarget(*source) ? source : nullptr;
  }

  static bool isSame(const StoredSource& a, const StoredSource& b) {
    return &a == &b || (a.group == b.group && a.file.path == b.file.path &&
                        a.file.contentId == b.file.contentId);
  }

  bool isTarget(const StoredSource& source) {
    return source.file.path.ends_with(fileName_) && paths_.of(source.file.path) == file_;
  }

  void placeRows() {
    for (const PlannedRow& row : plan_.rows) {
      for (const PlannedPart& part : row.parts) {
        const bool usual = !part.creator || part.rows == row.pointCount;
        plan_.sharesExtents = plan_.sharesExtents && usual;
      }
      shareLinkedStart(row);
    }
    for (PlannedRow& row : plan_.rows) {
      if (row.link) {
        row.start = linkedStart(row);
      } else {
        placeOwnRow(row);
      }
    }
    for (PlannedField& planned : plan_.fields) {
      if (!planned.stored.type) continue;
      planned.stored.columns =
          std::max<std::uint64_t>(planned.stored.columns, planned.stored.type->componentCount());
    }
  }

  static std::uint64_t linkedStart(const PlannedRow& row) {
    for (const PlannedPart& part : row.parts) {
      if (part.creator) return part.start;
    }
    return 0;
  }

  void shareLinkedStart(const PlannedRow& row) {
    if (!row.link) return;
    const std::uint64_t start = linkedStart(row);
    for (const PlannedPart& part : row.parts) {
      if (part.creator && part.start != start) plan_.sharesExtents = false;
    }
  }

  /// Rows that a field has no data for are left out of its dataset only when fields differ anyway;
  /// otherwise the same rows mean the same points in all datasets.
  void placeOwnRow(PlannedRow& row) {
    row.start = ownRows_;
    ownRows_ += row.pointCount;
    for (std::size_t f = 0; f < row.parts.size(); ++f) {
      PlannedPart& part = row.parts[f];
      StoredField& stored = plan_.fields[f].stored;
      part.start = plan_.sharesExtents ? row.start : stored.rows;
      stored.rows += plan_.sharesExtents ? row.pointCount : part.rows;
      if (!part.creator) continue;
      std::uint64_t width = stored.type->componentCount();
      for (std::size_t d = 0; d + 1 < part.size.rank(); ++d) width *= part.size[d];
      stored.columns = std::max(stored.columns, width);
    }
  }

  const Representation& representation_;
  CanonicalPaths paths_;
  std::filesystem::path file_;
  std::string fileName_;  ///< of file_, without its folder
  bool linkFragments_;
  PlannedRepresentation plan_;
  std::uint64_t ownRows_ = 0;
};

/// Walks the model down to the representations.
class Planner {
 public:
  Planner(const std::string& file, bool linkFragments)
      : file_(file), linkFragments_(linkFragments) {}

  Outcome<BundlePlan> plan(const Bundle& bundle) {
    BundlePlan plan;
    plan.file = file_;
    for (const auto& [time, slice] : bundle.slices()) {
      if (!slice) continue;
      PlannedSlice planned{time, timeText(time), {}};
      for (const auto& [name, grid] : slice->grids()) {
        if (!grid) continue;
        auto plannedGrid =
            planGrid(grid, planned.group + "/" + storedName(name, kRepresentationWords));
        if (!plannedGrid.ok()) {
          return Failure{fmt::format("{}: grid {}: {}", file_, name, plannedGrid.error())};
        }
        planned.grids.push_back(std::move(plannedGrid).value());
      }
      plan.slices.push_back(std::move(planned));
    }
    return plan;
  }

 private:
  Outcome<PlannedGrid> planGrid(const StrongPtr<Grid>& grid, const std::string& group) const {
    PlannedGrid planned{grid, group, {}};
    for (const auto& [id, skeleton] : grid->skeletons().all()) {
      PlannedSkeleton plannedSkeleton;
      plannedSkeleton.id = id;
      plannedSkeleton.group = fmt::format("{}/skeleton_{}_{}", group, id.dimension, id.refinement);
      for (const auto& [chart, entry] : skeleton->representations().all()) {
        auto representation =
            RepresentationPlanner(*entry.representation, file_, linkFragments_).plan();
        if (!representation.ok()) return representation.failure();
        representation->chart = chart;
        representation->group =
            plannedSkeleton.group + "/" + storedName(chart, kRepresentationWords);
        plannedSkeleton.representations.push_back(std::move(representation).value());
      }
      planned.skeletons.push_back(std::move(plannedSkeleton));
    }
    return planned;
  }

  const std::string& file_;
  bool linkFragments_;
};

}  // namespace

Outcome<BundlePlan> planBundle(const Bundle& bundle, const std::string& file, bool linkFragments) {
  return Planner(file, linkFragments).plan(bundle);
}

}  // namespace Fiber::Container
