#include <algorithm>
#include <limits>

#include "base/log.h"
#include "format/avi/avi_contents.h"
#include "format/avi/avi_params.h"
#include "format/defaults.h"
#include "format/frame_window.h"
#include "record/video_file.h"

using namespace record;

namespace {

constexpr std::uint32_t kLongestFrame = 512000;  // unless the caller takes longer ones
constexpr std::uint32_t kLongestRecorded = std::numeric_limits<std::int32_t>::max();

// Results of GetMediaFrame.
constexpr int kNotOpen = -1;
constexpr int kEndOfData = -2;
constexpr int kTooLarge = -3;
constexpr int kDamaged = 0;

}  // namespace

struct CAviFile::State {
  FileSource source;
  FrameWindow frames{source};
  AviHead head;
  AviContents contents;
  VIDEO_PARAM video = {};
  AUDIO_PARAM audio = {};
  long long position = 0;       // of the next chunk; at the list's type before the first one
  std::uint32_t timestamp = 0;  // milliseconds, of the last video frame
  std::uint32_t interval = kDefaultInterval;
  std::uint32_t longest = kLongestFrame;
  bool lends = false;

  bool ReadHead();
  bool ReadFile();
  void GoTo(long long offset, std::uint32_t milliseconds);
  bool AtEnd() const { return contents.dataEnd - position < kAviChunkHeadSize; }
  bool HasGrown();
  int NextHead(AviChunkHead& chunk);
  int ReadFrame(const AviChunkHead& chunk, FramePayload& payload);
};

bool CAviFile::State::ReadHead() {
  switch (AviReadHead(source, head)) {
    case AviHeadState::Short:
      RECORD_LOG_TEXT("read avi file header failed. maybe bad avi file.\n\n");
      return false;
    case AviHeadState::UnknownStreams:
      RECORD_LOG("avi_header.dwStreams = %d, maybe bad avi file.\n\n", static_cast<int>(head.begin.main.streams));
      return false;
    case AviHeadState::ShortTemplate:
      if (head.HasAudio())
        RECORD_LOG_TEXT("read avi file av header failed. maybe bad avi file.\n\n");
      else
        RECORD_LOG_TEXT("read avi file video header failed. maybe bad avi file.\n\n");
      return false;
    default:
      return true;
  }
}

bool CAviFile::State::ReadFile() {
  if (!ReadHead()) return false;
  video = AviVideoParam(head);
  audio = head.HasAudio() ? AviAudioParam(head) : AUDIO_PARAM{};
  if (!AviReadContents(source, head, contents)) return false;
  const FrameTotals& totals = contents.totals;
  interval = 1000 / contents.framerate;
  RECORD_LOG("video frame: %d, video keyframe count: %d, audio frame: %d, framerate: %d, duration: %d s\n\n",
             static_cast<int>(totals.videoFrames), static_cast<int>(totals.keyFrames),
             static_cast<int>(totals.audioFrames), static_cast<int>(contents.framerate),
             static_cast<int>(contents.duration));
  if (contents.firstKey >= 0) AviReadConfig(source, head.Codec(), contents.firstKey, video);
  GoTo(head.ListStart(), 0);
  frames.Blocks().Drop();
  return true;
}

void CAviFile::State::GoTo(long long offset, std::uint32_t milliseconds) {
  position = offset;
  timestamp = milliseconds;
  frames.Jumped();
}

// At the end of a file that was being written when it was opened: it may have been appended to, or finished.
bool CAviFile::State::HasGrown() {
  if (contents.indexed) return false;
  if (source.RefreshSize()) {
    frames.Blocks().Drop();
    frames.Jumped();
    std::uint32_t moviSize = 0;
    source.ReadAt(AviMoviSizeOffset(head.HasAudio()), &moviSize, sizeof moviSize);
    if (moviSize != head.movi.size) {
      contents.indexed = true;
      contents.dataEnd = std::min(AviIndexOffset(head.HasAudio(), moviSize), source.Size());
      return !AtEnd();
    }
  }
  AviChunkHead chunk;
  if (source.ReadAt(contents.dataEnd, &chunk, sizeof chunk) != sizeof chunk || !AviIsFrame(chunk.id)) return false;
  const long long end = AviChunkEnd(contents.dataEnd, chunk.length);
  if (end > source.Size()) return false;
  contents.dataEnd = end;
  return true;
}

