// SPDX-License-Identifier: Apache-2.0

#include "tests/formats/cloud/CloudTestFiles.hpp"

#include <algorithm>

#include "formats/las/ByteStream.hpp"

namespace Formats {

using MemCore::StrongPtr;

LasWriterOptions lasOptions(std::uint8_t pointFormat,
                            const std::vector<ExtraBytesDescriptor>& extraBytes) {
  LasWriterOptions options;
  options.header.pointFormat = pointFormat;
  options.header.scale = {0.01, 0.01, 0.01};
  options.header.offset = {1000, -2000, 0};
  std::size_t recordBytes = standardRecordBytes(pointFormat);
  for (const ExtraBytesDescriptor& descriptor : extraBytes) {
    recordBytes += extraBytesWidth(descriptor);
  }
  options.header.recordBytes = static_cast<std::uint16_t>(recordBytes);
  if (extraBytes.empty()) return options;
  VariableRecord record;
  record.userId = kLasSpecUserId;
  record.recordId = kExtraBytesRecordId;
  record.payload = serialiseExtraBytes(extraBytes);
  options.vlrs.push_back(record);
  return options;
}

std::string writeLas(const std::string& path, const LasWriterOptions& options,
                     std::span<const std::byte> records) {
  const auto writer = LasWriter::create(path, options);
  EXPECT_TRUE(writer.ok()) << writer.error();
  if (!writer) return path;
  const auto written = (*writer)->writeRecords(records);
  EXPECT_TRUE(written.ok()) << written.error();
  const auto finished = (*writer)->finish();
  EXPECT_TRUE(finished.ok()) << finished.error();
  return path;
}

std::string writeSurvey(const std::string& path, std::uint8_t pointFormat, std::size_t points,
                        std::uint64_t seed) {
  return writeLas(path, lasOptions(pointFormat), surveyRecords(pointFormat, 0, points, seed));
}

StrongPtr<Fiber::Field> TestCloud::field(const std::string& name) const {
  auto field = grid->getCartesianRepresentation("")->findField(name);
  EXPECT_TRUE(bool(field)) << name;
  return field;
}

std::vector<Fiber::FragmentHandle> TestCloud::fragments() const {
  return field("Positions")->getFragmentIDs();
}

StrongPtr<Eagle::BoundingBox> TestCloud::box() const {
  StrongPtr<Eagle::BoundingBox> box;
  Fiber::expandBoundingBox(field("Positions"), box);
  return box;
}

bool TestCloud::hasNote(const std::string& text) const {
  return std::any_of(summary.notes.begin(), summary.notes.end(),
                     [&](const std::string& note) { return note.find(text) != std::string::npos; });
}

TestCloud readCloud(const std::vector<std::string>& files, const CloudOptions& options) {
  TestCloud cloud;
  cloud.bundle = Fiber::BundlePtr(new Fiber::Bundle);
  auto added = addPointCloud(*cloud.bundle, files, options);
  EXPECT_TRUE(added.ok()) << added.error();
  if (!added) return cloud;
  cloud.summary = std::move(*added);
  cloud.grid = (*cloud.bundle)[options.time]->findGrid(options.gridName);
  return cloud;
}

std::string failureOf(const std::vector<std::string>& files, const CloudOptions& options) {
  Fiber::Bundle bundle;
  const auto added = addPointCloud(bundle, files, options);
  EXPECT_FALSE(added.ok());
  EXPECT_TRUE(bundle.slices().empty());
  return added ? "" : added.error();
}

StrongPtr<Fiber::Field> TestGrid::field(const std::string& name) const {
  return grid->getCartesianRepresentation("")->findField(name);
}

TestGrid gridOver(const std::shared_ptr<LasFile>& file, std::uint64_t fragmentPoints) {
  TestGrid made{file, MemCore::makeStrong<Fiber::Grid>("points"), {}};
  const std::vector<std::shared_ptr<LasFile>> files{file};
  const auto fields = joinFields(files);
  EXPECT_TRUE(fields.ok()) << fields.error();
  if (!fields) return made;
  const std::vector<CloudFile> clouds{
      {file, nullptr, cutIntoFragments(*file, {fragmentPoints, 0})}};
  fillGrid(*made.grid, clouds, *fields, false, made.summary);
  return made;
}

std::vector<std::byte> bytesOf(const Fiber::Field& field) {
  std::vector<std::byte> all;
  for (const auto& fragment : field.getFragmentIDs()) {
    const auto data = field.getData(fragment);
    if (!data) {
      ADD_FAILURE() << "fragment " << fragment->name() << ": "
                    << field.getCreator(fragment)->failure();
      return {};
    }
    const auto& elements = *data->elements();
    all.insert(all.end(), elements.bytes(), elements.bytes() + elements.byteCount());
  }
  return all;
}

std::vector<std::byte> plainColumn(std::span<const std::byte> records, std::size_t recordBytes,
                                   const PointField& field) {
  const std::size_t width = elementBytes(field.type);
  std::vector<std::byte> column;
  for (std::size_t at = 0; at < records.size(); at += recordBytes) {
    for (std::size_t byte = 0; byte < width; ++byte) {
      auto value = static_cast<unsigned>(records[at + field.byteOffset + byte]);
      if (field.bitCount != 0) value = (value >> field.bitShift) % (1U << field.bitCount);
      column.push_back(static_cast<std::byte>(value));
    }
  }
  return column;
}

std::vector<Eagle::PhysicalSpace::point> plainPositions(std::span<const std::byte> records,
                                                        const LasHeader& header) {
  std::vector<Eagle::PhysicalSpace::point> points;
  for (std::size_t at = 0; at < records.size(); at += header.recordBytes) {
    Eagle::PhysicalSpace::point& point = points.emplace_back();
    for (std::size_t axis = 0; axis < 3; ++axis) {
      const volatile double scaled =
          loadValue<std::int32_t>(&records[at + 4 * axis]) * header.scale[axis];
      point[axis] = scaled + header.offset[axis];
    }
  }
  return points;
}

CacheBudget::CacheBudget(std::uint64_t bytes) : before_(MemCore::Cache::MemCache()->budget()) {
  MemCore::Cache::MemCache()->clear();
  MemCore::Cache::MemCache()->setBudget(bytes);
}

CacheBudget::~CacheBudget() {
  MemCore::Cache::MemCache()->clear();
  MemCore::Cache::MemCache()->setBudget(before_);
}

}  // namespace Formats
