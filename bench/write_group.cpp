// Writing: the writers beside one bare writev a frame and libavformat's muxers.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <memory>

#include "bench/av_file.h"
#include "bench/bare.h"
#include "bench/place.h"
#include "bench/recording.h"
#include "bench/table.h"
#include "record/platform.h"
#include "record/storage.h"

namespace bench {
namespace {

struct Peer {
  const char* name;
  const char* format;  // G.711 in fragmented MP4 goes by libavformat's name "mov"; the muxer is the same
  const char* flags;
};
constexpr Peer kAviPeer = {"avi", "avi", ""};
constexpr Peer kMp4Peer = {"fragmented mp4", "mov", "frag_keyframe+empty_moov"};
constexpr Peer kTsPeer = {"mpegts", "mpegts", ""};
constexpr Peer kMkvPeer = {"matroska", "matroska", ""};

constexpr struct {
  AvFlush flush;
  const char* text;
} kManners[] = {{AvFlush::kBuffered, ", buffered"},
                {AvFlush::kFragments, ", fragment by fragment"},
                {AvFlush::kEveryFrame, ", flushed"},
                {AvFlush::kEveryFrameDirect, ", flushed, not interleaved"}};

// libavformat as somebody may use it, and what the library's writers are to reach beside it (0: no goal).
struct Rival {
  const Peer& peer;
  AvFlush flush;
  double goals[std::size(kContainers)];  // below 0: not compared
};
constexpr Rival kRivals[] = {
    {kAviPeer, AvFlush::kEveryFrame, {0.8, 0.8, -1}},
    {kAviPeer, AvFlush::kEveryFrameDirect, {0.8, 0.8, -1}},
    {kAviPeer, AvFlush::kBuffered, {0, 0, -1}},
    {kMp4Peer, AvFlush::kEveryFrame, {0.55, -1, -1}},
    {kMp4Peer, AvFlush::kEveryFrameDirect, {0.55, -1, -1}},
    {kMp4Peer, AvFlush::kFragments, {-1, -1, 1.05}},  // what the MP4 writer commits to
    {kMp4Peer, AvFlush::kBuffered, {0, -1, 0}},
    {kTsPeer, AvFlush::kEveryFrame, {0, -1, -1}},
    {kTsPeer, AvFlush::kEveryFrameDirect, {0, -1, -1}},
    {kTsPeer, AvFlush::kBuffered, {0, -1, -1}},
    {kMkvPeer, AvFlush::kEveryFrame, {0.25, -1, -1}},
    {kMkvPeer, AvFlush::kEveryFrameDirect, {0.25, -1, -1}},
    {kMkvPeer, AvFlush::kBuffered, {0, -1, -1}},
};

// The limits of the library's own: one system call a frame, or the multiplexer without the task.
constexpr double kLimitGoals[] = {1.05, 1.05, 1.05};

std::string NameOf(const Rival& rival) {
  for (const auto& manner : kManners) {
    if (manner.flush == rival.flush) return std::string(rival.peer.name) + manner.text;
  }
  return rival.peer.name;
}

bool KeepsFrames(const Rival& rival) {
  return rival.flush == AvFlush::kEveryFrame || rival.flush == AvFlush::kEveryFrameDirect;
}

template <typename Writer>
Cost TimeFrames(Writer& writer, const Clip& clip) {
  const Stopwatch watch;
  for (const Frame& frame : clip.Frames()) writer.Write(frame);
  return watch.Elapsed();
}

Cost LibraryPass(const Place& place, const Clip& clip, Container container) {
  const std::string directory = place.File("recording");
  std::filesystem::create_directories(directory);
  const std::unique_ptr<Recording> recording = Recording::Make(container, directory);
  recording->Begin();
  const Cost cost = TimeFrames(*recording, clip);
  recording->End();
  std::filesystem::remove_all(directory);
  return cost;
}

// The platform's multiplexer as the MP4 task drives it.
class MuxerAlone {
 public:
  explicit MuxerAlone(const std::string& path) {
    Emp4VideoParams video = {};
    video.codec = VIDEO_CODEC_H264;
    video.width = 1920;
    video.height = 1080;
    video.framerate = kFramesPerSecond;
    Emp4AudioParams audio = {1, 11, kAudioFrameBytes, 8000, 1, {}};
    const Emp4ExtraParams extra = {7200, 0};
    m_muxer = Emp4MuxerOpen(path.c_str(), &video, &audio, &extra);
    if (m_muxer == nullptr) std::exit(1);
  }
  ~MuxerAlone() { Emp4MuxerClose(m_muxer); }
  MuxerAlone(const MuxerAlone&) = delete;
  MuxerAlone& operator=(const MuxerAlone&) = delete;

