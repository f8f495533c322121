#include "export/job.h"

#include <sys/prctl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "base/log.h"
#include "query/day_catalogue.h"
#include "record/platform.h"
#include "storage/layout.h"

namespace record {
namespace {

constexpr MediaFileLog kFileLog = {kLogModule, "\n\n\n"};

int SinceMs(unsigned from) {
  return static_cast<int>(GetCurrentTimeStamp() - from);
}

unsigned SpanOf(const ExportPiece& piece) {
  return piece.end > piece.begin ? piece.end - piece.begin : 0;
}

template <typename Step>
int UnlessMemoryRunsOut(Step step) try {
  return step();
} catch (const std::bad_alloc&) {
  RECORD_LOG_TEXT("malloc failed.\n\n");
  return -1;
}

}  // namespace

ExportJob::ExportJob(const ExportRequest& request, std::unique_ptr<ClipWriter> clip)
    : m_request(request), m_clip(std::move(clip)) {
  for (const ExportPiece& piece : m_request.pieces) m_progress.totalSeconds += SpanOf(piece);
}

void ExportJob::SetProgressHook(ExportProgressHook hook, void* context) {
  m_hook = hook;
  m_hookContext = context;
}

int ExportJob::Start(const char* threadName, const std::shared_ptr<ExportJob>& self) {
  RECORD_LOG_TEXT("Start!!!\n\n\n");
  if (m_thread.Exists()) return -1;
  m_running = true;
  if (m_thread.Start(threadName, [self, threadName] { self->ThreadBody(threadName); })) return 0;
  m_running = false;
  RECORD_LOG("pthread_create %s failed, err = %s\n\n\n", threadName, std::strerror(errno));
  return -1;
}

void ExportJob::Stop() {
  RECORD_LOG_TEXT("Stop!!!\n\n\n");
  if (m_running.exchange(false)) m_thread.Join();
}

void ExportJob::ThreadBody(const char* threadName) {
  prctl(PR_SET_NAME, threadName);
  Handle();
  RECORD_LOG_TEXT("exited main loop.\n\n\n");
}

int ExportJob::Handle() {
  const unsigned began = GetCurrentTimeStamp();
  RECORD_LOG_TEXT("enter main thread...\n\n\n");
  RECORD_LOG("m_running=%d.\n\n", IsRunning() ? 1 : 0);
  const int result = Run();
  FinishProgress(result);
  m_running = false;  // unless Stop did
  RECORD_LOG("finished proc %u files, spend %d ms\n\n", m_listed, SinceMs(began));
  if (m_request.done) m_request.done(m_request.id, result);
  return result;
}

// Whatever ends the walk, the clip is finished with what it holds.
int ExportJob::Run() {
  const int walked = UnlessMemoryRunsOut([this] { return RunPieces(); });
  const int finished = UnlessMemoryRunsOut([this] { return FinishClip(); });
  return walked != 0 ? walked : finished;
}

int ExportJob::RunPieces() {
  m_fileBegan = GetCurrentTimeStamp();
  for (const ExportPiece& piece : m_request.pieces) {
    DayCatalogue day;
    if (RunPiece(piece, day.map) != 0) return -1;
    if (m_progress.state != EXPORT_RUNNING || !IsRunning()) break;
    m_pastSeconds += SpanOf(piece);
  }
  return 0;
}

int ExportJob::FinishClip() {
  const bool wasWhole = !m_clip->HasFailed();
  return m_clip->Close() != 0 && wasWhole && m_clip->HasFailed() ? -1 : 0;
}

int ExportJob::RunPiece(const ExportPiece& piece, DayRecordMap& map) {
  const unsigned began = GetCurrentTimeStamp();
  if (GetDayRecordInfo(piece.year, piece.month, piece.day, map) < 0) {
    RECORD_LOG("Get %d-%d-%d day record info failed.\n\n", piece.year, piece.month, piece.day);
    return -1;
  }
  const auto count = static_cast<unsigned>(map.size());
  RECORD_LOG("%d-%d-%d, get files: %u, spend %d ms\n\n", piece.year, piece.month, piece.day, count,
             SinceMs(began));
  RECORD_LOG("m_running=%d.\n\n", IsRunning() ? 1 : 0);
  m_listed += count;
  if (WalkFiles(piece, map) == Walk::kEnd && m_progress.state == EXPORT_RUNNING)
    m_progress.state = EXPORT_COMPLETE;
  return 0;
}

ExportJob::Walk ExportJob::WalkFiles(const ExportPiece& piece, const DayRecordMap& map) {
  for (const auto& entry : map) {
    if (!IsRunning()) {
      RECORD_LOG_TEXT("break for m_running=0\n\n");
      return Walk::kGoOn;
    }
    const Walk walk = TakeFile(piece, *entry.second);
    ++m_fileNumber;
    if (walk == Walk::kEnd) return walk;
  }
  return Walk::kGoOn;
}

ExportJob::Walk ExportJob::TakeFile(const ExportPiece& piece, const RecordFileInfo& entry) {
  const std::string path = RecordFilePath(entry);
  if (!Overlaps(piece, entry, path)) return Walk::kGoOn;
  MediaFile file(kFileLog);
  if (file.Open(path) != 0) return Walk::kGoOn;
  RECORD_LOG("%s open OK. start timestamp=%llu\n\n\n", path.c_str(),
             static_cast<unsigned long long>(PathStartSeconds(path, 0) * 1000));
  VIDEO_PARAM video;
  AUDIO_PARAM audio;
  if (file.GetParams(video, audio) != 0) return Walk::kGoOn;
  RECORD_LOG("%s GetMeidaParam OK!!!\n\n\n", path.c_str());
  if (TakeParams(path, video, audio) == Walk::kEnd) {
    m_changedIn = &piece;
    m_changedFile = entry.nStartSecond;
    return Walk::kEnd;
  }
  TakeFileParams(video, audio);
  const unsigned seconds = entry.nEndSecond - std::min(entry.nStartSecond, entry.nEndSecond);
  const Walk walk =
      CopyFrames({path, &piece, PathStartSecond(path), PathStartSeconds(path, -1) * 1000, seconds}, file);
  if (walk == Walk::kEnd) RECORD_LOG_TEXT("Write finished.\n\n");
  LogFile(m_fileNumber, path, SinceMs(m_fileBegan));
  m_fileBegan = GetCurrentTimeStamp();
  return walk;
}

bool ExportJob::Overlaps(const ExportPiece& piece, const RecordFileInfo& entry, const std::string& path) const {
  if (entry.nStartSecond < piece.firstFile) return false;
  if (entry.nEndSecond <= piece.begin) {
    RECORD_LOG_MODULE(kLogModuleLifecycle, "%s: nPosEndSecond %u <= nSecondFrom %u\n\n", path.c_str(),
                      entry.nEndSecond, piece.begin);
    return false;
  }
  if (entry.nStartSecond >= piece.end + (piece.takesLastFile ? 1 : 0)) {
    RECORD_LOG_MODULE(kLogModuleLifecycle, "%s: nPosBgnSecond %u >= nSecondEnd %u\n\n", path.c_str(),
                      entry.nStartSecond, piece.end);
    return false;
  }
  return true;
}

// One file cannot hold pictures of two kinds.
ExportJob::Walk ExportJob::TakeParams(const std::string& path, const VIDEO_PARAM& video,
                                      const AUDIO_PARAM& audio) {
  if (!m_clip->HasParams()) {
    m_clip->SetParams(video, audio);
    return Walk::kGoOn;
  }
  const VIDEO_PARAM& first = m_clip->Video();
  if (video.width != first.width || video.height != first.height) {
    RECORD_LOG("%s: %luX%lu change to %luX%lu, break\n\n", path.c_str(), static_cast<unsigned long>(first.width),
               static_cast<unsigned long>(first.height), static_cast<unsigned long>(video.width),
               static_cast<unsigned long>(video.height));
  } else if (TrackVideoCodec(video) != TrackVideoCodec(first)) {
    RECORD_LOG("%s: video type %s change to %s, break\n\n", path.c_str(), first.codec, video.codec);
  } else {
    return Walk::kGoOn;
  }
  EndAs(EXPORT_MEDIA_CHANGED);
  return Walk::kEnd;
}

ExportJob::Walk ExportJob::Write(const ClipFrame& frame) {
  return m_clip->Write(frame) == 0 ? Walk::kGoOn : Walk::kEnd;
}

bool ExportJob::LeaveOut(const MediaFrame& frame) {
  if (!m_request.isWhole) return false;
  if (!m_request.isWhole(frame, *m_clip)) {
    RECORD_LOG("a damaged frame is left out: %s, %d bytes at %u ms of its file\n\n",
               frame.isVideo ? "video" : "audio", frame.length, frame.offsetMs);
    ++m_leftOut.damaged;
    if (frame.isVideo) m_needsKey = true;
    return true;
  }
  if (!frame.isVideo) return false;
  if (frame.isKey) m_needsKey = false;
  if (m_needsKey) ++m_leftOut.leaning;
  return m_needsKey;
}

std::vector<ExportPiece> ExportJob::Rest() const {
  if (m_changedIn == nullptr) return {};
  std::vector<ExportPiece> rest(m_request.pieces.begin() + (m_changedIn - m_request.pieces.data()),
                                m_request.pieces.end());
  rest.front().begin = std::max(rest.front().begin, m_changedFile);
  rest.front().firstFile = m_changedFile;
  return rest;
}

void ExportJob::ShowPicture(long long timeMs) {
  if (m_progress.firstMs == 0) m_progress.firstMs = timeMs;
  m_progress.lastMs = timeMs;
}

void ExportJob::ShowSecond(const ExportSource& source, unsigned second) {
  const unsigned within =
      std::clamp(second, source.piece->begin, std::max(source.piece->begin, source.piece->end));
  const unsigned done = m_pastSeconds + within - source.piece->begin;
  if (done <= m_progress.doneSeconds) return;
  m_progress.doneSeconds = done;
  Show();
}

void ExportJob::Show() {
  if (!m_hook) return;
  m_progress.videoFrames = m_clip->VideoFrames();
  m_progress.audioFrames = m_clip->AudioFrames();
  m_progress.bytes = m_clip->Bytes();
  m_hook(m_progress, m_hookContext);
}

void ExportJob::FinishProgress(int result) {
  m_progress.videoFrames = m_clip->VideoFrames();
  m_progress.audioFrames = m_clip->AudioFrames();
  m_progress.bytes = m_clip->Bytes();
  m_progress.error = m_clip->Error();
  if (m_clip->HasFailed()) {
    m_progress.state = EXPORT_WRITE_FAILED;
  } else if (result != 0) {
    m_progress.state = EXPORT_FAILED;
  } else if (m_progress.state == EXPORT_RUNNING) {
    m_progress.state = IsRunning() ? EXPORT_COMPLETE : EXPORT_STOPPED;
  }
  if (m_progress.state == EXPORT_COMPLETE) m_progress.doneSeconds = m_progress.totalSeconds;
  Show();
}

}  // namespace record
