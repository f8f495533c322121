// Two tasks write into one day while catalogue, lookups and deletion run as fast as they can. No file goes while
// it is written, and none that was finished is missing in the catalogue. Seconds: RECORD_RACE_SECONDS.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <list>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "base/clock.h"
#include "record/catalogue.h"
#include "record/lookups.h"
#include "record/maintenance.h"
#include "record/storage.h"
#include "record/task_manager.h"
#include "tests/support/task_param.h"
#include "tests/trust/read_back.h"
#include "tests/trust/recorder.h"
#include "tests/trust/run_size.h"

namespace trust {
namespace {

constexpr int kFramesPerSecond = 100;
constexpr size_t kKept = 2;  // files that the deletion leaves

// What became of every file.
class Files {
 public:
  void End(const std::string& path) { Insert(m_ended, path); }
  void Try(const std::string& path) { Insert(m_tried, path); }
  void Tried(const std::string& path, bool isGone) {
    if (isGone) Insert(m_gone, path);
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_tried.erase(path);
  }
  std::set<std::string> Ended() const { return Copy(m_ended); }
  // Also when it is there again: a later file may have got its name.
  bool MayBeGone(const std::string& path) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_tried.count(path) != 0 || m_gone.count(path) != 0;
  }
  size_t GoneCount() const { return Copy(m_gone).size(); }

  std::atomic<int> deletedInUse{0};
  std::atomic<int> alive{0};

 private:
  void Insert(std::set<std::string>& set, const std::string& path) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    set.insert(path);
  }
  std::set<std::string> Copy(const std::set<std::string>& set) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return set;
  }

  mutable std::mutex m_mutex;
  std::set<std::string> m_ended;
  std::set<std::string> m_tried;  // just being deleted, maybe in vain
  std::set<std::string> m_gone;
};

// Ends by itself after some frames.
class ShortTask : public CKmvTask {
 public:
  ShortTask(const RECORD_TASK_PARAM& param, const RecordConfig& config, Files& files, int frames)
      : CKmvTask(param, config), m_files(files), m_left(frames) {
    ++m_files.alive;
  }
  ~ShortTask() override { --m_files.alive; }

  int RecordOneVideoFrame(int keyFrame, char* data, int length, unsigned int timestampMs) override {
    if (--m_left == 0) Stop();
    return CKmvTask::RecordOneVideoFrame(keyFrame, data, length, timestampMs);
  }
  int RecordEnd() override {
    const std::string path = GetFilePath();
    if (access(path.c_str(), F_OK) != 0) ++m_files.deletedInUse;
    const int result = CKmvTask::RecordEnd();
    m_files.End(path);
    return result;
  }

 private:
  Files& m_files;
  int m_left;
};

void StartShortTask(int stream, Files& files, int frames) {
  RECORD_TASK_PARAM param = fake::DefaultParam();
  param.recordtype = RECORD_KIND_MOTION;
  param.stream = stream;
  param.framerate = kFramesPerSecond;
  param.duration = param.max_file_seconds = 60;
  param.rectype_code = 'B';
  RecordConfig config = {};
  config.local_enable = 1;
  auto* task = new ShortTask(param, config, files, frames);
  TaskManagerAddTask(task);
  if (task->Start() == 0) return;
  TaskManagerRemoveTask(task);
  delete task;
}

// Of both kinds of lists in turn, and the youngest, too: what is being written is offered as well.
std::vector<std::string> Candidates(bool byName) {
  std::string card = DevicePath("/mnt/mmc0");
  std::vector<std::string> paths;
  if (byName) {
    for (OldFileInfo_s* file = FindOldFiles(card.data(), 1000, nullptr); file != nullptr;) {
      if (IsOf(file->path, ".kmv")) paths.insert(paths.begin(), file->path);
      OldFileInfo_s* next = file->next;
      std::free(file);
      file = next;
    }
  } else {
    std::list<_VrRecordFileInfo> files;
    GetOldFileList(card.c_str(), files, 1000);
    for (const auto& file : files) {
      if (IsOf(file.strPath, ".kmv")) paths.push_back(file.strPath);
    }
  }
  return paths;
}

