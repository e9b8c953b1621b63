// SPDX-License-Identifier: Apache-2.0

#include "tests/formats/catalog/CatalogTestRecords.hpp"

#include "formats/las/ByteStream.hpp"

namespace Formats {

const char* const kUtm32Wkt =
    R"(PROJCS["ETRS89 / UTM zone 32N",GEOGCS["ETRS89",)"
    R"(DATUM["European_Terrestrial_Reference_System_1989",)"
    R"(SPHEROID["GRS 1980",6378137,298.257222101,AUTHORITY["EPSG","7019"]],)"
    R"(AUTHORITY["EPSG","6258"]],PRIMEM["Greenwich",0,AUTHORITY["EPSG","8901"]],)"
    R"(UNIT["degree",0.0174532925199433,AUTHORITY["EPSG","9122"]],AUTHORITY["EPSG","4258"]],)"
    R"(PROJECTION["Transverse_Mercator"],PARAMETER["latitude_of_origin",0],)"
    R"(PARAMETER["central_meridian",9],PARAMETER["scale_factor",0.9996],)"
    R"(PARAMETER["false_easting",500000],PARAMETER["false_northing",0],)"
    R"(UNIT["metre",1,AUTHORITY["EPSG","9001"]],AXIS["Easting",EAST],AXIS["Northing",NORTH],)"
    R"(AUTHORITY["EPSG","25832"]])";

VariableRecord wktRecord(const std::string& text) {
  VariableRecord record;
  record.userId = kLasProjectionUserId;
  record.recordId = 2112;
  const auto bytes = std::as_bytes(std::span(text));
  record.payload.assign(bytes.begin(), bytes.end());
  return record;
}

VariableRecord geoKeyRecord(const std::vector<GeoKey>& keys) {
  ByteWriter writer;
  writer.put(GeoKey{1, 1, 0, static_cast<std::uint16_t>(keys.size())});
  for (const GeoKey& key : keys) writer.put(key);
  VariableRecord record;
  record.userId = kLasProjectionUserId;
  record.recordId = 34735;
  record.payload = writer.finish();
  return record;
}

}  // namespace Formats
