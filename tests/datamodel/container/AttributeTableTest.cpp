// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/AttributeTable.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>

#include <array>
#include <cstring>

#include "datamodel/container/AttributeValues.hpp"
#include "datamodel/container/FormatNames.hpp"
#include "datamodel/container/StoredValue.hpp"
#include "tests/datamodel/container/Hdf5Writing.hpp"
#include "tests/datamodel/container/ObjectSteps.hpp"
#include "tests/support/TempDir.hpp"

namespace Fiber::Container {
namespace {

using LidarLib::TestSupport::TempDir;
using MemCore::Attributes;
using MemCore::Chunk;
using MemCore::ChunkBase;
using MemCore::makeStrong;
using MemCore::StrongPtr;
using ::testing::HasSubstr;

/// Read with our own decoder, or by the library.
class AttributeTableTest : public testing::TestWithParam<bool> {
 protected:
  void write(const StoredAttributes& stored) {
    writeObjects(path_, [&](OutputFile& output) {
      ObjectGroup& root = output.root();
      const auto written = writeAttributes(output, {root.attributes, root, "attributes"}, stored);
      EXPECT_TRUE(written.ok()) << written.error();
    });
  }

  AttributeTable read() {
    file_ = openObjects(path_, GetParam());
    const ObjectGroup& root = file_.root();
    auto read = readAttributes({file_, root.attributes, root, "attributes", kGridWords});
    if (read.ok()) return std::move(read).value();
    ADD_FAILURE() << read.error();
    return {};
  }

  /// Writes the attributes, and reads them back.
  AttributeTable roundTrip(const Attributes& attributes) {
    StoredAttributes stored;
    addAttributes(stored, attributes, kGridWords, 0);
    write(stored);
    return read();
  }

