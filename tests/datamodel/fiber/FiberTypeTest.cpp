// SPDX-License-Identifier: Apache-2.0

#include "datamodel/fiber/FiberType.hpp"

#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <vector>

namespace Fiber {
namespace {

using MemCore::makeStrong;
using MemCore::StrongPtr;

TEST(FiberType, KnowsTheTypesOfPointCloudsFromTheStart) {
  struct Expected {
    const char* name;
    const std::type_info& type;
    std::size_t bytes;
  };
  const Expected all[] = {{"point", typeid(Eagle::PhysicalSpace::point), 24},
                          {"vector3", typeid(Eagle::FixedArray<double, 3>), 24},
                          {"double", typeid(double), 8},
                          {"float", typeid(float), 4},
                          {"int8", typeid(std::int8_t), 1},
                          {"uint8", typeid(unsigned char), 1},
                          {"int16", typeid(std::int16_t), 2},
                          {"uint16", typeid(unsigned short), 2},
                          {"int32", typeid(std::int32_t), 4},
                          {"uint32", typeid(unsigned int), 4},
                          {"int64", typeid(std::int64_t), 8},
                          {"uint64", typeid(std::uint64_t), 8}};
  for (const Expected& expected : all) {
    const auto type = FiberTypeBase::find(std::string(expected.name));
    ASSERT_TRUE(type) << expected.name;
    EXPECT_EQ(type, FiberTypeBase::find(expected.type)) << expected.name;
    EXPECT_EQ(type->elementBytes(), expected.bytes) << expected.name;
  }
}

TEST(FiberType, UnknownTypeOrNameIsAnEmptyHandle) {
  struct Unknown {};
  EXPECT_FALSE(FiberTypeBase::find(typeid(Unknown)));
  EXPECT_FALSE(FiberTypeBase::find(std::string("quaternion")));
}

TEST(FiberType, RememberedTypeIsFoundAndTheFirstOneWins) {
  struct Colour {
    unsigned char red, green, blue;
  };
  const auto first = makeStrong<FiberTypeBase>("colour", typeid(Colour), ScalarKind::UInt8, 3U);
  const auto second = makeStrong<FiberTypeBase>("colour2", typeid(Colour), ScalarKind::UInt8, 3U);
  EXPECT_EQ(FiberTypeBase::remember(first), first);
  EXPECT_EQ(FiberTypeBase::remember(second), first);
  EXPECT_EQ(FiberTypeBase::find(typeid(Colour)), first);
  EXPECT_FALSE(FiberTypeBase::find(std::string("colour2")));
  EXPECT_FALSE(FiberTypeBase::remember(nullptr));
}

TEST(FiberType, ThreadsThatRememberOneTypeAgreeOnIt) {
  struct Shared {};
  std::vector<StrongPtr<FiberTypeBase>> registered(8);
  std::vector<std::thread> threads;
  for (auto& slot : registered) {
    threads.emplace_back([&slot] {
      slot = FiberTypeBase::remember(
          makeStrong<FiberTypeBase>("shared", typeid(Shared), ScalarKind::Int8, 1U));
    });
  }
  for (auto& thread : threads) thread.join();
  for (const auto& type : registered) EXPECT_EQ(type, registered.front());
}

}  // namespace
}  // namespace Fiber
