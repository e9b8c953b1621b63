// SPDX-License-Identifier: Apache-2.0

#include "formats/catalog/FootprintProjector.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

#include "tests/formats/catalog/CatalogTestRecords.hpp"
#include "tests/support/TempDir.hpp"

namespace Formats {
namespace {

using LidarLib::TestSupport::TempDir;
using testing::HasSubstr;

constexpr double kNear = 1e-7;  ///< Degrees: about a centimetre.

FootprintProjector projectorOf(const CoordinateSystem& system) {
  auto made = FootprintProjector::make(system);
  EXPECT_TRUE(made.ok()) << made.error();
  return std::move(*made);
}

CoordinateSystem coded(std::uint16_t epsg, std::optional<std::uint16_t> heights = {}) {
  return {"", epsg, heights};
}

std::string failureOf(const CoordinateSystem& system) {
  const auto made = FootprintProjector::make(system);
  EXPECT_FALSE(made.ok());
  return made ? std::string() : made.error();
}

/// The longitude and latitude of one point.
std::array<double, 2> placeOf(const CoordinateSystem& system, double x, double y) {
  const auto footprint = projectorOf(system).project({x, y, 0}, {x, y, 0});
  EXPECT_TRUE(footprint.has_value());
  return footprint ? footprint->corners[0] : std::array<double, 2>{NAN, NAN};
}

/// Transverse Mercator on the central meridian by the series of the meridian's arc: the judge. The
/// latitude whose arc (scaled) is `northing` on the GRS 80 ellipsoid.
double latitudeOnCentralMeridian(double northing) {
  constexpr double kAxis = 6378137.0;
  constexpr double kFlattening = 1 / 298.257222101;
  constexpr double kScale = 0.9996;
  const double n = kFlattening / (2 - kFlattening);
  const double radius = kAxis / (1 + n) * (1 + n * n / 4 + n * n * n * n / 64);
  const double mu = northing / kScale / radius;
  const double latitude = mu + (3 * n / 2 - 27 * n * n * n / 32) * std::sin(2 * mu) +
                          (21 * n * n / 16 - 55 * std::pow(n, 4) / 32) * std::sin(4 * mu) +
                          151 * n * n * n / 96 * std::sin(6 * mu) +
                          1097 * std::pow(n, 4) / 512 * std::sin(8 * mu);
  return latitude * 180 / M_PI;
}

TEST(FootprintProjector, CentralMeridianIsWhereTheSeriesSays) {
  for (const double northing : {0.0, 1e6, 5427865.242, 7e6}) {
    for (const CoordinateSystem& system : {coded(25832), CoordinateSystem{kUtm32Wkt, {}, {}}}) {
      const auto [longitude, latitude] = placeOf(system, 500000, northing);
      EXPECT_NEAR(longitude, 9.0, kNear);
      EXPECT_NEAR(latitude, latitudeOnCentralMeridian(northing), kNear);
    }
  }
}

TEST(FootprintProjector, WebMercatorIsWhereItsFormulaSays) {
  constexpr double kAxis = 6378137.0;
  const auto [longitude, latitude] = placeOf(coded(3857), 1234567, -2345678);
  EXPECT_NEAR(longitude, 1234567 / kAxis * 180 / M_PI, kNear);
  EXPECT_NEAR(latitude, std::atan(std::sinh(-2345678 / kAxis)) * 180 / M_PI, kNear);
}

TEST(FootprintProjector, GeographicCoordinatesAreLongitudeFirst) {
  const auto [longitude, latitude] = placeOf(coded(4326), 123.5, -44.25);
  EXPECT_NEAR(longitude, 123.5, kNear);
  EXPECT_NEAR(latitude, -44.25, kNear);
}

TEST(FootprintProjector, AxesOfTheRegisterDoNotSwapThePoints) {
  // This system counts northings first in the register; its central meridian is that of zone 3.
  const auto [longitude, latitude] = placeOf(coded(31467), 3500000, 5400000);
  EXPECT_NEAR(longitude, 9.0, 0.01);
  EXPECT_NEAR(latitude, 48.7, 0.1);
}

TEST(FootprintProjector, CornersGoCounterclockwiseInsideTheBounds) {
  const auto footprint =
      projectorOf(coded(25832)).project({455583, 5427865, 0}, {456583, 5429865, 9});
  ASSERT_TRUE(footprint.has_value());
  const auto& corners = footprint->corners;
  EXPECT_LT(corners[0][0], corners[1][0]);
  EXPECT_LT(corners[1][1], corners[2][1]);
  EXPECT_GT(corners[2][0], corners[3][0]);
  for (const auto& [longitude, latitude] : corners) {
    EXPECT_GE(longitude, footprint->west);
    EXPECT_LE(longitude, footprint->east);
    EXPECT_GE(latitude, footprint->south);
    EXPECT_LE(latitude, footprint->north);
  }
}

TEST(FootprintProjector, EdgesThatBulgeWidenTheBounds) {
  // Across the central meridian the northern edge of a box lies highest in its middle.
  const auto footprint = projectorOf(coded(25832)).project({200000, 6e6, 0}, {800000, 6.5e6, 0});
  ASSERT_TRUE(footprint.has_value());
  EXPECT_GT(footprint->north, footprint->corners[2][1] + 0.01);
  EXPECT_NEAR(footprint->north, latitudeOnCentralMeridian(6.5e6), kNear);
}

TEST(FootprintProjector, HeightsAreOfNoConcernToTheOutline) {
  const auto plain = placeOf(coded(25832), 455583, 5427865);
  EXPECT_EQ(placeOf(coded(25832, std::uint16_t{7837}), 455583, 5427865), plain);
  const auto system = projectorOf(coded(25832, std::uint16_t{7837}));
  EXPECT_THAT(system.wkt2(), HasSubstr("COMPOUNDCRS"));
  EXPECT_EQ(system.epsg(), std::nullopt);
}

TEST(FootprintProjector, HeightsThatNobodyKnowsAreLeftOut) {
  const auto system = projectorOf(coded(25832, std::uint16_t{5030}));
  EXPECT_EQ(system.epsg(), 25832);
  EXPECT_THAT(system.wkt2(), testing::StartsWith("PROJCRS[\"ETRS89 / UTM zone 32N\""));
}

TEST(FootprintProjector, OldTextKeepsItsCode) {
  const auto system = projectorOf({kUtm32Wkt, {}, {}});
  EXPECT_EQ(system.epsg(), 25832);
  EXPECT_THAT(system.wkt2(), testing::StartsWith("PROJCRS["));
}

TEST(FootprintProjector, WhatHasNoOutlineIsAFailure) {
  EXPECT_EQ(failureOf(coded(29999)), "coordinate system: not known to PROJ, found EPSG:29999");
  EXPECT_EQ(failureOf({"PROJCS[", {}, {}}),
            "coordinate system: not known to PROJ, found the given WKT");
  EXPECT_EQ(failureOf({"+proj=utm +zone=32", {}, {}}),
            "coordinate system: not known to PROJ, found the given WKT");
  EXPECT_THAT(failureOf(coded(4978)), HasSubstr("has no horizontal axes"));
  EXPECT_THAT(failureOf(coded(5773)), HasSubstr("coordinate system: "));
}

/// Another value of an environment variable for as long as the object lives.
class Environment {
 public:
  Environment(const char* name, const std::string& value) : name_(name) {
    if (const char* before = std::getenv(name)) before_ = before;
    ::setenv(name, value.c_str(), 1);
  }
  ~Environment() {
    if (before_) {
      ::setenv(name_, before_->c_str(), 1);
    } else {
      ::unsetenv(name_);
    }
  }
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

