// SPDX-License-Identifier: Apache-2.0
//
// OptionDefinitions: the flags of each sub-command: name, help, how the value is read and where it
// goes. A malformed value ends the parse with the flag's name and what was expected.

#pragma once

#include <CLI/CLI.hpp>

#include "host/Options.hpp"

namespace Host {

/// Requires, for all: the options outlive the parser.
void defineCommonOptions(CLI::App& app, CommonOptions& options);
void defineInfoOptions(CLI::App& app, InfoOptions& options);
void defineSplitOptions(CLI::App& app, SplitOptions& options);
void defineLinkOptions(CLI::App& app, LinkOptions& options);
void defineShowOptions(CLI::App& app, ShowOptions& options);
void defineVerifyOptions(CLI::App& app, VerifyOptions& options);
void defineImportOptions(CLI::App& app, ImportOptions& options);
void defineExportOptions(CLI::App& app, ExportOptions& options);
void defineSynthOptions(CLI::App& app, SynthOptions& options);

}  // namespace Host
