// The oldest files of a medium that no task is writing.
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <queue>
#include <string>
#include <vector>

#include "base/clock.h"
#include "base/device_path.h"
#include "base/directory.h"
#include "base/log.h"
#include "base/no_throw.h"
#include "base/time_word.h"
#include "record/maintenance.h"
#include "storage/layout.h"
#include "storage/maintenance/file_in_use.h"

namespace record {
namespace {

using Files = std::list<_VrRecordFileInfo>;

constexpr size_t kLongestPath = 511;
constexpr int kEntryRestUs = 10;  // before each entry, so that a long scan yields the processor

struct FreeFile {
  long long time;
  std::uint64_t number;  // files of one time stay as they were found
  std::string path;

  bool operator<(const FreeFile& other) const {
    return time != other.time ? time < other.time : number < other.number;
  }
};

// Keeps the oldest `most` of what is added.
class FreeFiles {
 public:
  explicit FreeFiles(std::uint64_t most = UINT64_MAX) : m_most(most) {}

  std::uint64_t Most() const { return m_most; }
  void Add(long long time, std::string path) {
    const std::uint64_t number = m_number++;
    if (m_files.size() >= m_most && !(time < m_files.top().time)) return;
    m_files.push({time, number, std::move(path)});
    if (m_files.size() > m_most) m_files.pop();
  }
  void AddAll(const Files& files) {
    for (const _VrRecordFileInfo& file : files) Add(FromTimeWord(file.tTime), file.strPath);
  }
  // In place of what `files` held, oldest first.
  void MoveTo(Files& files) {
    files.clear();
    for (; !m_files.empty(); m_files.pop())
      files.push_front({ToTimeWord(m_files.top().time), 0, m_files.top().path});
  }

 private:
  const std::uint64_t m_most;
  std::uint64_t m_number = 0;
  std::priority_queue<FreeFile> m_files;  // the newest on top
};

template <typename Sink>
int ScanFreeFiles(const std::string& path, const Sink& sink, std::vector<std::string>& subDirs) {
  RECORD_LOG("%s", path.c_str());
  Directory directory(path);
  if (!directory.IsOpen()) return -1;
  int count = 0;
  while (true) {
    SleepUs(kEntryRestUs);
    const dirent* entry = directory.Next();
    if (entry == nullptr) return count;
    std::string file = JoinPath(path, entry->d_name);
    struct stat status;
    if (file.size() > kLongestPath || !directory.Look(*entry, status)) continue;
    if (S_ISDIR(status.st_mode)) {
      subDirs.push_back(std::move(file));
    } else if (IsWrittenByTask(file)) {
      RECORD_LOG("file %s is using, can not be removed.", file.c_str());
    } else {
      sink(static_cast<long long>(status.st_ctime), std::move(file));
      ++count;
    }
  }
}

void ScanKind(const std::string& kindDirectory, FreeFiles& files) {
  RECORD_LOG("%s", kindDirectory.c_str());
  const struct tm now = LocalNow();
  const std::string today = DayName(now.tm_year + 1900, now.tm_mon + 1, now.tm_mday);
  FreeFiles loose(files.Most());
  const auto add = [&files](long long time, std::string path) { files.Add(time, std::move(path)); };
  const auto keep = [&loose](long long time, std::string path) { loose.Add(time, std::move(path)); };
  std::vector<std::string> subDirs;
  std::vector<std::string> ignored;
  if (ScanFreeFiles(kindDirectory, keep, subDirs) < 0) return;
  std::sort(subDirs.begin(), subDirs.end());
  for (const std::string& subDir : subDirs) {
    ignored.clear();
    if (ScanFreeFiles(subDir, add, ignored) > 0 || subDir.find(today) != std::string::npos) continue;
    // Another day than today's may be the right one for a task: its clock may have been set since.
    if (IsDirectoryOfTask(subDir)) continue;
    RECORD_LOG("remove dir %s", subDir.c_str());
    rmdir(subDir.c_str());  // refused while it holds files in use or directories
  }
  Files rest;
  loose.MoveTo(rest);
  files.AddAll(rest);
}

void ListOldest(const std::string& root, Files& files, std::uint64_t count) {
  FreeFiles oldest(count + 1);  // kept: callers know that there is one more
  oldest.AddAll(files);
  for (const char* kind : kKindNames) {
    const std::string directory = JoinPath(root, kind);
    RECORD_LOG("%s", directory.c_str());
    ScanKind(directory, oldest);
  }
  oldest.MoveTo(files);
  std::uint64_t listed = 0;
  for (const _VrRecordFileInfo& file : files) {
    if (listed++ < count) RECORD_LOG("%s", file.strPath.c_str());
  }
}

}  // namespace
}  // namespace record

int ScanDirAndFile(const char* dir, std::list<_VrRecordFileInfo>& files, std::vector<std::string>& subDirs) try {
  const auto append = [&files](long long time, std::string path) {
    files.push_back({record::ToTimeWord(time), 0, std::move(path)});
  };
  return record::ScanFreeFiles(dir, append, subDirs);
}
RECORD_NO_THROW(-1)

int QueryPathOldFile(const char* typeDir, std::list<_VrRecordFileInfo>& files, unsigned int) try {
  record::FreeFiles found;
  found.AddAll(files);
  record::ScanKind(typeDir, found);
  found.MoveTo(files);
  return 0;
}
RECORD_NO_THROW(0)

int GetOldFileList(const char* root, std::list<_VrRecordFileInfo>& files, unsigned int count) try {
  if (root == nullptr || root[0] == '\0') return 0;
  record::ListOldest(root, files, count);
  return 0;
}
RECORD_NO_THROW(0)
