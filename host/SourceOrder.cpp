// SPDX-License-Identifier: Apache-2.0

#include "host/SourceOrder.hpp"

#include <fmt/format.h>

#include <algorithm>

#include "formats/cloud/SourceOrder.hpp"

namespace Host {

using Formats::kSourceFileField;
using Formats::kSourceIndexField;

FilterOptions withSourceOrder(FilterOptions filters) {
  if (!filters.fields.empty()) filters.fields.insert({kSourceFileField, kSourceIndexField});
  return filters;
}

Check checkSourceOrder(const std::vector<SelectedGrid>& grids) {
  for (const SelectedGrid& selected : grids) {
    const auto names = fieldNames(*selected.grid);
    for (const char* field : {kSourceFileField, kSourceIndexField}) {
      if (std::find(names.begin(), names.end(), field) != names.end()) continue;
      return usageStop(fmt::format(
          "--keep-order: grid {} has no field \"{}\", expected .las or .laz files, or a bundle "
          "made of them with --keep-order",
          selected.name, field));
    }
  }
  return std::monostate{};
}

}  // namespace Host