  void Write(const Frame& frame) {
    const int result =
        frame.video ? Emp4MuxerWriteVideoNALU(m_muxer, frame.key ? 1 : 0, frame.data, frame.length, frame.ms)
                    : Emp4MuxerWriteAudio(m_muxer, frame.data, frame.length, frame.ms);
    if (result != 0 || Emp4MuxerCommit(m_muxer) != 0) std::exit(1);
  }

 private:
  void* m_muxer;
};

template <typename Writer, typename... Arguments>
Cost FilePass(const Place& place, const Clip& clip, const Arguments&... how) {
  const std::string path = place.File("rival");
  Cost cost;
  {
    Writer writer(path, how...);
    cost = TimeFrames(writer, clip);
  }
  unlink(path.c_str());
  return cost;
}

// The most payload that was handed over and is not in the file at some moment: what a kill costs at worst.
long long LostWhenKilled(const Place& place, const Clip& clip, const Rival& rival) {
  const std::string path = place.File("killed");
  AvWriter writer(path, rival.peer.format, rival.peer.flags, rival.flush);
  long long handedOver = 0;
  long long worst = 0;
  for (const Frame& frame : clip.Frames()) {
    writer.Write(frame);
    handedOver += frame.length;
    struct stat status = {};
    stat(path.c_str(), &status);
    worst = std::max(worst, handedOver - static_cast<long long>(status.st_size));
  }
  unlink(path.c_str());
  return worst;
}

// The containers, each followed by its limit, then the rivals.
std::vector<Contender> Contenders(const Place& place, const Clip& clip) {
  std::vector<Contender> contenders;
  for (const Container container : kContainers) {
    contenders.push_back({NameOf(container), [&, container] { return LibraryPass(place, clip, container); }});
    if (container == Container::kMp4)
      contenders.push_back({"the multiplexer alone", [&] { return FilePass<MuxerAlone>(place, clip); }});
    else
      contenders.push_back({"bare writev", [&] { return FilePass<BareWriter>(place, clip); }});
  }
  for (const Rival& rival : kRivals) {
    contenders.push_back(
        {NameOf(rival),
         [&] { return FilePass<AvWriter>(place, clip, rival.peer.format, rival.peer.flags, rival.flush); }});
  }
  return contenders;
}

void WriteAt(const Place& place, const Options& options) {
  const Clip clip(options.clipSeconds);
  place.BecomeDevice();
  std::vector<Contender> contenders = Contenders(place, clip);
  TakeTurns(options.rounds, contenders);

  const auto frames = static_cast<double>(clip.Frames().size());
  constexpr size_t kFirstRival = 2 * std::size(kContainers);
  for (size_t at = 0; at < std::size(kContainers); ++at) {
    const Contender& mine = contenders[2 * at];
    const std::string what = mine.name + " write, " + place.Kind();
    PrintRatio(what, mine, contenders[2 * at + 1], frames, {kLimitGoals[at], Measure::kCpu});
    for (size_t i = 0; i < std::size(kRivals); ++i) {
      if (kRivals[i].goals[at] >= 0)
        PrintRatio(what, mine, contenders[kFirstRival + i], frames, {kRivals[i].goals[at], Measure::kCpu});
    }
  }
  // What no writer with one system call a frame can fall below.
  for (size_t i = 0; i < std::size(kRivals); ++i) {
    if (KeepsFrames(kRivals[i]))
      PrintRatio("bare writev, " + place.Kind(), contenders[1], contenders[kFirstRival + i], frames, {});
  }
}

}  // namespace

void WriteGroup(const Options& options) {
  PrintHeadline("Writing, per frame (video and audio)");
  // The background syncs belong to no frame; the peers have none.
  SetRecordSyncInterval(0);
  const Place memory("tmpfs", options.memory);
  const Place disk("disk", options.disk);
  WriteAt(memory, options);
  WriteAt(disk, options);
  const Clip clip(options.clipSeconds);
  for (const Rival& rival : kRivals) {
    if (rival.flush == AvFlush::kEveryFrameDirect) continue;  // as interleaved
    PrintFigure("lost when killed: " + NameOf(rival),
                static_cast<double>(LostWhenKilled(memory, clip, rival)) / 1024, "KiB of frames at worst");
  }
  SetRecordSyncInterval(1000);
}

}  // namespace bench
