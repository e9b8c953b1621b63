// SPDX-License-Identifier: Apache-2.0

#include "formats/export/ExtraBytesPlan.hpp"

#include <gmock/gmock.h>

#include <numeric>

#include "tests/formats/export/ExportTestGrids.hpp"

namespace Formats {

namespace {

using LidarLib::TestSupport::CloudBuilder;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr std::size_t kPoints = 2;

/// A grid with fields of two points, and the files that it is said to come from.
class PlannedGrid {
 public:
  PlannedGrid() { cloud_.fragment({{0, 0, 0}, {1, 1, 1}}); }

  template <class T>
  PlannedGrid& field(const std::string& name, std::size_t components = 1) {
    if (components == 1) {
      cloud_.field<T>(name, std::vector<T>(kPoints));
    } else {
      cloud_.waveforms<T>(name, components, std::vector<T>(kPoints * components));
    }
    return *this;
  }
  template <class T>
  PlannedGrid& property(const std::string& field, const std::string& name, T value) {
    properties(field).setAttribute(name, MemCore::makeStrong<MemCore::Chunk<T>>(1, value));
    return *this;
  }
  PlannedGrid& description(const std::string& field, const std::string& text) {
    MemCore::setTextAttribute(properties(field), "Description", text);
    return *this;
  }
  PlannedGrid& from(const std::vector<ExtraBytesDescriptor>& descriptors, int moreBytes = 0) {
    LasWriterOptions options = lasOptions(0, descriptors);
    options.header.recordBytes = static_cast<std::uint16_t>(options.header.recordBytes + moreBytes);
    files_.push_back(sourceFile("f" + std::to_string(files_.size()) + ".las", options));
    return *this;
  }

  MemCore::Outcome<ExtraBytesPlan> tryPlan() {
    ExportSource source = sourceOf(cloud_);
    source.files = files_;
    std::vector<std::size_t> all(source.fields.size());
    std::iota(all.begin(), all.end(), std::size_t{0});
    for (const ExportField& field : source.fields) names_.push_back(field.name);
    return planExtraBytes(source, all);
  }
  ExtraBytesPlan plan() {
    auto plan = tryPlan();
    EXPECT_TRUE(plan.ok()) << plan.error();
    return plan ? std::move(*plan) : ExtraBytesPlan();
  }

  /// "name.component@byte" for each place of a plan.
  std::vector<std::string> placesOf(const ExtraBytesPlan& plan) const {
    std::vector<std::string> texts;
    for (const ExtraBytesPlace& place : plan.places) {
      texts.push_back(names_[place.field] + "." + std::to_string(place.component) + "@" +
                      std::to_string(place.byteOffset));
    }
    return texts;
  }

 private:
  MemCore::Attributes& properties(const std::string& field) {
    return cloud_.currentGrid()->getCartesianRepresentation("")->findField(field)->properties();
  }

