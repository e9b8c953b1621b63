// SPDX-License-Identifier: Apache-2.0
//
// PathText: paths as people want to read them. The program works with absolute paths; what lies
// below the folder where the user stands is told relative to it.

#pragma once

#include <string>

namespace Host {

/// Takes "<base>/" out of a text wherever a path begins with it. An empty base changes nothing.
std::string withShortPaths(const std::string& text, const std::string& base);

/// The working folder, for withShortPaths; empty when it is unknown or the root.
std::string workingFolderPath();

/// A path as one word of a shell command line: in quotes when it needs them.
std::string shellWord(const std::string& path);

}  // namespace Host
