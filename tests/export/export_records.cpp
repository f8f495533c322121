#include "tests/export/export_records.h"

#include <ctime>

#include "base/clock.h"

namespace exporttest {
namespace {

std::uint32_t WallStamp() {  // of 08:00:00
  struct tm time = record::CalendarTime(2024, 1, 30, 8);
  return static_cast<std::uint32_t>(mktime(&time) * 1000LL);
}

std::string Payload(char medium, long long ms) {
  return medium + std::to_string(ms) + "." + std::string(160, medium);
}

}  // namespace

Endings& Endings::Get() {
  static Endings* endings = new Endings;
  return *endings;
}

int Endings::Done(int id, int result) {
  const std::lock_guard<std::mutex> lock(Get().m_mutex);
  Get().m_results.insert({id, result});
  Get().m_changed.notify_all();
  return 0;
}

int Endings::Await(int id) {
  std::unique_lock<std::mutex> lock(m_mutex);
  m_changed.wait(lock, [&] { return m_results.count(id) != 0; });
  return m_results.find(id)->second;
}

int Endings::Count(int id) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  return static_cast<int>(m_results.count(id));
}

std::string ExportTest::Full(const std::string& time, const std::string& extension) {
  return Path(std::string(catalogue::kRoot) + "/" + kDay + time + "-av-1." + extension);
}

void ExportTest::AddFile(const std::string& time, const std::string& extension, const std::string& bytes,
                         double seconds) {
  AddRecord(kDay + time + "-av-1." + extension, seconds, bytes);
}

void ExportTest::AddKmv(const std::string& time, long long fromMs, long long toMs, const Stream& stream) {
  kmvtest::File file(stream.head);
  const int interval = 1000 / stream.framesPerSecond;
  const std::uint32_t zero = WallStamp();
  for (long long ms = fromMs; ms < toMs; ms += interval) {
    file.Video(ms / interval % stream.framesPerGroup == 0, zero + static_cast<std::uint32_t>(ms),
               Payload('v', ms));
    if (stream.audio) file.Audio(zero + static_cast<std::uint32_t>(ms) + stream.delayMs, Payload('a', ms));
  }
  file.Finish(static_cast<std::uint32_t>(toMs - fromMs));
  AddFile(time, "kmv", file.Bytes(), static_cast<double>(toMs - fromMs) / 1000);
}

void ExportTest::AddMp4(const std::string& time, long long fromMs, long long toMs, int audioCode) {
  fake::Mp4Clip clip;
  clip.video = {VIDEO_CODEC_H264, 1920, 1080, 10, 10, 0, {}};
  clip.audio = {audioCode != 0, audioCode, 320, 8000, 1, {}};
  for (long long ms = fromMs; ms < toMs; ms += 100) {
    const auto stamp = static_cast<unsigned>(ms - fromMs);
    clip.frames.push_back({true, ms % 1000 == 0, stamp, Payload('v', ms)});
    if (audioCode != 0) clip.frames.push_back({false, false, stamp, Payload('a', ms)});
  }
  AddFile(time, "mp4", fake::Mp4Bytes(clip), static_cast<double>(toMs - fromMs) / 1000);
}

int ExportTest::Run(CExportRecord& job, int id) {
  EXPECT_EQ(job.Start(), 0);
  return Endings::Get().Await(id);
}

fake::Mp4Clip ExportTest::Export(const DayTimeSpan& span) {
  static int s_id = 1000;
  CExportRecord job(++s_id, 2024, 1, 30, span, m_output, Endings::Done);
  m_id = s_id;
  m_result = Run(job, m_id);
  job.Stop();
  return fake::ReadMp4(m_output);
}

int ExportTest::RunTimelapse(int seconds, const std::string& output) {
  static int s_id = 5000;
  CExportTimelapse job(++s_id, seconds, 2024, 1, 30, {8, 0, 0, 9, 0, 0}, output, Endings::Done);
  EXPECT_EQ(job.Start(), 0);
  return Endings::Get().Await(s_id);
}

std::vector<std::string> Times(const fake::Mp4Clip& clip, bool video, bool audio) {
  std::vector<std::string> times;
  for (const fake::Mp4Frame& frame : clip.frames) {
    if (frame.video ? !video : !audio) continue;
    times.push_back((frame.video ? "v" : "a") + std::to_string(frame.timestampMs) + (frame.key ? "k" : ""));
  }
  return times;
}

}  // namespace exporttest
