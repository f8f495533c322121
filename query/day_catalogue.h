// The walk behind the three day catalogues, and what they differ in.
#ifndef QUERY_DAY_CATALOGUE_H
#define QUERY_DAY_CATALOGUE_H

#include <cstdlib>
#include <memory>
#include <string>
#include <unordered_set>

#include "query/day_directories.h"
#include "record/catalogue.h"
#include "record/platform.h"
#include "storage/layout.h"

namespace record {

struct FreeMemory {
  void operator()(void* memory) const { std::free(memory); }
};
template <typename T>
using MallocPtr = std::unique_ptr<T, FreeMemory>;

// A catalogue that releases its records.
struct DayCatalogue {
  DayRecordMap map;
  DayCatalogue() = default;
  ~DayCatalogue() { Free_MapRecordFileInfo(map); }
  DayCatalogue(const DayCatalogue&) = delete;
  DayCatalogue& operator=(const DayCatalogue&) = delete;

  int Size() const { return static_cast<int>(map.size()); }
};

struct CataloguePolicy {
  enum class Variant { kDay, kStream, kSensors };
  Variant variant;
  int streamIdx;  // kStream only

  bool FiltersStream() const { return variant == Variant::kStream; }
  // Seconds of a file that clipping leaves at least.
  unsigned ShortestClip() const { return variant == Variant::kStream ? 0 : 30; }
  bool KeysBySensor() const { return variant == Variant::kSensors; }
  bool DropsSameName() const { return variant == Variant::kSensors; }
  bool LastWins() const { return variant != Variant::kDay; }
};

// One catalogue being built.
class CatalogueWalk {
 public:
  CatalogueWalk(const CataloguePolicy& policy, int year, int month, int day, DayRecordMap& map);
  int Run();  // 0, or -1 when memory for the query cannot be had

 private:
  void LogQuery() const;
  void LogToday() const;
  void Take(const REPLAY_QUERY_RESULT& listed);
  bool IsWantedStream(const char* name);
  bool ReadInfo(RecordInfoStruct& info);
  bool IsOfDay(const NameTime& time) const;
  void RepairDuration(RecordInfoStruct& info) const;
  void Clip(RecordFileInfo& file, RecordInfoStruct& info) const;
  void Insert(MallocPtr<RecordFileInfo> file);

  const CataloguePolicy m_policy;
  const int m_year;
  const int m_month;
  const int m_day;
  DayRecordMap& m_map;
  // Files end at the latest here: now, for today's newest file, then where the file listed before begins.
  unsigned m_reference = 0;
  int m_streamNumber = 0;  // of the last tagged name
  int m_wantedStream;      // becomes 1 for the rest of the walk at a name without a tag
  std::unordered_set<std::string> m_names;

  const std::string m_deviceRoot;
  DayDirectories m_directories;
  // Of the file that is looked at; here, so that a day of files does with the memory of one.
  std::string m_name;
  std::string m_recordPath;
  std::string m_infoPath;
};

}  // namespace record

#endif
