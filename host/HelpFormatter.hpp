// SPDX-License-Identifier: Apache-2.0
//
// HelpFormatter: lays out the help of a sub-command: what it does, how it is called, its flags,
// the flags of all sub-commands, and examples.

#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace Host {

/// Group title of the flags that every sub-command understands.
inline constexpr const char* kCommonGroup = "Everywhere";

class HelpFormatter : public CLI::Formatter {
 public:
  /// `usage` follows the program's name, as in "split INPUT... -o OUT.f5 [flags]".
  explicit HelpFormatter(std::string usage) : usage_(std::move(usage)) {}

  std::string make_help(const CLI::App* app, std::string name,
                        CLI::AppFormatMode mode) const override;
  std::string make_option(const CLI::Option* option, bool isPositional) const override;

 private:
  std::string usage_;
};

}  // namespace Host
