#include "tools/recordctl/time_text.h"

#include <cstdio>
#include <ctime>

#include "base/clock.h"

namespace recordctl {
namespace {

bool ParseClock(const std::string& text, int& second) {
  constexpr int kDay = 86400;
  int hour = 0;
  int minute = 0;
  int seconds = 0;
  int end = 0;
  if (text.find_first_not_of("0123456789:") != std::string::npos) return false;
  const bool isLong = std::sscanf(text.c_str(), "%2d:%2d:%2d%n", &hour, &minute, &seconds, &end) == 3;
  if (!isLong && std::sscanf(text.c_str(), "%2d:%2d%n", &hour, &minute, &end) != 2) return false;
  if (end != static_cast<int>(text.size()) || minute > 59 || seconds > 59) return false;
  second = hour * 3600 + minute * 60 + seconds;
  return second <= kDay;
}

}  // namespace

Date Today() {
  const time_t now = time(nullptr);
  struct tm local = {};
  localtime_r(&now, &local);
  return {local.tm_year + 1900, local.tm_mon + 1, local.tm_mday};
}

bool ParseDate(const std::string& text, Date& date) {
  int end = 0;
  if (text.size() != 10 || text.find_first_not_of("0123456789-") != std::string::npos) return false;
  if (std::sscanf(text.c_str(), "%4d-%2d-%2d%n", &date.year, &date.month, &date.day, &end) != 3 || end != 10)
    return false;
  struct tm day = record::CalendarTime(date.year, date.month, date.day, 12);
  return date.year >= 1970 && mktime(&day) != -1 && day.tm_mday == date.day && day.tm_mon == date.month - 1;
}

bool ParseTime(const std::string& text, TimeText& time) {
  constexpr std::size_t kDateLength = 10;
  time.hasDate = text.size() > kDateLength && (text[kDateLength] == 'T' || text[kDateLength] == ' ');
  if (!time.hasDate) return ParseClock(text, time.second);
  return ParseDate(text.substr(0, kDateLength), time.day) && ParseClock(text.substr(kDateLength + 1), time.second);
}

bool ParseMoment(const std::string& text, Moment& moment) {
  TimeText time = {};
  if (!ParseTime(text, time) || !time.hasDate || time.second >= 86400) return false;
  moment = {time.day, time.second / 3600, time.second / 60 % 60, time.second % 60};
  return true;
}

std::string DateText(const Date& date) {
  char text[48];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d", date.year, date.month, date.day);
  return text;
}

std::string ClockText(unsigned secondOfDay) {
  char text[48];
  std::snprintf(text, sizeof text, "%02u:%02u:%02u", secondOfDay / 3600, secondOfDay / 60 % 60, secondOfDay % 60);
  return text;
}

std::string IsoTime(long long milliseconds) {
  const time_t seconds = static_cast<time_t>(milliseconds / 1000);
  struct tm local = {};
  localtime_r(&seconds, &local);
  char day[32];
  char zone[16];
  char text[80];
  std::strftime(day, sizeof day, "%Y-%m-%dT%H:%M:%S", &local);
  std::strftime(zone, sizeof zone, "%z", &local);  // "+0100"
  std::snprintf(text, sizeof text, "%s.%03d%.3s:%s", day, static_cast<int>(milliseconds % 1000), zone, zone + 3);
  return text;
}

std::string SecondsText(long long milliseconds) {
  char text[48];
  std::snprintf(text, sizeof text, "%lld.%03lld", milliseconds / 1000, milliseconds % 1000);
  return text;
}

}  // namespace recordctl
