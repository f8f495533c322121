// The AVI writer: one chunk a frame, one system call a chunk; the index and the header's sizes when the file ends.
#include <cerrno>
#include <cstring>
#include <new>

#include "base/clock.h"
#include "base/log.h"
#include "format/avi/avi_index_list.h"
#include "format/byte_output.h"
#include "format/defaults.h"
#include "format/file_limits.h"
#include "format/measured_rate.h"
#include "record/task.h"

using record::Destination;

namespace {

constexpr int kAviDefaultWidth = 704;
constexpr int kAviDefaultHeight = 576;
constexpr int kDefaultBitrate = 0x200000;

void ReplaceMissing(std::int32_t& value, int otherwise) {
  if (value < 1) value = otherwise;
}

class AviOutput : public record::ByteOutput {
 public:
  using ByteOutput::ByteOutput;

 protected:
  void LocalEnded() override { RECORD_LOG("nowtime %u\n\n", static_cast<unsigned>(record::WallNow().seconds)); }
};

// Which of the writes that make up a chunk fell short.
const char* TornPart(size_t written, size_t configLength) {
  if (written < sizeof(record::AviChunkHead::id)) return "flag_xxdc";
  if (written < sizeof(record::AviChunkHead)) return "len";
  return written < sizeof(record::AviChunkHead) + configLength ? "vol data" : "frame data";
}

const char* ToNetwork(const Destination& destination) {
  return destination.isNetwork ? " to network storage" : "";
}

}  // namespace

struct CAviTask::State {
  explicit State(CRecordTask& task) : output(task, ".avi") {}

  // At most one of the two: that of the file being written.
  std::unique_ptr<AVI_FILE_HEADER_AV> m_pAVIHeader;
  std::unique_ptr<AVI_FILE_HEADER_VIDEO> m_pAVIHeaderVideo;
  record::AviIndexList index;
  AviOutput output;

  const void* Header() const {
    return m_pAVIHeader ? static_cast<const void*>(m_pAVIHeader.get()) : m_pAVIHeaderVideo.get();
  }
  size_t HeaderSize() const { return m_pAVIHeader ? sizeof *m_pAVIHeader : sizeof *m_pAVIHeaderVideo; }
  bool HasAudio() const { return m_pAVIHeader != nullptr; }

  // False when none of the destinations is left.
  bool AppendChunk(const record::AviChunkHead& chunk, const struct iovec& config, const struct iovec& frame) {
    for (Destination* destination : output.Destinations()) {
      if (destination->IsOpen()) Append(*destination, chunk, config, frame);
    }
    return output.AnyOpen();
  }

  void Append(Destination& destination, record::AviChunkHead chunk, const struct iovec& config,
              const struct iovec& frame) {
    const size_t total = sizeof chunk + chunk.length;
    if (FinishedSize(destination.offset + static_cast<long long>(total), 1) > record::kLongestRecordFile) {
      output.FailFull(destination);
      return;
    }
    struct iovec parts[] = {{&chunk, sizeof chunk}, config, frame};
    const bool hasConfig = config.iov_len > 0;
    if (!hasConfig) parts[1] = frame;
    size_t written;
    if (output.Append(destination, parts, hasConfig ? 3 : 2, total, written)) return;
    RECORD_LOG("write %s%s failed, errno=%d\n\n", TornPart(written, config.iov_len), ToNetwork(destination),
               errno);
  }

  // Of a file that has come to `offset` and gets so many entries more.
  long long FinishedSize(long long offset, long long moreEntries) const {
    const long long chunkBytes = offset - static_cast<long long>(HeaderSize());
    return record::AviFinishedSize(HasAudio(), chunkBytes, index.Count() + moreEntries);
  }

  bool IsNearlyFull() {
    for (const Destination* destination : output.Destinations()) {
      if (destination->IsOpen() && record::IsNearlyFull(FinishedSize(destination->offset, 0))) return true;
    }
    return false;
  }

  void WriteIndex(Destination& destination, size_t padding) {
    std::uint8_t filling[record::kAviPaddedTo];
    std::memset(filling, record::kAviPadding, sizeof filling);
    if (padding > 0 && !output.AppendBlock(destination, filling, padding)) {
      RECORD_LOG("write pading bytes%s failed, errno=%d\n\n", ToNetwork(destination), errno);
      return;
    }
    record::AviChunkHead head = {record::kAviIndexId, static_cast<std::uint32_t>(index.Bytes())};
    std::vector<struct iovec> parts = {{&head, sizeof head}};
    index.AppendTo(parts);
    size_t written;
    if (!output.Append(destination, parts.data(), static_cast<int>(parts.size()), sizeof head + index.Bytes(),
                       written)) {
      RECORD_LOG("write avi index%s failed, errno=%d\n\n", ToNetwork(destination), errno);
      return;
    }
    // The header must not reach the medium before the index that it speaks of.
    output.Sync(destination);
  }
};