// 1 with the head of a frame at the position, else a result of GetMediaFrame.
int CAviFile::State::NextHead(AviChunkHead& chunk) {
  position = std::max(position, head.FirstChunk());  // the list's type is no chunk
  if (AtEnd() && !HasGrown()) {
    RECORD_LOG_TEXT("CAviFile meida data reach end!!!\n\n");
    return kEndOfData;
  }
  const bool whole = frames.ReadHead(position, &chunk, sizeof chunk);
  const bool hasId = whole || source.ReadAt(position, &chunk.id, sizeof chunk.id) == sizeof chunk.id;
  if (whole && AviIsFrame(chunk.id)) return 1;
  position += sizeof chunk.id;
  if (!whole) frames.Jumped();
  if (!hasId)
    RECORD_LOG_TEXT("CAviFile read flag failed!!!\n\n");
  else if (!AviIsFrame(chunk.id))
    RECORD_LOG("read bad flag = 0x%x\n\n", chunk.id);
  else
    RECORD_LOG_TEXT("CAviFile read len failed!!!\n\n");
  return kDamaged;
}

int CAviFile::State::ReadFrame(const AviChunkHead& chunk, FramePayload& payload) {
  const long long begin = position + kAviChunkHeadSize;
  const long long end = AviChunkEnd(position, chunk.length);
  const bool whole = end <= contents.dataEnd;
  position = whole ? end : begin;
  if (chunk.length > longest) {
    frames.Jumped();
    RECORD_LOG("CAviFile frame len = %d is too large!!!\n\n", static_cast<int>(chunk.length));
    return kTooLarge;
  }
  if (!whole || !frames.ReadPayload(begin, chunk.length, lends, payload)) {
    frames.Jumped();
    RECORD_LOG_TEXT("CAviFile read frame failed!!!\n\n");
    return kDamaged;
  }
  frames.Delivered();
  return static_cast<int>(chunk.length);
}

CAviFile::CAviFile() : m_state(new State) {}

CAviFile::~CAviFile() {
  m_state->source.Close();
}

int CAviFile::Open(const char* path) {
  State& state = *m_state;
  if (state.source.IsOpen()) {
    RECORD_LOG_TEXT("file already open!\n\n");
    return 0;
  }
  if (!path || !state.source.Open(path)) return 0;
  if (state.ReadFile()) return 1;
  Close();
  return 0;
}

int CAviFile::Close() {
  m_state->source.Close();
  m_state->contents = {};
  return 1;
}

int CAviFile::GetMeidaParam(unsigned long* flags, VIDEO_PARAM* video, AUDIO_PARAM* audio) {
  const bool hasAudio = m_state->head.HasAudio();
  if (flags) *flags = RECORD_STREAM_VIDEO | (hasAudio ? RECORD_STREAM_AUDIO : 0u);
  if (video) *video = m_state->video;
  if (audio) *audio = m_state->audio;
  return 0;
}

int CAviFile::GetVideoFrameCount() {
  return ToInt(static_cast<unsigned long long>(m_state->contents.totals.videoFrames));
}

int CAviFile::GetVideoFramerate() {
  return ToInt(m_state->source.IsOpen() ? m_state->contents.framerate : 1000 / kDefaultInterval);
}

int CAviFile::GetVideoFrameInterval() {
  return ToInt(m_state->interval);
}

int CAviFile::GetAudioFrameCount() {
  return ToInt(static_cast<unsigned long long>(m_state->contents.totals.audioFrames));
}

int CAviFile::GetTimeDuration() {
  return ToInt(m_state->contents.duration);
}

int CAviFile::GetKeyFrameTimeInterval() {
  const auto keys = static_cast<unsigned long long>(m_state->contents.totals.keyFrames);
  return keys == 0 ? 4000 : ToInt(1000ULL * m_state->contents.duration / keys);
}

int CAviFile::SeekTimeByPercent(unsigned long) {
  return 0;
}

int CAviFile::GetTimeOffset() {
  return static_cast<int>(m_state->timestamp);
}

