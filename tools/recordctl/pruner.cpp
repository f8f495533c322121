#include "tools/recordctl/pruner.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "base/clock.h"
#include "base/directory.h"
#include "storage/layout.h"
#include "storage/type_index.h"

namespace recordctl {
namespace {

using record::Directory;

// Minute of the day at which the first recording of a directory begins; -1 when it holds none. Every file that
// only goes with recordings is added to `beside`.
int FirstMinute(Directory& directory, std::vector<std::string>& beside) {
  int first = -1;
  while (const dirent* entry = directory.Next()) {
    if (!directory.IsRegularFile(*entry)) continue;
    if (IsBesideRecordings(entry->d_name)) beside.emplace_back(entry->d_name);
    if (!record::IsRecordingName(entry->d_name)) continue;
    const record::NameTime time = record::ParseNameTime(("00000000/" + std::string(entry->d_name)).c_str());
    const int minute = std::min(time.hour * 60 + time.minute, record::kTypeIndexMinutes);
    if (first < 0 || minute < first) first = minute;
  }
  return first;
}

// A task that is recording marks single minutes, later ones: it never meets these.
void ForgetMinutes(const Directory& directory, int count) {
  const int file = openat(directory.Descriptor(), "rec_type.idx", O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (file < 0) return;
  struct stat status;
  if (fstat(file, &status) == 0 && S_ISREG(status.st_mode)) {
    const auto length = static_cast<size_t>(std::clamp<long long>(status.st_size, 0, count));
    const std::string none(length, record::kNoRecording);
    const ssize_t written = pwrite(file, none.data(), none.size(), 0);
    static_cast<void>(written);  // a mark too many is no harm
  }
  close(file);
}

// Who records today may have just made its directory for a file that is not there yet.
bool IsOver(const std::string& day) {
  const struct tm now = record::LocalNow();
  return day < record::DayName(now.tm_year + 1900, now.tm_mon + 1, now.tm_mday);
}

void SettleDirectory(const std::string& path) {
  {
    Directory directory(path);
    if (!directory.IsOpen()) return;
    std::vector<std::string> beside;
    const int first = FirstMinute(directory, beside);
    if (first >= 0) return ForgetMinutes(directory, first);
    if (!IsOver(path.substr(path.rfind('/') + 1))) return;
    for (const std::string& name : beside) {
      if (DeleteFreeFile(record::JoinPath(path, name).c_str()) != DELETE_DONE) return;
    }
  }
  rmdir(path.c_str());  // refused while it holds anything else
}

// A picture has nothing beside it.
DeleteResult DeletePicture(const Recording& picture) {
  const Directory directory(picture.directory);
  if (!directory.IsOpen()) return errno == ENOENT ? DELETE_DONE : DELETE_FAILED;
  if (IsInUse(picture)) return DELETE_IN_USE;
  const bool isGone = unlinkat(directory.Descriptor(), picture.name.c_str(), 0) == 0 || errno == ENOENT;
  return isGone ? DELETE_DONE : DELETE_FAILED;
}

}  // namespace

DeleteResult Pruner::Delete(const Recording& recording) {
  if (recording.Day() != m_day) Settle();
  m_day = recording.Day();
  const auto result = recording.isPicture ? DeletePicture(recording)
                                          : static_cast<DeleteResult>(DeleteFreeFile(recording.Path().c_str()));
  if (result == DELETE_DONE) m_touched.insert(recording.directory);
  return result;
}

void Pruner::Settle() {
  for (const std::string& directory : m_touched) SettleDirectory(directory);
  m_touched.clear();
}

}  // namespace recordctl
