// The file that a replay begins or goes on with: found by time, described by its side file and its name.
#ifndef PLAYBACK_REPLAY_FILE_H
#define PLAYBACK_REPLAY_FILE_H

#include <pthread.h>
#include <sys/time.h>

#include <ctime>
#include <string>

namespace record {

class HeldMutex {
 public:
  explicit HeldMutex(pthread_mutex_t* mutex) : m_mutex(mutex) {
    if (m_mutex) pthread_mutex_lock(m_mutex);
  }
  ~HeldMutex() {
    if (m_mutex) pthread_mutex_unlock(m_mutex);
  }
  HeldMutex(const HeldMutex&) = delete;
  HeldMutex& operator=(const HeldMutex&) = delete;

 private:
  pthread_mutex_t* const m_mutex;
};

// Seconds from start to end by the side file of a record file; -1 with a log line when it cannot be read. The
// start into `start` unless it is null.
int ReplayFileDuration(const char* path, struct timeval* start);
constexpr int kAssumedDuration = 600;  // seconds, of a file without a readable side file

// The six fields of the start that the path tells; 0 or -1.
int ReplayFileStart(const char* path, struct tm* start);

struct ReplayFile {
  std::string path;
  unsigned offset = 0;      // seconds into it, of the time that was looked for
  int duration = 0;         // seconds
  long long timestamp = 0;  // of its start, seconds since 1970
};

// The file that holds `time`, or the next one of the day: 0, or -1 with a log line. `search` is held meanwhile.
// `ended`: the file that was just played to its end, "" for none. What follows it may be the next day's, and
// begins later, whatever side files and catalogue tell of ends: else two files that disagree would be played in
// turns for ever.
int FindReplayFile(long long time, pthread_mutex_t* search, const std::string& ended, ReplayFile& file);
// Duration and start. -1 with a log line when the name does not tell them.
int DescribeReplayFile(ReplayFile& file);

}  // namespace record

#endif
