// The exported classes: what is asked for, made into a job; each call goes on to it. A job is held while it is
// called, because a callback may destroy its owner.
#include <utility>

#include "base/no_throw.h"
#include "export/record_job.h"
#include "export/span.h"
#include "export/timelapse_job.h"
#include "storage/layout.h"

using namespace record;

namespace {

constexpr char kRecordThread[] = "ExportThread";
constexpr char kTimelapseThread[] = "ExportTimelapseThread";

ExportRequest RequestOf(int id, const ExportPiece& piece, std::string output, ExportCallback done) {
  return {id, {piece}, std::move(output), done};
}

}  // namespace

CExportRecord::CExportRecord(int exportId, int year, int month, int day, DayTimeSpan span, std::string outputPath,
                             ExportCallback done) {
  const ExportSpan normal = NormaliseRecordSpan(span);
  const ExportPiece piece = {year, month, day, normal.Begin(), normal.End()};
  m_job = std::make_shared<RecordExportJob>(RequestOf(exportId, piece, std::move(outputPath), done),
                                            RecordExportSettings{normal.length, false});
}

CExportRecord::~CExportRecord() = default;

void CExportRecord::SetProgressHook(ExportProgressHook hook, void* context) {
  m_job->SetProgressHook(hook, context);
}

int CExportRecord::Start() try {
  const std::shared_ptr<RecordExportJob> job = m_job;
  return job->Start(kRecordThread, job);
}
RECORD_NO_THROW(-1)

int CExportRecord::Stop() {
  const std::shared_ptr<RecordExportJob> job = m_job;
  job->Stop();
  return 0;
}

void* CExportRecord::ExportThread(void* self) {
  const std::shared_ptr<RecordExportJob> job = static_cast<CExportRecord*>(self)->m_job;
  job->ThreadBody(kRecordThread);
  return nullptr;
}

int CExportRecord::ExportHandle() {
  const std::shared_ptr<RecordExportJob> job = m_job;
  return job->Handle();
}

int CExportRecord::FileWrite(const char* frame, int length, int isVideo, int isKeyFrame, unsigned int& videoTs,
                             unsigned int& audioTs) try {
  return m_job->Clip().Write({reinterpret_cast<const unsigned char*>(frame), length, isVideo != 0, isKeyFrame != 0,
                              isVideo != 0 ? videoTs : audioTs});
}
RECORD_NO_THROW(-1)

int CExportRecord::FileClose() try { return m_job->Clip().Close(); }
RECORD_NO_THROW(-1)

long long CExportRecord::GetStartTimestampByFileName(std::string path) const {
  return PathStartSeconds(path, 0) * 1000;
}

unsigned int CExportRecord::GetStartSecondByFileName(std::string path) const {
  return PathStartSecond(path);
}

CExportTimelapse::CExportTimelapse(int exportId, int seconds, int year, int month, int day, DayTimeSpan span,
                                   std::string outputPath, ExportCallback done) {
  const ExportSpan normal = NormaliseTimelapseSpan(span);
  const ExportPiece piece = {year, month, day, normal.Begin(), normal.End()};
  const int length = TimelapseSeconds(seconds);
  m_job = std::make_shared<TimelapseJob>(
      RequestOf(exportId, piece, std::move(outputPath), done),
      TimelapseSettings{static_cast<unsigned>(length), TimelapseInterval(length, normal.length / 60), false});
}

CExportTimelapse::~CExportTimelapse() = default;

void CExportTimelapse::SetProgressHook(ExportProgressHook hook, void* context) {
  m_job->SetProgressHook(hook, context);
}

int CExportTimelapse::Start() try {
  const std::shared_ptr<TimelapseJob> job = m_job;
  return job->Start(kTimelapseThread, job);
}
RECORD_NO_THROW(-1)

int CExportTimelapse::Stop() {
  const std::shared_ptr<TimelapseJob> job = m_job;
  job->Stop();
  return 0;
}

void* CExportTimelapse::ExportTimelapseThread(void* self) {
  const std::shared_ptr<TimelapseJob> job = static_cast<CExportTimelapse*>(self)->m_job;
  job->ThreadBody(kTimelapseThread);
  return nullptr;
}

int CExportTimelapse::ExportTimelapse() {
  const std::shared_ptr<TimelapseJob> job = m_job;
  return job->Handle();
}

int CExportTimelapse::FileWrite(const char* frame, int length, int isKeyFrame) try {
  ClipWriter& clip = m_job->Clip();
  return clip.Write(
      {reinterpret_cast<const unsigned char*>(frame), length, true, isKeyFrame != 0, clip.VideoFrames() * 40});
}
RECORD_NO_THROW(-1)

int CExportTimelapse::FileClose() try { return m_job->Clip().Close(); }
RECORD_NO_THROW(-1)
