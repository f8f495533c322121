// A recording process is killed at random moments. Whatever the moment: every packet whose write had returned is
// read back, nothing that was not recorded is, the file can be repaired, the catalogue lists it, and the next
// recorder gets on with what was left.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <random>
#include <thread>

#include "record/catalogue.h"
#include "record/storage.h"
#include "record/types.h"
#include "tests/trust/read_back.h"
#include "tests/trust/recorder.h"
#include "tests/trust/run_size.h"

namespace trust {
namespace {

constexpr int kCyclesPerDevice = 5;  // then a new one, so that names do not run ahead of the clock
constexpr int kLongestMs = kSanitized ? 160 : 40;
constexpr std::int64_t kPatienceNs = 300000000;
constexpr int kDuration = 100;
constexpr int kCyclesPerTool = 20;

using Days = std::map<std::string, DayRecordMap>;

class KillTest : public testing::TestWithParam<std::string> {
 protected:
  KillTest() : m_seed(static_cast<unsigned>(FromEnvironment("RECORD_SEED", getpid()))), m_random(m_seed) {}
  ~KillTest() override {
    SetDeviceRoot("");
    RemoveDevice();
  }

  void NewDevice() {
    RemoveDevice();
    char path[] = "/dev/shm/record-kill-XXXXXX";
    char fallback[] = "/tmp/record-kill-XXXXXX";
    const char* made = mkdtemp(path);
    if (made == nullptr) made = mkdtemp(fallback);
    ASSERT_NE(made, nullptr);
    m_root = made;
    ASSERT_TRUE(MakeDevice(m_root));
    SetDeviceRoot(m_root.c_str());
  }
  void RemoveDevice() {
    std::error_code ignored;
    if (!m_root.empty()) std::filesystem::remove_all(m_root, ignored);
    m_root.clear();
  }

  // Every second time the kill waits for a phase of a file, or else nearly all would hit a waiting thread.
  void AwaitTheMoment(Journal& journal) {
    const bool aimed = m_random() % 2 == 0;
    constexpr std::array<Phase, 3> kAims = {Phase::kBegin, Phase::kWrite, Phase::kEnd};
    const Phase aim = kAims[m_random() % kAims.size()];
    const unsigned skip = m_random() % 20;
    const std::int64_t until = NowNs() + kPatienceNs;
    if (aimed) {
      for (unsigned seen = 0; NowNs() < until;) {
        const int files = journal.FileCount();
        if (files == 0 || journal.File(files - 1).phase != aim) continue;
        if (aim != Phase::kWrite || ++seen > skip) break;
        while (journal.File(files - 1).phase == aim && NowNs() < until) {
        }
      }
      const std::int64_t moment = NowNs() + (m_random() % 300 >> m_random() % 4) * 1000;
      while (NowNs() < moment) {
      }
      return;
    }
    std::this_thread::sleep_for(std::chrono::microseconds(m_random() % (kLongestMs * 1000)));
  }

  void Cycle() {
    Journal* journal = Journal::Create();
    ASSERT_NE(journal, nullptr);
    RecorderPlan plan;
    plan.root = m_root;
    plan.channels = {{RECORD_KIND_MANUAL, 0, kDuration}};
    plan.extension = GetParam();
    plan.feed = {1000, 10, 3000, 1500000};  // one that takes long to write
    plan.stopEveryMs = 12;
    plan.seed = m_random();
    Recorder recorder(plan, *journal);
    AwaitTheMoment(*journal);
    recorder.Kill();
    EXPECT_TRUE(recorder.DiedOfTheKill()) << "it died on its own";
    Check(*journal);
    Journal::Destroy(journal);
  }

  void Check(Journal& journal) {
    Days days;
    const std::vector<std::string> files = RecordFiles(m_root);
    for (const std::string& path : files) {
      const std::string day = std::filesystem::path(path).parent_path().filename();
      if (days.count(day) != 0) continue;
      const int date = std::stoi(day);
      EXPECT_EQ(GetDayRecordInfo(date / 10000, date / 100 % 100, date % 100, days[day]), 0);
    }
    size_t found = 0;
    for (const std::string& path : files) {
      FileNote* note = journal.Find(path);
      if (note == nullptr) {
        CheckUnbegun(path, journal);
        continue;
      }
      ++found;
      CheckFile(path, *note);
      if (!IsWorthless(path, *note))
        CheckListed(path, *note, days[std::filesystem::path(path).parent_path().filename()]);
    }
    for (auto& day : days) Free_MapRecordFileInfo(day.second);
    size_t begun = 0;
    for (int n = 0; n < journal.FileCount(); ++n) {
      if (journal.File(n).begunNs != 0) ++begun;
      ++m_hits[journal.File(n).phase];
      m_packets += journal.File(n).returned;
    }
    EXPECT_EQ(found, begun) << "a file that was begun is not there";
    m_files += begun;
    Forget(files);
  }

  // Killed within RecordBegin: a head at most.
  static void CheckUnbegun(const std::string& path, Journal& journal) {
    const int last = journal.FileCount() - 1;
    EXPECT_TRUE(last >= 0 && journal.File(last).phase == Phase::kBegin) << path << " was begun by nobody";
    const auto size = std::filesystem::file_size(path);
    EXPECT_LE(size, HeadSize(path)) << path;
    if (size == 0 || size < HeadSize(path)) return;
    const FileNote none = {};
    EXPECT_EQ(RepairAndCheck(path, none, 0), "") << path;
  }

