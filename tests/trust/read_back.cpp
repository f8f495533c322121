#include "tests/trust/read_back.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "format/avi/avi_format.h"
#include "format/avi/avi_repair.h"
#include "format/kmv/kmv_repair.h"
#include "record/video_file.h"
#include "tests/trust/frames.h"

namespace trust {
namespace {

std::string At(std::uint32_t frame, const char* what) {
  return "frame " + std::to_string(frame) + ": " + what;
}

struct Read {
  const unsigned char* data;
  int length;
  bool video;
  bool key;
  std::uint32_t timestamp;
};

// Takes the frames of a file one by one. Those of an MP4 file come in the order of their times.
class Comparison {
 public:
  Comparison(const std::string& path, const FileNote& note)
      : m_note(note), m_isAvi(IsOf(path, ".avi")), m_isMp4(IsOf(path, ".mp4")) {}

  std::string Take(const Read& read) {
    std::uint32_t& next = m_next[m_isMp4 && read.video ? 1 : 0];
    while (m_isMp4 && next < m_note.begun && m_note.packets[next].video != read.video) ++next;
    return Compare(next++, read);
  }

  // All packets in front of it were read.
  std::uint32_t Frames() const {
    if (!m_isMp4) return m_next[0];
    for (std::uint32_t n = 0; n < m_note.begun; ++n) {
      if (n >= m_next[m_note.packets[n].video ? 1 : 0]) return n;
    }
    return m_note.begun;
  }

 private:
  std::string Compare(std::uint32_t n, const Read& read) {
    if (n >= m_note.begun) return At(n, "was never written");
    const PacketNote& packet = m_note.packets[n];
    std::vector<unsigned char> expected;
    if (m_isAvi && packet.video && !m_hasPicture) expected = ConfigBytes();
    m_hasPicture = m_hasPicture || packet.video;
    const FrameKind kind = !packet.video ? FrameKind::kSound
                           : packet.key  ? FrameKind::kKeyPicture
                                         : FrameKind::kPicture;
    const std::vector<unsigned char> frame = FrameBytes(packet.number, packet.length, kind);
    expected.insert(expected.end(), frame.begin(), frame.end());
    if (read.length != static_cast<int>(expected.size()) || read.video != packet.video ||
        (read.video && read.key != packet.key))
      return At(n, "is another");
    if (!IsTime(packet, read.timestamp)) return At(n, "has another time stamp");
    return std::memcmp(expected.data(), read.data, expected.size()) == 0 ? "" : At(n, "has other bytes");
  }

  // AVI files have none; those of MP4 files begin with 0, and are bent where they step back.
  bool IsTime(const PacketNote& packet, std::uint32_t timestamp) const {
    if (m_isAvi) return true;
    if (!m_isMp4) return timestamp == packet.timestamp;
    const auto off = static_cast<std::int32_t>(packet.timestamp - m_note.packets[0].timestamp - timestamp);
    return std::abs(off) <= kMostBentMs;
  }

