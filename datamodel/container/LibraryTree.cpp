// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/LibraryTree.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <set>

#include "datamodel/container/Hdf5Types.hpp"

namespace Fiber::Container {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

/// Deeper than any bundle file, and shallow enough for the stack.
constexpr int kMostLevels = 64;

Failure within(std::string_view name, const std::string& text) {
  return Failure{fmt::format("{}: {}", name, text)};
}

ObjectExtents extentsOf(hid_t space) {
  if (H5Sget_simple_extent_type(space) == H5S_NULL) return ObjectExtents::none();
  ObjectExtents extents{H5Sget_simple_extent_ndims(space), {1, 1}};
  if (extents.rank < 0) extents.rank = ObjectExtents::kMostRank + 1;
  if (extents.rank > ObjectExtents::kMostRank) return extents;
  std::array<hsize_t, ObjectExtents::kMostRank> found = {1, 1};
  H5Sget_simple_extent_dims(space, found.data(), nullptr);
  for (std::size_t d = 0; d < found.size(); ++d) extents.counts[d] = found[d];
  return extents;
}

/// The bytes of all elements; empty when the file cannot hold them.
std::optional<std::size_t> bytesOf(const ObjectValue& value, std::uint64_t fileBytes) {
  const auto& counts = value.extents.counts;
  const bool none = counts[0] == 0 || counts[1] == 0;
  if (none || value.type.bytes == 0) return std::size_t{0};
  if (counts[0] > fileBytes / counts[1] || counts[0] * counts[1] > fileBytes / value.type.bytes) {
    return std::nullopt;
  }
  return static_cast<std::size_t>(counts[0] * counts[1] * value.type.bytes);
}

/// Whether the values of this form can be read as they are; foreign ones may hold pointers.
bool isReadable(const ObjectValue& value) {
  const auto isForeign = [](const ObjectType& type) {
    return type.kind == ObjectType::Kind::kForeign;
  };
  return !isForeign(value.type) && value.extents.rank <= ObjectExtents::kMostRank &&
         std::ranges::none_of(value.type.members, isForeign, &ObjectType::Member::type);
}

Outcome<ObjectValue> readAttribute(hid_t object, const char* name, std::uint64_t fileBytes) {
  const auto attribute =
      ownHdf5<AttributeHandle>(H5Aopen(object, name, H5P_DEFAULT), "cannot be opened");
  if (!attribute.ok()) return attribute.failure();
  const DatatypeHandle type(H5Aget_type(attribute->get()));
  const DataspaceHandle space(H5Aget_space(attribute->get()));
  if (!type.ok() || !space.ok()) return Failure{takeHdf5Error()};
  ObjectValue value{objectTypeOf(type.get()), extentsOf(space.get()), {}};
  if (!isReadable(value)) return value;
  const auto bytes = bytesOf(value, fileBytes);
  if (!bytes) return Failure{"claims more values than the file holds"};
  value.bytes.resize(*bytes);
  if (*bytes == 0) return value;
  const auto read =
      checkHdf5(H5Aread(attribute->get(), type.get(), value.bytes.data()), "cannot be read");
  if (!read.ok()) return read.failure();
  return value;
}

Outcome<ObjectValues> readAttributes(hid_t object, std::uint64_t fileBytes) {
  H5O_info_t info{};
  if (auto got = checkHdf5(H5Oget_info2(object, &info, H5O_INFO_NUM_ATTRS), "attributes");
      !got.ok()) {
    return got.failure();
  }
  ObjectValues values;
  if (info.num_attrs == 0) return values;
  std::vector<std::string> names;
  const auto collect = [](hid_t, const char* name, const H5A_info_t*, void* data) -> herr_t {
    static_cast<std::vector<std::string>*>(data)->emplace_back(name);
    return 0;
  };
  // In the order of storage: for any other the library first makes a table, and frees half of it
  // uninitialised when it meets damage.
  const herr_t walked =
      H5Aiterate2(object, H5_INDEX_NAME, H5_ITER_NATIVE, nullptr, collect, &names);
  if (auto done = checkHdf5(walked, "attributes"); !done.ok()) return done.failure();
  for (const std::string& name : names) {
    auto value = readAttribute(object, name.c_str(), fileBytes);
    if (!value.ok()) return within("attribute " + name, value.error());
    values[name] = std::move(value).value();
  }
  return values;
}

/// The filters, which must be some of shuffle, deflate, checksum, in this order.
void readFilters(hid_t creation, ObjectDataset& dataset) {
  const auto order = [](H5Z_filter_t f) {
    return f == H5Z_FILTER_SHUFFLE ? 1 : f == H5Z_FILTER_DEFLATE ? 2 : 3;
  };
  const int count = H5Pget_nfilters(creation);
  int last = 0;
  for (int i = 0; i < count; ++i) {
    unsigned flags = 0;
    unsigned config = 0;
    std::size_t values = 0;
    const H5Z_filter_t filter = H5Pget_filter2(creation, static_cast<unsigned>(i), &flags, &values,
                                               nullptr, 0, nullptr, &config);
    const bool known = filter == H5Z_FILTER_SHUFFLE || filter == H5Z_FILTER_DEFLATE ||
                       filter == H5Z_FILTER_FLETCHER32;
    if (!known || order(filter) <= last) {
      dataset.storage = ObjectDataset::Storage::kForeign;
      dataset.foreignText =
          fmt::format("a filter that bundle files do not use, found number {}", filter);
      return;
    }
    dataset.filter.shuffle |= filter == H5Z_FILTER_SHUFFLE;
    dataset.filter.deflate |= filter == H5Z_FILTER_DEFLATE;
    dataset.filter.checksum |= filter == H5Z_FILTER_FLETCHER32;
    last = order(filter);
  }
}

void readChunking(hid_t creation, ObjectDataset& dataset) {
  std::array<hsize_t, ObjectExtents::kMostRank> counts = {0, 1};
  dataset.storage = ObjectDataset::Storage::kForeign;
  if (H5Pget_chunk(creation, ObjectExtents::kMostRank, counts.data()) < 1) return;
  dataset.storage = ObjectDataset::Storage::kChunks;
  dataset.chunkCounts = {counts[0], counts[1]};
  dataset.index.kind = ChunkIndex::Kind::kLibrary;
  readFilters(creation, dataset);
}

Outcome<void> readInHeader(hid_t id, hid_t type, std::uint64_t fileBytes, ObjectDataset& dataset) {
  dataset.storage = ObjectDataset::Storage::kInHeader;
  if (!isReadable(dataset.value)) return {};
  const auto bytes = bytesOf(dataset.value, fileBytes);
  if (!bytes) return Failure{"claims more values than the file holds"};
  dataset.value.bytes.resize(*bytes);
  if (*bytes == 0) return {};
  return checkHdf5(H5Dread(id, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, dataset.value.bytes.data()),
                   "cannot be read");
}

Outcome<void> readStorage(hid_t id, hid_t type, std::uint64_t fileBytes, ObjectDataset& dataset) {
  const PropertyHandle creation(H5Dget_create_plist(id));
  switch (H5Pget_layout(creation.get())) {
    case H5D_COMPACT:
      return readInHeader(id, type, fileBytes, dataset);
    case H5D_CONTIGUOUS:
      if (H5Pget_external_count(creation.get()) != 0) {
        dataset.storage = ObjectDataset::Storage::kForeign;
        dataset.foreignText = "its values lie in another file";
        return {};
      }
      dataset.storage = ObjectDataset::Storage::kPiece;
      dataset.address = H5Dget_offset(id);
      return {};
    case H5D_CHUNKED:
      readChunking(creation.get(), dataset);
      return {};
    default:
      dataset.storage = ObjectDataset::Storage::kForeign;
      return {};
  }
}

Outcome<ObjectDataset> readDataset(hid_t id, std::uint64_t fileBytes) {
  const DatatypeHandle type(H5Dget_type(id));
  const DataspaceHandle space(H5Dget_space(id));
  if (!type.ok() || !space.ok()) return Failure{takeHdf5Error()};
  ObjectDataset dataset;
  dataset.value.type = objectTypeOf(type.get());
  dataset.value.extents = extentsOf(space.get());
  if (auto read = readStorage(id, type.get(), fileBytes, dataset); !read.ok()) {
    return read.failure();
  }
  auto attributes = readAttributes(id, fileBytes);
  if (!attributes.ok()) return attributes.failure();
  dataset.attributes = std::move(attributes).value();
  return dataset;
}

Outcome<std::vector<std::string>> hardLinks(hid_t group) {
  std::vector<std::string> names;
  const auto collect = [](hid_t, const char* name, const H5L_info_t* info, void* data) -> herr_t {
    if (info->type == H5L_TYPE_HARD) {
      static_cast<std::vector<std::string>*>(data)->emplace_back(name);
    }
    return 0;
  };
  const herr_t walked = H5Literate(group, H5_INDEX_NAME, H5_ITER_NATIVE, nullptr, collect, &names);
  if (auto done = checkHdf5(walked, "group: cannot be listed"); !done.ok()) return done.failure();
  return names;
}

/// Walks one file; every group is entered once, so that a file whose groups contain each other
/// cannot keep it busy.
class LibraryWalk {
 public:
  explicit LibraryWalk(std::uint64_t fileBytes) : fileBytes_(fileBytes) {}

