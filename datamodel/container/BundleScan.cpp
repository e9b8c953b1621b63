// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/BundleScan.hpp"

#include <fmt/format.h>

#include <algorithm>

#include "datamodel/container/AttributeTable.hpp"
#include "datamodel/container/AttributeValues.hpp"
#include "datamodel/container/FieldScan.hpp"
#include "datamodel/container/FormatNames.hpp"
#include "datamodel/container/FragmentTableStorage.hpp"
#include "datamodel/container/StoredName.hpp"
#include "datamodel/container/TableCheck.hpp"

namespace Fiber::Container {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

Failure within(std::string_view object, const std::string& text) {
  return Failure{fmt::format("{}: {}", object, text)};
}

/// Walks the objects of one file.
class BundleWalk {
 public:
  explicit BundleWalk(const ObjectFile& file) : file_(file) {}

  Outcome<std::vector<StoredSlice>> slices() {
    return children<StoredSlice>(file_.root(), [this](const ObjectGroup& group,
                                                      const std::string&) { return slice(group); });
  }

 private:
  Outcome<StoredSlice> slice(const ObjectGroup& group) {
    const auto time = numberIn<double>(group.attributes, kTimeAttribute);
    if (!time.ok()) return time.failure();
    if (*time != *time) return Failure{"time: not a number"};
    StoredSlice slice;
    slice.time = *time;
    auto grids = children<StoredGrid>(
        group,
        [&](const ObjectGroup& child, const std::string& name) { return grid(child, name); });
    if (!grids.ok()) return grids.failure();
    slice.grids = std::move(grids).value();
    return slice;
  }

  Outcome<StoredGrid> grid(const ObjectGroup& group, const std::string& name) {
    StoredGrid grid;
    grid.name = originalName(name);
    auto table = readAttributes({file_, group.attributes, group, kLargeAttributes, kGridWords});
    if (!table.ok()) return table.failure();
    grid.attributes = std::move(table->attributes);
    if (const auto bits = readPropertyBits(group.attributes); bits.ok()) {
      grid.propertyBits = *bits;
    } else {
      return bits.failure();
    }
    auto skeletons = children<StoredSkeleton>(
        group, [this](const ObjectGroup& child, const std::string&) { return skeleton(child); });
    if (!skeletons.ok()) return skeletons.failure();
    grid.skeletons = std::move(skeletons).value();
    return grid;
  }

  Outcome<StoredSkeleton> skeleton(const ObjectGroup& group) {
    const auto dimension = numberIn<std::int32_t>(group.attributes, kDimensionAttribute);
    const auto refinement = numberIn<std::int32_t>(group.attributes, kRefinementAttribute);
    if (!dimension.ok()) return dimension.failure();
    if (!refinement.ok()) return refinement.failure();
    StoredSkeleton skeleton;
    skeleton.dimension = *dimension;
    skeleton.refinement = *refinement;
    auto representations = children<StoredRepresentation>(
        group, [this](const ObjectGroup& child, const std::string& name) {
          return representation(child, name);
        });
    if (!representations.ok()) return representations.failure();
    skeleton.representations = std::move(representations).value();
    return skeleton;
  }

  Outcome<StoredRepresentation> representation(const ObjectGroup& group, const std::string& name) {
    StoredRepresentation stored;
    stored.chart = originalName(name);
    stored.group = path_;
    for (const auto& [child, members] : group.groups) {
      if (!isWord(child)) return within(child, "not a dataset");
    }
    std::size_t wideFields = 0;
    for (const auto& [child, dataset] : group.datasets) {
      if (isWord(child)) continue;
      auto field = scanField(file_, group, child);
      if (!field.ok()) return within(child, field.error());
      wideFields += field->rank > 1 ? 1 : 0;
      stored.fields.push_back(std::move(field).value());
    }
    auto contents = readFragmentTable(file_, group, wideFields);
    if (!contents.ok()) return contents.failure();
    if (auto fits = requireFields(stored, contents->fieldNames); !fits.ok()) return fits.failure();
    stored.table = std::move(contents->table);
    stored.sourceGroups = std::move(contents->sourceGroups);
    if (auto valid = checkTable(stored); !valid.ok()) return valid.failure();
    return stored;
  }

