#include "export/span.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

namespace {

using Fields = std::vector<int>;

DayTimeSpan SpanOf(const Fields& f) {
  const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(f[at]); };
  return {byte(0), byte(1), byte(2), byte(3), byte(4), byte(5)};
}

std::string Text(const record::ExportSpan& made) {
  char text[80];
  const DayTimeSpan& s = made.span;
  std::snprintf(text, sizeof text, "%d:%d:%d-%d:%d:%d %u", s.beginHour, s.beginMinute, s.beginSecond, s.endHour,
                s.endMinute, s.endSecond, made.length);
  return text;
}

TEST(ExportSpanTest, OfARecordExport) {
  const std::vector<std::pair<Fields, std::string>> cases = {
      {{8, 0, 0, 8, 1, 30}, "8:0:0-8:1:30 90"},
      {{8, 0, 0, 9, 0, 0}, "8:0:0-8:10:0 600"},
      {{9, 0, 0, 8, 0, 0}, "8:0:0-8:10:0 600"},
      {{8, 5, 0, 8, 0, 30}, "8:0:30-8:5:0 270"},
      {{12, 0, 0, 12, 0, 0}, "11:50:0-12:0:0 600"},
      {{0, 5, 0, 0, 5, 0}, "0:0:0-0:5:0 300"},
      {{0, 10, 0, 0, 10, 0}, "0:0:0-0:10:0 600"},
      {{23, 55, 0, 23, 55, 0}, "23:50:0-0:0:0 600"},
      {{24, 0, 0, 0, 0, 0}, "23:50:0-0:0:0 600"},
      {{23, 50, 0, 0, 0, 0}, "23:50:0-24:0:0 600"},
      {{0, 0, 0, 0, 0, 0}, "0:0:0-0:10:0 600"},
      {{23, 50, 0, 24, 0, 1}, "23:50:0-0:0:0 600"},  // cut: its end is the next day's begin
      {{25, 1, 1, 23, 58, 0}, "23:58:0-24:0:0 120"},
      {{8, 61, 9, 9, 5, 0}, "8:60:0-9:5:0 300"},
      {{8, 0, 61, 8, 5, 77}, "8:0:60-8:5:60 300"},
      {{8, 59, 0, 8, 99, 99}, "8:59:0-8:60:0 60"},
  };
  for (const auto& [asked, made] : cases) EXPECT_EQ(Text(record::NormaliseRecordSpan(SpanOf(asked))), made);
}

TEST(ExportSpanTest, OfATimelapse) {
  const std::vector<std::pair<Fields, std::string>> cases = {
      {{8, 0, 0, 9, 30, 59}, "8:0:0-9:30:59 5400"},
      {{8, 0, 0, 8, 30, 0}, "8:0:0-8:30:0 3600"},  // sampled like an hour
      {{9, 0, 0, 8, 0, 0}, "8:0:0-9:0:0 3600"},
      {{8, 0, 0, 8, 0, 0}, "8:0:0-24:0:0 57600"},
      {{0, 0, 0, 0, 0, 0}, "0:0:0-24:0:0 86400"},
      {{23, 59, 59, 10, 0, 0}, "0:0:0-10:0:0 36000"},
      {{0, 0, 0, 24, 60, 60}, "0:0:0-24:60:60 86400"},
  };
  for (const auto& [asked, made] : cases) EXPECT_EQ(Text(record::NormaliseTimelapseSpan(SpanOf(asked))), made);
  for (const auto& [asked, taken] :
       std::vector<std::pair<int, int>>{{5, 120}, {9, 120}, {10, 10}, {300, 300}, {400, 120}})
    EXPECT_EQ(record::TimelapseSeconds(asked), taken);
  EXPECT_EQ(record::TimelapseInterval(120, 60), 1200u);
  EXPECT_EQ(record::TimelapseInterval(120, 1440), 28799u);  // as doubles have it
  EXPECT_EQ(record::TimelapseInterval(70, 61), 2091u);      // 2091.43 without its fraction
}

}  // namespace
