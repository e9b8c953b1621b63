// SPDX-License-Identifier: Apache-2.0

#include "datamodel/convlib/BasicConverterDefs.hpp"

#include "datamodel/memcore/Text.hpp"

namespace ConvLib {

namespace {

template <class Filter, class Item>
bool accepts(const Filter& filter, const Item& item) {
  return filter.empty() || filter.count(item) != 0;
}

}  // namespace

bool BasicConverterDefs::UseThisGrid(const std::string& name) const {
  return accepts(gridFilter, name);
}

bool BasicConverterDefs::UseThisTime(const double& time) const { return accepts(timeFilter, time); }

bool BasicConverterDefs::UseThisField(const std::string& name) {
  return accepts(fieldFilter, name);
}

bool BasicConverterDefs::loadFilesIntoBundle(myReadType type) {
  if (!inputFiles) {
    appendMessage("input: no files declared");
    return false;
  }
  const auto parameters = MemCore::makeStrong<MemCore::LoaderParameters>(
      MemCore::LoaderParameters{*inputFiles, type == myReadType::Everything});
  bool ok = false;
  std::string failure;
  const Fiber::BundlePtr loaded = Fiber::Bundle::load(ok, parameters, inputBundle, &failure);
  if (!ok) {
    appendMessage(failure);
    return false;
  }
  inputBundle = loaded;
  return true;
}

std::string BasicConverterDefs::printParameters() const {
  std::string report;
  if (inputFiles) {
    for (const std::string& file : *inputFiles) report += "\nInput file: " + file + " ";
  }
  report += "\nOutput file: " + outputFileName + " ";
  report += "\nOutput directory: " + outputDirectory + " ";
  report += "\nOutput grid: " + outputGridName + " ";
  for (const double time : timeFilter) report += "\nTime: " + MemCore::formatFixed(time) + " ";
  for (const std::string& grid : gridFilter) report += "\nGrid: " + grid + " ";
  for (const std::string& field : fieldFilter) report += "\nField: " + field + " ";
  return report;
}

void BasicConverterDefs::addInfoToGrid(const std::string& source, Fiber::Grid& grid,
                                       const std::string& description,
                                       const MemCore::StrongPtr<Fiber::Grid>& sourceGrid,
                                       const int& /*reserved*/, const int& /*alsoReserved*/) {
  if (sourceGrid) {
    for (const char* name : {"Source", "Description"}) {
      if (const auto value = sourceGrid->attributes().getAttribute(name)) {
        grid.attributes().setAttribute(name, value);
      }
    }
  }
  if (!source.empty()) MemCore::setTextAttribute(grid.attributes(), "Source", source);
  if (!description.empty()) {
    MemCore::setTextAttribute(grid.attributes(), "Description", description);
  }
}

void BasicConverterDefs::appendMessage(const std::string& text) {
  const std::lock_guard lock(messageMutex_);
  messages.push_back(text);
}

}  // namespace ConvLib
