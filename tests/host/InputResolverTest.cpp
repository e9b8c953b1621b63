// SPDX-License-Identifier: Apache-2.0

#include "host/InputResolver.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/support/TempDir.hpp"

namespace Host {
namespace {

using LidarLib::TestSupport::TempDir;

/// A folder with empty files of the given names.
class InputResolverTest : public testing::Test {
 protected:
  std::string make(const std::string& name) {
    const std::string path = folder_ / name;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path).flush();
    return path;
  }
  std::string at(const std::string& name) const { return folder_ / name; }

 private:
  TempDir folder_;
};

TEST_F(InputResolverTest, FolderStandsForItsFilesInOrder) {
  make("b.LAZ");
  make("a.las");
  make("notes.txt");
  make("deeper/c.las");
  const auto input = resolveInput({at("")});
  ASSERT_TRUE(input.ok());
  EXPECT_EQ(input->kind, InputKind::PointClouds);
  EXPECT_EQ(input->files, (std::vector<std::string>{at("a.las"), at("b.LAZ")}));
}

TEST_F(InputResolverTest, TextFilesAreAKindOfTheirOwn) {
  for (const char* name : {"a.xyz", "a.TXT", "a.csv", "a.xyz.gz", "a.CSV.GZ"}) {
    const auto input = resolveInput({make(name)});
    ASSERT_TRUE(input.ok()) << name;
    EXPECT_EQ(input->kind, InputKind::TextClouds) << name;
  }
  EXPECT_EQ(resolveInput({make("a.las.gz")}).stop().code, ExitCode::Usage);
  EXPECT_EQ(resolveInput({make("a.gz")}).stop().code, ExitCode::Usage);
}

TEST_F(InputResolverTest, FolderOfTextsAloneIsRead) {
  make("b.txt");
  make("a.csv");
  const auto input = resolveInput({at("")});
  ASSERT_TRUE(input.ok());
  EXPECT_EQ(input->files, (std::vector<std::string>{at("a.csv"), at("b.txt")}));
}

TEST_F(InputResolverTest, TextsBesideOtherFilesOfAFolderAreTakenForNotes) {
  make("b.xyz");
  make("notes.txt");
  make("table.csv");
  const auto input = resolveInput({at("")});
  ASSERT_TRUE(input.ok());
  EXPECT_EQ(input->files, std::vector<std::string>{at("b.xyz")});
  make("c.las");
  EXPECT_EQ(resolveInput({at("")}).stop().code, ExitCode::Usage);
}

TEST_F(InputResolverTest, TextAndLasTogetherAreAUsageMistake) {
  const auto input = resolveInput({make("a.las"), make("b.txt")});
  ASSERT_FALSE(input.ok());
  EXPECT_EQ(input.stop().code, ExitCode::Usage);
}

TEST_F(InputResolverTest, PatternMatchesInOrder) {
  make("tile2.las");
  make("tile1.las");
  make("other.las");
  const auto input = resolveInput({at("tile?.las")});
  ASSERT_TRUE(input.ok());
  EXPECT_EQ(input->files, (std::vector<std::string>{at("tile1.las"), at("tile2.las")}));
}

TEST_F(InputResolverTest, FileWhoseNameLooksLikeAPatternIsItself) {
  make("tile[1].las");
  make("tile1.las");
  const auto input = resolveInput({at("tile[1].las")});
  ASSERT_TRUE(input.ok());
  EXPECT_EQ(input->files, (std::vector<std::string>{at("tile[1].las")}));
}

TEST_F(InputResolverTest, FileNamedTwiceIsTakenOnce) {
  const std::string a = make("a.las");
  std::filesystem::create_symlink(a, at("link.las"));
  const auto input = resolveInput({a, at("./a.las"), at("link.las"), at("*.las")});
  ASSERT_TRUE(input.ok());
  EXPECT_EQ(input->files, (std::vector<std::string>{a}));
}

TEST_F(InputResolverTest, BundlesAndCloudsTogetherAreAUsageMistake) {
  const auto input = resolveInput({make("a.las"), make("b.f5")});
  ASSERT_FALSE(input.ok());
  EXPECT_EQ(input.stop().code, ExitCode::Usage);
  EXPECT_EQ(input.stop().text,
            at("b.f5") + ": cannot be read together with " + at("a.las") +
                ", expected bundles (.f5), LAS files (.las, .laz) or text files (.xyz, .txt, "
                ".csv), one kind alone");
}

TEST_F(InputResolverTest, WhatIsNotThereIsNamed) {
  EXPECT_EQ(resolveInput({at("no.las")}).stop().text, at("no.las") + ": no such file or folder");
  EXPECT_EQ(resolveInput({at("*.las")}).stop().text, at("*.las") + ": no file matches the pattern");
  EXPECT_EQ(resolveInput({at("no.las")}).stop().code, ExitCode::Failed);
}

TEST_F(InputResolverTest, UnknownKindIsAUsageMistake) {
  const auto input = resolveInput({make("notes.md")});
  ASSERT_FALSE(input.ok());
  EXPECT_EQ(input.stop().code, ExitCode::Usage);
  EXPECT_EQ(
      input.stop().text,
      at("notes.md") + ": unknown kind of file, expected .las, .laz, .xyz, .txt, .csv or .f5");
}

TEST_F(InputResolverTest, EmptyFolderIsAFailure) {
  const auto input = resolveInput({at("")});
  ASSERT_FALSE(input.ok());
  EXPECT_EQ(input.stop().code, ExitCode::Failed);
}

TEST_F(InputResolverTest, PathBelowAFileIsAFailure) {
  const std::string file = make("a.las");
  EXPECT_EQ(resolveInput({file + "/b.las"}).stop().code, ExitCode::Failed);
}

}  // namespace
}  // namespace Host