 private:
  const char* name_;
  std::optional<std::string> before_;
};

TEST(FootprintProjector, WithoutItsDatabaseEverythingIsUnknown) {
  const TempDir empty;
  const std::string folder = empty.path().string();
  const Environment newer("PROJ_DATA", folder);
  const Environment older("PROJ_LIB", folder);
  const Environment own("PROJ_SKIP_READ_USER_WRITABLE_DIRECTORY", "YES");
  for (const CoordinateSystem& system : {coded(25832), CoordinateSystem{kUtm32Wkt, {}, {}}}) {
    EXPECT_EQ(failureOf(system), "coordinate systems: PROJ finds no database, expected proj.db");
  }
}

TEST(FootprintProjector, LocalSystemHasNoPlaceOnTheGlobe) {
  const std::string local =
      R"(LOCAL_CS["site",LOCAL_DATUM["site",0],UNIT["metre",1],AXIS["X",EAST],AXIS["Y",NORTH]])";
  EXPECT_THAT(failureOf({local, {}, {}}), HasSubstr("has no known place on the globe"));
}

TEST(FootprintProjector, BoxesThatCannotBeProjectedHaveNone) {
  const auto projector = projectorOf(coded(25832));
  EXPECT_EQ(projector.project({1e300, 0, 0}, {1e301, 1, 0}), std::nullopt);
  EXPECT_EQ(projector.project({NAN, 0, 0}, {1, 1, 0}), std::nullopt);
  const auto fiji = projectorOf(coded(32760));
  EXPECT_EQ(fiji.project({800000, 8100000, 0}, {900000, 8200000, 0}), std::nullopt);
}

}  // namespace
}  // namespace Formats
