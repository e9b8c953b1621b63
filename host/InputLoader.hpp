// SPDX-License-Identifier: Apache-2.0
//
// InputLoader: opens the files of an input as one bundle. Structure and facts are there at once,
// points are read when they are asked for.

#pragma once

#include <functional>
#include <string>
#include <vector>

#include "datamodel/fiber/Bundle.hpp"
#include "host/InputResolver.hpp"

namespace Host {

/// How a point cloud goes into the bundle; bundle files bring their own names and times.
struct CloudPlace {
  std::string grid = "points";
  double time = 0.0;
  bool keepOrder = false;  ///< with the fields that tell each point's place
  std::vector<std::string> columns =
      {};  ///< names of the columns of text files; empty: as they say
  /// Where decoded points may go that are needed again; empty: nowhere (see Formats::CloudOptions).
  std::string spillFolder = {};
};

struct LoadedInput {
  Fiber::BundlePtr bundle;
  std::vector<std::string> notes;  ///< what is not as one would expect it, one line each
  /// What only reading the points shows; meant for the end of a run.
  std::function<std::vector<std::string>()> lateNotes;
};

/// Errors: a file that cannot be read as what it claims to be (failed); columns named for files
/// that are no text (usage).
Result<LoadedInput> loadInput(const ResolvedInput& input, const CloudPlace& place);

/// One bundle file. Errors: as loadInput.
Result<LoadedInput> loadBundle(const std::string& file);

/// Resolves and loads in one step.
Result<LoadedInput> openInput(const std::vector<std::string>& names, const CloudPlace& place);

}  // namespace Host
