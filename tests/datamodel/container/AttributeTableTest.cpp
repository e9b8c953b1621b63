// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/AttributeTable.hpp"

#include <gmock/gmock.h>

#include <array>
#include <cstring>

#include "datamodel/container/FormatNames.hpp"
#include "datamodel/container/Hdf5Attributes.hpp"
#include "datamodel/container/Hdf5Types.hpp"
#include "datamodel/container/ValueDatasets.hpp"
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

class AttributeTableTest : public testing::Test {
 protected:
  AttributePlace place() const { return {file_.get(), file_.get(), "attributes", kGridWords}; }

  /// Writes the attributes, and reads them back.
  AttributeTable roundTrip(const Attributes& attributes) {
    StoredAttributes stored;
    addAttributes(stored, attributes, kGridWords, 0);
    const auto written = writeAttributes(place(), stored);
    EXPECT_TRUE(written.ok()) << written.error();
    auto read = readAttributes(place(), 100000000);
    if (read.ok()) return std::move(read).value();
    ADD_FAILURE() << read.error();
    return {};
  }

  Hdf5Lock lock_;
  TempDir folder_;
  FileHandle file_{H5Fcreate((folder_ / "a.h5").c_str(), H5F_ACC_TRUNC, fileCreation().get(),
                             fileAccess(FileFormat::kCompressed).get())};
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

TEST_F(AttributeTableTest, EveryTypeAndLengthReturnsExactly) {
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

TEST_F(AttributeTableTest, OnlyLargeValuesAreDatasets) {
  Attributes attributes;
  attributes.setAttribute("small", noise<std::uint8_t>(2048));
  attributes.setAttribute("large", noise<std::uint8_t>(2049));
  roundTrip(attributes);
  EXPECT_TRUE(hasAttribute(file_.get(), "small"));
  EXPECT_FALSE(hasAttribute(file_.get(), "large"));
  EXPECT_TRUE(readValueDataset(file_.get(), "small", 100000).error().find("missing") !=
              std::string::npos);
  EXPECT_GT(H5Lexists(file_.get(), "attributes/large", H5P_DEFAULT), 0);
}

TEST_F(AttributeTableTest, WordsOfTheFormatMayBeNames) {
  Attributes attributes;
  attributes.setAttribute("property_bits", noise<double>(2));
  ASSERT_TRUE(writePropertyBits(file_.get(), 12345678901234567890U).ok());
  const AttributeTable table = roundTrip(attributes);
  EXPECT_EQ(table.attributes.all().size(), 1U);
  EXPECT_TRUE(same(table.attributes.getAttribute("property_bits"), noise<double>(2)));
  EXPECT_EQ(*readPropertyBits(file_.get()), 12345678901234567890U);
}

TEST_F(AttributeTableTest, SetsAreKeptApart) {
  Attributes own;
  own.setAttribute("a#1", noise<double>(1));
  Attributes creators;
  creators.setAttribute("a", noise<double>(2));
  creators.setAttribute("long", noise<double>(2000));
  StoredAttributes stored;
  addAttributes(stored, own, kGridWords, 0);
  addAttributes(stored, creators, kGridWords, 1);
  ASSERT_TRUE(writeAttributes(place(), stored).ok());
  const auto table = readAttributes(place(), 100000000);
  ASSERT_TRUE(table.ok()) << table.error();
  EXPECT_EQ(table->attributes.all().size(), 1U);
  EXPECT_TRUE(same(table->attributes.getAttribute("a#1"), noise<double>(1)));
  ASSERT_EQ(table->sets.size(), 1U);
  EXPECT_TRUE(same(table->sets.at(1).getAttribute("a"), noise<double>(2)));
  EXPECT_TRUE(same(table->sets.at(1).getAttribute("long"), noise<double>(2000)));
}

TEST_F(AttributeTableTest, ForeignValuesAreTexts) {
  const hid_t file = file_.get();
  const std::array<hsize_t, 2> extents = {2, 2};
  const DataspaceHandle matrix(H5Screate_simple(2, extents.data(), nullptr));
  const AttributeHandle first(
      H5Acreate2(file, "matrix", H5T_IEEE_F64LE, matrix.get(), H5P_DEFAULT, H5P_DEFAULT));
  EXPECT_THAT(readAttribute(file, "matrix", 1000).error(), HasSubstr("no list of values"));
  DatatypeHandle text(H5Tcopy(H5T_C_S1));
  H5Tset_size(text.get(), H5T_VARIABLE);
  const DataspaceHandle scalar(H5Screate(H5S_SCALAR));
  const AttributeHandle second(
      H5Acreate2(file, "variable", text.get(), scalar.get(), H5P_DEFAULT, H5P_DEFAULT));
  EXPECT_THAT(readAttribute(file, "variable", 1000).error(),
              HasSubstr("of a type that bundle files do not use"));
  EXPECT_THAT(readText(file, "none", 1000).error(), HasSubstr("attribute none: missing"));
  ASSERT_TRUE(writeNumber(file, "number", 2.5).ok());
  EXPECT_THAT(readNumber<std::uint32_t>(file, "number").error(), HasSubstr("attribute number: "));
  EXPECT_THAT(readText(file, "number", 1000).error(), HasSubstr("attribute number: no text"));
  EXPECT_THAT(readAttribute(file, "number", 7).error(), HasSubstr("more than the file"));
}

TEST_F(AttributeTableTest, ListsOfTextsReturn) {
  const std::vector<std::string> texts = {"", "a", "longer text", "\xC3\xA9"};
  ASSERT_TRUE(writeTexts(file_.get(), "list", texts).ok());
  ASSERT_TRUE(writeTexts(file_.get(), "empty", {}).ok());
  ASSERT_TRUE(writeTextsDataset(file_.get(), "dataset", texts).ok());
  EXPECT_EQ(*readTexts(file_.get(), "list", 1000), texts);
  EXPECT_EQ(*readTexts(file_.get(), "empty", 1000), std::vector<std::string>());
  EXPECT_EQ(*readTextsDataset(file_.get(), "dataset", 1000), texts);
}

}  // namespace
}  // namespace Fiber::Container
