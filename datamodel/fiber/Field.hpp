// SPDX-License-Identifier: Apache-2.0
//
// Field: one named quantity of a representation, stored in fragments. Per fragment it holds a
// creator; the fragments themselves belong to the representation's shared collection.

#pragma once

#include <cstdint>
#include <mutex>
#include <shared_mutex>
#include <span>
#include <string>
#include <unordered_set>
#include <vector>

#include "datamodel/fiber/CreativeArrayBase.hpp"
#include "datamodel/fiber/FragmentID.hpp"
#include "datamodel/fiber/NumberTable.hpp"
#include "datamodel/memcore/Attributes.hpp"
#include "datamodel/memcore/Cache.hpp"
#include "datamodel/memcore/Intercube.hpp"

namespace Fiber {

using CreatorHandle = MemCore::StrongPtr<CreativeArrayBase>;

/// Makes the creators of a field's fragments when they are first asked for, so that a field over
/// very many fragments costs nothing until it is used.
class FIBER_API CreatorSource {
 public:
  virtual ~CreatorSource() = default;
  /// A new creator for the fragment of a number; empty when there is none. Threads: any.
  virtual CreatorHandle make(unsigned fragmentNumber) const = 0;
};

/// Name of a field within its representation.
struct FieldID {
  std::string name;
};

/// Threads: lookups may run at once; storing creators takes the field's own lock.
class FIBER_API Field : public MemCore::Intercube, public std::enable_shared_from_this<Field> {
 public:
  /// A field without creators over a fragment collection; an empty handle makes a new collection.
  explicit Field(MemCore::StrongPtr<FragmentIDCollection> fragments);
  ~Field() override = default;

  /// The fragments of the field's collection, in ascending order of number. A fragment may lack a
  /// creator in this field.
  virtual std::vector<FragmentHandle> getFragmentIDs() const;
  FragmentHandle getFragmentID(const std::string& name) const;
  FragmentHandle makeFragmentID(const std::string& name);
  const MemCore::StrongPtr<FragmentIDCollection>& getFragmentIDCollection() const {
    return fragments_;
  }

  /// The creator of a fragment; empty when there is none.
  CreatorHandle getCreator(const FragmentHandle& fragment) const;
  /// The creators of the fragments of many numbers, each as getCreator gives it.
  std::vector<CreatorHandle> getCreators(std::span<const unsigned> numbers) const;
  /// The creator of the lowest-numbered fragment that has one.
  CreatorHandle getFirstCreator() const;
  /// Where creators come from that were not stored. To be set before the field is shared.
  void setCreatorSource(MemCore::StrongPtr<CreatorSource> source) { source_ = std::move(source); }
  /// Stores or replaces a fragment's creator; an empty handle removes it.
  void setCreator(const FragmentHandle& fragment, const CreatorHandle& creator);
  /// The data of a fragment, made on demand; empty when there is no creator or it fails.
  MemCore::StrongPtr<MemBase> getData(const FragmentHandle& fragment) const;
  /// Stores an array as a fragment's data and returns its creator, which keeps the array alive;
  /// empty when either handle is. The base leaves the cache alone, because nothing could make the
  /// array again, and needs no name for the creator; fields bound to files use both.
  virtual CreatorHandle setPersistentData(const MemCore::StrongPtr<MemBase>& data,
                                          const FragmentHandle& fragment,
                                          const MemCore::StrongPtr<MemCore::Cache>& cache,
                                          const std::string& creatorName);

  /// An empty array of fragment handles, one slot per fragment of the collection, for layouts that
  /// arrange them.
  MemCore::StrongPtr<MemArray<1, FragmentHandle>> newFragmentationArray() const;

  /// The empty handle.
  static MemCore::StrongPtr<Field> NullPtrField() { return nullptr; }

  /// Values that describe the whole field (storage hints, units), and the number kept beside them.
  MemCore::Attributes& properties() { return properties_; }
  const MemCore::Attributes& properties() const { return properties_; }
  std::uint64_t propertyBits = 0;

 private:
  CreatorHandle creatorOf(unsigned number) const;

  MemCore::StrongPtr<FragmentIDCollection> fragments_;
  mutable std::shared_mutex mutex_;
  mutable NumberTable<CreatorHandle> creators_;  ///< by fragment number
  std::unordered_set<unsigned> removed_;         ///< numbers that the source is not asked for
  MemCore::StrongPtr<CreatorSource> source_;
  MemCore::Attributes properties_;
};

/// A field whose fragments form a regular array of counts per axis, addressed by index.
template <std::size_t N>
class FIBER_API RegularlyFragmentedField final : public Field {
 public:
  /// `creatorName` names the fragmentation for diagnostics. The collection is shared with the
  /// other fields of the representation; an empty handle makes a new one.
  RegularlyFragmentedField(const MultiIndex<N>& counts, std::string creatorName,
                           MemCore::StrongPtr<FragmentIDCollection> fragments);

  const MultiIndex<N>& counts() const { return counts_; }
  const std::string& creatorName() const { return creatorName_; }

  /// A field of the same fragmentation and collection without any creator.
  MemCore::StrongPtr<RegularlyFragmentedField> emptyCopy() const;

  /// The fragment at an index, made on first use; its name is "[", i, "x", j, "x", k, "]" and its
  /// number the linear position, x fastest. Empty for an index outside the counts and for a
  /// position beyond 32 bits.
  FragmentHandle fragmentAt(const MultiIndex<N>& index);
  /// The fragments of `count` indices in a row along x, each as fragmentAt gives it.
  std::vector<FragmentHandle> fragmentsFrom(const MultiIndex<N>& first, std::uint64_t count);
  /// Does nothing where fragmentAt is empty.
  void setCreatorAt(const MultiIndex<N>& index, const CreatorHandle& creator) {
    setCreator(fragmentAt(index), creator);
  }

 private:
  std::optional<unsigned> positionOf(const MultiIndex<N>& index) const;

  MultiIndex<N> counts_;
  std::string creatorName_;
  MemCore::StrongPtr<FragmentNames> names_;  ///< one for all copies
};

extern template class RegularlyFragmentedField<3>;

/// "[", i, "x", j, "x", k, "]": how a tile index is written in fragment names and messages.
FIBER_API std::string tileIndexText(const MultiIndex<3>& index);
/// The inverse; absent for every other text.
FIBER_API std::optional<MultiIndex<3>> parseTileIndex(const std::string& text);

/// Grows a box by all positions of a field; false when nothing was there to grow by. Boxes that
/// are not known yet are computed by several threads at once. The field's own box is attached to
/// it.
FIBER_API bool expandBoundingBox(const MemCore::StrongPtr<Field>& field,
                                 MemCore::StrongPtr<Eagle::BoundingBox>& box);

/// Value range of one fragment, or of the whole field; a range that results is attached to the
/// field (whole) or remembered by the creator (fragment). Empty for data that are no single
/// numbers. `name` receives the range's text. What is known is taken unless `recompute` is true.
/// Ranges are always exact, so that the last flag changes nothing. Ranges of a whole field that
/// are not known yet are computed by several threads at once.
FIBER_API MemCore::StrongPtr<DataRangeBase> getRange(Field& field, const FragmentHandle& fragment,
                                                     bool recompute, bool exact);
FIBER_API MemCore::StrongPtr<DataRangeBase> getRange(Field& field, std::string& name,
                                                     bool recompute, bool exact);

}  // namespace Fiber
