// The platform's identity and alarm calls in the form that the library needs.
#ifndef BASE_DEVICE_FACTS_H
#define BASE_DEVICE_FACTS_H

#include <ctime>
#include <string>

#include "record/platform.h"

namespace record {

inline std::string SerialNumber() {
  char serial[64] = "";
  GetSN(serial, sizeof serial);
  serial[sizeof serial - 1] = '\0';
  return serial;
}

inline AlarmTime ToAlarmTime(const struct tm& time) {
  return {time.tm_year + 1900, time.tm_mon + 1, time.tm_mday, time.tm_hour, time.tm_min, time.tm_sec};
}

}  // namespace record

#endif
