// The AVI writer, driven by hand: the images of docs/formats.md, names, order of platform calls, faults, the end.
#include <sys/mman.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

#include "record/storage.h"
#include "tests/format/avi_reading.h"
#include "tests/record/file_faults.h"

#include "tests/support/document_image.h"
#include "tests/support/driven_task.h"

namespace avitest {
namespace {

using fake::FileCall;
using fake::FileFault;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using AviTask = fake::DrivenTask<CAviTask>;

class AviWriterTest : public fake::DeviceTest {
 protected:
  AviWriterTest() {
    m_directory = Path("/mnt/mmc0/schedule/20240131");
    fake::WriteFile(m_directory + "/rec_type.idx", "");
    m_param = fake::CameraParam(AUDIO_CODEC_G711_ALAW);
  }

  template <typename Task>
  std::unique_ptr<Task> Make() {
    auto task = std::make_unique<Task>(m_param);
    task->SetStorageBase(m_directory.c_str());
    return task;
  }
  std::string Written(const char* name) { return fake::ReadFile(m_directory + "/" + name); }

  std::string m_directory;
  RECORD_TASK_PARAM m_param;
};

TEST_F(AviWriterTest, AFileMatchesTheImages) {
  auto task = Make<AviTask>();
  std::string config = "cfg:";
  task->SetVolData(config.data(), 4);
  ASSERT_EQ(task->RecordBegin(), 0);
  std::string header = fake::DocumentImage("avi-header");
  ASSERT_EQ(header.size(), 9896u);
  EXPECT_TRUE(Written("081500-av-1.avi") == header) << "as it is until the file ends";
  EXPECT_TRUE(fake::Exists(m_directory + "/081500-av-1.avi.info")) << "known to the catalogue from its begin on";
  task->Video(1, "fram1", 0);
  task->Audio("aud", 0);
  m_clock.Sleep(100);
  ASSERT_EQ(task->RecordEnd(), 0);
  const std::string chunks = fake::DocumentImage("avi-chunks");
  SetU32(header, 4, static_cast<std::uint32_t>(9896 + chunks.size() - 8));
  SetU32(header, 32, 1000000 / 20);  // 1 frame in 100 ms are 10 a second, at least 25 less 5
  SetU32(header, 48, 1);
  SetU32(header, 132, 20);
  SetU32(header, 9888, 28 + 4);
  EXPECT_TRUE(Written("081500-av-1.avi") == header + chunks);
  EXPECT_EQ(task->GetRecordInfo().videoBytes, 17u);
  EXPECT_EQ(task->GetRecordInfo().totalBytes, 28u);
  EXPECT_TRUE(m_platform.Logged("reclen=28, videolen=17, audiolen=11,idx1_entry_count=2\n\n"));

  m_clock.Sleep(1000);
  m_param.audio_enable = 0;
  task = Make<AviTask>();
  ASSERT_EQ(task->RecordBegin(), 0);
  EXPECT_TRUE(Written("081501-vv-1.avi") == fake::DocumentImage("avi-header-video"));
  task->Video(1, std::string(993, 'f'), 0);
  task->RecordEnd();
  const std::string video = Written("081501-vv-1.avi");
  EXPECT_EQ(GetU32(video, 5664), 1008u) << "1001 bytes of chunks and three of padding";
  EXPECT_EQ(video.substr(5672 + 1001, 7), "\xff\xff\xffidx1");
}

TEST_F(AviWriterTest, HeadersNameTheirCodecs) {
  struct Case {
    int videoType, audioType;
    const char *video, *audio;
    unsigned tag;
  };
  for (const Case& c : {Case{0, 0, "XVID", "\1\0\0\0", 7}, Case{2, 1, "HEVC", "MP4A", 8},
                        Case{1, 3, "H264", "\1\0\0\0", 7}, Case{7, 9, "H264", "\0\0\0\0", 0}}) {
    AVI_FILE_HEADER_AV header;
    init_avi_header(&header, c.videoType, c.audioType, 704, 576, 0, 0, 8000, 16, 2);
    const std::string bytes(reinterpret_cast<const char*>(&header), sizeof header);
    EXPECT_EQ(bytes.substr(112, 4), c.video);
    EXPECT_EQ(bytes.substr(188, 4), c.video);
    EXPECT_EQ(bytes.substr(4360, 4), std::string(c.audio, 4));
    EXPECT_EQ(header.audio.format.tag, c.tag);
    EXPECT_EQ(header.audio.format.blockAlign, 4u);
    EXPECT_EQ(header.begin.main.microsecondsAFrame, 0u) << "no division by the rate 0";
  }
}

TEST_F(AviWriterTest, MissingValuesAreReplacedAndUploadsAreNamed) {
  FtpServer ftp = {};
  m_param.width = m_param.height = m_param.bitrate = m_param.framerate = 0;
  auto task = Make<AviTask>();
  task->SetFtpParam(&ftp);
  task->RecordBegin();
  const std::string header = Written("081500-av-1.avi");
  EXPECT_THAT((std::vector<std::uint32_t>{GetU32(header, 32), GetU32(header, 36), GetU32(header, 64),
                                          GetU32(header, 68), GetU32(header, 132)}),
              ElementsAre(40000, 0x200000 / 8, 704, 576, 25));
  task->RecordEnd();
  EXPECT_TRUE(m_platform.Logged("bad entry count: 0.\n\n"));
  EXPECT_TRUE(m_platform.Logged("write avi index failed!\n\n"));
  const std::string path = "/mnt/mmc0/schedule/20240131";
  EXPECT_THAT(
      m_platform.Calls(),
      ElementsAre("AuxMsgReportAlarm(2024-01-31 08:15:00, 18, 1, 1, " + path + "/081500-av-1.avi)",
                  "MsgNotifyAlarm(19, 1, 1, " + path + "/081500-av-1.avi)",
                  "FtpOneFile(" + path + ", 081500-av-1.avi, //2024-1-31/sched, 20240131081500-av-1-alarm.avi)",
                  "mysystem(rm -f /tmp/20240131081500-av-1.avi)"));
  m_clock.Sleep(1000);
  m_param.recordtype = RECORD_KIND_MOTION;
  task = Make<AviTask>();
  task->SetFtpParam(&ftp);
  task->RecordBegin();
  task->RecordEnd();
  EXPECT_THAT(m_platform.CallsTo("FtpOneFile"),
              ElementsAre(HasSubstr("-alarm.avi"), HasSubstr("20240131081501-av-1-motion.avi")));
}

// Whatever write falls short, the frames before it are read back, and the message tells which part it was.
TEST_F(AviWriterTest, AFullMediumKeepsWhatWasWritten) {
  const char* messages[] = {"write avi header failed, err = No space", "write flag_xxdc failed, errno=28\n\n",
                            "write flag_xxdc failed, errno=28\n\n",    "write flag_xxdc failed, errno=28\n\n",
                            "write pading bytes failed, errno=28\n\n", "write avi index failed, errno=28\n\n",
                            "write avi header failed, err = No space"};
  for (int k = 1; k <= 7; ++k) {
    m_platform.ClearRecord();
    auto task = Make<AviTask>();
    const FileFault fault(FileCall::kWrite, ".avi$", k, true, ENOSPC);
    const bool begun = task->RecordBegin() == 0;
    EXPECT_EQ(begun, k > 1);
    std::string frame = Start(VIDEO_CODEC_H264, true) + std::string(300, 'f');
    for (int n = 0; begun && n < 3; ++n)
      EXPECT_EQ(task->RecordOneVideoFrame(1, frame.data(), static_cast<int>(frame.size()), 0), n < k - 2 ? 0 : -1);
    task->RecordEnd();
    EXPECT_EQ(task->IsWriteFailed(), 1);
    EXPECT_TRUE(m_platform.Logged(messages[k - 1])) << k;
    EXPECT_THAT(m_platform.CallsTo("MsgNotifyAlarm"), ::testing::IsEmpty());
    CAviFile reader;
    const std::string path = fake::FilesIn(m_directory, ".avi").back();
    EXPECT_EQ(reader.Open(path.c_str()), k > 2 ? 1 : 0);
    for (int n = 0; n < std::min(k - 2, 3); ++n) EXPECT_EQ(ReadFrame(reader).payload, frame) << k;
    reader.Close();
    std::remove(path.c_str());
  }
}

// The system tells of a failed sync once only: here at the index's, before the header is written.
TEST_F(AviWriterTest, AFailedSyncAtTheEndIsNoted) {
  SetRecordSyncInterval(0);
  auto task = Make<AviTask>();
  ASSERT_EQ(task->RecordBegin(), 0);
  char frame[] = "frame";
  EXPECT_EQ(task->RecordOneVideoFrame(1, frame, 5, 0), 0);
  const FileFault fault(FileCall::kSync, ".avi$", 1, false, EIO);
  task->RecordEnd();
  SetRecordSyncInterval(1000);
  EXPECT_EQ(fault.Calls(), 2);
  EXPECT_EQ(task->IsWriteFailed(), 1);
}

TEST_F(AviWriterTest, TornWritesAreNamedByTheirPart) {
  // Half of the head: its name. The share's messages say so.
  m_param.remote_store = 1;
  auto task = Make<AviTask>();
  task->SetStorageBase("");
  task->SetNetworkBase(m_directory.c_str());
  ASSERT_EQ(task->RecordBegin(), 0);
  const FileFault fault(FileCall::kShortWrite, ".avi$", 1, false, EIO);
  char frame[] = "frame";
  EXPECT_EQ(task->RecordOneVideoFrame(1, frame, 5, 0), -1);
  EXPECT_TRUE(m_platform.Logged("write len to network storage failed, errno=5\n\n"));
  EXPECT_EQ(Written("081500-av-1.avi").size(), 9896u) << "nothing torn stays behind";
}

template <typename Task>
void FillUp(Task& task, const std::string& path) {
  constexpr std::size_t kFrame = 30 << 20;
  void* frame = mmap(nullptr, kFrame, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  ASSERT_NE(frame, MAP_FAILED);
  ASSERT_EQ(task.RecordBegin(), 0);
  {
    const FileFault holes(FileCall::kSkipWrite, path, 1, true, 0);
    int frames = 0;
    while (!task.IsFull() && ++frames < 1000)
      ASSERT_EQ(task.RecordOneVideoFrame(1, static_cast<char*>(frame), kFrame, 0), 0);
  }
  task.RecordEnd();
  munmap(frame, kFrame);
  EXPECT_EQ(task.IsWriteFailed(), 0);
}

TEST_F(AviWriterTest, NoFileOutgrowsFourGigabytes) {
  auto avi = Make<AviTask>();
  FillUp(*avi, ".avi$");
  const std::string path = m_directory + "/081500-av-1.avi";
  const auto size = std::filesystem::file_size(path);
  EXPECT_GT(size, 0xffffffffull - (70ull << 20));
  EXPECT_LE(size, 0xffffffffull);
  std::string header(9896, '\0');
  std::ifstream(path, std::ios::binary).read(header.data(), 9896);
  EXPECT_EQ(GetU32(header, 4), size - 8);
  EXPECT_EQ(9892 + GetU32(header, 9888) + 8 + 16ull * GetU32(header, 48), size);

  auto kmv = Make<fake::DrivenTask<CKmvTask>>();
  FillUp(*kmv, ".kmv$");
  EXPECT_GT(std::filesystem::file_size(m_directory + "/081500-av-1.kmv"), 0xffffffffull - (70ull << 20));
}

}  // namespace
}  // namespace avitest
