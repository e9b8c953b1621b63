// SPDX-License-Identifier: Apache-2.0

#include "operation/TileFiles.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <clocale>

#include "tests/support/TempDir.hpp"

namespace LidarLib {

TEST(FileStem, CutsBeforeTheLastDotAfterEitherSeparator) {
  EXPECT_EQ(fileStem("/data/run.1/scan.part.f5"), "scan.part");
  EXPECT_EQ(fileStem("C:\\data\\scan.part.f5"), "scan.part");
  EXPECT_EQ(fileStem("a/b\\c/d.f5"), "d");
  EXPECT_EQ(fileStem("a\\b/c\\d.f5"), "d");
}

TEST(FileStem, NameWithoutDotIsKeptWhole) {
  EXPECT_EQ(fileStem("folder.d/scan"), "scan");
  EXPECT_EQ(fileStem("scan"), "scan");
  EXPECT_EQ(fileStem(""), "");
}

TEST(TileFileName, JoinsDirectoryStemIndexTimeAndGrid) {
  const TileFileScheme scheme{"/out", "stem", 0.0, "scan"};
  EXPECT_EQ(scheme.fileName({{3, 0, 12}}), "/out/stem/F3x0x12T0.000000Gscan.f5");
}

TEST(TileFileName, TimeHasSixDecimals) {
  const TileFileScheme scheme{"o", "s", 1.5, "g"};
  EXPECT_EQ(scheme.fileName({{0, 0, 0}}), "o/s/F0x0x0T1.500000Gg.f5");
}

TEST(TileFileName, DoesNotFollowTheLocale) {
  const char* const former = std::setlocale(LC_ALL, nullptr);
  const std::string saved = former != nullptr ? former : "C";
  if (std::setlocale(LC_ALL, "de_DE.UTF-8") == nullptr) {
    GTEST_SKIP() << "the machine has no locale with a decimal comma";
  }
  const std::string name = TileFileScheme{"o", "s", 1.5, "g"}.fileName({{0, 0, 0}});
  std::setlocale(LC_ALL, saved.c_str());
  EXPECT_EQ(name, "o/s/F0x0x0T1.500000Gg.f5");
}

TEST(CanBeOpened, DoesNotWaitForAFifo) {
  const TestSupport::TempDir folder;
  const std::string fifo = folder / "fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_TRUE(canBeOpened(fifo));
  EXPECT_FALSE(canBeOpened(folder / "absent"));
}

}  // namespace LidarLib
