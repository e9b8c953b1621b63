// SPDX-License-Identifier: Apache-2.0

#include "tests/formats/LasTestFiles.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>

#include "formats/las/ByteStream.hpp"

namespace Formats {

namespace {

void addMadeUpFiles(std::vector<KnownFile>& files) {
  for (std::uint8_t format = 0; format <= kMaxPointFormat; ++format) {
    const KnownFile plain{"", 4, format, 0, 10, {0, 0, 0}, {9, 9, 9}};
    files.push_back(plain);
    files.back().name = fmt::format("formats/10_points_format_{}.las", format);
    files.push_back(plain);
    files.back().name = fmt::format("formats/10_points_with_extra_bytes_format_{}.las", format);
    files.back().extraBytes = 4;
    if (format > 8) continue;
    files.push_back(plain);
    files.back().name = fmt::format("formats/10_points_format_{}.laz", format);
  }
}

}  // namespace

void PrintTo(const KnownFile& file, std::ostream* stream) { *stream << file.name; }

std::vector<KnownFile> smallKnownFiles() {
  std::vector<KnownFile> files{{"fwf/Haus29_ID04_FWF_V13.laz",
                                3,
                                4,
                                0,
                                155528,
                                {33362192.001, 5808385, 31.235},
                                {33362329.997, 5808490.997, 60.867}},
                               {"fwf/100429_152240_2535pt_UTM.las",
                                4,
                                9,
                                4,
                                2535,
                                {548342.74, 5389929.96, 234.55},
                                {548369.59, 5389957.73, 509.69}},
                               {"fwf/riegl_2535pt_internal.las",
                                4,
                                9,
                                4,
                                2535,
                                {548342.74, 5389929.96, 234.55},
                                {548369.59, 5389957.73, 509.69}},
                               {"fwf/simple1_3.las",
                                3,
                                4,
                                0,
                                999,
                                {-235434519, 800843145, 265094},
                                {-234935841, 800946249, 273811}},
                               {"small/vegetation_1_3.las",
                                3,
                                1,
                                0,
                                10683,
                                {-98451.205, -55975.417, -81460.091},
                                {-98447.447, -55969.405, -81455.203}},
                               {"lidarhd/test_data_77050_627755_LA93_IGN69.laz",
                                4,
                                8,
                                0,
                                73355,
                                {770500, 6277500, 20.25},
                                {770541.68, 6277550, 43.49}},
                               {"lidarhd/test_data_77050_627760_LA93_IGN69.laz",
                                4,
                                8,
                                0,
                                56035,
                                {770500, 6277550, 20.64},
                                {770550, 6277600, 37.7}},
                               {"lidarhd/test_data_77055_627755_LA93_IGN69.laz",
                                4,
                                8,
                                0,
                                72770,
                                {770550, 6277500, 20.41},
                                {770600, 6277550, 38.7}},
                               {"lidarhd/test_data_77055_627760_LA93_IGN69.laz",
                                4,
                                8,
                                0,
                                60653,
                                {770550, 6277550, 20.72},
                                {770600, 6277600, 39.62}},
                               {"lidarhd/test_data_77060_627755_LA93_IGN69.laz",
                                4,
                                8,
                                0,
                                83518,
                                {770600, 6277500, 20.21},
                                {770650, 6277550, 35.38}},
                               {"lidarhd/test_data_77060_627760_LA93_IGN69.laz",
                                4,
                                8,
                                0,
                                59606,
                                {770600, 6277550, 20.39},
                                {770650, 6277600, 34.94}},
                               {"small/las_with_several_extra_byte_bloc.laz",
                                4,
                                8,
                                3,
                                697721,
                                {484649.36, 6632629.73, 99.65},
                                {484999.99, 6632999.99, 120.42}},
                               {"small/lone-star.copc.laz",
                                4,
                                6,
                                0,
                                518862,
                                {515368.602, 4918340.364, 2322.896},
                                {515401.043, 4918381.124, 2338.575}},
                               {"small/autzen-dd.las",
                                2,
                                3,
                                0,
                                1065,
                                {-123.0749695, 44.0500086, 123.93},
                                {-123.0625001, 44.0624972, 178.73}},
                               {"small/no-points.las", 2, 3, 0, 0, {}, {}},
                               {"small/mvk-thin.las",
                                2,
                                1,
                                0,
                                6280,
                                {2045001.76, 1267501.19, 95.79},
                                {2049993.92, 1272499.79, 228.73}},
                               {"small/wontcompress3.las",
                                4,
                                6,
                                0,
                                1000,
                                {768321.06, 2028734.533, 104.98},
                                {768376.937, 2028768.078, 113.03}},
                               {"small/1_4_w_evlr.las",
                                4,
                                6,
                                0,
                                1000,
                                {1694038.446, 1816492.706, 5592.75},
                                {1694539.677, 1816497.976, 5599.07}},
                               {"small/extrabytes.las",
                                4,
                                3,
                                27,
                                1065,
                                {635619.85, 848899.7, 406.59},
                                {638982.55, 853535.43, 586.38}},
                               {"small/simple1_1.las",
                                1,
                                1,
                                0,
                                1065,
                                {635619.85, 848899.7, 406.59},
                                {638982.55, 853535.43, 586.38}},
                               {"small/point-version-1-point-wise.las",
                                0,
                                0,
                                0,
                                11781,
                                {2483569.14, 366203.87, 1480.88},
                                {2484009.38, 366616.6, 1581.78}},
                               {"small/point-version-1-point-wise.laz",
                                0,
                                0,
                                0,
                                11781,
                                {2483569.14, 366203.87, 1480.88},
                                {2484009.38, 366616.6, 1581.78}}};
  addMadeUpFiles(files);
  return files;
}

KnownFile mainInput() {
  return {"hawaii_north.laz",           2, 3, 0, 8750450, {201999.95, 2184500, 1238.98},
          {202999.97, 2185000, 1348.99}};
}

std::string testNameOf(const testing::TestParamInfo<KnownFile>& info) {
  std::string name = info.param.name;
  const auto isOther = [](char letter) {
    return !(letter >= 'a' && letter <= 'z') && !(letter >= 'A' && letter <= 'Z') &&
           !(letter >= '0' && letter <= '9');
  };
  std::replace_if(name.begin(), name.end(), isOther, '_');
  return name;
}

void LasData::SetUp() {
  const char* variable = std::getenv("LIDARLIB_TEST_DATA");
  folder_ = variable != nullptr ? variable : LIDARLIB_SOURCE_DIR "/../shared/data";
  if (!std::filesystem::is_directory(folder_)) {
    GTEST_SKIP() << "no test data: set LIDARLIB_TEST_DATA to their folder";
  }
}

std::shared_ptr<LasFile> LasData::open(const std::string& name) const {
  auto opened = LasFile::open(path(name));
  EXPECT_TRUE(opened.ok()) << opened.error();
  return opened ? *opened : nullptr;
}

std::vector<std::byte> readAllRecords(const LasFile& file) {
  std::vector<std::byte> records(file.pointCount() * file.recordBytes());
  const auto done = file.readRecords(0, file.pointCount(), records);
  EXPECT_TRUE(done.ok()) << done.error();
  return records;
}

std::vector<std::byte> readFile(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  EXPECT_TRUE(stream.is_open()) << path;
  const std::string text{std::istreambuf_iterator<char>(stream), {}};
  const auto bytes = std::as_bytes(std::span(text));
  return {bytes.begin(), bytes.end()};
}

void writeFile(const std::string& path, std::span<const std::byte> bytes) {
  std::ofstream stream(path, std::ios::binary | std::ios::trunc);
  stream.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
  EXPECT_TRUE(stream.good()) << path;
}

std::vector<std::byte> surveyRecords(std::uint8_t pointFormat, std::uint16_t extraBytes,
                                     std::size_t count, std::uint64_t seed) {
  const std::size_t recordBytes = standardRecordBytes(pointFormat) + std::size_t{extraBytes};
  std::vector<std::byte> records(count * recordBytes);
  std::mt19937_64 random(seed);
  const auto below = [&](std::uint64_t limit) { return random() % limit; };
  const bool isNew = pointFormat >= 6;
  std::array<double, 3> times{1000, 2e8, -5};
  std::array<std::int32_t, 3> place{100, -2000, 30};
  for (std::size_t point = 0; point < count; ++point) {
    std::byte* record = records.data() + point * recordBytes;
    // A few bytes anywhere differ from the last record, as unrelated attributes do.
    if (point > 0) std::copy_n(record - recordBytes, recordBytes, record);
    for (std::uint64_t change = below(4); change > 0; --change) {
      record[12 + below(recordBytes - 12)] = static_cast<std::byte>(below(256));
    }
    for (std::int32_t& value : place) value += static_cast<std::int32_t>(below(200)) - 100;
    if (below(100) == 0) place[below(3)] = static_cast<std::int32_t>(random() >> 33U);
    storeValue(record, place);
    if (isNew && below(8) == 0) record[15] = static_cast<std::byte>(below(256));
    if (pointFormat == 0 || pointFormat == 2) continue;
    double& time = times[below(20) == 0 ? below(3) : 0];
    time += below(50) == 0 ? static_cast<double>(random()) : 1e-5 * static_cast<double>(below(20));
    storeValue(record + (isNew ? 22 : 20), time);
  }
  return records;
}

}  // namespace Formats
