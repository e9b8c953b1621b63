// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/Hdf5Library.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

namespace Fiber::Container {
namespace {

std::recursive_mutex& libraryMutex() {
  static std::recursive_mutex mutex;
  // Before anything else of the library; it refuses once it is running, which is then the host's
  // own decision.
  [[maybe_unused]] static const herr_t noExitHandler = H5dont_atexit();
  return mutex;
}

extern "C" herr_t collectDescription(unsigned /*position*/, const H5E_error2_t* error, void* data) {
  auto& lines = *static_cast<std::vector<std::string>*>(data);
  if (error->desc != nullptr && *error->desc != '\0') lines.emplace_back(error->desc);
  return 0;
}

}  // namespace

Hdf5Lock::Hdf5Lock() : lock_(libraryMutex()) {
  H5Eget_auto2(H5E_DEFAULT, &formerPrinter_, &formerData_);
  H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
}

Hdf5Lock::~Hdf5Lock() { H5Eset_auto2(H5E_DEFAULT, formerPrinter_, formerData_); }

std::string takeHdf5Error() {
  std::vector<std::string> lines;
  H5Ewalk2(H5E_DEFAULT, H5E_WALK_DOWNWARD, collectDescription, &lines);
  H5Eclear2(H5E_DEFAULT);
  if (lines.empty()) return "unknown HDF5 error";
  // The layers between the first and the last only repeat that the layer below them failed.
  std::string text = lines.front();
  if (lines.size() > 1) text += " (" + lines.back() + ")";
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
  return text;
}

MemCore::Outcome<void> checkHdf5(herr_t status, std::string_view what) {
  if (status >= 0) return {};
  return MemCore::Failure{fmt::format("{}: {}", what, takeHdf5Error())};
}

}  // namespace Fiber::Container
