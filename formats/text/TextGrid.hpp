// SPDX-License-Identifier: Apache-2.0
//
// TextGrid: builds the grid of a cloud from surveyed files: fields, fragments and their creators.

#pragma once

#include <span>

#include "datamodel/fiber/Grid.hpp"
#include "formats/text/TextSurvey.hpp"

namespace Formats {

/// Fills a new grid with the fragments of files. Requires: `fields` was surveyed with the files.
void fillTextGrid(Fiber::Grid& grid, std::span<const SurveyedFile> files,
                  std::span<const TextField> fields);

}  // namespace Formats
