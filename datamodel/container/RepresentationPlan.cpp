// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/RepresentationPlan.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <mutex>
#include <optional>
#include <typeinfo>

#include "datamodel/container/CanonicalPaths.hpp"
#include "datamodel/container/FormatNames.hpp"
#include "datamodel/container/ParallelTexts.hpp"
#include "datamodel/container/StoredName.hpp"

namespace Fiber::Container {

using MemCore::Failure;
using MemCore::Outcome;
using MemCore::StrongPtr;

namespace {

/// Plans one representation. One class of some length: every step goes over the same rows and
/// parts.
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
    settleTypes();
    if (auto asked = askCreators(); !asked.ok()) return asked.failure();
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
    plan_.rows.reserve(shared->size() + others.size());
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
      return !row.link && isVacant && isPlaceOf(*row.fragment, counts);
    });
  }

  /// Whether a fragment has the name and number that its place in a tiling gives it.
  static bool isPlaceOf(const FragmentID& fragment, const MultiIndex<3>& counts) {
    const auto index = parseTileIndex(fragment.name());
    return index && (*index)[0] < counts[0] && (*index)[1] < counts[1] && (*index)[2] < counts[2] &&
           (*index)[0] + counts[0] * ((*index)[1] + counts[1] * (*index)[2]) == fragment.number();
  }

  Failure within(const PlannedRow& row, std::size_t f, const std::string& text) const {
    return Failure{fmt::format("field {}, fragment {}: {}", plan_.fields[f].stored.name,
                               row.fragment->name(), text)};
  }

  /// What a creator answered, while its fragment is planned.
  struct Answer {
    CreatorHandle creator;                ///< empty: the field has no data for the fragment
    const StoredPlace* place = nullptr;   ///< the creator's own; null: its data lie in no file
    const FiberTypeBase* type = nullptr;  ///< the creator's own
    DynamicSize size;
    std::optional<ValueRange> range;
    StrongPtr<const Eagle::BoundingBox> box;

    std::uint64_t rows() const { return creator ? size[size.rank() - 1] : 0; }
  };

  /// Type and rank of a field are those of its first fragment with data. Creators that cannot tell
  /// are left to askCreators.
  void settleTypes() {
    for (PlannedField& planned : plan_.fields) {
      constexpr std::size_t kAtOnce = 64;
      CreatorHandle first;
      for (std::size_t r = 0; r < plan_.rows.size() && !first; r += kAtOnce) {
        const auto creators = planned.field->getCreators(numbersOf(r, r + kAtOnce));
        const auto found = std::find_if(creators.begin(), creators.end(),
                                        [](const CreatorHandle& creator) { return bool(creator); });
        if (found != creators.end()) first = *found;
      }
      if (!first) continue;
      Answer answer;
      answer.creator = first;
      if (!ask(answer).ok()) continue;
      planned.stored.type = typeOf(*first);
      planned.stored.rank = answer.size.rank();
    }
  }

  /// The numbers of the fragments of some rows; `end` may lie behind the last row.
  std::vector<unsigned> numbersOf(std::size_t begin, std::size_t end) const {
    std::vector<unsigned> numbers;
    for (std::size_t r = begin; r < std::min(end, plan_.rows.size()); ++r) {
      numbers.push_back(plan_.rows[r].fragment->number());
    }
    return numbers;
  }

  /// Asks all creators what they know, once, many rows at a time: there may be millions. A creator
  /// that cannot tell comes before one of another type.
  Outcome<void> askCreators() {
    constexpr std::size_t kBlock = PlannedRepresentation::kLinkedBlock;
    const std::size_t blocks = (plan_.rows.size() + kBlock - 1) / kBlock;
    std::vector<Outcome<void>> alike(blocks);
    plan_.linkedParts.resize(blocks);
    const std::uint64_t workBytes = blocks <= 4 ? 0 : kWorthThreadsBytes;
    auto asked = parallelTexts(blocks, workBytes, [&](std::size_t b) {
      return askRows(b * kBlock, std::min(plan_.rows.size(), (b + 1) * kBlock), alike[b]);
    });
    if (!asked.ok()) return asked;
    for (Outcome<void>& outcome : alike) {
      if (!outcome.ok()) return std::move(outcome);
    }
    return {};
  }

  /// `alike` becomes the failure of the first row whose types or ranks are not those of the fields.
  Outcome<void> askRows(std::size_t begin, std::size_t end, Outcome<void>& alike) {
    const std::vector<unsigned> numbers = numbersOf(begin, end);
    std::vector<std::vector<CreatorHandle>> creators;
    for (const PlannedField& planned : plan_.fields) {
      creators.push_back(planned.field->getCreators(numbers));
    }
    std::vector<Answer> answers(plan_.fields.size());
    for (std::size_t r = begin; r < end; ++r) {
      for (std::size_t f = 0; f < answers.size(); ++f) {
        answers[f] = Answer();
        answers[f].creator = creators[f][r - begin];
        if (!answers[f].creator) continue;
        if (auto asked = ask(answers[f]); !asked.ok()) {
          return within(plan_.rows[r], f, asked.error());
        }
      }
      if (alike.ok()) alike = requireTypes(plan_.rows[r], answers);
      planRow(r, answers);
    }
    return {};
  }

  static Outcome<void> ask(Answer& answer) {
    CreativeArrayBase& creator = *answer.creator;
    std::optional<DynamicSize> size;
    creator.lookAtFacts([&](const ArrayFacts& facts) {
      size = facts.size;
      answer.type = facts.type.get();
      answer.range = facts.range;
      answer.box = facts.box;
    });
    if (!size) size = getSize(creator);
    if (answer.type == nullptr) answer.type = typeOf(creator).get();
    if (!size || answer.type == nullptr) {
      const std::string reason = creator.failure();
      return Failure{reason.empty() ? "its extents or type are not known" : reason};
    }
    if (size->rank() == 0) return Failure{"an array without dimensions cannot be stored"};
    answer.size = *size;
    // The class is final, and comparing types costs less than a dynamic cast.
    if (typeid(creator) == typeid(StoredCreator)) {
      answer.place = &static_cast<const StoredCreator&>(creator).place();
    }
    return {};
  }

  static StrongPtr<FiberTypeBase> typeOf(CreativeArrayBase& creator) {
    if (auto known = creator.facts().type) return known;
    const auto data = creator.data();
    return data ? data->type() : nullptr;
  }

  /// All fragments of a field must be of one type and rank.
  Outcome<void> requireTypes(const PlannedRow& row, const std::vector<Answer>& answers) const {
    for (std::size_t f = 0; f < answers.size(); ++f) {
      if (!answers[f].creator) continue;
      auto alike = requireType(plan_.fields[f].stored, answers[f]);
      if (!alike.ok()) return within(row, f, alike.error());
    }
    return {};
  }

  static Outcome<void> requireType(const StoredField& stored, const Answer& answer) {
    if (!stored.type) return Failure{"its extents or type are not known"};
    const bool isSame =
        stored.type.get() == answer.type || stored.type->name() == answer.type->name();
    if (isSame && stored.rank == answer.size.rank()) return {};
    return Failure{
        fmt::format("other type or rank than in other fragments, found {} of rank {}, "
                    "expected {} of rank {}",
                    answer.type->name(), answer.size.rank(), stored.type->name(), stored.rank)};
  }

  void planRow(std::size_t r, const std::vector<Answer>& answers) {
    PlannedRow& row = plan_.rows[r];
    row.pointCount = pointCountOf(answers);
    for (const Answer& answer : answers) {
      const bool usual = !answer.creator || answer.rows() == row.pointCount;
      row.sharesExtents = row.sharesExtents && usual;
    }
    row.link = linkOf(answers);
    if (row.link) {
      planLinkedParts(r, answers);
    } else {
      for (const Answer& answer : answers) {
        row.parts.push_back({answer.creator, 0, answer.rows(), answer.size});
      }
    }
  }

  /// The positions tell how many points there are; without them, the longest field.
  std::uint64_t pointCountOf(const std::vector<Answer>& answers) const {
    std::uint64_t longest = 0;
    for (std::size_t f = 0; f < answers.size(); ++f) {
      if (answers[f].creator && plan_.fields[f].stored.name == kPositions) return answers[f].rows();
      longest = std::max(longest, answers[f].rows());
    }
    return longest;
  }

  void planLinkedParts(std::size_t r, const std::vector<Answer>& answers) {
    PlannedRow& row = plan_.rows[r];
    row.linkedAt = r;
    auto& parts = plan_.linkedParts[r / PlannedRepresentation::kLinkedBlock];
    if (parts.empty()) parts.resize(PlannedRepresentation::kLinkedBlock * answers.size());
    LinkedPart* part = &parts[r % PlannedRepresentation::kLinkedBlock * answers.size()];
    bool isFirst = true;
    bool saysMore = false;
    for (std::size_t f = 0; f < answers.size(); ++f) {
      const Answer& answer = answers[f];
      if (!answer.creator) continue;
      part[f] = {true, answer.range.value_or(kUnknownRange)};
      if (isFirst) row.start = answer.place->start;
      isFirst = false;
      row.sharesExtents = row.sharesExtents && answer.place->start == row.start;
      saysMore = saysMore || mustKeep(answer);
      if (!row.linkedGrid) row.linkedGrid = answer.place->grid;
      if (plan_.fields[f].stored.name == kPositions) row.linkedBox = answer.box;
    }
    if (saysMore || !row.sharesExtents) planDetails(row, answers);
  }

  /// Whether the table says of a linked part what only its creator knows.
  static bool mustKeep(const Answer& answer) {
    return answer.place->checksum || answer.size.rank() > 1 ||
           !answer.creator->attributes().all().empty();
  }

  static void planDetails(PlannedRow& row, const std::vector<Answer>& answers) {
    row.linkedDetails.resize(answers.size());
    for (std::size_t f = 0; f < answers.size(); ++f) {
      const Answer& answer = answers[f];
      if (!answer.creator) continue;
      row.linkedDetails[f] = {answer.place->start, answer.rows(), nullptr};
      if (!mustKeep(answer)) continue;
      row.linkedDetails[f].creator = MemCore::handleCast<StoredCreator>(answer.creator);
    }
  }

  /// The other file that holds all data of a fragment; empty when there is no such file.
  std::shared_ptr<const StoredSource> linkOf(const std::vector<Answer>& answers) {
    if (!linkFragments_) return nullptr;
    const std::shared_ptr<const StoredSource>* source = nullptr;
    for (std::size_t f = 0; f < answers.size(); ++f) {
      if (!answers[f].creator) continue;
      const StoredPlace* place = answers[f].place;
      if (place == nullptr || *place->dataset != plan_.fields[f].dataset) return nullptr;
      if (source != nullptr && !isSame(**source, *place->source)) return nullptr;
      source = &place->source;
    }
    return source != nullptr && !isTarget(**source) ? *source : nullptr;
  }

  static bool isSame(const StoredSource& a, const StoredSource& b) {
    return &a == &b || (a.group == b.group && a.file.path == b.file.path &&
                        a.file.contentId == b.file.contentId);
  }

  bool isTarget(const StoredSource& source) {
    if (!source.file.path.ends_with(fileName_)) return false;
    const std::lock_guard lock(pathsMutex_);
    return paths_.of(source.file.path) == file_;
  }

  void placeRows() {
    plan_.sharesExtents = std::all_of(plan_.rows.begin(), plan_.rows.end(),
                                      [](const PlannedRow& row) { return row.sharesExtents; });
    for (PlannedRow& row : plan_.rows) {
      if (!row.link) placeOwnRow(row);
    }
    for (PlannedField& planned : plan_.fields) {
      if (!planned.stored.type) continue;
      planned.stored.columns =
          std::max<std::uint64_t>(planned.stored.columns, planned.stored.type->componentCount());
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
  std::mutex pathsMutex_;  ///< guards paths_ while creators are asked
  CanonicalPaths paths_;
  std::filesystem::path file_;
  std::string fileName_;  ///< of file_, without its folder
  bool linkFragments_;
  PlannedRepresentation plan_;
  std::uint64_t ownRows_ = 0;
};

}  // namespace

Outcome<PlannedRepresentation> planRepresentation(const Representation& representation,
                                                  const std::string& file, bool linkFragments) {
  return RepresentationPlanner(representation, file, linkFragments).plan();
}

}  // namespace Fiber::Container
