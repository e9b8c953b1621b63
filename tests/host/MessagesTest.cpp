// SPDX-License-Identifier: Apache-2.0

#include "host/Messages.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "tests/support/TempDir.hpp"

namespace Host {
namespace {

using LidarLib::TestSupport::TempDir;
using testing::HasSubstr;

/// Messages that go into a text.
struct Rig {
  explicit Rig(const CommonOptions& options = {}, const Terminal& terminal = {})
      : messages(Messages::make(options, terminal, [this](std::string_view text) {
                   shown += text;
                 }).value()) {}
  std::string shown;
  std::unique_ptr<Messages> messages;
};

CommonOptions withVerbosity(Verbosity verbosity) {
  CommonOptions options;
  options.verbosity = verbosity;
  return options;
}

void sayAll(Messages& messages) {
  messages.error("e");
  messages.warning("w");
  messages.note("n");
  messages.detail("\td\n");
}

TEST(Messages, VerbosityDecidesWhatIsShown) {
  const std::string always = "refragment: e\nrefragment: warning: w\n";
  Rig quiet(withVerbosity(Verbosity::Quiet));
  sayAll(*quiet.messages);
  EXPECT_EQ(quiet.shown, always);
  Rig normal;
  sayAll(*normal.messages);
  EXPECT_EQ(normal.shown, always + "refragment: n\n");
  Rig verbose(withVerbosity(Verbosity::Verbose));
  sayAll(*verbose.messages);
  EXPECT_EQ(verbose.shown, always + "refragment: n\nrefragment: d\n");
}

TEST(Messages, ColourNeedsATerminalThatHasIt) {
  Terminal terminal;
  terminal.hasColour = true;
  Rig rig({}, terminal);
  rig.messages->error("e");
  EXPECT_EQ(rig.shown, "refragment: \033[31me\033[0m\n");
}

TEST(Messages, StatusLineStaysBelow) {
  Rig rig;
  rig.messages->setStatus("[##..]");
  rig.messages->note("n");
  rig.messages->clearStatus();
  EXPECT_EQ(rig.shown, "\r\033[K[##..]\r\033[Krefragment: n\n[##..]\r\033[K");
  rig.messages->clearStatus();
  EXPECT_TRUE(rig.shown.ends_with("[##..]\r\033[K")) << "nothing to clear, nothing written";
}

TEST(Messages, PathsAreToldFromTheWorkingFolder) {
  Rig rig;
  rig.messages->error(std::filesystem::current_path().string() + "/a.las: broken");
  EXPECT_EQ(rig.shown, "refragment: a.las: broken\n");
}

TEST(Messages, LogReceivesEverything) {
  const TempDir folder;
  CommonOptions options = withVerbosity(Verbosity::Quiet);
  options.logFile = folder / "log";
  {
    Rig rig(options);
    sayAll(*rig.messages);
    EXPECT_EQ(rig.messages->warnings(), (std::vector<std::string>{"w"}));
  }
  std::stringstream content;
  content << std::ifstream(folder / "log").rdbuf();
  for (const char* line : {"error   e\n", "warning w\n", "note    n\n", "detail  d\n"}) {
    EXPECT_THAT(content.str(), HasSubstr(line));
  }
}

TEST(Messages, LogThatCannotBeOpenedIsAFailure) {
  CommonOptions options;
  options.logFile = "/nowhere/at/all/log";
  const auto made = Messages::make(options, Terminal(), [](std::string_view) {});
  ASSERT_FALSE(made.ok());
  EXPECT_THAT(made.error(), HasSubstr("/nowhere/at/all/log: cannot be opened as log file"));
}

}  // namespace
}  // namespace Host
