#include "tools/recordctl/convert_source.h"

#include <sys/stat.h>

#include <cmath>

#include "tools/recordctl/media_params.h"
#include "tools/recordctl/output.h"
#include "tools/recordctl/record_state.h"
#include "tools/recordctl/sound_guess.h"

namespace recordctl {
namespace {

constexpr long long kMostBeforeStartMs = 60 * 1000;
constexpr double kMostDriftMs = 1000;

long long FileSize(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 ? static_cast<long long>(status.st_size) : 0;
}

}  // namespace

ConvertSource::ConvertSource(const RecordFile& file, long long startMs) : m_file(file), m_startMs(startMs) {}

bool ConvertSource::Open(const std::string& name, int audioType) {
  m_opened = OpenRecord(m_file, name);
  if (m_opened == nullptr) return false;
  m_reader = std::make_unique<DecodeOrder>(*m_opened, m_file.container == Container::kMp4);
  unsigned long flags = 0;
  m_opened->GetMeidaParam(&flags, &m_video, &m_audio);
  if ((flags & RECORD_STREAM_VIDEO) == 0) {
    Say(name + ": holds no video");
    return false;
  }
  const int seconds = DurationSeconds();
  // The bit rate that MP4 files are read with is the same for all.
  if (m_file.container == Container::kMp4 && seconds > 0)
    m_video.bitrate = static_cast<std::uint32_t>(FileSize(m_file.path) * 8 / seconds);
  return SetMedia((flags & RECORD_STREAM_AUDIO) != 0, audioType);
}

bool ConvertSource::SetMedia(bool hasAudio, int audioType) {
  int type = hasAudio ? AudioTypeOf(m_audio) : static_cast<int>(AUDIO_CODEC_NONE);
  if (hasAudio && IsVague(m_audio)) {
    type = audioType != AUDIO_CODEC_NONE ? audioType : GuessSound(m_file);
    if (audioType == AUDIO_CODEC_NONE)
      Say(std::string("AVI files do not tell their sound apart: taken for ") + AudioTypeName(type) +
          ", --audio says it otherwise");
  } else if (hasAudio && audioType != AUDIO_CODEC_NONE && audioType != type) {
    Say(std::string("the file says that its sound is ") + AudioTypeName(type));
    return false;
  }
  m_media = MediaParams(m_video, &m_audio, type);
  m_media.duration = m_media.max_file_seconds = DurationSeconds() > 0 ? DurationSeconds() : 1;
  return true;
}

// AVI files give all frames the time of the last picture: sound is put where the sound before it ends, unless that
// has come too far from the pictures.
std::uint32_t ConvertSource::SoundStamp(std::uint32_t pictureStamp, long bytes) {
  if (m_soundMs < 0 || std::abs(m_soundMs - pictureStamp) > kMostDriftMs) m_soundMs = pictureStamp;
  const auto stamp = static_cast<std::uint32_t>(m_soundMs);
  m_soundMs += SoundMs(m_media.audio_type, m_audio, bytes);
  return stamp;
}

std::uint32_t ConvertSource::StampOf(const Frame& frame) {
  const auto stamp = static_cast<std::uint32_t>(frame.timestamp);
  return m_file.container == Container::kAvi && !frame.video ? SoundStamp(stamp, frame.length) : stamp;
}

// Where the first frame stands on the wall clock. A KMV file's stamps tell it, and may begin before the file does;
// in a time lapse they tell nothing.
void ConvertSource::SetOrigin(std::uint32_t stamp) {
  m_hasOrigin = true;
  m_lastStamp = stamp;
  m_wallMs = m_startMs;
  if (m_file.container != Container::kKmv) return;
  const long long behind = static_cast<std::int32_t>(stamp - static_cast<std::uint32_t>(m_startMs));
  if (behind >= -kMostBeforeStartMs && behind <= kLongestFileMs) m_wallMs += behind;
}

bool ConvertSource::Next(TimedFrame& frame) {
  if (!m_reader->Next(frame)) return false;
  const std::uint32_t stamp = StampOf(frame);
  if (!m_hasOrigin) SetOrigin(stamp);
  m_wallMs += static_cast<std::int32_t>(stamp - m_lastStamp);
  m_lastStamp = stamp;
  frame.elapsedMs = m_wallMs - m_startMs;
  frame.stamp = m_file.container == Container::kKmv ? stamp : static_cast<std::uint32_t>(m_wallMs);
  return true;
}

}  // namespace recordctl
