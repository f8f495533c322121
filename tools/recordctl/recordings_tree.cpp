#include "tools/recordctl/recordings_tree.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "base/device_path.h"
#include "base/directory.h"
#include "storage/layout.h"
#include "storage/lock_state.h"
#include "storage/maintenance/file_in_use.h"
#include "tools/recordctl/signals.h"

namespace recordctl {
namespace {

using record::Directory;

constexpr long long kBlock = 512;  // of st_blocks
constexpr size_t kTimeLength = 6;  // HHMMSS

// That the medium gets back. A file that has another name elsewhere stays.
long long Allocated(const Directory& directory, const std::string& name) {
  struct stat status;
  if (fstatat(directory.Descriptor(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return 0;
  if (status.st_nlink > 1) return 0;
  return static_cast<long long>(status.st_blocks) * kBlock;
}

// Whether the snapshot task gives this very name.
bool IsPictureName(const char* name) {
  struct tm taken = {};
  int number = 0;
  if (std::sscanf(name, "%4d%2d%2d_%2d%2d%2d_%9d", &taken.tm_year, &taken.tm_mon, &taken.tm_mday, &taken.tm_hour,
                  &taken.tm_min, &taken.tm_sec, &number) != 7)
    return false;
  taken.tm_year -= 1900;
  taken.tm_mon -= 1;
  const bool isTime = taken.tm_hour < 24 && taken.tm_min < 60 && taken.tm_sec <= 60;
  return isTime && number > 0 && record::IsDayName(std::string(name, 8).c_str()) &&
         record::PictureFileName(taken, number) == name;
}

// A picture that was taken at midnight may lie in the day that was just over: the last one of it.
std::string TimeOf(const std::string& day, const std::string& name, bool isPicture) {
  if (!isPicture) return day + name.substr(0, kTimeLength);
  return day + (name.compare(0, day.size(), day) == 0 ? name.substr(day.size() + 1, kTimeLength) : "235959");
}

}  // namespace

// Where a task writes its record, pictures of before are free.
bool IsInUse(const Recording& recording) {
  if (!recording.isPicture) return record::IsFileInUse(recording.directory, recording.name);
  return record::IsWrittenByTask(recording.Path()) || record::HasWriter(recording.Path());
}

bool IsBesideRecordings(const char* name) {
  if (std::strcmp(name, "rec_type.idx") == 0 || std::strcmp(name, "recordfiles.txt") == 0) return true;
  const std::string recordName = record::RecordNameOf(name);
  return recordName != name && record::IsRecordingName(recordName.c_str());
}

RecordingsTree::RecordingsTree(const std::vector<std::string>& bases) {
  for (const std::string& base : bases) {
    for (const char* kind : record::kKindNames) FindDays(record::JoinPath(base, kind));
  }
  for (const auto& day : m_days) m_unread.insert(day.first);
}

void RecordingsTree::FindDays(const std::string& kindDirectory) {
  Directory directory(kindDirectory);
  if (!directory.IsOpen()) return;
  while (const dirent* entry = directory.Next()) {
    const std::string path = record::JoinPath(kindDirectory, entry->d_name);
    if (record::IsDayName(entry->d_name) && directory.IsDirectory(*entry))
      m_days[entry->d_name].push_back(path);
    else
      m_others.insert(path);
  }
}

std::vector<Recording> RecordingsTree::ReadDay(const std::string& day) {
  std::vector<Recording> recordings;
  const auto found = m_days.find(day);
  if (found == m_days.end()) return recordings;
  for (const std::string& path : found->second) {
    Directory directory(path);
    struct stat status;
    if (!directory.IsOpen() || fstat(directory.Descriptor(), &status) != 0) continue;
    for (const std::string& name : ReadNames(directory, path)) {
      const bool isPicture = !record::IsRecordingName(name.c_str());
      long long bytes = Allocated(directory, name);
      if (!isPicture) bytes += Allocated(directory, record::InfoPath(name));
      recordings.push_back({path, name, TimeOf(day, name, isPicture), bytes, status.st_dev, isPicture});
    }
  }
  m_unread.erase(day);
  std::stable_sort(recordings.begin(), recordings.end(),
                   [](const Recording& a, const Recording& b) { return a.time < b.time; });
  return recordings;
}

const std::set<std::string>& RecordingsTree::FindOthers() {
  while (!m_unread.empty() && !WasInterrupted()) {
    for (const std::string& path : m_days[*m_unread.begin()]) {
      Directory directory(path);
      if (directory.IsOpen()) ReadNames(directory, path);
    }
    m_unread.erase(m_unread.begin());
  }
  return m_others;
}

std::vector<std::string> RecordingsTree::ReadNames(Directory& directory, const std::string& path) {
  std::vector<std::string> names;
  while (const dirent* entry = directory.Next()) {
    const bool isFile = directory.IsRegularFile(*entry);
    if (isFile && (record::IsRecordingName(entry->d_name) || IsPictureName(entry->d_name)))
      names.emplace_back(entry->d_name);
    else if (!isFile || !IsBesideRecordings(entry->d_name))
      m_others.insert(record::JoinPath(path, entry->d_name));
  }
  return names;
}

const Recording* OldestFirst::Next() {
  while (m_next == m_recordings.size()) {
    if (m_day == m_tree.Days().end()) return nullptr;
    m_recordings = m_tree.ReadDay(m_day->first);
    m_next = 0;
    ++m_day;
  }
  return &m_recordings[m_next++];
}

}  // namespace recordctl
