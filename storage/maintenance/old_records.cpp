// Finding the oldest files of a medium and deleting its oldest day directories.
#include <strings.h>
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "base/clock.h"
#include "base/device_path.h"
#include "base/directory.h"
#include "base/log.h"
#include "base/no_throw.h"
#include "base/time_word.h"
#include "record/maintenance.h"
#include "record/platform.h"
#include "storage/layout.h"
#include "storage/maintenance/file_in_use.h"
#include "storage/maintenance/name_times.h"
#include "storage/maintenance/oldest_files.h"
#include "storage/maintenance/remove_tree.h"

namespace record {
namespace {

using Links = Directory::Links;
constexpr int kRestUs = 100;  // after each file, so that a long scan does not starve the recorder

// Set by another thread; the interface has a plain word for it.
bool IsStopped(const int* stop) {
  return stop != nullptr && __atomic_load_n(stop, __ATOMIC_RELAXED) != 0;
}

bool FileTime(const Directory& directory, const char* path, const dirent& entry, long long& time) {
  struct tm named;
  if (NameTimes::OfFile(path, entry.d_name, named)) {
    time = StandardTimeSeconds(named);
    return true;
  }
  struct stat status;
  if (!directory.Look(entry, status)) return false;
  time = status.st_mtime;
  return true;
}

bool DirectoryTime(const Directory& directory, const dirent& entry, long long& time) {
  struct tm named;
  if (NameTimes::OfDirectory(entry.d_name, named)) {
    time = StandardTimeSeconds(named);
    return true;
  }
  struct stat status;
  if (!directory.Look(entry, status)) return false;
  time = status.st_ctime;
  return true;
}

// A medium may be found behind a link; what lies on it may not.
enum class Where { kMedium, kBelow };

Links LinksFor(Where where) {
  return where == Where::kMedium ? Links::kFollow : Links::kRefuse;
}

int ScanFiles(const std::string& path, Where where, OldestFiles& files, const int* stop) {
  RECORD_LOG("start search dir %s", path.c_str());
  bool isEmpty = true;
  {
    Directory directory(path, LinksFor(where));
    if (!directory.IsOpen()) {
      RECORD_LOG("open %s failed.", path.c_str());
      return -1;
    }
    while (!IsStopped(stop)) {
      const dirent* entry = directory.Next();
      if (entry == nullptr) break;
      isEmpty = false;
      if (directory.IsDirectory(*entry)) continue;
      long long time = 0;
      if (FileTime(directory, path.c_str(), *entry, time)) files.Offer(time, path.c_str(), entry->d_name);
      SleepUs(kRestUs);
    }
  }
  // Where a directory stands for a medium, it stays as a mount point would. A task that is about to begin its
  // first file there has just made it. The system refuses when the scan was stopped before it saw anything.
  if (isEmpty && where == Where::kBelow && !IsDirectoryOfTask(path)) rmdir(path.c_str());
  return 0;
}

struct FoundDirectory {
  long long time;
  std::string path;
};

class DirectoryList {
 public:
  explicit DirectoryList(const int* stop) : m_stop(stop) {}

  int Find(const std::string& path, Where where, bool recurse) {
    if (FileExist(path.c_str()) == 0) return 0;
    Directory directory(path, LinksFor(where));
    if (!directory.IsOpen()) {
      const std::string command = "touch " + ShellWord(DevicePath(kOpenFailedFlag));
      mysystem(command.c_str());
      RECORD_LOG("open %s failed.", path.c_str());
      return -1;
    }
    while (!IsStopped(m_stop)) {
      const dirent* entry = directory.Next();
      if (entry == nullptr) break;
      if (!directory.IsDirectory(*entry) || strcasecmp(entry->d_name, "System Volume Information") == 0) continue;
      // A copy: the list moves its paths as it grows.
      if (Add(directory, path, *entry) && recurse) Find(std::string(m_found.back().path), Where::kBelow, true);
    }
    return 0;
  }

  void Add(long long time, const std::string& path) { m_found.push_back({time, path}); }
  size_t Size() const { return m_found.size(); }

  // Oldest first, those of one time as they were found.
  std::vector<FoundDirectory>& Sorted() {
    std::stable_sort(m_found.begin(), m_found.end(),
                     [](const FoundDirectory& a, const FoundDirectory& b) { return a.time < b.time; });
    return m_found;
  }

