#include <algorithm>
#include <cstring>
#include <limits>

#include "base/log.h"
#include "format/defaults.h"
#include "format/kmv/kmv_end.h"
#include "format/kmv/kmv_packet_reader.h"
#include "format/kmv/kmv_scan.h"
#include "record/video_file.h"

using namespace record;

namespace {

void CopyName(char (&to)[32], const char (&from)[kKmvCodecNameMax]) {
  std::memcpy(to, from, sizeof(to));
  to[sizeof(to) - 1] = '\0';
}

}  // namespace

struct CKmvFile::State {
  FileSource source;
  KmvPacketReader packets{source};
  KmvVideoFileHead head = {};
  KmvEnd end = {};  // the index is rebuilt when the tail is missing
  bool tailFound = false;
  std::uint32_t videoFrames = 0;
  std::uint32_t keyFrames = 0;
  std::uint32_t audioFrames = 0;
  std::uint32_t framerate = kDefaultFramerate;
  std::uint32_t duration = 0;  // seconds
  long long position = 0;      // behind the last packet delivered, or where the last seek or move led to
  int timeOffset = 0;          // milliseconds of the last seek or move
  bool hasFirst = false;
  std::uint32_t firstStamp = 0;  // of the first packet
  bool lends = false;

  int ReadFileInfo();
  bool ReadHead();
  void TakeEnd();
  void ScanFile();
  void GoTo(long long offset, long long second);
  void TakeFirst(const KmvPacketHead& packet);
  int IndexedSeconds() const { return static_cast<int>(std::min<std::uint32_t>(duration, kKmvIndexSlots)); }
  bool HoldsData(std::uint32_t offset) const { return offset < packets.DataEnd(); }
  const KmvMediaFields& Media() const { return tailFound ? end.tail.media : head.media; }
};

bool CKmvFile::State::ReadHead() {
  return source.ReadAt(0, &head, sizeof(head)) == sizeof(head) && head.magic == KMV_HEAD_MAGIC;
}

void CKmvFile::State::TakeEnd() {
  videoFrames = end.tail.videoFrames;
  audioFrames = end.tail.audioFrames;
  keyFrames = end.tail.keyFrames;
  end.index.lastSlot = std::min<std::uint32_t>(end.index.lastSlot, kKmvIndexSlots - 1);
}

void CKmvFile::State::ScanFile() {
  RECORD_LOG_TEXT("No tail found. try to scan whole file.\n\n");
  const KmvTotals totals = KmvScan(source, head.streamFlags);
  end.tail = {};
  end.tail.duration = totals.duration;
  end.index = totals.index;
  videoFrames = static_cast<std::uint32_t>(totals.videoFrames);
  audioFrames = static_cast<std::uint32_t>(totals.audioFrames);
  keyFrames = static_cast<std::uint32_t>(totals.keyFrames);
}

// The head's own size field is not asked: there has only ever been one size, another value is damage.
int CKmvFile::State::ReadFileInfo() {
  if (!ReadHead()) return -1;
  tailFound = KmvReadEnd(source, source.Size(), end) == KmvEndState::Whole;
  if (tailFound) {
    TakeEnd();
  } else {
    ScanFile();
  }
  duration = end.tail.duration / 1000;
  framerate = Media().video.framerate;
  RECORD_LOG(
      "Got video frame = %d, audio frame = %d, key video frame = %d, video framerate = %d, interval = %d.\n\n",
      static_cast<int>(videoFrames), static_cast<int>(audioFrames), static_cast<int>(keyFrames),
      static_cast<int>(framerate), static_cast<int>(framerate == 0 ? kDefaultInterval : 1000 / framerate));
  return 0;
}

void CKmvFile::State::GoTo(long long offset, long long second) {
  packets.Seek(offset);
  position = offset;
  timeOffset = static_cast<int>(second * 1000);
}

void CKmvFile::State::TakeFirst(const KmvPacketHead& packet) {
  if (!hasFirst) firstStamp = packet.timestamp;
  hasFirst = true;
}

CKmvFile::CKmvFile() : m_state(new State) {}

CKmvFile::~CKmvFile() {
  m_state->source.Close();
}

int CKmvFile::Open(const char* path) {
  State& state = *m_state;
  if (state.source.IsOpen()) {
    RECORD_LOG_TEXT("file already open!\n\n");
    return -1;
  }
  if (!path || !state.source.Open(path)) return -1;
  if (state.source.Size() < kKmvHeadSize) {
    RECORD_LOG("filesize %d error.!\n\n", static_cast<int>(state.source.Size()));
    state.source.Close();
    return -1;
  }
  if (state.ReadFileInfo() != 0) {
    RECORD_LOG_TEXT("ReadFileInfo error.!\n\n");
    state.source.Close();
    return -1;
  }
  state.packets.Begin(state.tailFound ? static_cast<long long>(state.end.tail.indexOffset) : -1);
  state.position = kKmvHeadSize;
  state.timeOffset = 0;
  state.hasFirst = false;
  KmvPacketHead first;
  if (state.packets.Peek(first)) state.TakeFirst(first);
  return 1;
}

int CKmvFile::Close() {
  m_state->source.Close();
  return 1;
}

