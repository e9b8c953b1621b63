// SPDX-License-Identifier: Apache-2.0

#include "host/ConfigFile.hpp"

namespace Host {

namespace {

bool knows(const CLI::App& app, const std::string& key) {
  return app.get_option_no_throw("--" + key) != nullptr;
}

const CLI::App* commandOfRun(const CLI::App& root) {
  const auto commands = root.get_subcommands();
  return commands.empty() ? nullptr : commands.front();
}

}  // namespace

bool ConfigFile::isKnown(const CLI::ConfigItem& item) const {
  if (item.parents.size() > 1) return false;
  const auto commands = root_.get_subcommands([&](const CLI::App* app) {
    return item.parents.empty() || app->get_name() == item.parents[0];
  });
  if (item.parents.empty() && knows(root_, item.name)) return true;
  for (const CLI::App* command : commands) {
    if (knows(*command, item.name) || knows(root_, item.name)) return true;
  }
  return false;
}

std::vector<CLI::ConfigItem> ConfigFile::from_config(std::istream& input) const {
  const CLI::App* command = commandOfRun(root_);
  std::vector<CLI::ConfigItem> ofThisRun;
  for (CLI::ConfigItem& item : CLI::ConfigTOML::from_config(input)) {
    if (item.name == "++" || item.name == "--") continue;  // where sections open and close
    if (!isKnown(item))
      throw CLI::ConfigError("configuration file: unknown key " + item.fullname());
    const bool isForCommand =
        command != nullptr && (item.parents.empty() || item.parents[0] == command->get_name());
    if (!isForCommand) continue;
    if (knows(*command, item.name)) {
      item.parents = {command->get_name()};
    } else if (knows(root_, item.name)) {
      item.parents.clear();
    } else {
      continue;
    }
    ofThisRun.push_back(std::move(item));
  }
  return ofThisRun;
}

}  // namespace Host
