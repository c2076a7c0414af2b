// When the line of progress appears, what it shows, and that nothing of it is left.
#include <gtest/gtest.h>

#include <sstream>

#include "client/progress_line.h"

namespace client_test {
namespace {

using namespace std::chrono_literals;

TEST(ProgressLine, AppearsWithTheSecondSecondIsDrawnOverItselfAndWipedOut) {
  client::ProgressText progress;
  const client::ProgressText::Time begin{100s};
  const auto at = [&](std::chrono::milliseconds time) { return progress.Draw(begin + time); };
  progress.Show("early");
  EXPECT_EQ(at(5s), "");
  progress.Begin(begin);
  EXPECT_EQ(at(5s), "") << "nothing is known yet";
  progress.Show("9 of 10");
  EXPECT_EQ(at(999ms), "");
  EXPECT_EQ(at(1000ms), "\r9 of 10, 1 s");
  EXPECT_EQ(at(1999ms), "") << "it stands there";
  EXPECT_EQ(at(2000ms), "\r9 of 10, 2 s");
  progress.Show("10 of 10");
  EXPECT_EQ(at(10s), "\r10 of 10, 10 s");
  progress.Show("end");
  EXPECT_EQ(at(10s), "\rend, 10 s     ");
  EXPECT_EQ(progress.End(), "\r         \r");
  EXPECT_EQ(at(11s) + progress.End(), "");
  progress.Begin(begin + 20s);
  progress.Show("end");
  EXPECT_EQ(at(20999ms), "");
  EXPECT_EQ(at(21s), "\rend, 1 s");
}

}  // namespace
}  // namespace client_test