int CAviFile::GetMediaFrame(unsigned char** ppData, long& bOwned, long& bVideo, long& bKeyFrame,
                            unsigned long& nTimeStamp) {
  State& state = *m_state;
  if (!state.source.IsOpen()) {
    RECORD_LOG_TEXT("CAviFile file not open!!!\n\n");
    return kNotOpen;
  }
  *ppData = nullptr;
  AviChunkHead chunk;
  FramePayload payload;
  int result = state.NextHead(chunk);
  if (result <= 0) return result;
  result = state.ReadFrame(chunk, payload);
  if (result < 0 || (result == 0 && chunk.length > 0)) return result;
  const bool video = chunk.id == kAviVideoId;
  if (video) state.timestamp += state.interval;
  bVideo = video ? 1 : 0;
  bKeyFrame = !video || IsKeyFrame(state.head.Codec(), payload.data, chunk.length) ? 1 : 0;
  nTimeStamp = state.timestamp;
  payload.HandOver(ppData, bOwned);
  return result;
}

// The time stamp becomes the latest second that this key frame serves, not the one that was asked for: kept.
int CAviFile::SeekTimeOffset(unsigned long seconds) {
  State& state = *m_state;
  if (!state.source.IsOpen()) {
    RECORD_LOG_TEXT("CAviFile::SeekTimeOffset() file not open!!!\n\n");
    return -1;
  }
  if (seconds >= state.contents.duration) {
    RECORD_LOG("CAviFile::SeekTimeOffset(): nTimeOffset=%d > m_nDuration = %d\n\n", static_cast<int>(seconds),
               static_cast<int>(state.contents.duration));
    return -1;
  }
  const std::vector<long long>& slots = state.contents.slots;
  const auto last = static_cast<std::size_t>(state.contents.Seconds()) - 1;
  std::size_t slot = std::min<std::size_t>(seconds, last);
  const long long offset = slots[slot];
  while (slot < last && slots[slot + 1] == offset) ++slot;
  state.GoTo(offset, static_cast<std::uint32_t>(slot * 1000));
  return 0;
}

int CAviFile::SkipToSecond(unsigned long seconds) {
  State& state = *m_state;
  if (!state.source.IsOpen() || seconds >= static_cast<unsigned long>(state.contents.Seconds())) return -1;
  state.GoTo(state.contents.slots[seconds], state.contents.keyNumbers[seconds] * state.interval);
  return 0;
}

// The writer knows no limit: an intra frame of a high-rate camera is longer than the ordinary one. No more is
// allocated than the file holds.
void CAviFile::TakeLongFrames() {
  m_state->longest = kLongestRecorded;
}

void CAviFile::LendFrames() {
  m_state->lends = true;
}

int CAviFile::MoveNextKeyFrame() {
  State& state = *m_state;
  if (!state.source.IsOpen()) {
    RECORD_LOG_TEXT("CAviFile::MoveNextKeyFrame() file not open!!!\n\n");
    return -1;
  }
  const AviContents& contents = state.contents;
  if (state.position >= contents.dataEnd) {
    RECORD_LOG_TEXT("CAviFile::MoveNextKeyFrame() meida data reach end!!!\n\n");
    return -2;
  }
  if (contents.slots.empty()) {
    RECORD_LOG_TEXT("CAviFile::MoveNextKeyFrame(): m_nVideoKeyFrameOffset = NULL!!!\n\n");
    return -3;
  }
  const auto from = contents.slots.begin();
  const auto end = from + contents.Seconds();
  const auto next = std::find_if(from, end, [&state](long long offset) { return offset > state.position; });
  if (next == end) return -1;
  state.GoTo(*next, static_cast<std::uint32_t>((next - from) * 1000));
  return 0;
}

int CAviFile::MovePrevKeyFrame() {
  State& state = *m_state;
  if (!state.source.IsOpen()) {
    RECORD_LOG_TEXT("CAviFile::MovePrevKeyFrame() file not open!!!\n\n");
    return -1;
  }
  if (state.position <= state.head.ListStart()) {
    RECORD_LOG_TEXT("CAviFile::MovePrevKeyFrame() meida data reach start!!!\n\n");
    return -2;
  }
  const AviContents& contents = state.contents;
  int from = contents.Seconds() - 1;
  const auto slot = [&contents](int second) { return contents.slots[static_cast<std::size_t>(second)]; };
  while (from > 0 && slot(from) > state.position) --from;
  if (from <= 0) return -1;
  int second = from - 1;
  while (second >= 0 && slot(second) == slot(from)) --second;
  const long long offset = second >= 0 ? slot(second) : state.head.ListStart();
  state.GoTo(offset, static_cast<std::uint32_t>(std::max(second, 0) * 1000));
  RECORD_LOG("MovePrevKeyFrame(): keyframe off= %d, i = %d \n\n", static_cast<int>(offset), second);
  return 0;
}
