// SPDX-License-Identifier: Apache-2.0

#include "host/CommandLine.hpp"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <memory>

#include "host/ConfigFile.hpp"
#include "host/HelpFormatter.hpp"
#include "host/HelpTexts.hpp"
#include "host/OptionDefinitions.hpp"

namespace Host {

namespace {

/// The parser with the options that it fills. Invariant: stays where it is, the parser points into
/// it.
struct Parser {
  CLI::App root{"Re-cuts laser-scanning point clouds into regular tiles.", "refragment"};
  CommonOptions common;
  InfoOptions info;
  SplitOptions split;
  LinkOptions link;
  ShowOptions show;
  VerifyOptions verify;
  ImportOptions import;
  ExportOptions exporting;
  SynthOptions synth;
  CLI::App* infoApp = nullptr;
  CLI::App* splitApp = nullptr;
  CLI::App* linkApp = nullptr;
  CLI::App* showApp = nullptr;
  CLI::App* verifyApp = nullptr;
  CLI::App* importApp = nullptr;
  CLI::App* exportApp = nullptr;
  CLI::App* synthApp = nullptr;

  Parser();
  Parser(const Parser&) = delete;
  Parser& operator=(const Parser&) = delete;

  CLI::App* addCommand(const CommandHelp& help);
  /// Puts the checks that concern several flags, and picks the options of the given sub-command.
  std::variant<ParsedCommand, EarlyExit> result() const;
};

CLI::App* Parser::addCommand(const CommandHelp& help) {
  CLI::App* app = root.add_subcommand(help.name, help.summary);
  app->fallthrough();
  app->footer(help.examples);
  app->formatter(std::make_shared<HelpFormatter>(help.usage));
  app->set_help_flag("-h,--help", "Show this help");
  return app;
}

Parser::Parser() {
  root.require_subcommand(0, 1);
  root.set_help_flag("-h,--help", "Show this help");
  root.formatter(std::make_shared<CLI::FormatterLambda>(
      [](const CLI::App*, const std::string&, CLI::AppFormatMode) {
        return std::string(kLongHelp);
      }));
  defineCommonOptions(root, common);
  root.config_formatter(std::make_shared<ConfigFile>(root));
  root.set_config("--config", "", "Read flags from a TOML or INI file (same names, no dashes)")
      ->type_name("FILE")
      ->group(kCommonGroup);
  defineInfoOptions(*(infoApp = addCommand(kInfoHelp)), info);
  defineSplitOptions(*(splitApp = addCommand(kSplitHelp)), split);
  defineLinkOptions(*(linkApp = addCommand(kLinkHelp)), link);
  defineShowOptions(*(showApp = addCommand(kShowHelp)), show);
  defineVerifyOptions(*(verifyApp = addCommand(kVerifyHelp)), verify);
  defineImportOptions(*(importApp = addCommand(kImportHelp)), import);
  defineExportOptions(*(exportApp = addCommand(kExportHelp)), exporting);
  defineSynthOptions(*(synthApp = addCommand(kSynthHelp)), synth);
}

EarlyExit usageError(const std::string& text) { return {ExitCode::Usage, text}; }

/// A mistake in the tiling that no single flag shows; empty when there is none.
std::string tilingMistake(const TilingOptions& tiling) {
  if (!tiling.start || !tiling.end) return {};
  constexpr std::array<char, 3> kAxes{'x', 'y', 'z'};
  for (std::size_t axis = 0; axis < kAxes.size(); ++axis) {
    const double start = (*tiling.start)[axis];
    const double end = (*tiling.end)[axis];
    if (start > end) {
      return fmt::format("--start: lies beyond --end along {}, found {}, expected at most {}",
                         kAxes[axis], start, end);
    }
  }
  return {};
}

std::variant<ParsedCommand, EarlyExit> Parser::result() const {
  if (infoApp->parsed()) {
    const std::string mistake = tilingMistake(info.tiling);
    if (!mistake.empty()) return usageError(mistake);
    return ParsedCommand{common, info};
  }
  if (splitApp->parsed()) {
    const std::string mistake = tilingMistake(split.tiling);
    if (!mistake.empty()) return usageError(mistake);
    return ParsedCommand{common, split};
  }
  if (linkApp->parsed()) return ParsedCommand{common, link};
  if (verifyApp->parsed()) return ParsedCommand{common, verify};
  if (showApp->parsed()) return ParsedCommand{common, show};
  if (importApp->parsed()) return ParsedCommand{common, import};
  if (exportApp->parsed()) return ParsedCommand{common, exporting};
  if (synthApp->parsed()) {
    // The survey's own ranges are usage mistakes here, before a file is touched.
    const auto checked = Synth::checkOptions(synth.survey);
    if (!checked.ok()) return usageError(checked.error());
    return ParsedCommand{common, synth};
  }
  return EarlyExit{ExitCode::Done, std::string(kShortHelp)};
}

std::string oneLine(std::string text) {
  std::replace(text.begin(), text.end(), '\n', ' ');
  while (text.ends_with(' ')) text.pop_back();
  return text;
}

/// The parser's complaint as one line that ends with where help is found.
std::string complaintText(const Parser& parser, const CLI::ParseError& error) {
  const auto commands = parser.root.get_subcommands();
  const std::string command = commands.empty() ? "" : " " + commands.front()->get_name();
  const auto extras = commands.empty() ? parser.root.remaining() : std::vector<std::string>();
  if (!extras.empty() && !extras.front().starts_with('-')) {
    return fmt::format(
        "{}: unknown command, expected info, split, link, show, verify, import, export or synth",
        extras.front());
  }
  return fmt::format("{} (see refragment{} --help)", oneLine(error.what()), command);
}

}  // namespace

std::variant<ParsedCommand, EarlyExit> parseCommandLine(const std::vector<std::string>& arguments) {
  Parser parser;
  std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
  try {
    parser.root.parse(reversed);
  } catch (const CLI::CallForHelp&) {
    const auto commands = parser.root.get_subcommands();
    const CLI::App& asked = commands.empty() ? parser.root : *commands.front();
    return EarlyExit{ExitCode::Done, asked.help()};
  } catch (const CLI::CallForVersion& version) {
    return EarlyExit{ExitCode::Done, std::string(version.what()) + "\n"};
  } catch (const CLI::ParseError& error) {
    return usageError(complaintText(parser, error));
  }
  return parser.result();
}

}  // namespace Host
