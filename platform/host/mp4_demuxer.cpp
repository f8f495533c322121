#include "platform/host/mp4_demuxer.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/log.h"
#include "platform/host/length_prefix.h"

namespace record {
namespace {

constexpr int kEnd = AVERROR_EOF;
constexpr std::int64_t kLongestPrimingMs = 500;  // of sound that a decoder needs and nobody hears

// ISO 14496-15: where a decoder configuration tells how long the lengths are.
size_t LengthSizeOf(const AVCodecParameters* codec) {
  const int at = codec->codec_id == AV_CODEC_ID_H264 ? 4 : 21;
  if (codec->extradata_size <= at || codec->extradata[0] != 1) return 0;
  return (codec->extradata[at] & 3u) + 1;
}

std::int32_t CodeOf(AudioCodec codec) {
  if (codec == AUDIO_CODEC_AAC) return 10;
  return codec == AUDIO_CODEC_G711_ULAW ? 11 : 12;
}

}  // namespace

std::unique_ptr<Mp4Demuxer> Mp4Demuxer::Open(const char* path, Emp4VideoParams* video, Emp4AudioParams* audio,
                                             Emp4ExtraParams* extra) {
  std::unique_ptr<Mp4Demuxer> demuxer(new Mp4Demuxer(path));
  std::string error = "not enough memory";
  demuxer->m_packet.reset(av_packet_alloc());
  if (demuxer->m_packet == nullptr || !demuxer->Reopen(&error) || !demuxer->Prepare(&error)) {
    RECORD_LOG("%s is not read: %s\n\n", path, error.c_str());
    return nullptr;
  }
  if (const std::string& refusal = demuxer->m_input->SoundRefusal(); !refusal.empty())
    RECORD_LOG("%s: %s\n\n", path, refusal.c_str());
  demuxer->Describe(video, audio, extra);
  demuxer->GoToKey(0);
  return demuxer;
}

bool Mp4Demuxer::Reopen(std::string* error) {
  std::unique_ptr<Mp4Input> input = Mp4Input::Open(m_path, error);
  if (input == nullptr) return false;
  m_input = std::move(input);
  return true;
}

bool Mp4Demuxer::Prepare(std::string* error) {
  const AVStream* video = m_input->Stream(kMp4Video);
  const std::unique_ptr<VideoShaper> shaper = VideoShaper::Create(video, error);
  if (shaper == nullptr) return false;
  m_codec = shaper->Codec();
  m_sets = shaper->Config();
  m_lengthSize = LengthSizeOf(video->codecpar);
  if (const AVStream* audio = m_input->Stream(kMp4Audio); audio != nullptr)
    m_sound = AudioShaper::Create(audio, error);
  return true;
}

void Mp4Demuxer::Describe(Emp4VideoParams* video, Emp4AudioParams* audio, Emp4ExtraParams* extra) const {
  const AVCodecParameters* codec = m_input->Stream(kMp4Video)->codecpar;
  *video = {};
  video->codec = m_codec;
  video->width = codec->width;
  video->height = codec->height;
  const int count = m_input->SampleCount(kMp4Video);
  if (count > 1) {
    const std::int64_t span = m_input->ToMs(kMp4Video, m_input->TimeOf(kMp4Video, count - 1)) -
                              m_input->ToMs(kMp4Video, m_input->TimeOf(kMp4Video, 0));
    if (span > 0) video->framerate = static_cast<std::int32_t>((1000LL * (count - 1) + span / 2) / span);
  }
  const int firstKey = m_input->NextKey(0);
  if (firstKey < count) video->keyframe_interval = m_input->NextKey(firstKey + 1) - firstKey;
  if (m_sets.size() <= sizeof(video->config)) {
    std::copy(m_sets.begin(), m_sets.end(), video->config);
    video->config_length = static_cast<std::int32_t>(m_sets.size());
  }
  DescribeSound(audio);
  *extra = {};
  // Times that a file tells may go back, or far away.
  const std::int64_t length = std::clamp<std::int64_t>(m_input->DurationMs(), 0, INT32_MAX * 1000LL);
  extra->duration = static_cast<std::int32_t>((length + 500) / 1000);
}

void Mp4Demuxer::DescribeSound(Emp4AudioParams* audio) const {
  *audio = {};
  if (m_sound == nullptr) return;
  const AVCodecParameters* codec = m_input->Stream(kMp4Audio)->codecpar;
  audio->enabled = 1;
  audio->codec = CodeOf(m_sound->Codec());
  audio->samples_per_frame = m_sound->SamplesOf(m_input->SizeOf(kMp4Audio, 0));
  audio->samplerate = codec->sample_rate;
  audio->channels = codec->ch_layout.nb_channels;
}

bool Mp4Demuxer::HasGrown() const {
  struct stat status;
  return stat(m_path.c_str(), &status) == 0 && static_cast<std::uint64_t>(status.st_size) > m_input->FileSize();
}

// Reads on in a file that has been added to: a new look at it, at what has not been handed out yet.
bool Mp4Demuxer::GoOnWhereItGrew() {
  std::string error;
  if (!HasGrown() || !Reopen(&error)) return false;
  m_isAtEnd = true;
  std::int64_t earliest = INT64_MAX;
  for (const Mp4Track track : {kMp4Video, kMp4Audio}) {
    if (m_next[track] >= m_input->SampleCount(track)) continue;
    const std::int64_t ms = m_input->ToMs(track, m_input->TimeOf(track, m_next[track]));
    earliest = std::min(earliest, ms);
  }
  if (earliest == INT64_MAX) return false;
  const int key = m_input->NumberAt(kMp4Video, m_input->FromMs(kMp4Video, earliest), true);
  if (!m_input->GoToKey(key)) return false;
  m_skipsDelivered = true;
  m_isAtEnd = false;
  return true;
}

// False at the end, or where something is broken or not written yet.
bool Mp4Demuxer::NextPacket() {
  AVPacket* packet = m_packet.get();
  for (;;) {
    if (!m_input->ReadPacket(packet)) return false;
    const bool isVideo = packet->stream_index == m_input->Stream(kMp4Video)->index;
    const Mp4Track track = isVideo ? kMp4Video : kMp4Audio;
    const AVStream* stream = m_input->Stream(track);
    if (stream == nullptr || packet->stream_index != stream->index) continue;
    const int number = m_input->NumberAt(track, packet->dts, false);
    if (m_skipsDelivered && number < m_next[track]) continue;
    m_next[track] = number + 1;
    if (isVideo) m_isAtKey = false;
    return true;
  }
}

int Mp4Demuxer::Read(Mp4Frame* frame) {
  for (;;) {
    if (m_isAtEnd && !GoOnWhereItGrew()) return kEnd;
    if (!NextPacket()) {
      m_isAtEnd = true;
      continue;
    }
    int length = 0;
    frame->isVideo = m_packet->stream_index == m_input->Stream(kMp4Video)->index;
    const Mp4Track track = frame->isVideo ? kMp4Video : kMp4Audio;
    const std::int64_t time = m_packet->pts != AV_NOPTS_VALUE ? m_packet->pts : m_packet->dts;
    const std::int64_t ms = m_input->ToMs(track, time);
    if (!frame->isVideo && ms < -kLongestPrimingMs) continue;  // hidden by an edit list
    frame->stamp = static_cast<std::uint32_t>(std::max<std::int64_t>(0, ms));
    frame->isKey = frame->isVideo && (m_packet->flags & AV_PKT_FLAG_KEY) != 0;
    if (frame->isVideo ? ShapePicture(frame, &length) : ShapeSound(frame, &length)) return length;
  }
}

bool Mp4Demuxer::ShapePicture(Mp4Frame* frame, int* length) {
  if (m_packet->size <= 0) return false;
  // Without a buffer of its own it is nobody else's.
  if (m_packet->buf != nullptr && av_packet_make_writable(m_packet.get()) < 0) return false;
  const unsigned char* data = m_packet->data;
  auto size = static_cast<size_t>(m_packet->size);
  if (m_lengthSize == 4) {
    if (!LengthsToStartCodes(m_packet->data, size)) return false;
  } else if (m_lengthSize != 0) {
    if (!CopyWithStartCodes(m_packet->data, size, m_lengthSize, &m_buffer)) return false;
    data = m_buffer.data();
    size = m_buffer.size();
  }
  if (frame->isKey && !AddMissingSets(&data, &size)) return false;
  frame->data = data;
  *length = static_cast<int>(size);
  return true;
}

// Files from elsewhere keep the parameter sets out of their samples.
bool Mp4Demuxer::AddMissingSets(const unsigned char** data, size_t* length) {
  const DecoderSets found = FindDecoderSets(m_codec, *data, *length);
  if (found.complete || m_sets.empty()) return true;
  Bytes whole;
  if (*length > static_cast<size_t>(INT32_MAX) - m_sets.size()) return false;
  whole.reserve(*length + m_sets.size());
  whole.assign(*data, *data + found.insertionPoint);
  whole.insert(whole.end(), m_sets.begin(), m_sets.end());
  whole.insert(whole.end(), *data + found.insertionPoint, *data + *length);
  m_buffer.swap(whole);
  *data = m_buffer.data();
  *length = m_buffer.size();
  return true;
}

bool Mp4Demuxer::ShapeSound(Mp4Frame* frame, int* length) {
  if (m_sound == nullptr || m_packet->size <= 0) return false;
  if (m_sound->Codec() != AUDIO_CODEC_AAC) {
    frame->data = m_packet->data;
    *length = m_packet->size;
    return true;
  }
  if (!m_sound->Shape(m_packet.get(), &m_soundFrame)) return false;
  frame->data = m_soundFrame.data;
  *length = m_soundFrame.length;
  return true;
}

int Mp4Demuxer::GoToKey(int number) {
  if (!m_input->GoToKey(number)) {
    m_isAtEnd = true;  // nothing there yet
    return -ENOENT;
  }
  const std::int64_t reached = m_input->TimeOf(kMp4Video, number);
  m_next[kMp4Video] = number;
  m_next[kMp4Audio] = 0;
  if (number > 0 && m_input->Stream(kMp4Audio) != nullptr) {
    const std::int64_t ms = m_input->ToMs(kMp4Video, reached);
    m_next[kMp4Audio] = m_input->NumberAt(kMp4Audio, m_input->FromMs(kMp4Audio, ms), false);
  }
  m_skipsDelivered = false;
  m_isAtEnd = false;
  m_isAtKey = true;
  return 0;
}

int Mp4Demuxer::SeekTo(unsigned milliseconds) {
  std::string ignored;
  if (milliseconds >= m_input->DurationMs() && HasGrown()) Reopen(&ignored);
  return GoToKey(m_input->NumberAt(kMp4Video, m_input->FromMs(kMp4Video, milliseconds), true));
}

int Mp4Demuxer::SeekToPercent(unsigned percent) {
  return SeekTo(static_cast<unsigned>(m_input->DurationMs() * std::min(percent, 100u) / 100));
}

// Always further on: the key frame that a seek has gone to does not count as the next one.
int Mp4Demuxer::SeekToNextKey() {
  const int from = m_next[kMp4Video] + (m_isAtKey ? 1 : 0);
  if (m_input->NextKey(from) >= m_input->SampleCount(kMp4Video)) GoOnWhereItGrew();
  const int key = m_input->NextKey(from);
  if (key >= m_input->SampleCount(kMp4Video)) return -ENOENT;
  return GoToKey(key);
}

}  // namespace record
