// A side file that anybody may have written, seen by the three day catalogues: as today's newest file, as one
// that is being recorded and as one that another file follows.
#include <cstdint>
#include <cstring>
#include <string>

#include "fuzz/fuzz_device.h"
#include "record/catalogue.h"

namespace {

using fuzz::Require;

constexpr const char* kFinished = "20240131/080000-av-1.kmv";
constexpr const char* kRecording = "20240131/081000-av-2.kmv";
constexpr const char* kEarlier = "20240131/075900-av-1.kmv";

void CheckMap(const DayRecordMap& map, int shift) {
  for (const auto& [key, file] : map) {
    Require(key >> shift == file->nStartSecond);
    Require(file->nStartMinute == file->nStartSecond / 60 && file->nEndMinute == file->nEndSecond / 60);
    Require(std::strlen(file->szRootPath) < sizeof file->szRootPath);
    Require(std::strlen(file->szFileName) < sizeof file->szFileName);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fuzz::Device device([](const fuzz::Device&) {
    for (const char* name : {kRecording, kFinished, kEarlier})
      fake::Platform::Get().records.push_back({fuzz::Device::kRoot, name});
    fake::WriteFile(record::LockFilePath(kRecording), "");
  });

  const std::string bytes(reinterpret_cast<const char*>(data), size);
  const auto infoFile = [](const char* name) { return record::InfoPath(device.RecordPath(name)); };
  for (int variant = 0; variant < 3; ++variant) {
    for (const char* name : {kRecording, kFinished, kEarlier}) fake::WriteFile(infoFile(name), bytes);
    DayRecordMap map;
    int result = -1;
    if (variant == 0) result = GetDayRecordInfo(2024, 1, 31, map);
    if (variant == 1) result = GetDayRecordInfo_by_streamIdx(2024, 1, 31, map, 1);
    if (variant == 2) result = GetDayRecordInfoEx(2024, 1, 31, map);
    Require(result == 0 && map.size() == (size >= sizeof(RecordInfoStruct) ? 3 : 0));
    CheckMap(map, variant == 2 ? 8 : 0);
    Free_MapRecordFileInfo(map);
    Require(fake::ReadFile(infoFile(kRecording)) == bytes);
    const std::string after = fake::ReadFile(infoFile(kFinished));
    Require(after == bytes || after.size() == sizeof(RecordInfoStruct));
  }
  return 0;
}
