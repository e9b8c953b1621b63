// SPDX-License-Identifier: Apache-2.0

#include "host/CommandLine.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "tests/support/TempDir.hpp"

namespace Host {
namespace {

using LidarLib::TestSupport::TempDir;
using testing::HasSubstr;

/// The options of a line that has to parse.
template <class Options>
Options parsed(const std::vector<std::string>& arguments, CommonOptions* common = nullptr) {
  const auto result = parseCommandLine(arguments);
  if (const auto* exit = std::get_if<EarlyExit>(&result)) {
    ADD_FAILURE() << exit->text;
    return {};
  }
  const auto& command = std::get<ParsedCommand>(result);
  if (common != nullptr) *common = command.common;
  return std::get<Options>(command.command);
}

EarlyExit refused(const std::vector<std::string>& arguments) {
  const auto result = parseCommandLine(arguments);
  const auto* exit = std::get_if<EarlyExit>(&result);
  if (exit == nullptr) ADD_FAILURE() << "was accepted";
  return exit == nullptr ? EarlyExit() : *exit;
}

TEST(CommandLine, BareNamePrintsShortHelp) {
  const EarlyExit exit = refused({});
  EXPECT_EQ(exit.code, ExitCode::Done);
  EXPECT_THAT(exit.text, HasSubstr("Try:"));
}

TEST(CommandLine, EveryCommandHasHelpWithExamples) {
  for (const char* command : {"info", "split", "show", "import", "synth"}) {
    const EarlyExit exit = refused({command, "--help"});
    EXPECT_EQ(exit.code, ExitCode::Done);
    EXPECT_THAT(exit.text, HasSubstr("Examples:\n  refragment " + std::string(command)));
    EXPECT_THAT(exit.text, HasSubstr("--json"));
  }
}

TEST(CommandLine, HelpDocumentsTheExitStatus) {
  const std::string help = refused({"--help"}).text;
  for (const char* line : {"    0  done", "    1  failed", "    2  usage", "    3  done, but",
                           "    4  some tiles failed", "  130  cancelled"}) {
    EXPECT_THAT(help, HasSubstr(line));
  }
}

TEST(CommandLine, NegativeValuesParse) {
  const auto options = parsed<SplitOptions>(
      {"split", "a.las", "-o", "b.f5", "--start", "-5,-6,-7", "--end=-1,0,.5"});
  EXPECT_EQ(*options.tiling.start, (Eagle::PhysicalSpace::point{-5, -6, -7}));
  EXPECT_EQ(*options.tiling.end, (Eagle::PhysicalSpace::point{-1, 0, 0.5}));
  const auto dotted = parsed<InfoOptions>({"info", "a.las", "--start", "-.5,0,0"});
  EXPECT_EQ(dotted.tiling.start->x, -0.5);
  EXPECT_EQ(*parsed<InfoOptions>({"info", "a", "--time", "-2"}).filters.times.begin(), -2.0);
}

TEST(CommandLine, FlagsOfASplitArrive) {
  CommonOptions common;
  const auto options = parsed<SplitOptions>({"split",    "a.las",
                                             "b.las",    "--output",
                                             "c.f5",     "--fragment-length",
                                             "10,20,30", "--overlap",
                                             "0.1",      "--min-points",
                                             "7",        "--field",
                                             "x",        "--field",
                                             "y",        "--time",
                                             "0",        "--time",
                                             "1.5",      "--grid",
                                             "g",        "--output-grid",
                                             "h",        "--output-dir",
                                             "d",        "--storage",
                                             "raw",      "--no-sync",
                                             "--force",  "--threads",
                                             "2",        "--memory",
                                             "1G",       "-q",
                                             "--json",   "--progress",
                                             "none"},
                                            &common);
  EXPECT_EQ(options.inputs, (std::vector<std::string>{"a.las", "b.las"}));
  EXPECT_EQ(options.output, "c.f5");
  EXPECT_EQ(options.tiling.fragmentLength.components, (std::array<double, 3>{10, 20, 30}));
  EXPECT_EQ(options.tiling.overlap, 0.1);
  EXPECT_EQ(options.tiling.minPoints, 7U);
  EXPECT_EQ(options.filters.fields, (std::set<std::string>{"x", "y"}));
  EXPECT_EQ(options.filters.times, (std::set<double>{0.0, 1.5}));
  EXPECT_EQ(options.filters.grids, (std::set<std::string>{"g"}));
  EXPECT_EQ(options.outputGrid, "h");
  EXPECT_EQ(options.outputDirectory, "d");
  EXPECT_EQ(options.storage.kind, Fiber::StorageKind::Raw);
  EXPECT_FALSE(options.storage.durable);
  EXPECT_TRUE(options.force);
  EXPECT_EQ(common.threadCount, 2);
  EXPECT_EQ(common.memoryBytes, std::uint64_t{1} << 30U);
  EXPECT_EQ(common.verbosity, Verbosity::Quiet);
  EXPECT_TRUE(common.json);
  EXPECT_EQ(common.progress, ProgressMode::None);
}

TEST(CommandLine, InputsMayFollowRepeatedFlags) {
  const auto options =
      parsed<InfoOptions>({"info", "--field", "x", "a.las", "--grid", "g", "b.las"});
  EXPECT_EQ(options.inputs, (std::vector<std::string>{"a.las", "b.las"}));
  EXPECT_EQ(options.filters.fields, (std::set<std::string>{"x"}));
}

TEST(CommandLine, ColumnsOfTextFilesAreNamedInOneFlag) {
  const std::vector<std::string> names{"x", "y", "z", "-"};
  EXPECT_EQ(parsed<InfoOptions>({"info", "a.xyz", "--columns", "x,y,z,-"}).columns, names);
  EXPECT_EQ(parsed<SplitOptions>({"split", "a.xyz", "-o", "b.f5", "--columns=x,y,z,-"}).columns,
            names);
  EXPECT_EQ(
      parsed<ImportOptions>({"import", "a.xyz", "-o", "b.f5", "--columns", "x,y,z,-"}).columns,
      names);
  EXPECT_EQ(
      parsed<ImportOptions>({"import", "a.xyz", "-o", "b.f5", "--columns", "-,x,y,z"}).columns,
      (std::vector<std::string>{"-", "x", "y", "z"}));
}

TEST(CommandLine, InputMayBeNamedLikeACommand) {
  EXPECT_EQ(parsed<InfoOptions>({"info", "split"}).inputs, (std::vector<std::string>{"split"}));
}

TEST(CommandLine, MistakesAreOneLineWithTheFlag) {
  const std::vector<std::vector<std::string>> lines = {
      {"info"},
      {"split", "a.las"},
      {"info", "a.las", "--bogus"},
      {"info", "a.las", "--overlap", "nan"},
      {"info", "a.las", "--overlap", "-0.1"},
      {"info", "a.las", "--fragment-length", "-1"},
      {"info", "a.las", "--fragment-length", "nan"},
      {"info", "a.las", "--points-per-tile", "0"},
      {"info", "a.las", "--points-per-tile", "5", "--fragment-length", "1"},
      {"info", "a.las", "--start", "1,0,0", "--end", "0,0,0"},
      {"info", "a.las", "--start", "1,0"},
      {"info", "a.las", "--time", "nan"},
      {"info", "a.xyz", "--columns", "x,y"},
      {"info", "a.las", "--min-points", "4294967296"},
      {"info", "a.las", "--threads", "0"},
      {"info", "a.las", "-q", "-v"},
      {"split", "a.las", "-o", "b.f5", "--storage", "zip"},
      {"synth", "-o", "a.las", "--density", "1e9"},
      {"frob"}};
  for (const auto& line : lines) {
    const EarlyExit exit = refused(line);
    EXPECT_EQ(exit.code, ExitCode::Usage) << line.back();
    EXPECT_EQ(exit.text.find('\n'), std::string::npos) << exit.text;
  }
  EXPECT_EQ(refused({"frob"}).text,
            "frob: unknown command, expected info, split, link, show, verify, import, export or "
            "synth");
  EXPECT_EQ(refused({"info", "a.las", "--overlap", "nan"}).text,
            "--overlap: found \"nan\", expected a finite number of at least 0 (see refragment info "
            "--help)");
}

/// Configuration files and the lines that name them.
class ConfigFileTest : public testing::Test {
 protected:
  std::string file(const std::string& content) {
    std::ofstream(folder_ / "c.toml") << content;
    return folder_ / "c.toml";
  }
  std::vector<std::string> split(const std::string& content, std::vector<std::string> more = {}) {
    std::vector<std::string> line{"split", "a.las", "-o", "b.f5", "--config", file(content)};
    line.insert(line.end(), more.begin(), more.end());
    return line;
  }

