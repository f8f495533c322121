#include "platform/host/mp4_muxer.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "base/log.h"
#include "platform/host/length_prefix.h"

namespace record {
namespace {

// A group that is larger or longer becomes several fragments, which bounds the memory and what a crash costs.
constexpr size_t kLargestFragment = 8 << 20;
constexpr std::int64_t kLongestFragmentMs = 5000;
// Sound that comes before the first picture waits for it, within limits.
constexpr size_t kMostSoundAhead = 1 << 20;
constexpr std::int64_t kLongestSoundAheadMs = 10000;
constexpr std::int64_t kSoundToleranceMs = 50;
constexpr int kDefaultFramerate = 25;
constexpr int kDefaultSamplerate = 8000;
constexpr std::int64_t kDefaultAllowance = 3600;
constexpr std::int32_t kCodeAac = 10;
constexpr std::int32_t kCodeUlaw = 11;
constexpr std::int32_t kCodeAlaw = 12;

std::int64_t LongestGapMs(const Emp4ExtraParams* extra) {
  return 1000 * (extra != nullptr && extra->duration > 0 ? extra->duration : kDefaultAllowance);
}

}  // namespace

std::unique_ptr<Mp4Muxer> Mp4Muxer::Open(const char* path, const Emp4VideoParams& video,
                                         const Emp4AudioParams* audio, const Emp4ExtraParams* extra,
                                         size_t mostTables) {
  errno = EINVAL;
  if (video.codec != VIDEO_CODEC_H264 && video.codec != VIDEO_CODEC_H265) return nullptr;
  std::unique_ptr<Mp4Muxer> muxer(new Mp4Muxer(video, extra, mostTables));
  if (audio != nullptr && audio->enabled != 0 && !muxer->SetSound(*audio)) return nullptr;
  const int error = muxer->m_file.Create(path);
  if (error == 0) return muxer;
  muxer.reset();
  errno = error;
  return nullptr;
}

Mp4Muxer::Mp4Muxer(const Emp4VideoParams& video, const Emp4ExtraParams* extra, size_t mostTables)
    : m_mostTables(mostTables),
      m_codec(static_cast<VideoCodec>(video.codec)),
      m_configuredSize({video.width, video.height}),
      m_frameMs(1000u / static_cast<unsigned>(std::clamp(video.framerate, 1, 1000))),
      m_line(LongestGapMs(extra)) {
  if (video.framerate < 1) m_frameMs = 1000 / kDefaultFramerate;
  if (extra != nullptr) m_movie.creationTime = extra->creation_time;
}

bool Mp4Muxer::SetSound(const Emp4AudioParams& audio) {
  m_samplerate = audio.samplerate > 0 ? audio.samplerate : kDefaultSamplerate;
  m_channels = std::max(audio.channels, 1);
  if (audio.codec == kCodeAac) {
    m_sound = Sound::Aac;
    return true;
  }
  if (audio.codec != kCodeUlaw && audio.codec != kCodeAlaw) return false;
  m_sound = audio.codec == kCodeUlaw ? Sound::Ulaw : Sound::Alaw;
  TrackDescription& track = m_movie.tracks[kMp4Audio];
  track.timeScale = static_cast<std::uint32_t>(m_samplerate);
  track.sampleDescription = DescribeG711(audio.codec == kCodeUlaw ? "ulaw" : "alaw", m_samplerate, m_channels);
  m_clocks[kMp4Audio] = TrackClock(track.timeScale, kSoundToleranceMs);
  return true;
}

bool Mp4Muxer::LearnVideo(const unsigned char* keyFrame, int length) {
  const DecoderSets sets = FindDecoderSets(m_codec, keyFrame, static_cast<size_t>(length));
  if (!sets.complete) return false;
  const PictureSize size = SizeOfPictures(m_codec, keyFrame, length, m_configuredSize);
  TrackDescription& track = m_movie.tracks[kMp4Video];
  track.sampleDescription = DescribeVideo(m_codec, sets.bytes, size);
  if (track.sampleDescription.empty()) return false;
  track.width = size.width;
  track.height = size.height;
  track.timeScale = kMovieTimeScale;  // stamps are milliseconds, so nothing is rounded
  m_clocks[kMp4Video] = TrackClock(track.timeScale, 0);
  return true;
}

void Mp4Muxer::LearnAac(const AacConfig& config) {
  TrackDescription& track = m_movie.tracks[kMp4Audio];
  track.sampleDescription = DescribeAac(config);
  m_aac = config;
  if (track.sampleDescription.empty()) {
    m_sound = Sound::None;
    return;
  }
  track.timeScale = static_cast<std::uint32_t>(RateOf(config));
  m_clocks[kMp4Audio] = TrackClock(track.timeScale, kSoundToleranceMs);
}

int Mp4Muxer::WriteVideo(bool isKey, const unsigned char* data, int length, std::uint32_t stamp) {
  FindUnits(data, static_cast<size_t>(length), &m_units);
  if (m_units.empty()) return -EINVAL;
  if (m_needsKey && !isKey) return -EAGAIN;
  const bool isKnown = m_movie.tracks[kMp4Video].timeScale != 0;
  if (!isKnown && !LearnVideo(data, length)) return -EAGAIN;
  m_needsKey = true;  // should memory run out: what follows leans on this picture
  const int error = TakePicture(isKey, data, static_cast<size_t>(length), stamp);
  if (error == 0) m_needsKey = false;
  return error;
}

int Mp4Muxer::TakePicture(bool isKey, const unsigned char* data, size_t length, std::uint32_t stamp) {
  const std::int64_t place = m_line.Place(kMp4Video, stamp, m_frameMs);
  if (isKey && HasVideoPending()) Flush(place);
  if (!MakeRoom(length, place) && !isKey) return -ENOSPC;
  // The first picture's file can be opened at once.
  if (const int error = WriteHead(false); error != 0) m_error = error;
  Add(kMp4Video, isKey, SizeWithLengths(m_units), place, m_frameMs);
  AppendWithLengths(data, m_units, &m_media);
  return 0;
}

int Mp4Muxer::WriteAudio(const unsigned char* data, int length, std::uint32_t stamp) {
  switch (m_sound) {
    case Sound::None:
      return -EINVAL;
    case Sound::Aac:
      return WriteAac(data, length, stamp);
    default:
      return WriteG711(data, length, stamp);
  }
}

int Mp4Muxer::WriteG711(const unsigned char* data, int length, std::uint32_t stamp) {
  const auto samples = static_cast<std::uint32_t>(std::max(1, length / m_channels));
  return AddAudio(data, static_cast<size_t>(length), stamp, samples);
}

// The head is taken off; a buffer may hold several frames.
int Mp4Muxer::WriteAac(const unsigned char* data, int length, std::uint32_t stamp) {
  int result = -EINVAL;
  std::uint64_t samples = 0;
  for (auto left = static_cast<size_t>(length); left > 0; samples += kAacSamples) {
    const std::optional<AdtsFrame> frame = ParseAdts(data, left);
    if (!frame) break;
    if (!m_aac) LearnAac(frame->config);
    if (m_sound == Sound::None || !(*m_aac == frame->config)) return -EINVAL;
    const auto later = static_cast<std::uint32_t>(samples * 1000 / static_cast<unsigned>(RateOf(*m_aac)));
    result = AddAudio(data + frame->headLength, frame->length - frame->headLength, stamp + later, kAacSamples);
    if (result != 0) break;
    data += frame->length;
    left -= frame->length;
  }
  return result;
}

int Mp4Muxer::AddAudio(const unsigned char* data, size_t length, std::uint32_t stamp, std::uint32_t duration) {
  const std::uint32_t scale = m_movie.tracks[kMp4Audio].timeScale;
  const std::int64_t place = m_line.Place(kMp4Audio, stamp, std::int64_t{1000} * duration / scale);
  if (m_movie.tracks[kMp4Video].timeScale == 0) {
    const bool isTooMuch = m_media.size() + length > kMostSoundAhead ||
                           (!m_pending.empty() && place - m_pending.front().place > kLongestSoundAheadMs);
    if (isTooMuch) return -EAGAIN;
  } else {
    MakeRoom(length, place);
  }
  if (const int error = WriteHead(false); error != 0) m_error = error;
  Add(kMp4Audio, false, length, place, duration);
  m_media.insert(m_media.end(), data, data + length);
  return 0;
}

// All that may fail comes first, the room for the bytes too: a sample without its bytes would shift all behind it.
void Mp4Muxer::Add(Mp4Track track, bool isKey, size_t size, std::int64_t place, std::uint32_t duration) {
  const size_t needed = m_media.size() + size;
  if (needed > m_media.capacity()) m_media.reserve(std::max(needed, 2 * m_media.capacity()));
  m_pending.push_back({{track, isKey, static_cast<std::uint32_t>(size), 0, duration}, place});
}

bool Mp4Muxer::HasVideoPending() const {
  return std::any_of(m_pending.begin(), m_pending.end(),
                     [](const Pending& pending) { return pending.sample.track == kMp4Video; });
}

bool Mp4Muxer::IsFull(size_t more, std::int64_t place) const {
  if (m_pending.empty()) return false;
  return m_media.size() + more > kLargestFragment || place - m_pending.front().place >= kLongestFragmentMs;
}

// A group that could not be written waits for the next key frame, unless it has become too much to keep.
bool Mp4Muxer::MakeRoom(size_t more, std::int64_t place) {
  if (!m_isStuck && IsFull(more, place)) Flush(std::nullopt);
  if (!m_isStuck || m_media.size() + more <= 2 * kLargestFragment) return true;
  GiveUpPending();
  return false;
}

void Mp4Muxer::GiveUpPending() {
  RECORD_LOG("%u frames could not be written to an MP4 file\n\n", static_cast<unsigned>(m_pending.size()));
  m_pending.clear();
  m_media.clear();
  m_timed = 0;
  m_isStuck = false;
  m_needsKey = true;
}

int Mp4Muxer::WriteHead(bool must) {
  if (m_hasHead || m_movie.tracks[kMp4Video].timeScale == 0) return 0;
  if (m_sound == Sound::Aac && !m_aac) {
    if (!must) return 0;  // the first frame of sound tells
    const std::optional<AacConfig> config = AacConfigFor(m_samplerate, m_channels);
    if (config) LearnAac(*config);
    if (!config) m_sound = Sound::None;
  }
  const int error = m_file.Append(FileHead(m_movie), {});
  m_hasHead = error == 0;
  return error;
}

// Every sample lasts until the next one of its track.
void Mp4Muxer::SetTimes(std::optional<std::int64_t> nextPicture) {
  if (!m_origin) {
    m_origin = m_pending.front().place;
    for (const Pending& pending : m_pending) m_origin = std::min(*m_origin, pending.place);
  }
  FragmentSample* last[kMp4Tracks] = {};
  for (size_t at = 0; at < m_pending.size(); ++at) {
    FragmentSample& sample = m_pending[at].sample;
    if (at >= m_timed) sample.time = m_clocks[sample.track].Next(m_pending[at].place - *m_origin, sample.duration);
    if (FragmentSample* before = last[sample.track]; before != nullptr)
      before->duration = static_cast<std::uint32_t>(sample.time - before->time);
    last[sample.track] = &sample;
  }
  m_timed = m_pending.size();
  if (FragmentSample* picture = last[kMp4Video]; picture != nullptr && nextPicture) {
    picture->duration =
        static_cast<std::uint32_t>(std::max<std::int64_t>(1, *nextPicture - *m_origin - picture->time));
  }
}

std::vector<FragmentSample> Mp4Muxer::PendingSamples() const {
  std::vector<FragmentSample> samples;
  samples.reserve(m_pending.size());
  for (const Pending& pending : m_pending) samples.push_back(pending.sample);
  return samples;
}

int Mp4Muxer::WriteFragment() {
  const std::vector<FragmentSample> samples = PendingSamples();
  const Bytes head = FragmentHead(samples, m_fragments + 1);
  const std::uint64_t offset = m_file.Size() + head.size();
  const int error = m_file.Append(head, m_media);
  if (error != 0) return error;
  ++m_fragments;
  if (m_hasTables) TakeDown(samples, offset);
  return 0;
}

// The fragment is in the file, whatever happens here: it must not be written again.
void Mp4Muxer::TakeDown(const std::vector<FragmentSample>& samples, std::uint64_t offset) {
  try {
    for (const FragmentSample& sample : samples) {
      if (!m_tables[sample.track].Add({sample.time, sample.size, sample.isKey, offset}))
        return StayInFragments("a hole is longer than an index can tell");
      m_movie.tracks[sample.track].lastDuration = sample.duration;
      offset += sample.size;
    }
  } catch (const std::bad_alloc&) {
    return StayInFragments("no memory for its index");
  }
  if (m_tables[kMp4Video].Memory() + m_tables[kMp4Audio].Memory() > m_mostTables)
    StayInFragments("its index would take too much memory");
}

// Each fragment tells its own times and places, so nothing is lost.
void Mp4Muxer::StayInFragments(const char* why) {
  m_hasTables = false;
  for (SampleTable& table : m_tables) table.Clear();
  RECORD_LOG("an MP4 file stays in fragments: %s\n\n", why);
}

void Mp4Muxer::Flush(std::optional<std::int64_t> nextPicture) {
  if (m_pending.empty()) return;
  int error = WriteHead(true);
  if (error == 0) {
    SetTimes(nextPicture);
    error = WriteFragment();
  }
  m_isStuck = error != 0;
  if (m_isStuck) {
    m_error = error;
    return;
  }
  m_pending.clear();
  m_media.clear();
  m_timed = 0;
}

int Mp4Muxer::Commit() {
  const int error = m_error;
  m_error = 0;
  return -error;
}

int Mp4Muxer::Finish() {
  if (m_movie.tracks[kMp4Video].timeScale != 0) Flush(std::nullopt);
  const int lost = m_isStuck ? m_error : 0;
  if (!m_hasTables) return lost != 0 ? -lost : -m_file.Sync();
  if (m_tables[kMp4Video].IsEmpty()) return -lost;
  try {
    const int error = WriteIndex();
    if (error != 0) RECORD_LOG("an MP4 file stays in fragments, err=%s\n\n", std::strerror(error));
    return lost != 0 ? -lost : -error;
  } catch (const std::bad_alloc&) {
    StayInFragments("no memory for its index");
    return lost != 0 ? -lost : -m_file.Sync();
  }
}

int Mp4Muxer::WriteIndex() {
  const std::uint64_t indexOffset = m_file.Size();
  int error = m_file.Append(HiddenIndex(m_movie, m_tables), {});
  // The index has to be on the medium before the switch uncovers it.
  if (error == 0) error = m_file.Sync();
  if (error == 0) error = m_file.WriteOver(kFileTypeSize, FinishingSwitch(indexOffset));
  if (error == 0) error = m_file.Sync();
  return error;
}

}  // namespace record
