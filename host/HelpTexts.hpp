// SPDX-License-Identifier: Apache-2.0
//
// HelpTexts: what the program says about itself. Help teaches by example.

#pragma once

namespace Host {

/// Words about one sub-command.
struct CommandHelp {
  const char* name;
  const char* summary;
  const char* usage;
  const char* examples;
};

/// Printed by the bare program name, and by --help.
extern const char* const kShortHelp;
extern const char* const kLongHelp;

extern const CommandHelp kInfoHelp;
extern const CommandHelp kSplitHelp;
extern const CommandHelp kLinkHelp;
extern const CommandHelp kShowHelp;
extern const CommandHelp kVerifyHelp;
extern const CommandHelp kImportHelp;
extern const CommandHelp kExportHelp;
extern const CommandHelp kSynthHelp;

}  // namespace Host