 private:
  TempDir folder_;
};

TEST_F(ConfigFileTest, KeysAreFlagNames) {
  CommonOptions common;
  const auto options = parsed<SplitOptions>(split("fragment-length = [10, 20, 30]\n"
                                                  "overlap = 0.25  # comment\n"
                                                  "start = [-1, -2, -3]\n"
                                                  "field = [\"x\", \"y\"]\n"
                                                  "force = true\n"
                                                  "threads = 3\n"),
                                            &common);
  EXPECT_EQ(options.tiling.fragmentLength.components, (std::array<double, 3>{10, 20, 30}));
  EXPECT_EQ(options.tiling.overlap, 0.25);
  EXPECT_EQ(options.tiling.start->z, -3.0);
  EXPECT_EQ(options.filters.fields, (std::set<std::string>{"x", "y"}));
  EXPECT_TRUE(options.force);
  EXPECT_EQ(common.threadCount, 3);
}

TEST_F(ConfigFileTest, CommandLineGoesFirst) {
  EXPECT_EQ(parsed<SplitOptions>(split("overlap = 0.25\n", {"--overlap", "0.5"})).tiling.overlap,
            0.5);
}

TEST_F(ConfigFileTest, SectionsAreForTheirCommand) {
  const std::string content = "overlap = 0.1\n[info]\noverlap = 0.2\n[split]\nmin-points = 4\n";
  EXPECT_EQ(parsed<SplitOptions>(split(content)).tiling.minPoints, 4U);
  EXPECT_EQ(parsed<SplitOptions>(split(content)).tiling.overlap, 0.1);
}

TEST_F(ConfigFileTest, KeysOfOtherCommandsArePassedOver) {
  const auto options = parsed<ShowOptions>({"show", "a.f5", "--config", file("overlap = 0.1\n")});
  EXPECT_EQ(options.inputs.size(), 1U);
}

TEST_F(ConfigFileTest, IniFilesWorkAsWell) {
  EXPECT_EQ(parsed<SplitOptions>(split("; comment\n[split]\noverlap=0.5\nfragment-length=10\n"))
                .tiling.overlap,
            0.5);
}

TEST_F(ConfigFileTest, UnknownKeysAndBadValuesAreUsageMistakes) {
  EXPECT_THAT(refused(split("colour = red\n")).text, HasSubstr("unknown key colour"));
  EXPECT_THAT(refused(split("[frob]\noverlap = 1\n")).text, HasSubstr("unknown key frob.overlap"));
  EXPECT_THAT(refused(split("overlap = many\n")).text, HasSubstr("--overlap: found \"many\""));
  EXPECT_EQ(refused({"info", "a.las", "--config", "/none.toml"}).code, ExitCode::Usage);
}

}  // namespace
}  // namespace Host
