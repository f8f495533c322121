// A network share that hangs: whoever touches it waits for ever. Recording onto the card must not notice.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

#include "record/storage.h"
#include "record/task_manager.h"
#include "record/video_file.h"
#include "record_host/host.h"
#include "tests/host/support/clips.h"
#include "tests/support/task_param.h"

namespace record {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr int kFrameMs = 10;

// A file system in user space that nobody serves: every access waits, until this goes.
class HangingMount {
 public:
  explicit HangingMount(const std::string& directory) : m_directory(directory) {
    m_device = open("/dev/fuse", O_RDWR | O_CLOEXEC);
    const std::string options = "fd=" + std::to_string(m_device) + ",rootmode=40000,user_id=0,group_id=0";
    m_isMounted = m_device >= 0 && mount("hang", directory.c_str(), "fuse", 0, options.c_str()) == 0;
  }
  ~HangingMount() {
    if (m_device >= 0) close(m_device);  // everybody who waits gets an error
    if (m_isMounted) umount2(m_directory.c_str(), MNT_DETACH);
  }
  HangingMount(const HangingMount&) = delete;
  HangingMount& operator=(const HangingMount&) = delete;
  bool IsMounted() const { return m_isMounted; }

 private:
  const std::string m_directory;
  int m_device;
  bool m_isMounted = false;
};

class HangingShareTest : public testing::Test {
 protected:
  HangingShareTest() {
    SetDeviceRoot(m_directory.Path().c_str());
    for (const char* each : {"/mnt/mmc0", "/tmp/network", "/opt/zq"}) fs::create_directories(DevicePath(each));
    TaskManagerInit();
    const unsigned char sets[] = {0, 0, 0, 1, 0x67, 1, 2, 3};
    HostStreamSetConfig(STREAM_MAIN, sets, sizeof sets);
    m_camera = std::thread([this] { Feed(); });
  }
  ~HangingShareTest() override {
    m_stop = true;
    m_camera.join();
    HostStreamClear(STREAM_MAIN);
    SetDeviceRoot("");
  }

  // Frames that carry their number, 100 a second.
  void Feed() {
    for (std::uint32_t n = 0; !m_stop; ++n) {
      unsigned char frame[64] = {0, 0, 0, 1, 0x65};
      std::memcpy(frame + 8, &n, sizeof n);
      const auto now = std::chrono::system_clock::now().time_since_epoch();
      const double ms = static_cast<double>(std::chrono::duration_cast<milliseconds>(now).count());
      HostStreamPublish(STREAM_MAIN, frame, sizeof frame, n % 20 == 0 ? 1 : 0, ms, 0);
      std::this_thread::sleep_for(milliseconds(kFrameMs));
    }
  }

  static CRecordTask* StartTask() {
    RECORD_TASK_PARAM param = fake::DefaultParam();
    param.recordtype = RECORD_KIND_MANUAL;
    param.framerate = 100;
    param.duration = param.max_file_seconds = 61;
    param.remote_store = 1;
    const RecordConfig config = {1, 1, {}};
    auto* task = new CKmvTask(param, config);
    TaskManagerAddTask(task);
    if (task->Start() == 0) return task;
    TaskManagerRemoveTask(task);
    delete task;
    return nullptr;
  }

  // Milliseconds from the stop until the task is gone.
  static long long Stop(CRecordTask* task) {
    const auto begin = steady_clock::now();
    task->Stop();
    while (TaskManagerGetTaskCount(RECORD_KIND_MANUAL, -1) > 0) std::this_thread::sleep_for(milliseconds(1));
    return std::chrono::duration_cast<milliseconds>(steady_clock::now() - begin).count();
  }

  // The frames of the newest record follow each other without a hole; how many there are.
  static int CountFrames() {
    fs::path newest;
    for (const auto& entry : fs::recursive_directory_iterator(DevicePath("/mnt/mmc0"))) {
      if (entry.path().extension() == ".kmv" && entry.path() > newest) newest = entry.path();
    }
    const std::string bytes = ReadFile(newest);
    int count = 0;
    std::uint32_t last = 0;
    const std::string head("\0\0\0\1\x65\0\0\0", 8);
    for (size_t at = bytes.find(head); at != std::string::npos; at = bytes.find(head, at + 64), ++count) {
      std::uint32_t number = 0;
      std::memcpy(&number, bytes.data() + at + 8, sizeof number);
      EXPECT_TRUE(count == 0 || number == last + 1) << number << " follows " << last;
      last = number;
    }
    return count;
  }

  const TempDir m_directory;
  std::atomic<bool> m_stop{false};
  std::thread m_camera;
};

TEST_F(HangingShareTest, CostsNoFrameAndHoldsUpNoEnd) {
  CRecordTask* task = StartTask();
  ASSERT_NE(task, nullptr);
  std::this_thread::sleep_for(milliseconds(600));
  const HangingMount share(DevicePath("/tmp/network"));
  if (!share.IsMounted()) {
    Stop(task);
    GTEST_SKIP() << "no mounting here";
  }
  std::this_thread::sleep_for(milliseconds(600));
  EXPECT_LT(Stop(task), 10000) << "its copy to the share hangs";
  EXPECT_GE(CountFrames(), 20);

  // The next one begins without the share.
  const auto begin = steady_clock::now();
  task = StartTask();
  ASSERT_NE(task, nullptr);
  EXPECT_LT(steady_clock::now() - begin, milliseconds(10000));
  EXPECT_STREQ(task->GetNetworkBase(), "");
  std::this_thread::sleep_for(milliseconds(300));
  EXPECT_LT(Stop(task), 10000);
  EXPECT_GE(CountFrames(), 5);
}

}  // namespace
}  // namespace record
