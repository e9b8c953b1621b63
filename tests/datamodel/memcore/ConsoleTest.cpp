// SPDX-License-Identifier: Apache-2.0

#include "datamodel/memcore/Console.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

namespace MemCore {
namespace {

using testing::ElementsAre;

/// Collects the console's messages for as long as it lives.
class Recorder {
 public:
  std::vector<std::string> messages;

 private:
  ConsoleRedirection redirection_{[this](const std::string& text) { messages.push_back(text); }};
};

TEST(Console, ObjectIsOneMessageEmittedAtItsEnd) {
  const Recorder recorder;
  {
    Console console;
    console << "\tFound " << std::string("tile") << " " << 2U;
    EXPECT_TRUE(recorder.messages.empty());
  }
  EXPECT_THAT(recorder.messages, ElementsAre("\tFound tile 2"));
}

TEST(Console, NumbersAreDecimalAndDoublesHaveSixDecimals) {
  const Recorder recorder;
  Console() << -3 << "/" << std::uint64_t{18446744073709551615U} << "/" << 0.25;
  EXPECT_THAT(recorder.messages, ElementsAre("-3/18446744073709551615/0.250000"));
}

TEST(Console, NullTextAddsNothing) {
  const Recorder recorder;
  const char* none = nullptr;
  Console() << "a" << none << "b";
  EXPECT_THAT(recorder.messages, ElementsAre("ab"));
}

TEST(Console, WithoutASinkALineGoesToStandardError) {
  testing::internal::CaptureStderr();
  Console() << "to the user";
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "to the user\n");
}

TEST(Console, RedirectionEndsWithItsObject) {
  const Recorder outer;
  {
    const Recorder inner;
    Console() << "inner";
    EXPECT_THAT(inner.messages, ElementsAre("inner"));
  }
  Console() << "outer";
  EXPECT_THAT(outer.messages, ElementsAre("outer"));
}

TEST(Console, FailureOfTheSinkEndsThere) {
  const ConsoleRedirection redirection(
      [](const std::string&) { throw std::runtime_error("disk full"); });
  EXPECT_NO_THROW(Console() << "text");
}

TEST(Console, MessagesOfThreadsArriveWholeAndOnce) {
  const Recorder recorder;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 250; ++i) Console() << "thread " << t << " line " << i;
    });
  }
  for (auto& thread : threads) thread.join();
  std::set<std::string> expected;
  for (int t = 0; t < 4; ++t) {
    for (int i = 0; i < 250; ++i) {
      expected.insert("thread " + std::to_string(t) + " line " + std::to_string(i));
    }
  }
  EXPECT_EQ(recorder.messages.size(), 1000U);
  EXPECT_EQ(std::set<std::string>(recorder.messages.begin(), recorder.messages.end()), expected);
}

}  // namespace
}  // namespace MemCore
