// SPDX-License-Identifier: Apache-2.0

#include "formats/text/GzipText.hpp"

#include <zlib.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <random>

#include "formats/text/TextLines.hpp"
#include "tests/formats/text/TextTestFiles.hpp"
#include "tests/support/Seed.hpp"

namespace Formats::TextTests {
namespace {

std::string member(std::string_view text) {
  const auto made = gzipMember(text);
  EXPECT_TRUE(made.ok()) << made.error();
  return made.ok() ? *made : std::string();
}

std::string randomText(std::size_t bytes) {
  std::mt19937_64 random(LidarLib::TestSupport::testSeed());
  std::string text;
  while (text.size() < bytes) text += std::to_string(random()) + "\n";
  return text;
}

std::string expanded(const std::string& path) {
  const auto file = expandGzip(*openFile(path));
  EXPECT_TRUE(file.ok()) << file.error();
  if (!file) return {};
  const auto bytes = (*file)->read(0, (*file)->sizeBytes());
  EXPECT_TRUE(bytes.ok());
  EXPECT_EQ((*file)->path(), path);
  return std::string(reinterpret_cast<const char*>(bytes->data()), bytes->size());
}

std::string failureOfBytes(std::string_view bytes) {
  const TempDir folder;
  const auto file = expandGzip(*openFile(writeText(folder / "a.xyz.gz", bytes)));
  EXPECT_FALSE(file.ok());
  return file.ok() ? std::string() : file.error().substr(file.error().find("a.xyz.gz"));
}

}  // namespace

TEST(GzipText, MembersAreExpandedOneAfterTheOther) {
  const TempDir folder;
  const std::string first = randomText(700000);
  const std::string second = randomText(10);
  const std::string path =
      writeText(folder / "a.xyz.gz", member(first) + member("") + member(second));
  EXPECT_EQ(expanded(path), first + second);
}

TEST(GzipText, ZlibReadsWhatIsPacked) {
  const TempDir folder;
  const std::string text = randomText(100000);
  const std::string path = writeText(folder / "a.gz", member(text) + member(text));
  gzFile file = gzopen(path.c_str(), "rb");
  std::string read(2 * text.size() + 1, '\0');
  const int count = gzread(file, read.data(), static_cast<unsigned>(read.size()));
  gzclose(file);
  ASSERT_EQ(count, static_cast<int>(2 * text.size()));
  read.resize(2 * text.size());
  EXPECT_EQ(read, text + text);
}

TEST(GzipText, ContentOrNameTellsGzipFiles) {
  const TempDir folder;
  EXPECT_TRUE(*isGzip(*openFile(writeText(folder / "a.xyz", member("1 2 3\n")))));
  EXPECT_TRUE(*isGzip(*openFile(writeText(folder / "b.xyz.gz", "1 2 3\n"))));
  EXPECT_FALSE(*isGzip(*openFile(writeText(folder / "c.xyz", "1 2 3\n"))));
  EXPECT_FALSE(*isGzip(*openFile(writeText(folder / "d.xyz", ""))));
}

TEST(GzipText, TruncatedDataAreRefusedAtEveryLength) {
  const std::string whole = member("1 2 3\n4 5 6\n");
  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_EQ(failureOfBytes(whole.substr(0, length)), "a.xyz.gz: gzip data are cut off, found " +
                                                           std::to_string(length) +
                                                           " bytes, expected more");
  }
}

TEST(GzipText, DamagedDataAreRefused) {
  std::string bytes = member(randomText(1000));
  bytes[bytes.size() / 2] = static_cast<char>(bytes[bytes.size() / 2] ^ 0x55);
  EXPECT_TRUE(failureOfBytes(bytes).starts_with("a.xyz.gz: gzip data are damaged before byte"));
  EXPECT_TRUE(failureOfBytes("1 2 3\n4 5 6\n").starts_with("a.xyz.gz: gzip data are damaged"));
  EXPECT_TRUE(failureOfBytes(member("1 2 3\n") + "behind").starts_with("a.xyz.gz: gzip data are"));
}

TEST(GzipText, TextWithoutLineEndsIsRefusedBeforeItFillsTheDisk) {
  EXPECT_EQ(failureOfBytes(member(std::string(64 * kMaxLineBytes, ' '))),
            "a.xyz.gz: line is too long, found more than 1048576 bytes, expected numbers");
}

/// Another folder for temporary files, until the end of its life.
class TemporaryFolder {
 public:
  explicit TemporaryFolder(const std::string& path) {
    if (const char* const before = std::getenv("TMPDIR")) before_ = before;
    ::setenv("TMPDIR", path.c_str(), 1);
  }
  ~TemporaryFolder() { before_ ? ::setenv("TMPDIR", before_->c_str(), 1) : ::unsetenv("TMPDIR"); }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

 private:
  std::optional<std::string> before_;
};

TEST(GzipText, NothingIsLeftInTheFolderForTemporaryFiles) {
  const TempDir folder;
  const std::string path = writeText(folder / "a.xyz.gz", member("1 2 3\n"));
  const std::filesystem::path temporary = folder / "tmp";
  std::filesystem::create_directory(temporary);
  const TemporaryFolder change(temporary.string());
  EXPECT_EQ(expanded(path), "1 2 3\n");
  EXPECT_TRUE(std::filesystem::is_empty(temporary));
}

TEST(GzipText, MissingFolderForTemporaryFilesIsNamed) {
  const TempDir folder;
  const std::string path = writeText(folder / "a.xyz.gz", member("1 2 3\n"));
  const TemporaryFolder change(folder / "missing");
  const auto file = expandGzip(*openFile(path));
  ASSERT_FALSE(file.ok());
  EXPECT_TRUE(file.error().starts_with(path + ": no folder for temporary files")) << file.error();
}

}  // namespace Formats::TextTests
