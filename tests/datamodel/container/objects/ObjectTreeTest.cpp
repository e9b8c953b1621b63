// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/objects/ObjectTree.hpp"

#include <gtest/gtest.h>

namespace Fiber::Container {
namespace {

TEST(ObjectTree, PathsAreMadeAndFound) {
  ObjectGroup root;
  root.make("0/points").attributes["a"] = {};
  EXPECT_EQ(&root.make("/0/points"), &root.groups.at("0").groups.at("points"));
  EXPECT_EQ(root.find("0/points"), &root.groups.at("0").groups.at("points"));
  EXPECT_EQ(root.find("/0/./points/"), root.find("0/points"));
  EXPECT_EQ(root.find(""), &root);
  EXPECT_EQ(root.find("/"), &root);
  EXPECT_EQ(root.find("0/other"), nullptr);
  EXPECT_EQ(root.find("0/points/deeper"), nullptr);
  EXPECT_EQ(root.groups.size(), 1U);
}

TEST(ObjectTree, TextsHaveAtLeastOneByte) { EXPECT_EQ(ObjectType::text(0).bytes, 1U); }

}  // namespace
}  // namespace Fiber::Container
