// SPDX-License-Identifier: Apache-2.0

#include "datamodel/fiber/Representation.hpp"

namespace Fiber {

using MemCore::makeStrong;
using MemCore::StrongPtr;
using MemCore::WeakPtr;

Representation::Representation() : fragments_(makeStrong<FragmentIDCollection>()) {}

StrongPtr<FieldID> Representation::findFieldID(const std::string& name) const {
  return fields_.count(name) != 0 ? makeStrong<FieldID>(FieldID{name}) : nullptr;
}

StrongPtr<Field> Representation::findField(const StrongPtr<FieldID>& id) const {
  return id ? findField(id->name) : nullptr;
}

StrongPtr<Field> Representation::findField(const std::string& name) const {
  const auto found = fields_.find(name);
  return found == fields_.end() ? nullptr : found->second;
}

StrongPtr<FieldID> Representation::makeFieldID(const std::string& name) const {
  return makeStrong<FieldID>(FieldID{name});
}

StrongPtr<Field> Representation::makeField(const WeakPtr<FieldID>& id,
                                           const StrongPtr<FragmentIDCollection>& fragments,
                                           const StrongPtr<MemBase>& data) {
  const StrongPtr<FieldID> held = id.lock();
  if (!held) return nullptr;
  if (auto known = findField(held->name)) return known;
  auto field = makeStrong<Field>(fragments ? fragments : fragments_);
  if (data) {
    const auto all = field->getFragmentIDs();
    const FragmentHandle first = all.empty() ? field->makeFragmentID("0") : all.front();
    field->setPersistentData(data, first, MemCore::Cache::MemCache(), "");
  }
  setField(held->name, field);
  return field;
}

void Representation::setField(const std::string& name, const StrongPtr<Field>& field) {
  if (!field) return;
  if (fragments_->size() == 0 && fields_.empty()) fragments_ = field->getFragmentIDCollection();
  fields_[name] = field;
}

FieldProxy& FieldProxy::operator=(const StrongPtr<Field>& field) {
  representation_->setField(name_, field);
  return *this;
}

FieldProxy::operator StrongPtr<Field>() const {
  if (auto known = representation_->findField(name_)) return known;
  auto field = makeStrong<Field>(representation_->fragments());
  representation_->setField(name_, field);
  return field;
}

StrongPtr<Representation> RepresentationMap::operator()(const WeakPtr<BaseSpace>& space) const {
  const StrongPtr<BaseSpace> held = space.lock();
  return held ? find(held->name()) : nullptr;
}

StrongPtr<Representation> RepresentationMap::find(const std::string& chart) const {
  const auto found = entries_.find(chart);
  return found == entries_.end() ? nullptr : found->second.representation;
}

StrongPtr<Representation> RepresentationMap::make(const StrongPtr<BaseSpace>& space) {
  Entry& entry = entries_[space->name()];
  if (!entry.representation) entry = {space, makeStrong<Representation>()};
  return entry.representation;
}

StrongPtr<Representation> Skeleton::operator[](const WeakPtr<BaseSpace>& space) {
  const StrongPtr<BaseSpace> held = space.lock();
  return held ? representations_.make(held) : nullptr;
}

bool Skeleton::iterate_fields(const FieldVisitor& visitor,
                              std::unordered_set<unsigned long long>& visited) {
  for (const auto& [chart, entry] : representations_.all()) {
    // The visitor may add fields to the representation it is shown; the walk keeps to those that
    // were there when it began.
    const auto fields = entry.representation->fields();
    for (const auto& [name, field] : fields) {
      if (!visited.insert(reinterpret_cast<std::uintptr_t>(field.get())).second) continue;
      if (!visitor(entry.space, *entry.representation, FieldID{name}, field)) return false;
    }
  }
  return true;
}

StrongPtr<Skeleton> SkeletonMap::findVertices(int refinement) const {
  for (const auto& [id, skeleton] : skeletons_) {
    if (id.dimension == SkeletonID{}.dimension && (refinement < 0 || id.refinement == refinement)) {
      return skeleton;
    }
  }
  return nullptr;
}

StrongPtr<Skeleton> SkeletonMap::getSkeleton(const SkeletonID& id) const {
  const auto found = skeletons_.find(id);
  return found == skeletons_.end() ? nullptr : found->second;
}

StrongPtr<Skeleton> SkeletonMap::operator[](const SkeletonID& id) {
  auto& skeleton = skeletons_[id];
  if (!skeleton) skeleton = makeStrong<Skeleton>();
  return skeleton;
}

}  // namespace Fiber
