// SPDX-License-Identifier: Apache-2.0

#include "datamodel/convlib/BasicConverterDefs.hpp"

#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <vector>

namespace ConvLib {
namespace {

using MemCore::makeStrong;
using MemCore::textAttribute;

class Converter : public BasicConverterDefs {
 public:
  std::string printSecondary() override { return ""; }
  bool Run() override { return true; }
};

TEST(Filters, EmptyOnesAcceptEverything) {
  Converter converter;
  EXPECT_TRUE(converter.UseThisGrid("points"));
  EXPECT_TRUE(converter.UseThisTime(1.5));
  EXPECT_TRUE(converter.UseThisField("Intensity"));
}

TEST(Filters, AcceptExactlyWhatTheyName) {
  Converter converter;
  converter.gridFilter = {"points"};
  converter.timeFilter = {1.5};
  converter.fieldFilter = {"Positions", "Intensity"};
  EXPECT_TRUE(converter.UseThisGrid("points"));
  EXPECT_FALSE(converter.UseThisGrid("Points"));
  EXPECT_TRUE(converter.UseThisTime(1.5));
  EXPECT_FALSE(converter.UseThisTime(1.5000001));
  EXPECT_TRUE(converter.UseThisField("Intensity"));
  EXPECT_FALSE(converter.UseThisField("Red"));
}

TEST(Report, OfTheDefaultsNamesTheOutputAlone) {
  Converter converter;
  EXPECT_EQ(converter.printParameters(),
            "\nOutput file:  \nOutput directory:  \nOutput grid: myGrid ");
}

TEST(Report, NamesFilesAndFilters) {
  Converter converter;
  converter.inputFiles =
      makeStrong<std::vector<std::string>>(std::vector<std::string>{"a.f5", "b.f5"});
  converter.outputFileName = "out.f5";
  converter.outputDirectory = "tiles";
  converter.timeFilter = {0.25};
  converter.gridFilter = {"points"};
  converter.fieldFilter = {"Red", "Blue"};
  EXPECT_EQ(converter.printParameters(),
            "\nInput file: a.f5 \nInput file: b.f5 \nOutput file: out.f5 \nOutput directory: tiles "
            "\nOutput grid: myGrid \nTime: 0.250000 \nGrid: points \nField: Blue \nField: Red ");
}

TEST(AddInfoToGrid, RecordsTheTexts) {
  Converter converter;
  Fiber::Grid grid("points");
  converter.addInfoToGrid("scan.las", grid, "flight 7", nullptr, 0, 1);
  EXPECT_EQ(textAttribute(grid.attributes(), "Source"), "scan.las");
  EXPECT_EQ(textAttribute(grid.attributes(), "Description"), "flight 7");
}

TEST(AddInfoToGrid, EmptyTextsLeaveTheGridAlone) {
  Converter converter;
  Fiber::Grid grid("points");
  converter.addInfoToGrid("", grid, "", nullptr, 0, 1);
  EXPECT_TRUE(grid.attributes().all().empty());
}

TEST(AddInfoToGrid, SourceGridsProvenanceIsInheritedUnlessGivenAnew) {
  Converter converter;
  const auto source = makeStrong<Fiber::Grid>("in");
  MemCore::setTextAttribute(source->attributes(), "Source", "scan.las");
  MemCore::setTextAttribute(source->attributes(), "Description", "flight 7");
  Fiber::Grid grid("out");
  converter.addInfoToGrid("", grid, "cut anew", source, 0, 1);
  EXPECT_EQ(textAttribute(grid.attributes(), "Source"), "scan.las");
  EXPECT_EQ(textAttribute(grid.attributes(), "Description"), "cut anew");
}

TEST(Messages, KeepTheirOrder) {
  Converter converter;
  converter.appendMessage("first");
  converter.appendMessage("second");
  EXPECT_EQ(converter.messages, (std::list<std::string>{"first", "second"}));
}

TEST(Messages, AreAppendedByThreadsAtOnce) {
  Converter converter;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&converter, t] {
      for (int i = 0; i < 250; ++i) converter.appendMessage(std::to_string(t * 250 + i));
    });
  }
  for (auto& thread : threads) thread.join();
  const std::set<std::string> distinct(converter.messages.begin(), converter.messages.end());
  EXPECT_EQ(converter.messages.size(), 1000U);
  EXPECT_EQ(distinct.size(), 1000U);
}

TEST(LoadFilesIntoBundle, NeedsDeclaredFiles) {
  Converter converter;
  EXPECT_FALSE(converter.loadFilesIntoBundle(myReadType::OnDemand));
  ASSERT_EQ(converter.messages.size(), 1U);
  EXPECT_EQ(converter.messages.front(), "input: no files declared");
}

TEST(LoadFilesIntoBundle, MissingFileLeavesItsTextAndTheInput) {
  Converter converter;
  const Fiber::BundlePtr before(new Fiber::Bundle);
  converter.inputBundle = before;
  converter.inputFiles =
      makeStrong<std::vector<std::string>>(std::vector<std::string>{"there/is/no/such.f5"});
  EXPECT_FALSE(converter.loadFilesIntoBundle(myReadType::OnDemand));
  ASSERT_EQ(converter.messages.size(), 1U);
  EXPECT_NE(converter.messages.front().find("there/is/no/such.f5"), std::string::npos);
  EXPECT_EQ(converter.inputBundle, before);
}

}  // namespace
}  // namespace ConvLib
