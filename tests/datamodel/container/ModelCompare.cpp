// SPDX-License-Identifier: Apache-2.0

#include "tests/datamodel/container/ModelCompare.hpp"

#include <gtest/gtest.h>

#include <bit>
#include <cstring>

namespace Fiber::Container {
namespace {

using MemCore::Attributes;
using MemCore::StrongPtr;

bool sameBytes(const MemCore::ChunkBase& a, const MemCore::ChunkBase& b) {
  return a.elementType() == b.elementType() && a.size() == b.size() &&
         (a.byteCount() == 0 || std::memcmp(a.bytes(), b.bytes(), a.byteCount()) == 0);
}

std::string compareAttributes(const Attributes& a, const Attributes& b) {
  if (a.all().size() != b.all().size()) return "number of attributes";
  for (const auto& [name, value] : a.all()) {
    const auto other = b.getAttribute(name);
    if (!other || !sameBytes(*value, *other)) return "attribute \"" + name + "\"";
  }
  return "";
}

std::string compareBoxes(const StrongPtr<Eagle::BoundingBox>& a,
                         const StrongPtr<Eagle::BoundingBox>& b) {
  if (bool(a) != bool(b)) return "presence of a box";
  if (a && (a->min() != b->min() || a->max() != b->max())) return "box";
  return "";
}

std::string compareData(const StrongPtr<MemBase>& a, const StrongPtr<MemBase>& b) {
  if (!a || !b) return "data that cannot be made";
  if (a->size() != b->size()) return "extents of the data";
  if (!a->type() || !b->type() || a->type()->name() != b->type()->name()) return "type of the data";
  return sameBytes(*a->elements(), *b->elements()) ? "" : "data";
}

std::string compareCreators(const CreatorHandle& a, const CreatorHandle& b) {
  if (bool(a) != bool(b)) return "presence of a creator";
  if (!a) return "";
  const auto attributes = compareAttributes(a->attributes(), b->attributes());
  if (!attributes.empty()) return attributes;
  if (getSize(*a) != getSize(*b)) return "extents";
  const std::string data = compareData(a->data(), b->data());
  if (!data.empty()) return data + " " + b->failure();
  const auto boxes = compareBoxes(a->facts().box, b->facts().box);
  if (!boxes.empty()) return boxes;
  return rangeOf(*a) == rangeOf(*b) ? "" : "value range";
}

/// The fragments that a file must tell of. A vacant place of a regular fragmentation is given back
/// by its counts alone.
std::vector<FragmentHandle> storedFragments(const Field& field) {
  auto fragments = field.getFragmentIDs();
  if (dynamic_cast<const RegularlyFragmentedField<3>*>(&field) == nullptr) return fragments;
  std::erase_if(fragments, [&](const FragmentHandle& id) { return !field.getCreator(id); });
  return fragments;
}

std::string compareFields(const Field& a, const Field& b) {
  const auto* regularA = dynamic_cast<const RegularlyFragmentedField<3>*>(&a);
  const auto* regularB = dynamic_cast<const RegularlyFragmentedField<3>*>(&b);
  if ((regularA == nullptr) != (regularB == nullptr)) return "regular fragmentation";
  if (regularA != nullptr && (regularA->counts() != regularB->counts() ||
                              regularA->creatorName() != regularB->creatorName())) {
    return "counts of the fragmentation";
  }
  const auto properties = compareAttributes(a.properties(), b.properties());
  if (!properties.empty()) return properties;
  if (a.propertyBits != b.propertyBits) return "property bits";
  const auto boxes =
      compareBoxes(a.findInterface<Eagle::BoundingBox>(), b.findInterface<Eagle::BoundingBox>());
  if (!boxes.empty()) return "attached " + boxes;
  const auto rangeA = a.findInterface<DataRangeBase>();
  const auto rangeB = b.findInterface<DataRangeBase>();
  if (bool(rangeA) != bool(rangeB) || (rangeA && !(rangeA->range() == rangeB->range()))) {
    return "attached range";
  }
  const auto fragmentsA = storedFragments(a);
  const auto fragmentsB = storedFragments(b);
  if (fragmentsA.size() != fragmentsB.size()) return "number of fragments";
  for (std::size_t i = 0; i < fragmentsA.size(); ++i) {
    if (fragmentsA[i]->name() != fragmentsB[i]->name() ||
        fragmentsA[i]->number() != fragmentsB[i]->number()) {
      return "name or number of fragment " + fragmentsA[i]->name();
    }
    const auto creators = compareCreators(a.getCreator(fragmentsA[i]), b.getCreator(fragmentsB[i]));
    if (!creators.empty()) return "fragment " + fragmentsA[i]->name() + ": " + creators;
  }
  return "";
}

std::string compareRepresentations(const Representation& a, const Representation& b) {
  if (a.fields().size() != b.fields().size()) return "number of fields";
  for (const auto& [name, field] : a.fields()) {
    const auto other = b.findField(name);
    if (!other) return "field " + name + " is missing";
    const auto difference = compareFields(*field, *other);
    if (!difference.empty()) return "field " + name + ": " + difference;
  }
  return "";
}

std::string compareGrids(const Grid& a, const Grid& b) {
  const auto attributes = compareAttributes(a.attributes(), b.attributes());
  if (!attributes.empty()) return attributes;
  if (a.propertyBits != b.propertyBits) return "property bits";
  if (a.skeletons().all().size() != b.skeletons().all().size()) return "number of skeletons";
  for (const auto& [id, skeleton] : a.skeletons().all()) {
    const auto other = b.skeletons().getSkeleton(id);
    if (!other) return "a skeleton is missing";
    const auto& representations = skeleton->representations().all();
    if (representations.size() != other->representations().all().size()) {
      return "number of representations";
    }
    for (const auto& [chart, entry] : representations) {
      const auto found = other->representations().find(chart);
      if (!found) return "chart " + chart + " is missing";
      const auto difference = compareRepresentations(*entry.representation, *found);
      if (!difference.empty()) return "chart " + chart + ": " + difference;
    }
  }
  return "";
}

}  // namespace

std::string differenceOf(const Bundle& a, const Bundle& b) {
  if (a.slices().size() != b.slices().size()) return "number of slices";
  auto other = b.slices().begin();
  for (const auto& [time, slice] : a.slices()) {
    if (std::bit_cast<std::uint64_t>(time) != std::bit_cast<std::uint64_t>(other->first)) {
      return "time";
    }
    if (slice->grids().size() != other->second->grids().size()) return "number of grids";
    for (const auto& [name, grid] : slice->grids()) {
      const auto otherGrid = other->second->findGrid(name);
      if (!otherGrid) return "grid " + name + " is missing";
      const auto difference = compareGrids(*grid, *otherGrid);
      if (!difference.empty()) return "grid " + name + ": " + difference;
    }
    ++other;
  }
  return "";
}

namespace {

BundlePtr load(const std::string& file, std::string& failure) {
  const auto parameters =
      MemCore::makeStrong<MemCore::LoaderParameters>(MemCore::LoaderParameters{{file}, false});
  bool ok = false;
  BundlePtr bundle = Bundle::load(ok, parameters, nullptr, &failure);
  EXPECT_EQ(ok, bool(bundle));
  EXPECT_EQ(ok, failure.empty());
  return bundle;
}

}  // namespace

BundlePtr loadBundle(const std::string& file) {
  std::string failure;
  BundlePtr bundle = load(file, failure);
  EXPECT_TRUE(bool(bundle)) << failure;
  return bundle;
}

std::string loadFailure(const std::string& file) {
  std::string failure;
  load(file, failure);
  return failure;
}

}  // namespace Fiber::Container
