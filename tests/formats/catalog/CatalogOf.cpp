// SPDX-License-Identifier: Apache-2.0
//
// catalog_of FOLDER NAME FILE...: writes the catalog of LAS and LAZ files of a folder, as their
// headers describe them, and prints the notes.

#include <fmt/format.h>

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "formats/catalog/Catalog.hpp"
#include "formats/las/LasFile.hpp"

namespace {

using Formats::CatalogDescription;
using MemCore::Outcome;

Outcome<void> addTile(const std::string& folder, const std::string& name,
                      CatalogDescription& description) {
  const auto file = Formats::LasFile::open(folder + "/" + name);
  if (!file) return file.failure();
  const Formats::LasHeader& header = (*file)->header();
  Formats::CatalogTile tile;
  tile.file = name;
  tile.pointCount = header.pointCount;
  tile.minimum = header.minimum;
  tile.maximum = header.maximum;
  tile.statistics = {{"Z", header.minimum[2], header.maximum[2]}};
  description.tiles.push_back(std::move(tile));
  description.dimensions = Formats::dimensionsOf((*file)->layout());
  description.datetime = Formats::datetimeOf(header);
  std::vector<Formats::VariableRecord> records = (*file)->vlrs();
  records.insert(records.end(), (*file)->evlrs().begin(), (*file)->evlrs().end());
  description.system = Formats::coordinateSystemOf(records);
  return {};
}

Outcome<std::vector<std::string>> writeAll(const std::vector<std::string>& arguments) {
  CatalogDescription description;
  for (std::size_t at = 2; at < arguments.size(); ++at) {
    if (const auto added = addTile(arguments[0], arguments[at], description); !added) {
      return added.failure();
    }
  }
  return Formats::writeCatalog(arguments[0], arguments[1], description);
}

}  // namespace

int main(int count, char** values) {
  try {
    const std::vector<std::string> arguments(values + 1, values + count);
    if (arguments.size() < 2) return 2;
    const auto notes = writeAll(arguments);
    if (!notes) {
      fmt::print(stderr, "{}\n", notes.error());
      return 1;
    }
    for (const std::string& note : *notes) fmt::print("{}\n", note);
    return 0;
  } catch (const std::exception&) {
    return 1;
  }
}
