// SPDX-License-Identifier: Apache-2.0
//
// Our own decoder beside the HDF5 library: both find the same in every file that we write, and what
// ours does not know it leaves to the library.

#include "datamodel/container/objects/TreeDecoder.hpp"

#include <gmock/gmock.h>

#include <random>

#include "datamodel/container/AttributeValues.hpp"
#include "datamodel/container/BundleScan.hpp"
#include "tests/datamodel/container/BundleSteps.hpp"
#include "tests/datamodel/container/FileTexts.hpp"
#include "tests/datamodel/container/Hdf5Writing.hpp"
#include "tests/datamodel/container/ObjectSteps.hpp"
#include "tests/datamodel/container/RandomModel.hpp"
#include "tests/support/Seed.hpp"
#include "tests/support/TempDir.hpp"

namespace Fiber::Container {
namespace {

using LidarLib::TestSupport::TempDir;
using ::testing::HasSubstr;

std::string randomName(std::mt19937_64& random) {
  const std::size_t length = random() % 20 == 0 ? 300 : 1 + random() % 12;
  std::string name = std::to_string(random() % 100000);
  while (name.size() < length) name += static_cast<char>('a' + random() % 26);
  return name;
}

ObjectType randomType(std::mt19937_64& random) {
  switch (random() % 5) {
    case 0:
      return ObjectType::text(1 + random() % 20);
    case 1:
      return ObjectType::byte();
    case 2:
      return ObjectType::numbers(static_cast<ScalarKind>(random() % 10), 1 + random() % 4);
    default:
      return ObjectType::number(static_cast<ScalarKind>(random() % 10));
  }
}

ObjectValue randomValue(std::mt19937_64& random) {
  ObjectValue value{randomType(random), ObjectExtents::one(), {}};
  const std::uint64_t count = random() % 5;
  if (random() % 2 == 0) value.extents = ObjectExtents::list(count);
  if (random() % 8 == 0) value.extents = ObjectExtents::none();
  value.bytes.resize(value.extents.counts[0] * value.type.bytes);
  for (std::byte& b : value.bytes) b = static_cast<std::byte>(random());
  return value;
}

void addAttributes(std::mt19937_64& random, ObjectValues& values) {
  const std::size_t count = random() % 30 == 0 ? 700 : random() % 5;
  for (std::size_t a = 0; a < count; ++a) values[randomName(random)] = randomValue(random);
}

void makeChunked(std::mt19937_64& random, ObjectDataset& dataset) {
  const std::uint64_t rows = 1 + random() % 3000;
  const std::uint64_t columns = 1 + random() % 3;
  dataset.value = {ObjectType::number(static_cast<ScalarKind>(random() % 10)),
                   ObjectExtents::table(rows, columns),
                   {}};
  dataset.storage = ObjectDataset::Storage::kChunks;
  dataset.chunkCounts = {1 + random() % rows, 1 + random() % columns};
  dataset.filter = {random() % 2 == 0, random() % 2 == 0, true};
  const auto parts = [](std::uint64_t n, std::uint64_t size) { return (n + size - 1) / size; };
  dataset.chunks.resize(parts(rows, dataset.chunkCounts[0]) *
                        parts(columns, dataset.chunkCounts[1]));
  for (ChunkPlace& chunk : dataset.chunks) {
    chunk = {random() % 100000, 1 + static_cast<std::uint32_t>(random() % 100), 0};
  }
}

void addDataset(std::mt19937_64& random, ObjectDataset& dataset) {
  dataset = {};  // names may come twice
  if (random() % 3 == 0) {
    makeChunked(random, dataset);
  } else {
    dataset.value = randomValue(random);
    dataset.storage = ObjectDataset::Storage::kInHeader;
    if (random() % 2 == 0 && !dataset.value.bytes.empty()) {
      dataset.storage = ObjectDataset::Storage::kPiece;
      dataset.address = 48;
      dataset.value.bytes.clear();
    }
  }
  addAttributes(random, dataset.attributes);
}

void fill(std::mt19937_64& random, ObjectGroup& group, int levels) {
  addAttributes(random, group.attributes);
  const std::size_t datasets = random() % 30 == 0 ? 600 : random() % 4;
  for (std::size_t d = 0; d < datasets; ++d) {
    addDataset(random, group.datasets["d" + randomName(random)]);
  }
  if (levels == 0) return;
  const std::size_t groups = random() % 3;
  for (std::size_t g = 0; g < groups; ++g) {
    fill(random, group.groups["g" + randomName(random)], levels - 1);
  }
}

/// Compares the chunks of every dataset of a tree as both ways of reading give them.
void expectSameChunks(const ObjectFile& own, const ObjectFile& library, const ObjectGroup& written,
                      const std::string& path) {
  for (const auto& [name, dataset] : written.datasets) {
    if (dataset.storage != ObjectDataset::Storage::kChunks) continue;
    const std::size_t count = dataset.chunks.size();
    const auto found = own.chunksOf(path + name, own.root().find(path)->datasets.at(name), count);
    ASSERT_TRUE(found.ok()) << found.error();
    EXPECT_EQ(*found, dataset.chunks);
    const auto librarys =
        library.chunksOf(path + name, library.root().find(path)->datasets.at(name), count);
    ASSERT_TRUE(librarys.ok()) << librarys.error();
    EXPECT_EQ(*librarys, dataset.chunks) << count << " chunks";
  }
  for (const auto& [name, group] : written.groups) {
    expectSameChunks(own, library, group, path + name + "/");
  }
}

TEST(TreeDecoder, RandomTreesAreTheSameForBothReaders) {
  const std::uint64_t seed = LidarLib::TestSupport::testSeed();
  const TempDir folder;
  const std::string path = folder / "a.h5";
  for (std::uint64_t round = 0; round < 60; ++round) {
    SCOPED_TRACE("seed " + std::to_string(seed + round));
    std::mt19937_64 random(seed + round);
    ObjectGroup written;
    fill(random, written, 4);
    writeObjects(path, [&](OutputFile& output) {
      output.reserve(100200);
      output.root() = written;
    });
    const ObjectFile own = openObjects(path, false);
    const ObjectFile library = openObjects(path, true);
    ASSERT_EQ(differenceOf(written, own.root()), "");
    ASSERT_EQ(differenceOf(written, library.root()), "");
    expectSameChunks(own, library, written, "");
  }
}

TEST(TreeDecoder, ManyChunksAreTheSameForBothReaders) {
  const TempDir folder;
  const std::string path = folder / "a.h5";
  for (const std::uint64_t rows : {1024U, 1025U, 9000U}) {
    ObjectGroup written;
    ObjectDataset& dataset = written.datasets["d"];
    dataset.value = {ObjectType::number(ScalarKind::Int32), ObjectExtents::list(rows), {}};
    dataset.storage = ObjectDataset::Storage::kChunks;
    dataset.chunkCounts = {1, 1};
    dataset.filter = {true, true, true};
    for (std::uint64_t r = 0; r < rows; ++r) dataset.chunks.push_back({48 + r, 10, 0});
    writeObjects(path, [&](OutputFile& output) { output.root() = written; });
    expectSameChunks(openObjects(path, false), openObjects(path, true), written, "");
  }
}

TEST(TreeDecoder, BundleFilesNeedNoLibrary) {
  const std::uint64_t seed = LidarLib::TestSupport::testSeed();
  const TempDir folder;
  std::mt19937_64 random(seed);
  for (const StorageKind kind : {StorageKind::Grid, StorageKind::Deflate, StorageKind::Raw}) {
    for (int round = 0; round < 10; ++round) {
      const std::string path = folder / ("m" + std::to_string(round));
      saveTo(path, randomModel(random), kind);
      const ObjectFile own = openObjects(path, false);
      const ObjectFile library = openObjects(path, true);
      EXPECT_EQ(differenceOf(own.root(), library.root()), "");
      const auto ownScan = scanBundle(path, own);
      const auto libraryScan = scanBundle(path, library);
      ASSERT_TRUE(ownScan.ok() && libraryScan.ok());
      EXPECT_EQ(ownScan->file.contentId, libraryScan->file.contentId);
      EXPECT_EQ(ownScan->slices.size(), libraryScan->slices.size());
    }
  }
}

TEST(TreeDecoder, FilesThatOthersChangedAreTheLibrarys) {
  const TempDir folder;
  const std::string path = folder / "a.h5";
  const auto write = [&] {
    writeObjects(path, [](OutputFile& output) {
      setNumber(output.root().make("g").attributes, "n", 2.5);
      setText(output.root().attributes, "t", "text");
    });
  };
  write();
  openObjects(path, false);
  {
    const Hdf5Lock lock;
    const FileHandle file = openToChange(path);
    putNumber(file.get(), "more", 7U);
  }
  const auto changed = ObjectFile::open(path);
  ASSERT_TRUE(changed.ok()) << changed.error();
  EXPECT_TRUE(changed->isLibrarys());
  EXPECT_EQ(*numberIn<std::uint32_t>(changed->root().attributes, "more"), 7U);
  EXPECT_EQ(*numberIn<double>(changed->root().find("g")->attributes, "n"), 2.5);
  EXPECT_EQ(*textIn(changed->root().attributes, "t"), "text");
}

TEST(TreeDecoder, LibraryAddsMembersToAFullGroup) {
  const TempDir folder;
  const std::string path = folder / "a.h5";
  writeObjects(path, [](OutputFile& output) {
    for (int i = 0; i < 700; ++i) output.root().make("g" + std::to_string(i));
  });
  {
    const Hdf5Lock lock;
    const FileHandle file = openToChange(path);
    for (int i = 700; i < 1200; ++i) {
      const GroupHandle group(H5Gcreate2(file.get(), ("g" + std::to_string(i)).c_str(), H5P_DEFAULT,
                                         H5P_DEFAULT, H5P_DEFAULT));
      ASSERT_TRUE(group.ok()) << takeHdf5Error();
    }
  }
  EXPECT_EQ(openObjects(path, true).root().groups.size(), 1200U);
}

TEST(TreeDecoder, DamageIsLeftToTheLibrary) {
  const TempDir folder;
  const std::string path = folder / "a.h5";
  writeObjects(path, [](OutputFile& output) {
    setText(output.root().make("a/b").attributes, "t", "some text");
    output.root().make("a/c").datasets["d"].value = {
        ObjectType::number(ScalarKind::Float64), ObjectExtents::list(0), {}};
  });
  const std::string sound = contentsOf(path);
  for (std::size_t at = 0; at < sound.size(); ++at) {
    std::string damaged = sound;
    damaged[at] = static_cast<char>(damaged[at] ^ 0x10);
    replaceFile(path, damaged);
    const auto opened = openRegularFile(path);
    ASSERT_TRUE(opened.ok());
    EXPECT_FALSE(decodeTree(opened->descriptor.get(), damaged.size()).has_value()) << "byte " << at;
  }
}

}  // namespace
}  // namespace Fiber::Container