void DeleteOnAndOn(Files& files, const std::atomic<bool>& stop) {
  for (bool byName = true; !stop; byName = !byName) {
    std::vector<std::string> paths = Candidates(byName);
    if (paths.size() <= kKept) continue;
    const std::set<std::string> ended = files.Ended();
    std::vector<std::string> wanted(paths.begin(), paths.end() - kKept);
    if (ended.count(paths.back()) == 0) wanted.push_back(paths.back());
    for (const std::string& path : wanted) {
      files.Try(path);
      files.Tried(path, DeleteFreeFile(path.c_str()) == DELETE_DONE);
    }
  }
}

// Files that ended before the look, were not deleted, and are not listed.
int MissingInCatalogue(const Files& files, const struct tm& today) {
  const std::set<std::string> ended = files.Ended();
  DayRecordMap map;
  EXPECT_EQ(GetDayRecordInfoEx(today.tm_year + 1900, today.tm_mon + 1, today.tm_mday, map), 0);
  std::set<std::string> listed;
  for (const auto& entry : map) listed.insert(RecordFilePath(*entry.second));
  Free_MapRecordFileInfo(map);
  int missing = 0;
  for (const std::string& path : ended) missing += listed.count(path) == 0 && !files.MayBeGone(path) ? 1 : 0;
  return missing;
}

void LookUpOnAndOn(const struct tm& today, const std::atomic<bool>& stop, std::atomic<int>& found) {
  while (!stop) {
    const int year = today.tm_year + 1900;
    const int month = today.tm_mon + 1;
    std::string path;
    unsigned offset = 0;
    const int minute = today.tm_hour * 60 + today.tm_min;
    found += GetRecordFileAndOffset_by_streamIdx(year, month, today.tm_mday, minute / 60, minute % 60, 0, path,
                                                 offset, 1) == 0;
    char minutes[1440];
    EXPECT_EQ(GetRecordDistribute(year, month, today.tm_mday, minutes), 0);
    std::list<long> dates;
    GetHasRecordDateList(dates);
    EXPECT_LE(dates.size(), 2u);
  }
}

TEST(QueryRace, RecordingCatalogueLookupsAndDeletion) {
  char root[] = "/tmp/record-race-XXXXXX";
  ASSERT_NE(mkdtemp(root), nullptr);
  ASSERT_TRUE(MakeDevice(root));
  SetDeviceRoot(root);
  TaskManagerInit();
  StartFeeding({kFramesPerSecond, 5, 2000, 0});
  const long seconds = FromEnvironment("RECORD_RACE_SECONDS", 2);
  const int frames = seconds > 10 ? 50 : 8;  // names are seconds, and must not run too far ahead of the clock
  const struct tm today = record::LocalNow();

  Files files;
  std::atomic<bool> stop{false};
  std::atomic<int> found{0};
  std::atomic<int> missing{0};
  std::vector<std::thread> threads;
  threads.emplace_back([&] { DeleteOnAndOn(files, stop); });
  threads.emplace_back([&] {
    while (!stop) missing += MissingInCatalogue(files, today);
  });
  threads.emplace_back([&] { LookUpOnAndOn(today, stop, found); });
  const long long end = record::WallNow().seconds + seconds;
  while (record::WallNow().seconds <= end) {
    for (const int stream : {STREAM_MAIN, STREAM_SUB}) {
      if (TaskManagerGetTaskCount(RECORD_KIND_MOTION, stream) == 0) StartShortTask(stream, files, frames);
    }
    record::SleepMs(2);
  }
  while (files.alive != 0) record::SleepMs(5);
  stop = true;
  for (std::thread& thread : threads) thread.join();

  const bool sameDay = record::LocalNow().tm_mday == today.tm_mday;
  if (sameDay) missing += MissingInCatalogue(files, today);
  EXPECT_EQ(files.deletedInUse, 0);
  EXPECT_TRUE(missing == 0 || !sameDay) << missing;
  EXPECT_TRUE(found > 0 || !sameDay);
  EXPECT_GT(files.Ended().size(), kKept);
  EXPECT_GT(files.GoneCount(), 0u);
  RecordProperty("files", static_cast<int>(files.Ended().size()));
  RecordProperty("deleted", static_cast<int>(files.GoneCount()));
  SetDeviceRoot("");
  std::filesystem::remove_all(root);
}

}  // namespace
}  // namespace trust
