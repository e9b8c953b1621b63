// SPDX-License-Identifier: Apache-2.0

#include "datamodel/memcore/Attributes.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace MemCore {
namespace {

TEST(Attributes, AbsentNameIsAnEmptyHandle) { EXPECT_FALSE(Attributes().getAttribute("FragDims")); }

TEST(Attributes, SetReplacesAndEmptyHandleRemoves) {
  Attributes attributes;
  attributes.setAttribute("Size", makeStrong<Chunk<double>>(1, 2.0));
  attributes.setAttribute("Size", makeStrong<Chunk<double>>(1, 3.0));
  const auto size = chunkCast<double>(attributes.getAttribute("Size"));
  ASSERT_TRUE(size);
  EXPECT_EQ((*size)[0], 3.0);
  attributes.setAttribute("Size", nullptr);
  EXPECT_TRUE(attributes.all().empty());
}

TEST(Attributes, AreWalkedInOrderOfName) {
  Attributes attributes;
  for (const char* name : {"b", "a", "B"}) setTextAttribute(attributes, name, name);
  std::vector<std::string> names;
  for (const auto& [name, value] : attributes.all()) names.push_back(name);
  EXPECT_EQ(names, (std::vector<std::string>{"B", "a", "b"}));
}

TEST(Attributes, CopyHasItsOwnNames) {
  Attributes attributes;
  setTextAttribute(attributes, "Source", "scan");
  Attributes copy = attributes;
  setTextAttribute(copy, "Source", "other");
  EXPECT_EQ(textAttribute(attributes, "Source"), "scan");
  EXPECT_EQ(textAttribute(copy, "Source"), "other");
}

TEST(TextAttribute, KeepsEveryByte) {
  Attributes attributes;
  const std::string text("a\0b\n\xc3\xa4", 6);
  setTextAttribute(attributes, "Text", text);
  EXPECT_EQ(textAttribute(attributes, "Text"), text);
}

TEST(TextAttribute, IsEmptyWhenAbsentOrNoText) {
  Attributes attributes;
  attributes.setAttribute("Number", makeStrong<Chunk<double>>(1, 2.0));
  EXPECT_EQ(textAttribute(attributes, "Number"), "");
  EXPECT_EQ(textAttribute(attributes, "Nothing"), "");
}

}  // namespace
}  // namespace MemCore
