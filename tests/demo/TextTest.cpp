#include <demo/common/Report.h>
#include <demo/common/StatusText.h>
#include <demo/common/StoryReport.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

Demo::StatusView view() {
  Demo::StatusView view;
  view.phase = "errors and traffic";
  view.time = 3.25;
  view.seconds = 10;
  view.passes = 6;
  view.progress = 0.5;
  view.reading = "mac";
  view.injected = 150;
  view.rows = {{"mac", 65536, "normal", 120, 118, 200, 100, 0, 0},
               {"vlan", 1024, "normal", 1, 1, 0, 0, 40, 10}};
  return view;
}

TEST(StatusTextTest, picture_showsEverything) {
  EXPECT_THAT(
      Demo::statusPicture(view()),
      ElementsAre(" Umbra demonstration: errors and traffic               3.2 s of 10.0 s",
                  " pass 7       [####################....................]  50 %  mac", "",
                  " table     entries  mode      differences  repairs   read hits  write hits",
                  " mac         65536  normal            120      118      50.0 %           -",
                  " vlan         1024  normal              1        1           -      25.0 %",
                  " all         66560                    121      119      50.0 %      25.0 %", "",
                  " 150 errors made by the chip, 6 passes completed. Ctrl-C ends it."));
}

TEST(StatusTextTest, picture_saysWhatThePatrolDoesWhileItReadsNothing) {
  Demo::StatusView waiting = view();
  waiting.reading.clear();
  waiting.patrol = "suspended";
  waiting.progress = 1;
  EXPECT_EQ(Demo::statusPicture(waiting)[1],
            " pass 6       [########################################] 100 %  suspended");
}

TEST(StatusTextTest, picture_barKeepsItsLengthWhateverTheProgress) {
  for (double progress : {-1.0, 0.0, 0.999, 1.0, 2.0}) {
    Demo::StatusView odd = view();
    odd.progress = progress;
    const std::string line = Demo::statusPicture(odd)[1];
    EXPECT_EQ(line.find(']') - line.find('['), 41u) << progress;
  }
}

// As large as a whole day at the highest rates can make the numbers.
TEST(StatusTextTest, picture_fits80Columns) {
  Demo::StatusView large = view();
  large.time = large.seconds = 86400;
  large.passes = 2'000'000;
  large.injected = 8'640'000'000;
  large.rows = {{"vlan", 65536, "buffered", 4294967295, 4294967295, 1, 1, 1, 1}};
  for (const std::string& line : Demo::statusPicture(large)) EXPECT_LT(line.size(), 80u) << line;
}

TEST(StatusTextTest, line_showsTheSums) {
  EXPECT_EQ(Demo::statusLine(view()),
            "   3.2 s  errors and traffic: passes 6 and 50 % of the next, errors 150, differences "
            "121, repairs 119, read hits 50.0 %, write hits 25.0 %");
}

Demo::Report report() {
  Demo::Report report;
  report.rows = {{"mac", {.injected = 7, .repaired = 4, .overwritten = 1, .undone = 2}, 0},
                 {"qos", {.injected = 1, .repaired = 1}, 0}};
  report.all = {.injected = 8, .repaired = 5, .overwritten = 1, .undone = 2};
  report.passes = 9;
  report.differences = report.repairs = 5;
  return report;
}

TEST(ReportTest, goodOneHasNoFaults) {
  EXPECT_THAT(report().faults(), IsEmpty());
  EXPECT_THAT(report().text(), HasSubstr("OK: every error is accounted for and none remains"));
}

TEST(ReportTest, text_showsEachTableAndAll) {
  EXPECT_THAT(report().text(),
              HasSubstr(" mac            7         4         0            1       2          0"
                        "         0\n"
                        " qos            1         1         0            0       0          0"
                        "         0\n"
                        " all            8         5         0            1       2          0"
                        "         0\n"));
  EXPECT_THAT(report().text(), HasSubstr("Passes 9, differences found 5, entries repaired 5, of "
                                         "them without damage 0."));
}

TEST(ReportTest, text_fits80Columns) {
  std::istringstream lines(report().text());
  for (std::string line; std::getline(lines, line);) EXPECT_LT(line.size(), 80u) << line;
}

TEST(ReportTest, eachFaultIsNamed) {
  const auto fault = [](auto change) {
    Demo::Report wrong = report();
    change(wrong);
    EXPECT_THAT(wrong.text(), Not(HasSubstr("OK:")));
    EXPECT_EQ(wrong.faults().size(), 1u);
    return wrong.text();
  };
  EXPECT_THAT(fault([](Demo::Report& r) { r.all.remaining = 3; }),
              HasSubstr("FAILED: 3 errors remain on the chip"));
  EXPECT_THAT(fault([](Demo::Report& r) { r.all.unexplained = 2; }),
              HasSubstr("FAILED: 2 changes of bits have no explanation"));
  EXPECT_THAT(fault([](Demo::Report& r) { r.all.repairsWithoutDamage = 4; }),
              HasSubstr("FAILED: 4 repairs met no damage"));
  EXPECT_THAT(fault([](Demo::Report& r) { r.rows[1].registersDiffering = 1; }),
              HasSubstr("FAILED: 1 registers differ between chip and shadow"));
  EXPECT_THAT(fault([](Demo::Report& r) { r.isChipOrderly = false; }),
              HasSubstr("FAILED: the chip process did not end in order"));
  EXPECT_THAT(fault([](Demo::Report& r) { r.isSettled = false; }),
              HasSubstr("FAILED: the audit did not come to two clean passes"));
}

Demo::StoryReport storyReport() {
  Demo::StoryReport story;
  story.scenes = {
      {"soft errors", {.injected = 7, .repaired = 5, .overwritten = 2}, "5 repairs", {}},
      {"reset", {.injected = 2'000'000, .restored = 2'000'000}, "1 finding", {}}};
  story.end = report();
  return story;
}

TEST(StoryReportTest, showsEachSceneAndTheTables) {
  EXPECT_THAT(storyReport().faults(), IsEmpty());
  EXPECT_THAT(
      storyReport().text(),
      AllOf(HasSubstr(" soft errors         7         5         0            2  5 repairs\n"
                      " reset         2000000         0   2000000            0  1 finding\n"),
            HasSubstr(report().tableText()),
            HasSubstr(" OK: every error is accounted for and none remains\n")));
}

TEST(StoryReportTest, text_fits80Columns) {
  Demo::StoryReport story = storyReport();
  story.scenes[0].outcome = "0 repairs meanwhile";
  std::istringstream lines(story.text());
  for (std::string line; std::getline(lines, line);) EXPECT_LT(line.size(), 80u) << line;
}

TEST(StoryReportTest, whatDidNotComeAboutIsNamedWithItsScene) {
  Demo::StoryReport story = storyReport();
  story.scenes[1].failures = {"nobody found the reset"};
  story.end.all.remaining = 3;
  EXPECT_THAT(story.faults(),
              ElementsAre("reset: nobody found the reset", "3 errors remain on the chip"));
  EXPECT_THAT(story.text(),
              AllOf(HasSubstr(" FAILED: reset: nobody found the reset\n"), Not(HasSubstr("OK:"))));
}

TEST(ReportTest, whatAReplayRestoredIsExplained) {
  Demo::Report restored = report();
  EXPECT_THAT(restored.text(), Not(HasSubstr("Restored:")));
  restored.all.restored = 1;
  EXPECT_THAT(restored.text(), HasSubstr(" Restored: by the replay after a reset.\n"));
}

}  // namespace
