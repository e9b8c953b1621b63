// SPDX-License-Identifier: Apache-2.0
//
// CommandLine: turns the program's arguments, and a configuration file if they name one, into
// checked options. Nothing is read or written here but that file.

#pragma once

#include <string>
#include <variant>
#include <vector>

#include "host/ExitCode.hpp"
#include "host/Options.hpp"

namespace Host {

/// A sub-command to run.
struct ParsedCommand {
  CommonOptions common;
  CommandOptions command;
};

/// Nothing to run: help or version for standard output, or one line about a mistake.
struct EarlyExit {
  ExitCode code = ExitCode::Done;
  std::string text;
};

/// Parses the arguments that follow the program's name.
std::variant<ParsedCommand, EarlyExit> parseCommandLine(const std::vector<std::string>& arguments);

}  // namespace Host