  void CheckFile(const std::string& path, const FileNote& note) {
    const ReadBack back = ReadFrames(path, note);
    EXPECT_EQ(back.fault, "") << path;
    const bool ended = note.phase == Phase::kEnded;
    const std::uint32_t due = ended ? note.returned.load() : Promised(path, note, note.returned);
    EXPECT_GE(back.frames, due) << path << ": written frames are lost";
    EXPECT_LE(back.frames, note.begun) << path;
    if (IsOf(path, ".mp4") && due > 0 && (m_withTool || !ended)) {
      EXPECT_EQ(ProbeFault(path, note, due), "") << path;
    }
    if (m_withTool && !IsWorthless(path, note)) CheckByTool(path, note);
    EXPECT_EQ(RepairAndCheck(path, note, back.frames), "") << path;
  }

  // The same as somebody sees it who comes to the device after the crash.
  void CheckByTool(const std::string& path, const FileNote& note) const {
    const std::filesystem::path file(path);
    const std::string day = file.parent_path().filename();
    const std::string date = day.substr(0, 4) + "-" + day.substr(4, 2) + "-" + day.substr(6, 2);
    EXPECT_TRUE(Tool("list --date " + date + " | grep -q " + file.filename().string())) << path;
    // Killed behind its last byte, a file still has its lock: info finds fault with that, repair removes it.
    const bool isLocked = access((m_root + "/tmp/" + day + file.filename().string()).c_str(), F_OK) == 0;
    const bool ended = note.phase == Phase::kEnded;
    if (!IsOf(path, ".mp4")) {
      EXPECT_EQ(Tool("info " + path + " >/dev/null"), ended || (IsWhole(path) && !isLocked)) << path;
    }
    if (IsOf(path, ".mp4") && note.WholeGroups(note.returned) == 0) return;
    EXPECT_TRUE(Tool("repair " + path + " >/dev/null")) << path;
    // The end of an MP4 file that has lost it is made by writing the frames anew.
    const std::string copy = m_root + "/copy.mp4";
    const bool isMp4 = IsOf(path, ".mp4");
    EXPECT_TRUE(!isMp4 || Tool("convert --overwrite " + path + " " + copy + " >/dev/null")) << path;
    EXPECT_TRUE(Tool("info " + (isMp4 ? copy : path) + " >/dev/null")) << path;
  }
  bool Tool(const std::string& command) const {
    return std::system((std::string(RECORDCTL) + " --root " + m_root + " " + command + " 2>/dev/null").c_str()) ==
           0;
  }

  // The end of an MP4 file without a key frame takes its side file away, so that it is in no catalogue.
  static bool IsWorthless(const std::string& path, const FileNote& note) {
    const bool hasKey =
        std::any_of(note.packets, note.packets + note.begun, [](const PacketNote& p) { return p.key; });
    return IsOf(path, ".mp4") && note.phase >= Phase::kEnd && !hasKey;
  }

  static void CheckListed(const std::string& path, const FileNote& note, const DayRecordMap& day) {
    const RecordFileInfo* listed = nullptr;
    for (const auto& entry : day) {
      if (RecordFilePath(*entry.second) == path) listed = entry.second;
    }
    ASSERT_NE(listed, nullptr) << path << " is not in the catalogue, phase " << static_cast<int>(note.phase.load())
                               << ", side file " << std::filesystem::exists(path + ".info");
    EXPECT_GE(listed->nEndSecond, listed->nStartSecond);
    const unsigned length = listed->nEndSecond - listed->nStartSecond;
    EXPECT_LE(length, note.phase == Phase::kEnded ? 2u : static_cast<unsigned>(kDuration)) << path;
  }

  // The files go, whatever else a killed recorder leaves stays for the next one.
  static void Forget(const std::vector<std::string>& files) {
    for (const std::string& path : files) {
      std::filesystem::remove(path);
      std::filesystem::remove(path + ".info");
    }
  }

  const unsigned m_seed;
  std::mt19937 m_random;
  std::string m_root;
  std::map<Phase, int> m_hits;
  bool m_withTool = false;
  size_t m_files = 0;
  size_t m_packets = 0;
};

INSTANTIATE_TEST_SUITE_P(, KillTest, testing::Values(".kmv", ".avi", ".mp4"),
                         [](const auto& info) { return info.param.substr(1); });

TEST_P(KillTest, NothingWrittenIsLostAndNothingInvented) {
  const long kills = FromEnvironment("RECORD_KILLS", kSanitized ? 20 : 60);
  SCOPED_TRACE("RECORD_SEED=" + std::to_string(m_seed));
  std::printf("%ld kills, RECORD_SEED=%u\n", kills, m_seed);
  const std::int64_t begin = NowNs();
  for (long n = 0; n < kills && !HasFailure(); ++n) {
    if (n % kCyclesPerDevice == 0) NewDevice();
    SCOPED_TRACE("kill " + std::to_string(n));
    m_withTool = n % kCyclesPerTool == 0;
    Cycle();
  }
  std::printf(
      "%zu files, %zu packets written, %.1f ms a kill; hit while beginning %d, waiting %d, writing %d, "
      "ending %d\n",
      m_files, m_packets, static_cast<double>(NowNs() - begin) / 1e6 / static_cast<double>(kills),
      m_hits[Phase::kBegin], m_hits[Phase::kWaiting], m_hits[Phase::kWrite], m_hits[Phase::kEnd]);
  EXPECT_GT(m_packets, 0u);
}

}  // namespace
}  // namespace trust
