#include <cstdlib>
#include <cstring>
#include <new>

#include "base/log.h"
#include "base/no_throw.h"
#include "base/time_word.h"
#include "format/media_file.h"
#include "format/repeated_frames.h"
#include "playback/replay_file.h"
#include "record/replay.h"

using namespace record;

struct TimelineReplayerReader::State {
  explicit State(pthread_mutex_t* searchMutex) : search(searchMutex) {}
  ~State() { std::free(frameBuffer); }

  int Open(long long time, const std::string& ended);
  int OpenNext() { return Open(playing.timestamp + playing.duration, std::string(playing.path)); }

  pthread_mutex_t* const search;
  VIDEO_PARAM video = {};
  AUDIO_PARAM audio = {};
  MediaFile file;
  ReplayFile playing;
  RepeatedFrames repeated;
  bool justOpened = false;
  char* frameBuffer = nullptr;
  unsigned int capacity = 0;
};

// A next file that shares frames with the one that `ended` is read from its begin, and what it repeats is left
// out: a seek could only lead to one of its key frames.
int TimelineReplayerReader::State::Open(long long time, const std::string& ended) {
  file.Close();
  if (ended.empty()) repeated.Forget();
  ReplayFile found;
  if (FindReplayFile(time, search, ended, found) != 0 || DescribeReplayFile(found) != 0) return -1;
  playing = found;
  RECORD_LOG("timestamp:%u duration:%d\n\n", static_cast<unsigned>(playing.timestamp), playing.duration);
  if (file.Open(playing.path) != 0 || file.GetParams(video, audio) != 0) return -1;
  repeated.BeginFile(static_cast<std::uint32_t>(playing.timestamp));
  if (!repeated.ReachInto(file)) file.Seek(playing.offset);
  justOpened = true;
  return 0;
}

TimelineReplayerReader::TimelineReplayerReader(pthread_mutex_t* search) : m_state(new State(search)) {}

TimelineReplayerReader::~TimelineReplayerReader() = default;

int TimelineReplayerReader::open(long t) try { return m_state->Open(FromTimeWord(t), ""); }
RECORD_NO_THROW(-1)

int TimelineReplayerReader::read(char** frame, long& isVideo, long& isKey, unsigned long& offsetMs,
                                 bool& firstKey) try {
  constexpr int kEmptyReadsMax = 10;
  State& state = *m_state;
  firstKey = false;
  if (!state.file.IsOpen()) {
    RECORD_LOG_TEXT("m_pVideoFile is NULL!!!\n\n");
    return -1;
  }
  MediaFrame media;
  int length = 0;
  for (int emptyReads = 0; emptyReads < kEmptyReadsMax;) {
    length = state.file.Read(media);
    if (length < 0 && state.OpenNext() != 0) return -1;
    if (length == 0) ++emptyReads;
    if (length > 0 && !state.repeated.Take(media)) break;
  }
  isVideo = media.isVideo ? 1 : 0;
  isKey = media.isKey ? 1 : 0;
  offsetMs = media.offsetMs;
  if (length <= 0) return 0;
  const auto needed = static_cast<unsigned int>(length);
  expandFrameBuf(&state.frameBuffer, state.capacity, needed);
  if (state.capacity < needed) return -1;
  std::memcpy(state.frameBuffer, media.data, needed);
  *frame = state.frameBuffer;
  firstKey = state.justOpened && media.isVideo && media.isKey;
  if (firstKey) state.justOpened = false;
  return length;
}
RECORD_NO_THROW(-1)

void TimelineReplayerReader::close() {
  m_state->file.Close();
}

unsigned int TimelineReplayerReader::get_start_timestamp() const {
  return static_cast<unsigned int>(m_state->playing.timestamp);
}

void TimelineReplayerReader::lock() {
  if (m_state->search) pthread_mutex_lock(m_state->search);
}

void TimelineReplayerReader::unlock() {
  if (m_state->search) pthread_mutex_unlock(m_state->search);
}

int TimelineReplayerReader::expandFrameBuf(char** buffer, unsigned int& capacity, const unsigned int& needed) {
  constexpr unsigned int kStep = 131072;
  if (needed <= capacity) return 0;
  const unsigned int larger = needed / kStep * kStep + kStep;
  std::free(*buffer);
  *buffer = static_cast<char*>(std::malloc(larger));
  capacity = *buffer ? larger : 0;
  RECORD_LOG("Expand frame buffer to size %u\n\n", larger);
  return *buffer ? 0 : -1;
}

int TimelineReplayerReader::GetFileDuration(const char* path) try { return ReplayFileDuration(path, nullptr); }
RECORD_NO_THROW(-1)

int TimelineReplayerReader::GetFileStartTime(const char* path, struct tm* start) try {
  return ReplayFileStart(path, start);
}
RECORD_NO_THROW(-1)
