// SPDX-License-Identifier: Apache-2.0

#include "datamodel/memcore/HandleDiagnostics.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace MemCore {
namespace {

/// Listens to handle misuse for as long as it lives.
class Listener : public SpeakPtr {
 public:
  Listener() : former_(theSpeaker.exchange(this)) {}
  ~Listener() override { theSpeaker = former_; }
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  void speak(const std::string& text) override { heard.push_back(text); }
  std::vector<std::string> heard;

 private:
  SpeakPtr* former_;
};

TEST(HandleDiagnostics, SpeakerHearsTheTextBeforeItIsRaised) {
  Listener listener;
  try {
    InconsistentDynPtr::raise();
  } catch (const InconsistentDynPtr& raised) {
    ASSERT_EQ(listener.heard.size(), 1U);
    EXPECT_EQ(listener.heard.front(), raised.what());
  }
  EXPECT_THROW(SelfConstruction::raise(), SelfConstruction);
  EXPECT_EQ(listener.heard.size(), 2U);
  EXPECT_NE(listener.heard[0], listener.heard[1]);
}

TEST(HandleDiagnostics, RaisesWithoutASpeakerToo) {
  ASSERT_EQ(SpeakPtr::theSpeaker.load(), nullptr);
  EXPECT_THROW(InconsistentDynPtr::raise(), InconsistentDynPtr);
}

TEST(HandleDiagnostics, BreakpointReturns) { EXPECT_NO_THROW(breakpoint()); }

}  // namespace
}  // namespace MemCore
