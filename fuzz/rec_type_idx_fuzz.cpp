// A type index that anybody may have written, loaded by a record task, marked and loaded again.
#include <cstdint>
#include <string>

#include "fuzz/fuzz_device.h"
#include "tests/record/probe_task.h"

namespace {

using fuzz::Require;
using recordtest::ProbeTask;

constexpr size_t kMinutes = 1440;

std::string Minutes(const ProbeTask& task) {
  return std::string(task.m_minuteTypes, kMinutes);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fuzz::Device device;
  const std::string day = device.Path("/mnt/mmc0/schedule/20240131");
  const std::string index = day + "/rec_type.idx";
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  fake::WriteFile(index, bytes);

  ProbeTask task(recordtest::UsualParam(), recordtest::UsualConfig());
  task.SetStorageBase(day.c_str());
  Require(task.loadRecTypeIdx() == 0);
  std::string expected = bytes.substr(0, kMinutes);
  expected.resize(kMinutes, 'C');
  Require(Minutes(task) == expected);

  // The first bytes also tell which minutes are marked.
  for (size_t at = 0; at + 1 < size && at < 8; at += 2) {
    const int minute = data[at] * 7 - 100 + data[at + 1];
    const char code = static_cast<char>(data[at + 1]);
    const bool valid = minute >= 0 && minute < static_cast<int>(kMinutes);
    if (valid) {
      task.m_minuteTypes[minute] = code;
      expected[static_cast<size_t>(minute)] = code;
    }
    Require(task.updateRecTypeIdx(minute) == (valid ? 0 : -1));
    if (valid) Require(fake::ReadFile(index).substr(0, kMinutes) == expected);
  }
  ProbeTask other(recordtest::UsualParam(), recordtest::UsualConfig());
  other.SetStorageBase(day.c_str());
  Require(other.loadRecTypeIdx() == 0 && Minutes(other) == expected);
  return 0;
}
