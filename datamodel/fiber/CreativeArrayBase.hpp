// SPDX-License-Identifier: Apache-2.0
//
// CreativeArrayBase: the creator of one fragment's array. It knows facts about the data (extents,
// element type, box, value range) as far as its source knows them, without touching the data, and
// makes the data themselves on demand: once, however many threads ask, and through the cache.
//
// Where a source can hand out some points for less than all of them, the creators of a fragment
// know how: see PointPart.hpp.
//
// A creator that cannot make its data (an unreadable file, say) yields an empty handle and keeps
// the text of the failure.

#pragma once

#include <mutex>
#include <optional>
#include <string>

#include "datamodel/eagle/BoundingBox.hpp"
#include "datamodel/fiber/DataRange.hpp"
#include "datamodel/fiber/GridPoints.hpp"
#include "datamodel/fiber/MemBase.hpp"
#include "datamodel/fiber/PointPart.hpp"
#include "datamodel/memcore/Attributes.hpp"
#include "datamodel/memcore/Outcome.hpp"

namespace Fiber {

/// How far a question may go: 0 = answer from what is known, make the data only if nothing is
/// known, and remember the answer; 1 = answer from what is known, never make data.
enum class DataCreationMode { KnownOrCreate = 0, KnownOnly = 1 };

/// What is known of an array without having it. An absent box or range is unknown, not empty.
struct ArrayFacts {
  MemCore::StrongPtr<FiberTypeBase> type;
  std::optional<DynamicSize> size;
  MemCore::StrongPtr<Eagle::BoundingBox> box;
  std::optional<ValueRange> range;
};

/// Threads: every operation may be called at once from any thread.
class FIBER_API CreativeArrayBase : public MemCore::Intercube,
                                    public MemCore::Creature,
                                    public std::enable_shared_from_this<CreativeArrayBase> {
 public:
  explicit CreativeArrayBase(ArrayFacts facts) : facts_(std::move(facts)) {}

  /// The data: in memory already, from the cache, or made now; empty when they cannot be made
  /// (failure() then tells why).
  MemCore::StrongPtr<MemBase> data();
  /// The data when they are in memory already; otherwise empty.
  MemCore::StrongPtr<MemBase> dataIfPresent() const;
  /// Of positions: whole numbers of this very grid that stand for exactly what data() would be, for
  /// whoever has no use for doubles. Empty where data() is to be asked instead: the source has no
  /// such numbers, the data are in memory already (and may have been changed), or the numbers
  /// cannot be had, of which data() tells the cause. May be made anew by every call.
  GridPointsHandle gridPoints(const CoordinateGrid& grid);
  /// The text of the first failed attempt to make the data; empty when none failed. It stays even
  /// when a later attempt succeeds: whoever got the empty handle must be able to tell.
  std::string failure() const;
  /// Remembers why data cannot be had, for failure(); the first text stays.
  void rememberFailure(const std::string& text);

  ArrayFacts facts() const;
  /// Returns look(facts), which are not copied for it. Requires: it does not ask this creator.
  template <class Look>
  auto lookAtFacts(const Look& look) const {
    const std::lock_guard lock(stateMutex_);
    return look(facts_);
  }
  /// Remembers a box or range that was computed from the data.
  void rememberBox(const MemCore::StrongPtr<Eagle::BoundingBox>& box);
  void rememberRange(const ValueRange& range);

  /// The box of positions, where the source can tell it for less than making the data; otherwise
  /// empty. A failure is remembered.
  virtual MemCore::StrongPtr<Eagle::BoundingBox> surveyBox() { return nullptr; }
  /// Of positions: what reads parts of the fragment; empty where only the whole data are to be had,
  /// or they are in memory already.
  virtual MemCore::StrongPtr<PointPartReader> partReader() { return nullptr; }
  /// Writes the elements at the points of a part of the same fragment, in their order, and returns
  /// true; or returns false, which means that the elements are to be had from data() alone.
  /// Requires: room for as many elements as the part has points.
  virtual bool copyPart(const PointPart& /*part*/, std::span<std::byte> /*out*/) { return false; }

  /// Marks the data as changed after they were filled: facts computed from them are forgotten.
  /// Without data in memory nothing was filled, and what the source knows stays.
  void touch();
  /// Tells the creator that its data will not change any more. The base does nothing; creators
  /// bound to a file write the data there.
  virtual void finish() {}

  MemCore::Attributes& attributes() { return attributes_; }
  const MemCore::Attributes& attributes() const { return attributes_; }

 protected:
  /// Makes the data, or says why it cannot. Called by one thread at a time per creator; must not
  /// throw but std::bad_alloc, which data() turns into a failure text.
  virtual MemCore::Outcome<MemCore::StrongPtr<MemBase>> create() = 0;
  /// Makes what gridPoints() hands out, or nothing. Called by any number of threads at once; must
  /// not throw but std::bad_alloc.
  virtual GridPointsHandle createGridPoints(const CoordinateGrid& /*grid*/) { return nullptr; }
  /// Called whenever present data are handed out: tells the cache. Creators whose cached unit is
  /// larger than this one array override it.
  virtual void noteUse(const MemBase& data) { data.markAsUsed(); }

 private:
  MemCore::StrongPtr<MemBase> makeData();

  std::mutex creationMutex_;       ///< held while data are made
  mutable std::mutex stateMutex_;  ///< guards everything below
  ArrayFacts facts_;
  MemCore::WeakPtr<MemBase> data_;
  std::string failure_;
  MemCore::Attributes attributes_;
};

/// A creator whose data live in memory for as long as the creator does.
class FIBER_API MemoryCreator final : public CreativeArrayBase {
 public:
  /// Requires: data.
  explicit MemoryCreator(MemCore::StrongPtr<MemBase> data);

 protected:
  MemCore::Outcome<MemCore::StrongPtr<MemBase>> create() override { return data_; }
  /// The cache does not hold the data and need not hear of their use.
  void noteUse(const MemBase& /*data*/) override {}

 private:
  MemCore::StrongPtr<MemBase> data_;
};

/// Extents of a creator's data without making them where they are known; absent when the creator
/// has no data.
FIBER_API std::optional<DynamicSize> getSize(CreativeArrayBase& creator);

/// Number of elements of a creator: the product of its extents, 0 without extents, 1 without
/// dimensions.
FIBER_API std::uint64_t pointCountOf(CreativeArrayBase& creator);

/// The box of one fragment's positions, which nobody may change; empty when it is not known, or
/// there is none. NaN coordinates are left out.
FIBER_API MemCore::StrongPtr<const Eagle::BoundingBox> boxOf(CreativeArrayBase& creator,
                                                             DataCreationMode mode);

/// Grows a box by one fragment's positions (an empty handle becomes a new box) and returns whether
/// there was anything to grow by. NaN coordinates are left out.
FIBER_API bool ExpandBBox(MemCore::StrongPtr<Eagle::BoundingBox>& box, CreativeArrayBase& creator,
                          DataCreationMode mode);

/// The value range of one creator's data: known, or computed and remembered; absent for data that
/// are no single numbers, or hold none.
FIBER_API std::optional<ValueRange> rangeOf(CreativeArrayBase& creator);
/// The same from the data themselves, whatever is known; replaces what the creator remembers.
FIBER_API std::optional<ValueRange> computeRange(CreativeArrayBase& creator);

}  // namespace Fiber

namespace LidarLib {

/// Records the cell size of positions on their creator, as the attribute "CellSize" (one double);
/// a negative size means that the points have no regular spacing.
FIBER_API void setCellSizeAttribute(Fiber::CreativeArrayBase& creator, double cellSize);

}  // namespace LidarLib
