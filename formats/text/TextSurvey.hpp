// SPDX-License-Identifier: Apache-2.0
//
// TextSurvey: the first pass over the files of a cloud, which settles what only all numbers
// together tell: the types of the fields, how many rows each fragment has, and its box.
//
// Parallel: one task per fragment, handed out one by one; each reads its own bytes and fills its
// own slot of the results, and all facts are joined afterwards in the order of the files. The types
// are guessed from the first lines of each file, and columns are filled on the way as if the guess
// were right: then the cache holds them, as far as its budget goes, and nothing is parsed twice.
// Memory beyond the cache: one fragment per thread. After a faulty line, fragments behind it are
// left out.

#pragma once

#include <memory>
#include <span>
#include <vector>

#include "formats/text/TextCloudFields.hpp"

namespace Formats {

/// One file to be surveyed. Shape: `file->columns` are planned by surveyFiles.
struct SurveyedFile {
  std::shared_ptr<TextFile> file;
  FileRoles roles;

  struct Fragment {
    MemCore::StrongPtr<TextFragmentSource> source;
    MemCore::StrongPtr<Eagle::BoundingBox> box;
  };
  std::vector<Fragment> fragments;         ///< With at least one row each, in the file's order.
  std::array<std::uint8_t, 3> decimals{};  ///< Of x, y, z; kUnknownDecimals where not known.
};

/// Surveys files and cuts them into fragments of about `fragmentPoints` rows. The fields have their
/// types afterwards. Errors: an unreadable file, the first faulty line of the first file that has
/// one, more fragments than can be handled.
MemCore::Outcome<void> surveyFiles(std::span<SurveyedFile> files, std::vector<TextField>& fields,
                                   std::uint64_t fragmentPoints);

}  // namespace Formats