  Outcome<ObjectGroup> group(hid_t id, int levels) {
    ObjectGroup group;
    auto attributes = readAttributes(id, fileBytes_);
    if (!attributes.ok()) return attributes.failure();
    group.attributes = std::move(attributes).value();
    const auto names = hardLinks(id);
    if (!names.ok()) return names.failure();
    for (const std::string& name : *names) {
      if (auto done = member(id, name, levels, group); !done.ok()) {
        return within(name, done.error());
      }
    }
    return group;
  }

 private:
  Outcome<void> member(hid_t parent, const std::string& name, int levels, ObjectGroup& group) {
    H5O_info_t info{};
    auto found =
        checkHdf5(H5Oget_info_by_name2(parent, name.c_str(), &info, H5O_INFO_BASIC, H5P_DEFAULT),
                  "cannot be found");
    if (!found.ok()) return found;
    if (info.type == H5O_TYPE_DATASET) return addDataset(parent, name, group);
    if (info.type != H5O_TYPE_GROUP) return Failure{"neither a group nor a dataset"};
    if (!entered_.insert(info.addr).second) return Failure{"a group that was reached twice"};
    if (levels == 0) return Failure{"groups within groups without an end"};
    const auto opened =
        ownHdf5<GroupHandle>(H5Gopen2(parent, name.c_str(), H5P_DEFAULT), "cannot be opened");
    if (!opened.ok()) return opened.failure();
    auto child = this->group(opened->get(), levels - 1);
    if (!child.ok()) return child.failure();
    group.groups[name] = std::move(child).value();
    return {};
  }

  Outcome<void> addDataset(hid_t parent, const std::string& name, ObjectGroup& group) const {
    const auto opened =
        ownHdf5<DatasetHandle>(H5Dopen2(parent, name.c_str(), H5P_DEFAULT), "cannot be opened");
    if (!opened.ok()) return opened.failure();
    auto dataset = readDataset(opened->get(), fileBytes_);
    if (!dataset.ok()) return dataset.failure();
    group.datasets[name] = std::move(dataset).value();
    return {};
  }

  std::uint64_t fileBytes_;
  std::set<haddr_t> entered_;
};

}  // namespace

Outcome<ObjectGroup> readLibraryTree(hid_t file, std::uint64_t fileBytes) {
  const auto root = ownHdf5<GroupHandle>(H5Gopen2(file, "/", H5P_DEFAULT), "root group");
  if (!root.ok()) return root.failure();
  return LibraryWalk(fileBytes).group(root->get(), kMostLevels);
}

}  // namespace Fiber::Container