  /// The columns of the table go by the fields in ascending order of stored name.
  static Outcome<void> requireFields(const StoredRepresentation& stored,
                                     const std::vector<std::string>& names) {
    bool same = stored.fields.size() == names.size();
    for (std::size_t f = 0; same && f < names.size(); ++f) {
      same = stored.fields[f].name == originalName(names[f]);
    }
    if (same) return {};
    return Failure{
        fmt::format("fragments: its fields are not those of the group, found {}, "
                    "expected {}",
                    names.size(), stored.fields.size())};
  }

  /// Reads every child of a group with `read`, whose texts get the child's name in front.
  template <class Item, class Read>
  Outcome<std::vector<Item>> children(const ObjectGroup& parent, Read read) {
    for (const auto& [name, dataset] : parent.datasets) {
      if (!isWord(name)) return within(name, "not a group");
    }
    std::vector<Item> items;
    const std::size_t pathBytes = path_.size();
    for (const auto& [name, group] : parent.groups) {
      if (isWord(name)) continue;
      path_ += "/" + name;
      auto item = read(group, name);
      path_.resize(pathBytes);
      if (!item.ok()) return within(name, item.error());
      items.push_back(std::move(item).value());
    }
    return items;
  }

  /// Members that are none of the model's. Names of the model never have these stored forms.
  static bool isWord(const std::string& name) {
    const auto& words = kRepresentationWords;
    return std::find(words.begin(), words.end(), name) != words.end();
  }

  const ObjectFile& file_;
  std::string path_;  ///< of the group that is being read
};

Outcome<void> requireFormat(const ObjectGroup& root) {
  const auto format = textIn(root.attributes, kFormatAttribute);
  if (!format.ok() || *format != kFormatName) {
    return Failure{fmt::format("not a bundle file, found format \"{}\", expected \"{}\"",
                               format.ok() ? *format : std::string(), kFormatName)};
  }
  const auto version = numberIn<std::uint32_t>(root.attributes, kVersionAttribute);
  if (!version.ok()) return version.failure();
  if (*version != kFormatVersion) {
    return Failure{fmt::format("format version is not known, found {}, expected {}", *version,
                               kFormatVersion)};
  }
  return {};
}

/// Judges an open file: format, version, and which contents it has.
Outcome<FileIdentity> identify(const std::string& path, const ObjectFile& file) {
  if (auto ours = requireFormat(file.root()); !ours.ok()) return within(path, ours.error());
  const auto id = numberIn<std::uint64_t>(file.root().attributes, kContentIdAttribute);
  if (!id.ok()) return within(path, id.error());
  return FileIdentity{path, file.fileBytes(), *id};
}

}  // namespace

Outcome<OpenedBundle> openBundle(const std::string& path) {
  auto file = ObjectFile::open(path);
  if (!file.ok()) return file.failure();
  auto identity = identify(path, *file);
  if (!identity.ok()) return identity.failure();
  return OpenedBundle{std::move(file).value(), std::move(identity).value()};
}

Outcome<StoredBundle> scanBundle(const std::string& path) {
  const auto file = ObjectFile::open(path);
  if (!file.ok()) return file.failure();
  return scanBundle(path, *file);
}

Outcome<StoredBundle> scanBundle(const std::string& path, const ObjectFile& file) {
  auto identity = identify(path, file);
  if (!identity.ok()) return identity.failure();
  StoredBundle bundle;
  bundle.file = std::move(identity).value();
  auto slices = BundleWalk(file).slices();
  if (!slices.ok()) return within(path, slices.error());
  bundle.slices = std::move(slices).value();
  return bundle;
}

}  // namespace Fiber::Container