CAviTask::CAviTask(const RECORD_TASK_PARAM& param, const RecordConfig& config)
    : CRecordTask(param, config), m_state(std::make_unique<State>(*this)) {}

CAviTask::~CAviTask() {
  if (m_running != 0) Stop();
}

int CAviTask::InitAVIHeader() {
  State& s = *m_state;
  ReplaceMissing(m_param.width, kAviDefaultWidth);
  ReplaceMissing(m_param.height, kAviDefaultHeight);
  ReplaceMissing(m_param.bitrate, kDefaultBitrate);
  ReplaceMissing(m_param.framerate, record::kDefaultFramerate);
  const bool audio = m_param.audio_enable > 0;
  if (audio && s.m_pAVIHeader) RECORD_LOG_TEXT("m_pAVIHeader != NULL!\n\n");
  if (!audio && s.m_pAVIHeaderVideo) RECORD_LOG_TEXT("m_pAVIHeaderVideo != NULL!\n\n");
  s.m_pAVIHeader.reset();
  s.m_pAVIHeaderVideo.reset();
  if (audio) {
    s.m_pAVIHeader.reset(new (std::nothrow) AVI_FILE_HEADER_AV);
    if (!s.m_pAVIHeader) return -1;
    init_avi_header(s.m_pAVIHeader.get(), m_param.video_type, m_param.audio_type, m_param.width, m_param.height,
                    m_param.bitrate, m_param.framerate, m_param.samplerate, m_param.bits, m_param.channels);
    return 0;
  }
  s.m_pAVIHeaderVideo.reset(new (std::nothrow) AVI_FILE_HEADER_VIDEO);
  if (!s.m_pAVIHeaderVideo) return -1;
  init_avi_header_video(s.m_pAVIHeaderVideo.get(), m_param.video_type, m_param.width, m_param.height,
                        m_param.bitrate, m_param.framerate);
  return 0;
}

int CAviTask::InitAVIIndex() {
  m_state->index.Clear();
  return 0;
}

int CAviTask::RecordBegin() {
  record::ByteOutput& output = m_state->output;
  output.StartClock();
  m_info.totalBytes = 0;
  if (InitAVIHeader() != 0) {
    RECORD_LOG_TEXT("InitAVIHeader failed!\n\n");
    return -1;
  }
  if (InitAVIIndex() != 0) {
    RECORD_LOG_TEXT("InitAVIIndex failed!\n\n");
    return -1;
  }
  // Kept: receivers of uploads know these two names only.
  output.SetUploadName(output.UploadStem() + (m_recordType == RECORD_KIND_MOTION ? "-motion.avi" : "-alarm.avi"));
  if (output.Open() != 0) return -1;
  if (WriteAVIHeader() != 0) {
    RECORD_LOG_TEXT("write avi header failed!\n\n");
    return -1;
  }
  output.Announce();
  return 0;
}

int CAviTask::WriteAVIHeader() {
  State& s = *m_state;
  if (s.Header() == nullptr) return -1;
  for (Destination* destination : s.output.Destinations()) {
    if (!destination->IsOpen()) continue;
    const bool written = destination->offset == 0
                             ? s.output.AppendBlock(*destination, s.Header(), s.HeaderSize())
                             : s.output.Overwrite(*destination, 0, s.Header(), s.HeaderSize());
    if (written) continue;
    if (!destination->isNetwork)
      RECORD_LOG("write avi header failed, err = %s\n\n", std::strerror(errno));
    else if (s.HasAudio())
      RECORD_LOG("write avi header to network storage failed , err = %s\n\n", std::strerror(errno));
    else
      RECORD_LOG("write avi header to network storage failed, err = %s\n\n", std::strerror(errno));
  }
  return s.output.AnyOpen() ? 0 : -1;
}

int CAviTask::AppendFrame(std::uint32_t chunkId, bool key, char* data, int length) {
  State& s = *m_state;
  const bool video = chunkId == record::kAviVideoId;
  // Every file can be decoded from its first frame on, whatever that frame brings itself.
  const bool first = video && m_info.videoFrames == 0;
  const struct iovec config = {m_info.volData, first ? static_cast<size_t>(m_info.volLength) : 0};
  const std::uint32_t size = static_cast<std::uint32_t>(length) + static_cast<std::uint32_t>(config.iov_len);
  if (!s.AppendChunk({chunkId, size}, config, {data, static_cast<size_t>(length)})) return -1;

  const std::uint32_t bytes = size + static_cast<std::uint32_t>(record::kAviChunkHeadSize);
  (video ? m_info.videoBytes : m_info.audioBytes) += bytes;
  m_info.totalBytes += bytes;
  ++(video ? m_info.videoFrames : m_info.audioFrames);
  if (video && key) ++m_info.keyFrames;
  if (AddAVIIndex(chunkId, key ? record::kAviKeyFlag : 0, size) != 0) {
    RECORD_LOG_TEXT("AddAVIIndex failed!\n\n");
    return -1;
  }
  m_fileFull = s.IsNearlyFull();
  return 0;
}