  TempDir folder_;
  std::string path_ = folder_ / "a.h5";
  ObjectFile file_;
};

bool same(const StrongPtr<ChunkBase>& a, const StrongPtr<ChunkBase>& b) {
  return a && b && a->elementType() == b->elementType() && a->size() == b->size() &&
         (a->size() == 0 || std::memcmp(a->bytes(), b->bytes(), a->byteCount()) == 0);
}

template <class T>
StrongPtr<ChunkBase> noise(std::size_t count) {
  auto chunk = makeStrong<Chunk<T>>(count);
  for (std::size_t i = 0; i < chunk->byteCount(); ++i) {
    chunk->bytes()[i] = static_cast<std::byte>(i * 37 + 11);
  }
  return chunk;
}

TEST_P(AttributeTableTest, EveryTypeAndLengthReturnsExactly) {
  Attributes attributes;
  for (const std::size_t count : {0U, 1U, 3U, 1000U}) {
    const std::string suffix = std::to_string(count);
    attributes.setAttribute("double" + suffix, noise<double>(count));
    attributes.setAttribute("float" + suffix, noise<float>(count));
    attributes.setAttribute("i8" + suffix, noise<std::int8_t>(count));
    attributes.setAttribute("u8" + suffix, noise<std::uint8_t>(count));
    attributes.setAttribute("i16" + suffix, noise<std::int16_t>(count));
    attributes.setAttribute("u16" + suffix, noise<std::uint16_t>(count));
    attributes.setAttribute("i32" + suffix, noise<std::int32_t>(count));
    attributes.setAttribute("u32" + suffix, noise<std::uint32_t>(count));
    attributes.setAttribute("i64" + suffix, noise<std::int64_t>(count));
    attributes.setAttribute("u64" + suffix, noise<std::uint64_t>(count));
    attributes.setAttribute("point" + suffix, noise<Eagle::PhysicalSpace::point>(count));
    attributes.setAttribute("vector" + suffix, noise<Eagle::FixedArray<double, 3>>(count));
    attributes.setAttribute("text" + suffix, noise<char>(count * 3));
    attributes.setAttribute("bytes" + suffix, noise<std::byte>(count * 3));
  }
  const Attributes back = roundTrip(attributes).attributes;
  EXPECT_EQ(back.all().size(), attributes.all().size());
  for (const auto& [name, value] : attributes.all()) {
    EXPECT_TRUE(same(value, back.getAttribute(name))) << name;
  }
}

TEST_P(AttributeTableTest, OnlyLargeValuesAreDatasets) {
  Attributes attributes;
  attributes.setAttribute("small", noise<std::uint8_t>(2048));
  attributes.setAttribute("large", noise<std::uint8_t>(2049));
  roundTrip(attributes);
  EXPECT_TRUE(hasValue(file_.root().attributes, "small"));
  EXPECT_FALSE(hasValue(file_.root().attributes, "large"));
  const ObjectGroup* large = file_.root().find("attributes");
  ASSERT_NE(large, nullptr);
  EXPECT_FALSE(large->datasets.contains("small"));
  EXPECT_TRUE(large->datasets.contains("large"));
}

TEST_P(AttributeTableTest, WordsOfTheFormatMayBeNames) {
  Attributes attributes;
  attributes.setAttribute("property_bits", noise<double>(2));
  const AttributeTable table = roundTrip(attributes);
  EXPECT_EQ(table.attributes.all().size(), 1U);
  EXPECT_TRUE(same(table.attributes.getAttribute("property_bits"), noise<double>(2)));
  EXPECT_EQ(*readPropertyBits(file_.root().attributes), 0U);
  ObjectValues values;
  writePropertyBits(values, 12345678901234567890U);
  EXPECT_EQ(*readPropertyBits(values), 12345678901234567890U);
}

TEST_P(AttributeTableTest, SetsAreKeptApart) {
  Attributes own;
  own.setAttribute("a#1", noise<double>(1));
  Attributes creators;
  creators.setAttribute("a", noise<double>(2));
  creators.setAttribute("long", noise<double>(2000));
  StoredAttributes stored;
  addAttributes(stored, own, kGridWords, 0);
  addAttributes(stored, creators, kGridWords, 1);
  write(stored);
  const AttributeTable table = read();
  EXPECT_EQ(table.attributes.all().size(), 1U);
  EXPECT_TRUE(same(table.attributes.getAttribute("a#1"), noise<double>(1)));
  ASSERT_EQ(table.sets.size(), 1U);
  EXPECT_TRUE(same(table.sets.at(1).getAttribute("a"), noise<double>(2)));
  EXPECT_TRUE(same(table.sets.at(1).getAttribute("long"), noise<double>(2000)));
}

TEST(AttributeValues, ForeignValuesAreTexts) {
  const TempDir folder;
  const std::string path = folder / "a.h5";
  {
    const Hdf5Lock lock;
    const FileHandle file(H5Fcreate(path.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT));
    const std::array<hsize_t, 2> extents = {2, 2};
    const DataspaceHandle matrix(H5Screate_simple(2, extents.data(), nullptr));
    const AttributeHandle first(
        H5Acreate2(file.get(), "matrix", H5T_IEEE_F64LE, matrix.get(), H5P_DEFAULT, H5P_DEFAULT));
    DatatypeHandle text(H5Tcopy(H5T_C_S1));
    H5Tset_size(text.get(), H5T_VARIABLE);
    const DataspaceHandle scalar(H5Screate(H5S_SCALAR));
    const AttributeHandle second(
        H5Acreate2(file.get(), "variable", text.get(), scalar.get(), H5P_DEFAULT, H5P_DEFAULT));
    putNumber(file.get(), "number", 2.5);
  }
  const ObjectFile file = openObjects(path, true);
  const ObjectValues& values = file.root().attributes;
  EXPECT_THAT(chunkIn(values, "matrix").error(), HasSubstr("no list of values"));
  EXPECT_THAT(chunkIn(values, "variable").error(),
              HasSubstr("of a type that bundle files do not use"));
  EXPECT_THAT(textIn(values, "none").error(), HasSubstr("attribute none: missing"));
  EXPECT_THAT(numberIn<std::uint32_t>(values, "number").error(), HasSubstr("attribute number: "));
  EXPECT_THAT(textIn(values, "number").error(), HasSubstr("attribute number: no text"));
  EXPECT_EQ(*numberIn<double>(values, "number"), 2.5);
}

TEST_P(AttributeTableTest, ListsOfTextsReturn) {
  const std::vector<std::string> texts = {"", "a", "longer text", "\xC3\xA9"};
  writeObjects(path_, [&](OutputFile& output) {
    setTexts(output.root().attributes, "list", texts);
    setTexts(output.root().attributes, "empty", {});
    ASSERT_TRUE(output.addDataset(output.root(), "dataset", textListOf(texts)).ok());
  });
  const ObjectFile file = openObjects(path_, GetParam());
  EXPECT_EQ(*textsIn(file.root().attributes, "list"), texts);
  EXPECT_EQ(*textsIn(file.root().attributes, "empty"), std::vector<std::string>());
  EXPECT_EQ(*textsOf(*file.checkedValue(file.root().datasets.at("dataset"))), texts);
}

TEST(AttributeValues, WhatNoMessageHoldsIsRefused) {
  const TempDir folder;
  const std::string path = folder / "a.h5";
  const FileDescriptor descriptor(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  auto output = OutputFile::begin(descriptor.get(), path);
  ASSERT_TRUE(output.ok());
  setText(output->root().make("0/g").attributes, "long", std::string(70000, 'x'));
  EXPECT_THAT(output->finish().error(),
              HasSubstr(path + ": 0: g: attribute long: cannot be stored, found 70000 bytes"));
}

INSTANTIATE_TEST_SUITE_P(DecoderAndLibrary, AttributeTableTest, testing::Bool());

}  // namespace
}  // namespace Fiber::Container
