// Times as people and programs read them. All local.
#ifndef RECORDCTL_TIME_TEXT_H
#define RECORDCTL_TIME_TEXT_H

#include <string>

namespace recordctl {

struct Date {
  int year;
  int month;
  int day;
};

Date Today();
// "2024-01-31"; false for anything else, days that do not exist included.
bool ParseDate(const std::string& text, Date& date);
// "2024-01-31 08:15:00", with a 'T' or a blank, or a time of day only; seconds may be missing, "24:00" is the
// last.
struct TimeText {
  bool hasDate;
  Date day;    // with a date
  int second;  // of the day
};
bool ParseTime(const std::string& text, TimeText& time);
std::string DateText(const Date& date);

struct Moment {
  Date date;
  int hour;
  int minute;
  int second;
};
// As ParseTime, with its date; false for anything else.
bool ParseMoment(const std::string& text, Moment& moment);

std::string ClockText(unsigned secondOfDay);      // "08:15:00"; goes on behind 24:00:00
std::string IsoTime(long long milliseconds);      // "2024-01-31T08:15:00.123+01:00", of milliseconds since 1970
std::string SecondsText(long long milliseconds);  // "12.345"

}  // namespace recordctl

#endif
