// Who owns the thread when Stop and the end of an export meet.
#include <gmock/gmock.h>

#include <chrono>
#include <cstdlib>
#include <random>
#include <thread>

#include "tests/export/export_records.h"

namespace {

using namespace exporttest;

CExportRecord* g_export = nullptr;
int g_stopped = 0;

class ExportThreadTest : public ExportTest {
 protected:
  static int StopWithin(int id, int result) {
    g_stopped = g_export->Stop();
    return Endings::Done(id, result);
  }
  static int DeleteWithin(int id, int result) {
    delete g_export;
    return Endings::Done(id, result);
  }
};

// Two seconds, or as many as EXPORT_STOP_SECONDS says.
TEST_F(ExportThreadTest, StopAtAnyMoment) {
  const char* asked = std::getenv("EXPORT_STOP_SECONDS");
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(asked ? std::atoi(asked) : 2);
  m_platform.keepLog = false;
  for (int second = 0; second < 4; ++second)
    AddKmv("08000" + std::to_string(second), second * 1000, second * 1000 + 1000);
  std::minstd_rand random(7);
  int whole = 0;
  int rounds = 0;
  for (int id = 100000; std::chrono::steady_clock::now() < end; ++id, ++rounds) {
    m_platform.ClearRecord();
    auto job = std::make_unique<CExportRecord>(id, 2024, 1, 30, kSpan, m_output, Endings::Done);
    ASSERT_EQ(job->Start(), 0);
    std::this_thread::sleep_for(std::chrono::microseconds(random() % (random() % 2 == 0 ? 300 : 6000)));
    std::thread other([&] { job->Stop(); });
    EXPECT_EQ(job->Stop(), 0);
    other.join();
    job.reset();
    EXPECT_EQ(Endings::Get().Await(id), 0);
    const std::size_t frames = fake::ReadMp4(m_output).frames.size();
    EXPECT_LE(frames, 80u);
    whole += frames == 80 ? 1 : 0;
    EXPECT_FALSE(fake::Exists(m_output + ".part"));
    unlink(m_output.c_str());
  }
  EXPECT_EQ(Endings::Get().Count(100000), 1);
  RecordProperty("rounds", rounds);
  RecordProperty("whole", whole);
}

TEST_F(ExportThreadTest, CallbacksMayStopAndDestroyTheExport) {
  AddKmv("080000", 0, 3000);
  CExportRecord stopped(1, 2024, 1, 30, kSpan, m_output, StopWithin);
  g_export = &stopped;
  g_stopped = -1;
  EXPECT_EQ(Run(stopped, 1), 0);
  EXPECT_EQ(g_stopped, 0);
  EXPECT_EQ(stopped.Stop(), 0);
  EXPECT_EQ(stopped.Start(), -1) << "an export runs once";

  g_export = new CExportRecord(2, 2024, 1, 30, kSpan, m_output, DeleteWithin);
  EXPECT_EQ(Run(*g_export, 2), 0);

  CExportRecord halted(3, 2024, 1, 30, kSpan, m_output, Endings::Done);
  halted.SetProgressHook(
      [](const ExportProgress& progress, void* job) {
        if (progress.doneSeconds == 1) static_cast<CExportRecord*>(job)->Stop();
      },
      &halted);
  EXPECT_EQ(Run(halted, 3), 0);
  EXPECT_EQ(fake::ReadMp4(m_output).frames.size(), 21u) << "up to the frame that was at hand";
}

}  // namespace
