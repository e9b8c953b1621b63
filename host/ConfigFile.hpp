// SPDX-License-Identifier: Apache-2.0
//
// ConfigFile: lets a TOML or INI file give what flags give, under the same names without dashes.
// Keys at the top are for any sub-command that knows them; a section such as [split] is for that
// sub-command alone, so that one file can serve several.

#pragma once

#include <CLI/CLI.hpp>
#include <vector>

namespace Host {

class ConfigFile : public CLI::ConfigTOML {
 public:
  /// Requires: the program's parser outlives this object.
  explicit ConfigFile(const CLI::App& root) : root_(root) {}

  /// The entries that concern the sub-command of this run. Throws CLI::ConfigError for a key that
  /// no sub-command knows.
  std::vector<CLI::ConfigItem> from_config(std::istream& input) const override;

 private:
  bool isKnown(const CLI::ConfigItem& item) const;

  const CLI::App& root_;
};

}  // namespace Host
