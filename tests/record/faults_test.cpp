// Whatever call fails, at whatever point: the recording ends or goes on as laid down, every packet whose write
// came through is read back, and nothing is left behind.
#include <algorithm>
#include <cerrno>

#include "record/storage.h"
#include "record/task_manager.h"
#include "storage/file_syncer.h"
#include "tests/format/frame_reading.h"
#include "tests/record/file_faults.h"
#include "tests/support/device_test.h"
#include "tests/support/recorded_file.h"

namespace {

using fake::DefaultConfig;
using fake::DefaultParam;
using fake::FileCall;
using fake::FileFault;
using fake::RecordedFile;

class FaultsTest : public fake::DeviceTest {
 protected:
  FaultsTest() {
    TaskManagerInit();
    Mount(0, 1000);
    fake::StreamPlan& main = m_streams.Plan(STREAM_MAIN);
    main.startMs = static_cast<double>(m_clock.WallMs());
    main.framesPerGroup = 10;
    m_param = DefaultParam();
    m_param.duration = 2;
    SetRecordSyncInterval(0);
  }
  ~FaultsTest() override { SetRecordSyncInterval(1000); }

  void Run() {
    ASSERT_TRUE(fake::StartTask(std::make_unique<CKmvTask>(m_param, DefaultConfig())));
    ASSERT_TRUE(fake::AwaitTasks(600000));
    EXPECT_EQ(m_streams.ReaderCount(), 0);
  }

  // What the task left, checked against what the stream gave; removed from the card.
  RecordedFile Result() {
    EXPECT_TRUE(fake::FilesIn(Path("/tmp"), ".kmv").empty()) << "a lock file was left";
    const auto files = fake::FilesIn(Path("/mnt/mmc0/schedule/20240131"), ".kmv");
    if (files.empty()) return {};
    const RecordedFile file = fake::ReadRecordedFile(files.back());
    std::int64_t expected = 0;
    for (const auto& packet : file.packets)
      EXPECT_EQ(packet.payload, fake::Streams::Payload(0, expected++, 120)) << "packets without a hole";
    if (file.bytes.size() >= 404) CheckReader(file);
    std::remove(files.back().c_str());
    return file;
  }

  // Whether the fault came to its turn.
  bool RunWith(FileCall call, const char* part, int k, bool forEver, int error) {
    m_clock.Reset(2024, 1, 31, 8, 15, 0);
    m_streams.Plan(STREAM_MAIN).startMs = static_cast<double>(m_clock.WallMs());
    m_platform.ClearRecord();
    const FileFault fault(call, part, k, forEver, error);
    Run();
    return fault.Calls() >= k;
  }

  static void CheckReader(const RecordedFile& file) {
    CKmvFile reader;
    ASSERT_EQ(reader.Open(file.path.c_str()), 1);
    for (const auto& packet : file.packets) ASSERT_EQ(formattest::ReadFrame(reader).payload, packet.payload);
    EXPECT_EQ(formattest::ReadFrame(reader).result, -1);
  }

  RECORD_TASK_PARAM m_param;
};

TEST_F(FaultsTest, EveryCallFailingAtEveryPoint) {
  struct Kind {
    FileCall call;
    const char* part;
    int error;
  };
  const Kind kinds[] = {{FileCall::kOpen, "/mnt/mmc0", EROFS}, {FileCall::kOpen, "/tmp/", EACCES},
                        {FileCall::kWrite, "/mnt/mmc0", EIO},  {FileCall::kSync, "/mnt/mmc0", EIO},
                        {FileCall::kRead, "/mnt/mmc0", EIO},   {FileCall::kWrite, "status.flag", ENOSPC},
                        {FileCall::kWrite, ".kmv$", ENOSPC},   {FileCall::kShortWrite, ".kmv$", ENOSPC}};
  for (const Kind& kind : kinds) {
    for (const bool forEver : {false, true}) {
      bool came = true;
      for (int k = 1; came; ++k) {
        came = RunWith(kind.call, kind.part, k, forEver, kind.error);
        const RecordedFile file = Result();
        ASSERT_FALSE(HasFailure()) << "call " << static_cast<int>(kind.call) << " on " << kind.part << " k=" << k
                                   << " forEver=" << forEver;
      }
    }
  }
}

TEST_F(FaultsTest, AFullCardEndsTheFileAfterItsLastWholePacket) {
  m_param.duration = 1;
  for (const FileCall call : {FileCall::kWrite, FileCall::kShortWrite}) {
    // Writes: the head, 26 packets, index, tail.
    for (int k = 1; k <= 29; ++k) {
      ASSERT_TRUE(RunWith(call, ".kmv$", k, true, ENOSPC));
      const RecordedFile file = Result();
      EXPECT_EQ(file.packets.size(), static_cast<size_t>(std::clamp(k - 2, 0, 26)));
      EXPECT_EQ(file.bytes.size(), k == 1    ? 0u
                                   : k == 29 ? file.end + 7212
                                             : file.end)
          << "nothing torn behind, k=" << k;
      const char* message = k == 1    ? "write kmv header failed, err = No space left on device"
                            : k <= 27 ? "write kmv packet header failed, err = No space left on device"
                            : k == 28 ? "write kmv index failed, err = No space left on device"
                                      : "write kmv tail failed, err = No space left on device";
      EXPECT_EQ(m_platform.CountLogged(message), 1) << k;
      EXPECT_EQ(m_platform.CallsTo("MsgNotifyAlarm").size(), 0u) << "a file that failed is not announced";
    }
  }
}

TEST_F(FaultsTest, AFailedSyncEndsTheFile) {
  m_param.duration = 100;
  ASSERT_TRUE(fake::StartTask(std::make_unique<CKmvTask>(m_param, DefaultConfig())));
  m_clock.Sleep(1000);
  {
    const FileFault fault(FileCall::kSync, ".kmv$", 1, false, EIO);
    record::FileSyncer::Get().SyncAll();
    record::FileSyncer::Get().SyncAll();
    EXPECT_EQ(fault.Calls(), 1) << "a file whose sync failed is not synced again as if nothing had happened";
  }
  EXPECT_TRUE(fake::AwaitTasks(100)) << "the write-failure flag ends the file at once";
  EXPECT_TRUE(m_platform.Logged("write failed, end"));
}

}  // namespace