  static constexpr std::int32_t kMostBentMs = 40;
  const FileNote& m_note;
  const bool m_isAvi;
  const bool m_isMp4;
  std::uint32_t m_next[2] = {0, 0};  // MP4: of sound, of video
  bool m_hasPicture = false;
};

// What looking into a file tells, whatever its container.
struct Look {
  record::FileReport report;
  long long frames = 0;
  long long kept = 0;  // from here to the end of the data repair touches nothing
  bool whole = false;
};

Look LookInto(const std::string& path) {
  Look look;
  if (IsOf(path, ".avi")) {
    const record::AviReport report = record::InspectAvi(path.c_str());
    look = {report, report.totals.videoFrames + report.totals.audioFrames, report.head.FirstChunk(),
            report.HasIndex()};
  } else {
    const record::KmvReport report = record::InspectKmv(path.c_str());
    look = {report, report.totals.videoFrames + report.totals.audioFrames, 0,
            report.endState == record::KmvEndState::Whole};
  }
  return look;
}

record::FileRepair RepairFile(const std::string& path) {
  return IsOf(path, ".avi") ? record::RepairAvi(path.c_str(), false) : record::RepairKmv(path.c_str(), false);
}

std::string FileBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

bool IsOf(const std::string& path, const char* extension) {
  return std::filesystem::path(path).extension() == extension;
}

bool IsWhole(const std::string& path) {
  return LookInto(path).whole;
}

std::uintmax_t HeadSize(const std::string& path) {
  if (IsOf(path, ".mp4")) return 0;
  return IsOf(path, ".avi") ? sizeof(AVI_FILE_HEADER_AV) : static_cast<std::uintmax_t>(record::kKmvHeadSize);
}

std::uint32_t Promised(const std::string& path, const FileNote& note, std::uint32_t packets) {
  return IsOf(path, ".mp4") ? note.WholeGroups(packets) : packets;
}

ReadBack ReadFrames(const std::string& path, const FileNote& note) {
  ReadBack result;
  const std::unique_ptr<CVideoFile> reader = CreateVideoFile(path.c_str());
  if (reader == nullptr || reader->Open(path.c_str()) < 1) {
    // An MP4 file is none before its first group is whole, an AVI file none before its first frame.
    if (IsOf(path, ".kmv") || Promised(path, note, note.returned) > 0) result.fault = "cannot be opened";
    return result;
  }
  Comparison comparison(path, note);
  while (result.fault.empty()) {
    unsigned char* data = nullptr;
    long owned = 0;
    long video = 0;
    long key = 0;
    unsigned long timestamp = 0;
    const int length = reader->GetMediaFrame(&data, owned, video, key, timestamp);
    if (length <= 0) break;
    result.fault = comparison.Take({data, length, video != 0, key != 0, static_cast<std::uint32_t>(timestamp)});
    if (owned != 0) delete[] data;
    if (result.fault.empty()) result.frames = comparison.Frames();
  }
  return result;
}

std::string ProbeFault(const std::string& path, const FileNote& note, std::uint32_t packets) {
  FILE* const probe =
      popen(("ffprobe -v error -count_packets -select_streams v -show_entries stream=nb_read_packets "
             "-of csv=p=0 " +
             path + " 2>/dev/null")
                .c_str(),
            "r");
  if (probe == nullptr) return "ffprobe cannot be run";
  char line[64] = "";
  const bool hasLine = std::fgets(line, sizeof line, probe) != nullptr;
  if (pclose(probe) != 0 || !hasLine) return "ffprobe cannot read it";
  const auto isPicture = [](const PacketNote& packet) { return packet.video; };
  const long pictures = std::strtol(line, nullptr, 10);
  const bool isRight = pictures >= std::count_if(note.packets, note.packets + packets, isPicture) &&
                       pictures <= std::count_if(note.packets, note.packets + note.begun, isPicture);
  return isRight ? "" : "ffprobe counts " + std::to_string(pictures) + " pictures";
}

std::string RepairAndCheck(const std::string& path, const FileNote& note, std::uint32_t frames) {
  if (IsOf(path, ".mp4")) return "";
  const Look before = LookInto(path);
  if (!before.report.error.empty()) return "inspect: " + before.report.error;
  if (before.frames != frames) return "inspect counts " + std::to_string(before.frames);
  if (before.whole && !before.report.inconsistencies.empty())
    return "finished, but " + before.report.inconsistencies[0];

  const std::string bytes = FileBytes(path);
  const record::FileRepair repair = RepairFile(path);
  if (repair.outcome == record::FileRepair::Failed) return "repair: " + repair.error;
  if ((repair.outcome == record::FileRepair::NothingToDo) != before.whole)
    return "repair saw it otherwise than inspect";
  const std::string repaired = FileBytes(path);
  const auto from = static_cast<size_t>(before.whole ? 0 : before.kept);
  const size_t end = before.whole ? bytes.size() : static_cast<size_t>(before.report.dataEnd);
  if (repaired.compare(from, end - from, bytes, from, end - from) != 0) return "repair touched what was recorded";
  if (before.whole && repaired.size() != bytes.size()) return "repair touched a finished file";

  const Look after = LookInto(path);
  if (!after.whole) return "no end after the repair";
  if (!after.report.inconsistencies.empty()) return "after the repair: " + after.report.inconsistencies[0];
  const ReadBack again = ReadFrames(path, note);
  if (!again.fault.empty()) return "after the repair " + again.fault;
  return again.frames == frames ? "" : "repair lost frames";
}

std::vector<std::string> RecordFiles(const std::string& root) {
  std::vector<std::string> files;
  std::error_code error;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root + "/mnt/mmc0", error)) {
    const std::string path = entry.path();
    if (IsOf(path, ".kmv") || IsOf(path, ".avi") || IsOf(path, ".mp4")) files.push_back(path);
  }
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace trust