int CAviTask::RecordOneVideoFrame(int keyFrame, char* data, int length, unsigned int) {
  if (length < 0) return 0;
  return AppendFrame(record::kAviVideoId, keyFrame != 0, data, length);
}

int CAviTask::RecordOneAudioFrame(char* data, int length, unsigned int) {
  if (m_param.audio_enable <= 0 || length < 0) return 0;
  return AppendFrame(record::kAviAudioId, true, data, length);
}

int CAviTask::AddAVIIndex(unsigned long chunkId, unsigned long flags, unsigned long size) {
  record::AviIndexList& index = m_state->index;
  std::uint32_t offset = 4;
  if (index.Count() > 0)
    offset = index.Last().offset + index.Last().size + static_cast<std::uint32_t>(record::kAviChunkHeadSize);
  return index.Add({static_cast<std::uint32_t>(chunkId), static_cast<std::uint32_t>(flags), offset,
                    static_cast<std::uint32_t>(size)})
             ? 0
             : -1;
}

int CAviTask::WriteAVIIndex() {
  State& s = *m_state;
  if (s.index.Count() == 0) {
    RECORD_LOG("bad entry count: %d.\n\n", 0);
    return -1;
  }
  const std::uint32_t total = m_info.videoBytes + m_info.audioBytes;
  m_info.totalBytes = static_cast<std::uint32_t>(record::AviPadded(total));
  for (Destination* destination : s.output.Destinations()) {
    if (destination->IsOpen()) s.WriteIndex(*destination, m_info.totalBytes - total);
  }
  return s.output.AnyOpen() ? 0 : -1;
}

int CAviTask::UpdateAVIHeader() {
  State& s = *m_state;
  const int rate =
      record::CalVideoFramerate(m_info.videoFrames, m_preRecordedVideoFrames, ExactElapsedMilliseconds(), m_param);
  const auto entries = static_cast<unsigned>(s.index.Count());
  RECORD_LOG_MODULE(record::kLogModuleLifecycle,
                    "reclen=0x%x, videolen=0x%x, audiolen=0x%x,idx1_entry_count=0x%x\n\n", m_info.totalBytes,
                    m_info.videoBytes, m_info.audioBytes, entries);
  RECORD_LOG_MODULE(record::kLogModuleLifecycle, "reclen=%d, videolen=%d, audiolen=%d,idx1_entry_count=%d\n\n",
                    static_cast<int>(m_info.totalBytes), static_cast<int>(m_info.videoBytes),
                    static_cast<int>(m_info.audioBytes), static_cast<int>(entries));
  const auto update = [&](auto* header) {
    record::AviSetSizes(header->begin, header->end, m_info.totalBytes, s.index.Count(),
                        static_cast<std::uint32_t>(m_info.videoFrames));
    header->begin.main.microsecondsAFrame = rate > 0 ? 1000000 / static_cast<std::uint32_t>(rate) : 0;
    header->video.header.rate = rate > 0 ? static_cast<std::uint32_t>(rate) : 0;
    return 0;
  };
  if (s.m_pAVIHeader) return update(s.m_pAVIHeader.get());
  if (s.m_pAVIHeaderVideo) return update(s.m_pAVIHeaderVideo.get());
  if (m_param.audio_enable > 0)
    RECORD_LOG_TEXT("m_pAVIHeader = NULL!\n\n");
  else
    RECORD_LOG_TEXT("m_pAVIHeaderVideo = NULL!\n\n");
  return -1;
}

int CAviTask::RecordEnd() {
  State& s = *m_state;
  s.output.StopClock();
  if (WriteAVIIndex() != 0) RECORD_LOG_TEXT("write avi index failed!\n\n");
  if (UpdateAVIHeader() != 0 || WriteAVIHeader() != 0) RECORD_LOG_TEXT("write avi header failed!\n\n");
  s.output.Finish();
  RECORD_LOG("video frame = %d, audio frame = %d, pre_record_video_frames = %d.\n\n", m_info.videoFrames,
             m_info.audioFrames, m_preRecordedVideoFrames);
  RECORD_LOG("nowtime %u\n\n", static_cast<unsigned>(record::WallNow().seconds));
  InitAVIIndex();
  RemoveLockFile();
  return 0;
}