  CloudBuilder cloud_;
  std::vector<SourceFile> files_;
  std::vector<std::string> names_;
};

std::vector<std::string> namesOf(const ExtraBytesPlan& plan) {
  std::vector<std::string> names;
  for (const ExtraBytesDescriptor& descriptor : plan.descriptors) names.push_back(descriptor.name);
  return names;
}

ExtraBytesDescriptor arrayOf(const std::string& name, std::uint8_t dataType) {
  const std::vector<ExtraBytesDescriptor> one{describeExtraBytes(name, ElementType::UInt8)};
  auto payload = serialiseExtraBytes(one);
  payload[2] = static_cast<std::byte>(dataType);
  return parseExtraBytes(payload).front();
}

ExtraBytesDescriptor undocumented(const std::string& name, std::uint8_t bytes) {
  ExtraBytesDescriptor descriptor;
  descriptor.name = name;
  descriptor.options = bytes;
  descriptor.componentCount = bytes;
  return descriptor;
}

}  // namespace

TEST(ExtraBytesPlan, WhatTheFileHadStaysByteByByte) {
  PlannedGrid grid;
  grid.field<std::uint8_t>("b").field<float>("a").field<std::uint8_t>("ExtraBytes[0]");
  grid.from(
      {describeExtraBytes("b", ElementType::UInt8), describeExtraBytes("a", ElementType::Float32)},
      1);
  const ExtraBytesPlan plan = grid.plan();
  EXPECT_TRUE(plan.isVerbatim);
  EXPECT_EQ(plan.byteCount, 6);
  EXPECT_THAT(grid.placesOf(plan), ElementsAre("b.0@0", "a.0@1", "ExtraBytes[0].0@5"));
}

TEST(ExtraBytesPlan, LostFieldLeavesNoGap) {
  PlannedGrid grid;
  grid.field<float>("a").field<std::uint16_t>("c");
  grid.from({describeExtraBytes("a", ElementType::Float32),
             describeExtraBytes("b", ElementType::Float64),
             describeExtraBytes("c", ElementType::UInt16)});
  const ExtraBytesPlan plan = grid.plan();
  EXPECT_FALSE(plan.isVerbatim);
  EXPECT_THAT(namesOf(plan), ElementsAre("a", "c"));
  EXPECT_THAT(grid.placesOf(plan), ElementsAre("a.0@0", "c.0@4"));
  EXPECT_EQ(plan.byteCount, 6);
}

TEST(ExtraBytesPlan, AddedFieldComesBehindAndIsDescribed) {
  PlannedGrid grid;
  grid.field<std::int16_t>("Height").field<std::uint8_t>("a");
  grid.property<double>("Height", "Scale", 0.01).property<double>("Height", "Offset", 5.0);
  grid.property<std::int64_t>("Height", "NoData", -9999);
  grid.description("Height", std::string(40, 'x'));
  grid.from({describeExtraBytes("a", ElementType::UInt8)});
  const ExtraBytesPlan plan = grid.plan();
  EXPECT_THAT(grid.placesOf(plan), ElementsAre("a.0@0", "Height.0@1"));
  const auto read = parseExtraBytes(serialiseExtraBytes(plan.descriptors));
  ASSERT_EQ(read.size(), 2U);
  EXPECT_EQ(read[1].name, "Height");
  EXPECT_EQ(read[1].type, ElementType::Int16);
  EXPECT_EQ(read[1].description, std::string(32, 'x'));
  EXPECT_EQ(read[1].scale->front(), 0.01);
  EXPECT_EQ(read[1].offset->front(), 5.0);
  EXPECT_EQ(read[1].noData->front(), ExtraBytesValue(std::int64_t{-9999}));
  EXPECT_FALSE(read[1].minimum || read[1].maximum);
}

TEST(ExtraBytesPlan, NoDataFollowsTheTypeOfTheField) {
  PlannedGrid grid;
  grid.field<float>("f").field<std::int32_t>("i").field<std::uint8_t>("u");
  grid.property<std::uint64_t>("f", "NoData", 255).property<std::uint64_t>("i", "NoData", 254);
  grid.property<std::int64_t>("u", "NoData", -1);
  const ExtraBytesPlan plan = grid.plan();
  const auto read = parseExtraBytes(serialiseExtraBytes(plan.descriptors));
  ASSERT_EQ(read.size(), 3U);
  EXPECT_EQ(read[0].noData->front(), ExtraBytesValue(255.0));
  EXPECT_EQ(read[1].noData->front(), ExtraBytesValue(std::int64_t{254}));
  EXPECT_FALSE(read[2].noData.has_value());
}

TEST(ExtraBytesPlan, ChangedUnitsAreDescribedAnew) {
  ExtraBytesDescriptor scaled = describeExtraBytes("a", ElementType::Float64);
  scaled.scale = {{0.5, 0, 0}};
  scaled.options = 8;
  PlannedGrid grid;
  grid.field<double>("a").from({scaled});
  const ExtraBytesPlan plan = grid.plan();
  EXPECT_FALSE(plan.isVerbatim);
  ASSERT_EQ(plan.descriptors.size(), 1U);
  EXPECT_FALSE(plan.descriptors.front().scale.has_value());
}

TEST(ExtraBytesPlan, ArraysStayArrays) {
  PlannedGrid grid;
  grid.field<std::uint8_t>("rgb[0]").field<std::uint8_t>("rgb[1]").field<std::uint8_t>("rgb[2]");
  grid.from({arrayOf("rgb", 21), describeExtraBytes("lost", ElementType::UInt8)});
  const ExtraBytesPlan plan = grid.plan();
  ASSERT_THAT(namesOf(plan), ElementsAre("rgb"));
  EXPECT_EQ(plan.descriptors.front().componentCount, 3);
  EXPECT_THAT(grid.placesOf(plan), ElementsAre("rgb[0].0@0", "rgb[1].0@1", "rgb[2].0@2"));
}

TEST(ExtraBytesPlan, ArrayThatLostAComponentFallsApart) {
  PlannedGrid grid;
  grid.field<std::uint8_t>("rgb[0]").field<std::uint8_t>("rgb[2]").from({arrayOf("rgb", 21)});
  const ExtraBytesPlan plan = grid.plan();
  EXPECT_THAT(namesOf(plan), ElementsAre("rgb[0]", "rgb[2]"));
  EXPECT_EQ(plan.byteCount, 2);
}

TEST(ExtraBytesPlan, FieldOfSeveralComponentsBecomesAsManyAttributes) {
  PlannedGrid grid;
  grid.field<float>("Normal", 3);
  const ExtraBytesPlan plan = grid.plan();
  EXPECT_THAT(namesOf(plan), ElementsAre("Normal[0]", "Normal[1]", "Normal[2]"));
  EXPECT_THAT(grid.placesOf(plan), ElementsAre("Normal.0@0", "Normal.1@4", "Normal.2@8"));
}

TEST(ExtraBytesPlan, FieldOfAnotherTypeIsDescribedAnew) {
  PlannedGrid grid;
  grid.field<float>("a").from({describeExtraBytes("a", ElementType::UInt8)});
  const ExtraBytesPlan plan = grid.plan();
  EXPECT_FALSE(plan.isVerbatim);
  ASSERT_EQ(plan.descriptors.size(), 1U);
  EXPECT_EQ(plan.descriptors.front().type, ElementType::Float32);
}

TEST(ExtraBytesPlan, UndescribedBytesAreDescribedWhenTheyAreNotAlone) {
  PlannedGrid grid;
  grid.field<std::uint8_t>("ExtraBytes[0]").field<std::uint8_t>("ExtraBytes[1]").field<float>("z");
  grid.from({}, 2);
  const ExtraBytesPlan plan = grid.plan();
  EXPECT_THAT(namesOf(plan), ElementsAre("ExtraBytes", "z"));
  EXPECT_EQ(extraBytesWidth(plan.descriptors[0]), 2U);
  EXPECT_THAT(grid.placesOf(plan), ElementsAre("ExtraBytes[0].0@0", "ExtraBytes[1].0@1", "z.0@2"));
}

TEST(ExtraBytesPlan, ManyUndescribedBytesKeepTheirPlaces) {
  PlannedGrid grid;
  for (int i = 0; i < 600; ++i) grid.field<std::uint8_t>("ExtraBytes[" + std::to_string(i) + "]");
  grid.field<float>("z").from({}, 600);
  const ExtraBytesPlan plan = grid.plan();
  std::size_t described = 0;
  for (const auto& descriptor : parseExtraBytes(serialiseExtraBytes(plan.descriptors))) {
    if (descriptor.name == "z") {
      EXPECT_EQ(described, 600U);
    }
    described += extraBytesWidth(descriptor);
  }
  EXPECT_EQ(described, 604U);
  EXPECT_EQ(plan.byteCount, 604);
}

TEST(ExtraBytesPlan, UndocumentedAttributeKeepsItsDescriptor) {
  PlannedGrid grid;
  grid.field<std::uint8_t>("raw[0]").field<std::uint8_t>("raw[1]").field<float>("z");
  grid.from({undocumented("raw", 2)});
  const ExtraBytesPlan plan = grid.plan();
  EXPECT_THAT(namesOf(plan), ElementsAre("raw", "z"));
  EXPECT_EQ(plan.descriptors[0].dataType, 0);
}

TEST(ExtraBytesPlan, FieldsOfSeveralFilesComeTogether) {
  PlannedGrid grid;
  grid.field<std::uint8_t>("a").field<float>("b");
  grid.from({describeExtraBytes("a", ElementType::UInt8, "first")});
  grid.from({describeExtraBytes("b", ElementType::Float32, "second")});
  const ExtraBytesPlan plan = grid.plan();
  EXPECT_FALSE(plan.isVerbatim);
  EXPECT_THAT(namesOf(plan), ElementsAre("a", "b"));
  EXPECT_EQ(plan.descriptors[1].description, "second");
}

TEST(ExtraBytesPlan, LongNameIsCutAndTold) {
  const std::string name(40, 'n');
  PlannedGrid grid;
  grid.field<float>(name);
  const ExtraBytesPlan plan = grid.plan();
  EXPECT_THAT(namesOf(plan), ElementsAre(name.substr(0, 32)));
  EXPECT_THAT(plan.notes, ElementsAre(HasSubstr("its name is cut to 32 bytes")));
}

TEST(ExtraBytesPlan, MoreBytesThanARecordHasAreRefused) {
  PlannedGrid grid;
  grid.field<double>("v", 8192);
  const auto plan = grid.tryPlan();
  ASSERT_FALSE(plan.ok());
  EXPECT_THAT(plan.error(), HasSubstr("too many extra bytes, found 65536, expected at most 65535"));
}

TEST(ExtraBytesPlan, NothingNeedsNothing) {
  PlannedGrid grid;
  const ExtraBytesPlan plan = grid.plan();
  EXPECT_THAT(plan.descriptors, IsEmpty());
  EXPECT_EQ(plan.byteCount, 0);
}

}  // namespace Formats
