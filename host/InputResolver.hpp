// SPDX-License-Identifier: Apache-2.0
//
// InputResolver: turns what the user named (files, folders, patterns) into the files of one input:
// bundle files, LAS files or text files, never several of them. Texts and tables that lie in a
// folder beside files of other kinds are taken for notes, not for points.

#pragma once

#include <string>
#include <vector>

#include "host/Result.hpp"

namespace Host {

enum class InputKind {
  Bundles,      ///< .f5
  PointClouds,  ///< .las and .laz
  TextClouds,   ///< .xyz, .txt and .csv, each perhaps with .gz behind
};

/// Invariant: at least one file. Paths are absolute, each file occurs once; within what one
/// argument named they are in ascending order.
struct ResolvedInput {
  InputKind kind = InputKind::Bundles;
  std::vector<std::string> files;
};

/// Errors: a name that is no file, folder or matching pattern (failed); a file of another kind, or
/// files of several kinds together (usage).
Result<ResolvedInput> resolveInput(const std::vector<std::string>& names);

}  // namespace Host
