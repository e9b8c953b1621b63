// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/CloudOptions.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <set>

namespace Formats {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

/// Creators that a grid may have: each takes some hundred bytes, and a header can claim any number
/// of points.
constexpr std::uint64_t kMaxCreators = std::uint64_t{1} << 23;

bool canNameGrid(const std::string& name) {
  const auto isForbidden = [](char c) {
    const auto code = static_cast<unsigned char>(c);
    return code < 0x20 || code == 0x7F || c == '/' || c == '\\';
  };
  return !name.empty() && name.front() != '.' &&
         std::none_of(name.begin(), name.end(), isForbidden);
}

/// The name with control characters spelled out, for messages.
std::string quoted(const std::string& name) {
  std::string text = "\"";
  for (const char c : name) {
    const auto code = static_cast<unsigned char>(c);
    text += code < 0x20 || code == 0x7F ? fmt::format("\\x{:02x}", code) : std::string(1, c);
  }
  return text + '"';
}

}  // namespace

Outcome<void> checkCloudOptions(const Fiber::Bundle& bundle, const CloudOptions& options) {
  if (!canNameGrid(options.gridName)) {
    return Failure{
        fmt::format("grid name: cannot be used, found {}, expected a name without '/', '\\', "
                    "control characters or a leading dot",
                    quoted(options.gridName))};
  }
  if (!std::isfinite(options.time)) {
    return Failure{
        fmt::format("time: cannot be used, found {}, expected a finite number", options.time)};
  }
  if (options.fragmentPoints == 0) {
    return Failure{"points per fragment: cannot be used, found 0, expected at least 1"};
  }
  const auto slice = bundle.slices().find(options.time);
  if (slice != bundle.slices().end() && slice->second->findGrid(options.gridName)) {
    return Failure{
        fmt::format("grid {}: exists already at time {}", options.gridName, options.time)};
  }
  return {};
}

Outcome<void> checkFragmentCount(std::uint64_t fragments, std::uint64_t fields,
                                 std::uint64_t fixedFields) {
  const std::uint64_t most = kMaxCreators / (fields + fixedFields);
  if (fragments <= most) return {};
  return Failure{fmt::format(
      "point cloud: too many fragments for {} fields, found {}, expected at most {}: more points "
      "per fragment make fewer",
      fields, fragments, most)};
}

std::vector<std::string> repetitionNotes(const std::vector<std::string>& files) {
  std::vector<std::string> notes;
  std::set<std::string> seen;
  for (const std::string& file : files) {
    if (!seen.insert(file).second) {
      notes.push_back(fmt::format("{}: given more than once: its points are, too", file));
    }
  }
  return notes;
}

}  // namespace Formats
