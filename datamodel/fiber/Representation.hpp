// SPDX-License-Identifier: Apache-2.0
//
// Charts (BaseSpace), representations and skeletons: a skeleton (the point set, say) is shown in a
// chart through a representation, which holds the named fields.

#pragma once

#include <functional>
#include <map>
#include <string>
#include <unordered_set>

#include "datamodel/fiber/Field.hpp"

namespace Fiber {

/// Name of the chart that positions live in.
inline constexpr const char* kCartesianChart = "StandardCartesianChart3D";

/// Identifier of a chart of a grid.
struct ChartID {
  std::string name;
};

/// The space that a representation shows its skeleton in; a chart, here.
class FIBER_API BaseSpace {
 public:
  explicit BaseSpace(std::string name) : name_(std::move(name)) {}
  const std::string& name() const { return name_; }

 private:
  std::string name_;
};

/// Named fields over one shared fragment collection, walked in ascending order of name.
/// Threads: lookups may run at once; adding fields is for one thread.
class FIBER_API Representation {
 public:
  Representation();

  const MemCore::StrongPtr<FragmentIDCollection>& fragments() const { return fragments_; }
  const std::map<std::string, MemCore::StrongPtr<Field>>& fields() const { return fields_; }

  /// The identifier of a field that exists; empty when there is none of that name.
  MemCore::StrongPtr<FieldID> findFieldID(const std::string& name) const;
  MemCore::StrongPtr<Field> findField(const MemCore::StrongPtr<FieldID>& id) const;
  MemCore::StrongPtr<Field> findField(const std::string& name) const;
  /// An identifier for a field to be made.
  MemCore::StrongPtr<FieldID> makeFieldID(const std::string& name) const;
  /// Creates a named field over a collection (empty: the representation's own). A non-empty array
  /// becomes the data of the collection's first fragment. Returns the field that exists if there
  /// is one of that name; empty when the identifier is gone.
  MemCore::StrongPtr<Field> makeField(const MemCore::WeakPtr<FieldID>& id,
                                      const MemCore::StrongPtr<FragmentIDCollection>& fragments,
                                      const MemCore::StrongPtr<MemBase>& data);
  /// Installs a field under a name, replacing one that exists. The first field installed brings
  /// its collection along when the representation has no fragments yet.
  void setField(const std::string& name, const MemCore::StrongPtr<Field>& field);
  /// Installs the position field, named "Positions".
  void setPositions(const MemCore::StrongPtr<Field>& field) { setField("Positions", field); }

 private:
  MemCore::StrongPtr<FragmentIDCollection> fragments_;
  std::map<std::string, MemCore::StrongPtr<Field>> fields_;
};

/// A named slot of a representation: assign a field to it or read it from there. Reading a slot
/// that holds nothing makes an empty field over the representation's fragments.
class FIBER_API FieldProxy {
 public:
  FieldProxy(MemCore::StrongPtr<Representation> representation, std::string name)
      : representation_(std::move(representation)), name_(std::move(name)) {}

  FieldProxy& operator=(const MemCore::StrongPtr<Field>& field);
  operator MemCore::StrongPtr<Field>() const;  // NOLINT(google-explicit-constructor)

 private:
  MemCore::StrongPtr<Representation> representation_;
  std::string name_;
};

/// The representations of one skeleton, by chart name.
class FIBER_API RepresentationMap {
 public:
  /// The representation in a base space; empty when there is none or the space is gone.
  MemCore::StrongPtr<Representation> operator()(const MemCore::WeakPtr<BaseSpace>& space) const;
  MemCore::StrongPtr<Representation> find(const std::string& chart) const;

  struct Entry {
    MemCore::StrongPtr<BaseSpace> space;
    MemCore::StrongPtr<Representation> representation;
  };
  const std::map<std::string, Entry>& all() const { return entries_; }
  /// Finds or makes the representation in a space.
  MemCore::StrongPtr<Representation> make(const MemCore::StrongPtr<BaseSpace>& space);

 private:
  std::map<std::string, Entry> entries_;
};

/// Dimension and refinement. The point set of a grid is {3, 0}: the vertices of three-dimensional
/// space at the base level.
struct SkeletonID {
  int dimension = 3;
  int refinement = 0;
  // NOLINTNEXTLINE(modernize-use-nullptr): the check mistakes the generated comparison
  friend auto operator<=>(const SkeletonID&, const SkeletonID&) = default;
};

class FIBER_API Skeleton {
 public:
  /// Called with the base space of a representation, the representation, the field's identifier
  /// and the field; false ends the walk.
  using FieldVisitor = std::function<bool(const MemCore::WeakPtr<BaseSpace>&, Representation&,
                                          const FieldID&, const MemCore::StrongPtr<Field>&)>;

  /// The representation in a base space, made when absent; empty when the space is gone.
  MemCore::StrongPtr<Representation> operator[](const MemCore::WeakPtr<BaseSpace>& space);
  RepresentationMap& representations() { return representations_; }
  const RepresentationMap& representations() const { return representations_; }

  /// Visits every field of every representation, charts and names in ascending order, each field
  /// once even when several representations hold it: `visited` remembers. Returns false when the
  /// visitor ended the walk.
  bool iterate_fields(const FieldVisitor& visitor, std::unordered_set<unsigned long long>& visited);

 private:
  RepresentationMap representations_;
};

/// The skeletons of one grid.
class FIBER_API SkeletonMap {
 public:
  /// The vertex skeleton of a refinement, -1 for any; empty when there is none.
  MemCore::StrongPtr<Skeleton> findVertices(int refinement) const;
  /// Finds, or finds or creates, a skeleton.
  MemCore::StrongPtr<Skeleton> getSkeleton(const SkeletonID& id) const;
  MemCore::StrongPtr<Skeleton> operator[](const SkeletonID& id);
  const std::map<SkeletonID, MemCore::StrongPtr<Skeleton>>& all() const { return skeletons_; }

 private:
  std::map<SkeletonID, MemCore::StrongPtr<Skeleton>> skeletons_;
};

}  // namespace Fiber