int CKmvFile::GetMeidaParam(unsigned long* flags, VIDEO_PARAM* video, AUDIO_PARAM* audio) {
  const std::uint32_t streams = m_state->head.streamFlags;
  const KmvMediaFields& media = m_state->Media();
  if (flags) *flags = streams;
  if (video && (streams & RECORD_STREAM_VIDEO)) {
    *video = {};
    CopyName(video->codec, media.video.codec);
    video->width = media.video.width;
    video->height = media.video.height;
    video->framerate = media.video.framerate;
    video->bitrate = media.video.bitrate;
    std::memcpy(video->config, media.video.volData, sizeof(video->config));
    video->config_length = std::min<std::uint32_t>(media.video.volLength, sizeof(video->config));
  }
  if (audio && (streams & RECORD_STREAM_AUDIO)) {
    *audio = {};
    CopyName(audio->codec, media.audio.codec);
    audio->samplerate = media.audio.samplerate;
    audio->bits = media.audio.bits;
    audio->channels = media.audio.channels;
    audio->bitrate = media.audio.parameter;
  }
  return 0;
}

int CKmvFile::GetVideoFrameCount() {
  return static_cast<int>(m_state->end.index.lastSlot);
}

int CKmvFile::GetVideoFramerate() {
  return ToInt(m_state->framerate);
}

int CKmvFile::GetVideoFrameInterval() {
  return static_cast<int>(m_state->framerate == 0 ? kDefaultInterval : 1000 / m_state->framerate);
}

int CKmvFile::GetAudioFrameCount() {
  return ToInt(m_state->audioFrames);
}

int CKmvFile::GetTimeDuration() {
  return ToInt(m_state->duration);
}

int CKmvFile::GetKeyFrameTimeInterval() {
  if (m_state->keyFrames == 0) return 4000;
  return ToInt(1000ULL * m_state->duration / m_state->keyFrames);
}

int CKmvFile::SeekTimeOffset(unsigned long seconds) {
  State& state = *m_state;
  if (!state.source.IsOpen()) {
    RECORD_LOG_TEXT("CKmvFile::SeekTimeOffset() file not open!!!\n\n");
    return -1;
  }
  if (seconds >= state.duration) {
    RECORD_LOG("CKmvFile::SeekTimeOffset(): nTimeOffset=%d > m_nDuration = %d\n\n", static_cast<int>(seconds),
               static_cast<int>(state.duration));
    return -1;
  }
  // Beyond the seconds that the index covers, its last entry is the nearest that is known.
  const std::uint32_t slot =
      seconds < kKmvIndexSlots ? static_cast<std::uint32_t>(seconds) : state.end.index.lastSlot;
  const std::uint32_t offset = state.end.index.slots[slot];
  if (!state.HoldsData(offset)) return -1;
  state.GoTo(offset, static_cast<long long>(seconds));
  return 0;
}

int CKmvFile::SeekTimeByPercent(unsigned long) {
  return 0;
}

int CKmvFile::GetTimeOffset() {
  return m_state->timeOffset;
}

int CKmvFile::GetMediaFrame(unsigned char** ppData, long& bOwned, long& bVideo, long& bKeyFrame,
                            unsigned long& nTimeStamp) {
  State& state = *m_state;
  if (!state.source.IsOpen()) {
    RECORD_LOG_TEXT("CKmvFile:: file not open!!!\n\n");
    return -1;
  }
  KmvPacketHead packet;
  FramePayload payload;
  const bool isScrambled = state.head.scrambleEnabled > 0;
  if (!state.packets.Next(packet, state.lends && !isScrambled, payload)) return -1;
  state.TakeFirst(packet);
  const bool video = packet.media == KMV_MEDIA_VIDEO;
  if (video && isScrambled)
    KmvInvertBytes(payload.data, packet.length, state.head.scrambleStep, state.head.scrambleStart);
  bVideo = video ? 1 : 0;
  bKeyFrame = KmvIsVideoKey(packet) ? 1 : 0;
  nTimeStamp = packet.timestamp;
  state.position = state.packets.Offset();
  payload.HandOver(ppData, bOwned);
  return static_cast<int>(packet.length);
}

void CKmvFile::LendFrames() {
  m_state->lends = true;
}

int CKmvFile::MoveNextKeyFrame() {
  State& state = *m_state;
  if (!state.source.IsOpen()) {
    RECORD_LOG_TEXT("CKmvFile::MoveNextKeyFrame() file not open!!!\n\n");
    return -1;
  }
  if (state.position >= state.source.Size()) {
    RECORD_LOG_TEXT("CKmvFile::MoveNextKeyFrame() meida data reach end!!!\n\n");
    return -2;
  }
  for (int second = 0; second < state.IndexedSeconds(); ++second) {
    const std::uint32_t offset = state.end.index.slots[second];
    if (offset <= state.position || !state.HoldsData(offset)) continue;
    state.GoTo(offset, second);
    return 0;
  }
  return -1;
}

// Kept: callers rely on these results. A second without a packet counts as standing before every position, and
// where nothing stands in front of the entry found, the move leads to the word in front of the first entry,
// which is the size of the index.
int CKmvFile::MovePrevKeyFrame() {
  State& state = *m_state;
  if (!state.source.IsOpen()) {
    RECORD_LOG_TEXT("CKmvFile::MovePrevKeyFrame() file not open!!!\n\n");
    return -1;
  }
  const KmvVideoIndex& index = state.end.index;
  int from = state.IndexedSeconds() - 1;
  while (from > 0 && index.slots[from] > state.position) --from;
  if (from <= 0) return -1;
  int second = from - 1;
  while (second >= 0 && index.slots[second] == index.slots[from]) --second;
  const std::uint32_t offset = second >= 0 ? index.slots[second] : index.indexSize;
  state.GoTo(offset, second);
  RECORD_LOG("MovePrevKeyFrame(): keyframe off= %d, i = %d \n\n", static_cast<int>(offset), second);
  return 0;
}

bool CKmvFile::GetFirstTimeStamp(std::uint32_t& stamp) const {
  stamp = m_state->firstStamp;
  return m_state->hasFirst;
}
