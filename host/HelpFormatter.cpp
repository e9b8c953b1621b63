// SPDX-License-Identifier: Apache-2.0

#include "host/HelpFormatter.hpp"

#include <fmt/format.h>

#include <vector>

namespace Host {

namespace {

constexpr std::size_t kHelpColumn = 31;

/// The description in its column; further lines of it are indented alike.
std::string describedAt(const std::string& left, const std::string& description) {
  const std::string indent(kHelpColumn, ' ');
  std::string text = left.size() + 2 > kHelpColumn ? left + "\n" + indent
                                                   : fmt::format("{:<{}}", left, kHelpColumn);
  for (const char c : description) {
    text += c;
    if (c == '\n') text += indent;
  }
  return text + "\n";
}

}  // namespace

std::string HelpFormatter::make_option(const CLI::Option* option, bool isPositional) const {
  std::string left = "  " + option->get_name(isPositional, !isPositional);
  if (option->get_type_size() != 0 && !isPositional) left += " " + option->get_type_name();
  return describedAt(left, option->get_description());
}

std::string HelpFormatter::make_help(const CLI::App* app, std::string /*name*/,
                                     CLI::AppFormatMode /*mode*/) const {
  std::string text = fmt::format("{}\n\nUsage: refragment {}\n", app->get_description(), usage_);
  text += make_positionals(app);
  for (const std::string& group : app->get_groups()) {
    const auto options = app->get_options([&](const CLI::Option* option) {
      return option->get_group() == group && option->nonpositional();
    });
    if (!options.empty()) text += make_group(group, false, options);
  }
  if (const CLI::App* root = app->get_parent()) {
    const auto common = root->get_options(
        [](const CLI::Option* option) { return option->get_group() == kCommonGroup; });
    text += make_group(kCommonGroup, false, common);
  }
  return text + "\n" + make_footer(app);
}

}  // namespace Host
