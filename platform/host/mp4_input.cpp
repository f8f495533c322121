#include "platform/host/mp4_input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/host/codecs.h"

namespace record {
namespace {

constexpr std::int64_t kLongestReorderingMs = 60000;
constexpr std::int64_t kFarAwayMs = std::int64_t{1} << 52;  // whatever a file claims, sums stay within 64 bits

std::string TextOf(int code) {
  char text[AV_ERROR_MAX_STRING_SIZE] = "";
  av_strerror(code, text, sizeof(text));
  return text;
}

struct File {
  explicit File(const std::string& path) : descriptor(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)) {}
  ~File() {
    if (descriptor >= 0) close(descriptor);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  int Release() { return std::exchange(descriptor, -1); }
  int descriptor;
};

}  // namespace

std::unique_ptr<Mp4Input> Mp4Input::Open(const std::string& path, std::string* error) {
  std::unique_ptr<Mp4Input> input(new Mp4Input);
  struct stat status;
  File file(path);
  if (file.descriptor < 0 || fstat(file.descriptor, &status) != 0) {
    *error = std::strerror(errno);
    return nullptr;
  }
  if (!S_ISREG(status.st_mode)) {
    *error = "not a file";
    return nullptr;
  }
  // The size as it was before anything was read: what comes later is growth.
  input->m_fileSize = static_cast<std::uint64_t>(status.st_size);
  const Mp4Outline outline = ReadMp4Outline(file.descriptor, input->m_fileSize);
  *error = outline.refusal;
  if (!error->empty() || !input->Connect(path, error) || !input->ChooseTracks(error) ||
      !input->HasPlainEdits(outline, error))
    return nullptr;
  if (outline.hasFragments)
    input->LoadFragments();
  else if (!outline.isReordered && input->HasNoOtherTracks())
    input->m_samples = std::make_unique<Mp4SampleReader>(file.Release(), input->m_fileSize, input->Streams());
  input->SetOrigin();
  return input;
}

// Frames are wanted as they stand in the file, so libavformat neither parses nor guesses.
bool Mp4Input::Connect(const std::string& path, std::string* error) {
  AVFormatContext* context = avformat_alloc_context();
  if (context == nullptr) {
    *error = "not enough memory";
    return false;
  }
  context->flags |= AVFMT_FLAG_NOPARSE | AVFMT_FLAG_NOFILLIN;
  AVDictionary* options = nullptr;
  av_dict_set(&options, "protocol_whitelist", "file", 0);
  av_dict_set(&options, "ignore_chapters", "1", 0);
  // Else it gives all that edit lists hide the same time, and looks through all of that in every search.
  av_dict_set(&options, "advanced_editlist", "0", 0);
  const std::string url = "file:" + path;
  const int result = avformat_open_input(&context, url.c_str(), av_find_input_format("mov"), &options);
  av_dict_free(&options);
  if (result < 0) {
    *error = TextOf(result);
    return false;
  }
  m_context.reset(context);
  return true;
}

bool Mp4Input::ChooseTracks(std::string* error) {
  std::string codecs;
  for (unsigned i = 0; i < m_context->nb_streams; ++i) {
    AVStream* stream = m_context->streams[i];
    const AVCodecParameters* codec = stream->codecpar;
    stream->discard = AVDISCARD_ALL;
    if (codec->codec_type == AVMEDIA_TYPE_VIDEO && (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) == 0) {
      codecs += std::string(" ") + avcodec_get_name(codec->codec_id);
      const bool fits = codec->codec_id == AV_CODEC_ID_H264 || codec->codec_id == AV_CODEC_ID_HEVC;
      if (fits && m_streams[kMp4Video] == nullptr) m_streams[kMp4Video] = stream;
    }
    if (codec->codec_type == AVMEDIA_TYPE_AUDIO && m_streams[kMp4Audio] == nullptr) {
      const std::unique_ptr<AudioShaper> shaper = AudioShaper::Create(stream, &m_soundRefusal);
      if (shaper != nullptr && shaper->Codec() != AUDIO_CODEC_PCM) m_streams[kMp4Audio] = stream;
    }
  }
  if (m_streams[kMp4Audio] != nullptr) m_soundRefusal.clear();
  if (m_streams[kMp4Video] == nullptr) {
    *error = codecs.empty() ? "no video" : "no H.264 or H.265 video, but" + codecs;
    return false;
  }
  return true;
}

bool Mp4Input::HasPlainEdits(const Mp4Outline& outline, std::string* error) const {
  for (const AVStream* stream : m_streams) {
    if (stream == nullptr || !outline.IsJoined(static_cast<std::uint32_t>(stream->id))) continue;
    *error = "an edit list that joins several parts";
    return false;
  }
  return true;
}

// Pictures that an edit list hides are needed to decode those behind them: times count from the first one then.
void Mp4Input::SetOrigin() {
  if (SampleCount(kMp4Video) == 0 || TimeOf(kMp4Video, 0) >= 0) return;
  std::int64_t shown = TimeOf(kMp4Video, 0);
  const AvPacketPtr packet(av_packet_alloc());
  if (m_samples == nullptr && packet != nullptr && SeekContext(0, false)) {
    if (m_streams[kMp4Audio] != nullptr) m_streams[kMp4Audio]->discard = AVDISCARD_ALL;
    if (ReadPacket(packet.get()) && packet->pts != AV_NOPTS_VALUE) shown = packet->pts;
  }
  m_originMs = std::min<std::int64_t>(0, ToMs(kMp4Video, shown));
}

bool Mp4Input::HasNoOtherTracks() const {
  return m_context->nb_streams == (m_streams[kMp4Audio] == nullptr ? 1u : 2u);
}

std::vector<AVStream*> Mp4Input::Streams() const {
  return {m_context->streams, m_context->streams + m_context->nb_streams};
}

// With everything discarded libavformat looks at each fragment's description and at no media.
void Mp4Input::LoadFragments() {
  const AvPacketPtr packet(av_packet_alloc());
  if (packet == nullptr) return;
  while (av_read_frame(m_context.get(), packet.get()) >= 0) av_packet_unref(packet.get());
}

int Mp4Input::SampleCount(Mp4Track track) const {
  return m_streams[track] == nullptr ? 0 : avformat_index_get_entries_count(m_streams[track]);
}

std::int64_t Mp4Input::TimeOf(Mp4Track track, int number) const {
  const AVIndexEntry* entry = avformat_index_get_entry(m_streams[track], number);
  return entry == nullptr ? 0 : entry->timestamp;
}

int Mp4Input::SizeOf(Mp4Track track, int number) const {
  const AVIndexEntry* entry = avformat_index_get_entry(m_streams[track], number);
  return entry == nullptr ? 0 : entry->size;
}

int Mp4Input::NumberAt(Mp4Track track, std::int64_t time, bool keysOnly) const {
  const int flags = AVSEEK_FLAG_BACKWARD | (keysOnly ? 0 : AVSEEK_FLAG_ANY);
  return m_streams[track] == nullptr ? 0 : std::max(0, av_index_search_timestamp(m_streams[track], time, flags));
}

int Mp4Input::NextKey(int number) const {
  const int count = SampleCount(kMp4Video);
  while (number < count && (avformat_index_get_entry(m_streams[kMp4Video], number)->flags & AVINDEX_KEYFRAME) == 0)
    ++number;
  return number;
}

std::int64_t Mp4Input::ToMs(Mp4Track track, std::int64_t time) const {
  return std::clamp(av_rescale_q(time, m_streams[track]->time_base, {1, 1000}), -kFarAwayMs, kFarAwayMs) -
         m_originMs;
}

std::int64_t Mp4Input::FromMs(Mp4Track track, std::int64_t milliseconds) const {
  return av_rescale_q(milliseconds + m_originMs, {1, 1000}, m_streams[track]->time_base);
}

// The index does not tell how long the last sample lasts; it is taken to be as long as the others are on average.
std::int64_t Mp4Input::EndMs(Mp4Track track) const {
  const int count = SampleCount(track);
  if (count == 0) return 0;
  const std::int64_t first = ToMs(track, TimeOf(track, 0));
  const std::int64_t last = ToMs(track, TimeOf(track, count - 1));
  return last + (count > 1 ? (last - first + (count - 1) / 2) / (count - 1) : 0);
}

std::int64_t Mp4Input::DurationMs() const {
  return std::max(EndMs(kMp4Video), EndMs(kMp4Audio));
}

bool Mp4Input::ReadPacket(AVPacket* packet) {
  if (m_samples != nullptr) return m_samples->Read(packet);
  av_packet_unref(packet);
  return av_read_frame(m_context.get(), packet) >= 0 && (packet->flags & AV_PKT_FLAG_CORRUPT) == 0;
}

bool Mp4Input::GoToKey(int number) {
  const int count = SampleCount(kMp4Video);
  if (number >= count) return false;
  // Sound in front of the first picture belongs to the begin of the file.
  const bool isRewind = number == 0 && SampleCount(kMp4Audio) > 0 &&
                        ToMs(kMp4Audio, TimeOf(kMp4Audio, 0)) < ToMs(kMp4Video, TimeOf(kMp4Video, 0));
  if (m_samples == nullptr) return SeekContext(number, isRewind);
  m_samples->GoTo(m_streams[kMp4Video], number);
  if (const AVStream* audio = m_streams[kMp4Audio]; audio != nullptr) {
    const std::int64_t time =
        av_rescale_q(TimeOf(kMp4Video, number), m_streams[kMp4Video]->time_base, audio->time_base);
    m_samples->GoTo(audio, isRewind ? 0 : NumberAt(kMp4Audio, time, false));
  }
  return true;
}

// libavformat takes the other track to the same time, which would pass over sound in front of the first picture.
bool Mp4Input::SeekContext(int number, bool isRewind) {
  const int count = SampleCount(kMp4Video);
  for (AVStream* stream : m_streams) {
    if (stream != nullptr) stream->discard = AVDISCARD_DEFAULT;
  }
  const Mp4Track track = isRewind ? kMp4Audio : kMp4Video;
  // It takes a time of showing, the index has times of decoding: what is surely shown is what comes before the
  // next key frame.
  const int next = NextKey(number + 1);
  std::int64_t target =
      next < count ? av_sat_sub64(TimeOf(kMp4Video, next), 1)
                   : av_sat_add64(TimeOf(kMp4Video, count - 1),
                                  av_rescale_q(kLongestReorderingMs, {1, 1000}, m_streams[kMp4Video]->time_base));
  if (isRewind) target = TimeOf(kMp4Audio, 0);
  return av_seek_frame(m_context.get(), m_streams[track]->index, target, AVSEEK_FLAG_BACKWARD) >= 0;
}

}  // namespace record