 private:
  bool Add(const Directory& directory, const std::string& parent, const dirent& entry) {
    long long time = 0;
    if (!DirectoryTime(directory, entry, time)) return false;
    const std::string path = JoinPath(parent, entry.d_name);
    if (path.size() >= sizeof(OldFileInfo_s::path)) {
      RECORD_LOG("path is too long: %s", path.c_str());
      return false;
    }
    if (m_found.empty()) RECORD_LOG("insert root dir %s.", path.c_str());
    Add(time, path);
    return true;
  }

  const int* m_stop;
  std::vector<FoundDirectory> m_found;
};

// Reuses the nodes of the list that the directories were added to.
OldFileInfo_s* ToNodes(const std::vector<FoundDirectory>& directories, OldFileInfo_s* spare) {
  OldFileInfo_s* head = nullptr;
  OldFileInfo_s* last = nullptr;
  for (const FoundDirectory& each : directories) {
    OldFileInfo_s* node = spare;
    if (spare != nullptr)
      spare = spare->next;
    else
      node = static_cast<OldFileInfo_s*>(std::calloc(1, sizeof(OldFileInfo_s)));
    if (node == nullptr) break;
    node->time = ToTimeWord(each.time);
    std::memcpy(node->path, each.path.c_str(), each.path.size() + 1);
    node->prev = last;
    node->next = nullptr;
    (last != nullptr ? last->next : head) = node;
    last = node;
  }
  return head;
}

OldFileInfo_s* FindOldest(const std::string& root, unsigned maxCount, const int* stop) {
  DirectoryList directories(stop);
  directories.Find(root, Where::kMedium, false);
  for (const char* kind : kKindNames) directories.Find(JoinPath(root, kind), Where::kBelow, false);

  OldestFiles files(nullptr, maxCount, 0);
  ScanFiles(root, Where::kMedium, files, stop);
  // Kept: the directory itself is among the others, and the root is read again.
  if (FileExist(JoinPath(root, "timelapse").c_str()) != 0) ScanFiles(root, Where::kMedium, files, stop);
  for (const FoundDirectory& directory : directories.Sorted()) {
    if (files.IsFull() || IsStopped(stop)) break;
    ScanFiles(directory.path, Where::kBelow, files, stop);
  }
  return files.Release();
}

bool IsDayOfRecords(const std::string& path) {
  struct tm day;
  const std::string name = path.substr(path.rfind('/') + 1);
  return name.size() == 8 && ScanDay(name.c_str(), day) &&
         std::any_of(kKindNames.begin(), kKindNames.end(),
                     [&](const char* kind) { return path.find(kind) != std::string::npos; });
}

void DeleteOldest(const std::string& root, unsigned keepCount, const int* stop) {
  DirectoryList list(stop);
  list.Find(root, Where::kBelow, false);
  const std::vector<FoundDirectory>& directories = list.Sorted();
  size_t count = 0;
  for (const FoundDirectory& each : directories) {
    RECORD_LOG("%s", each.path.c_str());
    count += IsDayOfRecords(each.path) ? 1 : 0;
  }
  for (const FoundDirectory& each : directories) {
    if (count <= keepCount || IsStopped(stop)) break;
    if (!IsDayOfRecords(each.path)) continue;
    RECORD_LOG("remove subdir path=%s", each.path.c_str());
    RemoveTree(each.path);
    --count;
  }
}

}  // namespace
}  // namespace record

int scanDir(const char* dirPath, OldFileInfo_s** head, OldFileInfo_s**, unsigned int maxCount, unsigned int& count,
            int* stop) try {
  const std::string directory = dirPath;
  record::OldestFiles files(*head, maxCount, count);
  const int result = record::ScanFiles(directory, record::Where::kBelow, files, stop);
  count = files.Count();
  *head = files.Release();
  return result;
}
RECORD_NO_THROW(-1)

int findAllDirs(const char* path, OldFileInfo_s** head, int* stop, int recurse) try {
  record::DirectoryList directories(stop);
  for (const OldFileInfo_s* node = *head; node != nullptr; node = node->next)
    directories.Add(record::FromTimeWord(node->time), node->path);
  const int result = directories.Find(path, record::Where::kBelow, recurse >= 1);
  *head = record::ToNodes(directories.Sorted(), *head);
  return result;
}
RECORD_NO_THROW(-1)

OldFileInfo_s* FindOldFiles(char* root, unsigned int maxCount, int* stop) try {
  if (root == nullptr || root[0] == '\0') return nullptr;
  return record::FindOldest(root, maxCount, stop);
}
RECORD_NO_THROW(nullptr)

int DelOldDayDirs(char* root, unsigned int keepCount, int* stop) try {
  if (root == nullptr || root[0] == '\0') return 0;
  record::DeleteOldest(root, keepCount, stop);
  return 0;
}
RECORD_NO_THROW(0)
