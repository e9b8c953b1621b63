// SPDX-License-Identifier: Apache-2.0

#include "host/GridSelection.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "datamodel/memcore/Text.hpp"
#include "host/NameRules.hpp"
#include "host/NumberText.hpp"

namespace Host {

namespace {

std::string textOf(double value) { return exactText(value); }
const std::string& textOf(const std::string& value) { return value; }

/// "what is there: a, b, c", cut short after a handful.
template <class Item>
std::string listText(const std::set<Item>& items) {
  constexpr std::size_t kMost = 20;
  std::string text;
  std::size_t listed = 0;
  for (const Item& item : items) {
    if (listed == kMost) return text + fmt::format(" and {} more", items.size() - listed);
    text += (listed++ == 0 ? "" : ", ") + textOf(item);
  }
  return items.empty() ? "none" : text;
}

/// Whether everything that a flag named exists.
template <class Item>
Check checkNamed(const char* flag, const std::set<Item>& named, const std::set<Item>& existing) {
  for (const Item& item : named) {
    if (existing.count(item) != 0) continue;
    return usageStop(fmt::format("{}: the input has no \"{}\", it has {}", flag, textOf(item),
                                 listText(existing)));
  }
  return std::monostate{};
}

template <class Item>
bool accepts(const std::set<Item>& filter, const Item& item) {
  return filter.empty() || filter.count(item) != 0;
}

/// What the input has, as far as the filters before it reach.
struct Inventory {
  std::set<double> times;
  std::set<std::string> grids;
  std::set<std::string> fields;
  std::vector<SelectedGrid> selected;
};

Inventory takeInventory(const Fiber::Bundle& bundle, const FilterOptions& filters) {
  Inventory inventory;
  for (const auto& [time, slice] : bundle.slices()) {
    if (!slice) continue;
    slice->accessSlice();
    inventory.times.insert(time);
    if (!accepts(filters.times, time)) continue;
    for (const auto& [name, grid] : slice->grids()) {
      if (!grid) continue;
      inventory.grids.insert(name);
      if (!accepts(filters.grids, name)) continue;
      const auto fields = fieldNames(*grid);
      inventory.fields.insert(fields.begin(), fields.end());
      inventory.selected.push_back({time, name, grid});
    }
  }
  return inventory;
}

}  // namespace

std::vector<std::string> fieldNames(const Fiber::Grid& grid) {
  std::set<std::string> names;
  const auto vertices = grid.skeletons().findVertices(-1);
  if (!vertices) return {};
  for (const auto& [chart, entry] : vertices->representations().all()) {
    for (const auto& [name, field] : entry.representation->fields()) names.insert(name);
  }
  return {names.begin(), names.end()};
}

Result<std::vector<SelectedGrid>> selectGrids(const Fiber::Bundle& bundle,
                                              const FilterOptions& filters) {
  const Inventory inventory = takeInventory(bundle, filters);
  for (const Check& check : {checkNamed("--time", filters.times, inventory.times),
                             checkNamed("--grid", filters.grids, inventory.grids),
                             checkNamed("--field", filters.fields, inventory.fields)}) {
    if (!check.ok()) return check.stop();
  }
  if (inventory.selected.empty()) return failedStop("input: holds no grid");
  for (const SelectedGrid& selected : inventory.selected) {
    const auto acceptable = checkGridName(selected.name);
    if (!acceptable.ok()) return acceptable.failure();
  }
  return inventory.selected;
}

Check checkDistinctTimes(const std::vector<SelectedGrid>& grids) {
  for (std::size_t i = 1; i < grids.size(); ++i) {
    const SelectedGrid& former = grids[i - 1];
    const std::string time = MemCore::formatFixed(grids[i].time);
    if (MemCore::formatFixed(former.time) != time) continue;
    return usageStop(fmt::format(
        "--grid: {} and {} at time {} cannot be split together, their tiles would have the same "
        "names; choose one with --grid or --time",
        former.name, grids[i].name, time));
  }
  return std::monostate{};
}

}  // namespace Host
