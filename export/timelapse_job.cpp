#include "export/timelapse_job.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "base/log.h"

namespace record {
namespace {

constexpr unsigned kRate = 25;  // pictures a second
constexpr unsigned kPictureMs = 40;

std::unique_ptr<ClipWriter> NewClip(const std::string& path, const TimelapseSettings& settings) {
  if (path.find(".mp4") == std::string::npos) return std::make_unique<DatClip>(path, settings.oldDat);
  return std::make_unique<Mp4Clip>(path, Mp4Clip::Settings{settings.seconds, false, kRate, settings.intervalMs});
}

// The reader's own bytes are gone once it is moved.
void Keep(MediaFrame& frame) {
  if (frame.owned) return;
  frame.owned.reset(new unsigned char[static_cast<size_t>(frame.length)]);
  std::copy_n(frame.data, frame.length, frame.owned.get());
  frame.data = frame.owned.get();
}

// The order of one file's key frames. A skip by the index may lead back: to the begin by a second that the index
// lacks, or into what was passed when the clock was set back meanwhile. Then there are no more skips, or the same
// pictures would come for ever.
class KeyOrder {
 public:
  // Whether the key frame is none of those before a skip that led back.
  bool Take(long long offsetMs) {
    if (offsetMs < m_newestMs) {
      m_maySkip = false;
      if (m_hasSkipped) m_knownMs = m_newestMs;
    }
    m_newestMs = offsetMs;
    m_hasSkipped = false;
    return offsetMs > m_knownMs;
  }
  bool MaySkip() const { return m_maySkip; }
  void Skipped() { m_hasSkipped = true; }
  long long NewestMs() const { return m_newestMs; }

 private:
  long long m_newestMs = -1;
  long long m_knownMs = -1;
  bool m_maySkip = true;
  bool m_hasSkipped = false;  // since that key frame
};

}  // namespace

TimelapseJob::TimelapseJob(const ExportRequest& request, const TimelapseSettings& settings)
    : ExportJob(request, NewClip(request.output, settings)), m_settings(settings) {}

ExportJob::Walk TimelapseJob::CopyFrames(const ExportSource& source, MediaFile& file) {
  Cover(source);
  MediaFrame frame;
  KeyOrder order;
  while (IsRunning()) {
    const int length = file.Read(frame);
    const bool isKey = length > 0 && frame.isVideo && frame.isKey;
    // Without an index of its own a key frame that comes again would come for ever.
    const bool comesAgain = isKey && !file.HasStreamStamps() && frame.offsetMs <= order.NewestMs();
    if (length < 0 || comesAgain) {
      RECORD_LOG("read finished: %s\n\n", source.path.c_str());
      break;
    }
    // Sound may lie in front of the key frame that was moved to: moving on would lead there again, or past it.
    if (length == 0 || !frame.isVideo) continue;
    const bool isTaken = isKey && order.Take(frame.offsetMs) && IsDue(source, frame) && !LeaveOut(frame);
    if (isTaken) Keep(frame);
    if (isTaken && order.MaySkip() && Skip(source, file, frame))
      order.Skipped();
    else
      file.Reader().MoveNextKeyFrame();
    ShowSecond(source, source.SecondOf(frame));
    if (isTaken && Copy(source, frame) == Walk::kEnd) return Walk::kEnd;
  }
  return Walk::kGoOn;
}

bool TimelapseJob::IsDue(const ExportSource& source, const MediaFrame& frame) const {
  const unsigned second = source.SecondOf(frame);
  if (m_settings.onlyWithin && (second < source.piece->begin || second > source.piece->end)) return false;
  const long long timeMs = source.startMs + frame.offsetMs;
  if (!m_hasLast || timeMs < m_lastMs) return true;
  return timeMs > m_dueMs || (m_settings.evenly && timeMs == m_dueMs);
}

// The time that the picture behind one of `timeMs` has to come to.
long long TimelapseJob::DueBehind(long long timeMs) const {
  const long long interval = std::max(m_settings.intervalMs, 1u);
  if (!m_settings.evenly || !m_hasLast || timeMs < m_lastMs) return timeMs + m_settings.intervalMs;
  return m_dueMs + ((timeMs - m_dueMs) / interval + 1) * interval;
}

void TimelapseJob::Cover(const ExportSource& source) {
  const long long toMs = source.startMs + source.seconds * 1000LL;
  if (m_covered.fromMs == 0) m_covered = {source.startMs, toMs, {}};
  m_covered.gaps.Add(m_covered.toMs, source.startMs);
  m_covered.toMs = std::max(m_covered.toMs, toMs);
}

// Past key frames that will not be due, where the file has an index of its own: there the count of frames is the
// last second that the index knows.
bool TimelapseJob::Skip(const ExportSource& source, MediaFile& file, const MediaFrame& frame) const {
  if (!file.HasStreamStamps()) return false;
  CVideoFile& reader = file.Reader();
  const long long last = std::max(reader.GetVideoFrameCount(), 0);
  const long long dueMs = DueBehind(source.startMs + frame.offsetMs) - source.startMs;
  const auto due = static_cast<std::uint32_t>(std::min(dueMs / 1000, last));
  return due > frame.offsetMs / 1000 + 1 && reader.SeekTimeOffset(due) == 0;
}

ExportJob::Walk TimelapseJob::Copy(const ExportSource& source, const MediaFrame& frame) {
  const std::uint32_t timestamp = Clip().VideoFrames() * kPictureMs;
  if (Write({frame.data, frame.length, true, true, timestamp}) == Walk::kEnd) return Walk::kEnd;
  const long long timeMs = source.startMs + frame.offsetMs;
  m_dueMs = DueBehind(timeMs);
  m_hasLast = true;
  m_lastMs = timeMs;
  ShowPicture(m_lastMs);
  return Walk::kGoOn;
}

void TimelapseJob::LogFile(int number, const std::string& path, int spentMs) const {
  RECORD_LOG("files %d: %s, total frames: %u, spend %d ms\n\n", number, path.c_str(), Clip().VideoFrames(),
             spentMs);
}

}  // namespace record
