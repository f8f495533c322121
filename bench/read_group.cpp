// Reading every frame: the readers beside a block read with one copy a frame and libavformat's demuxers.
#include <cstdio>
#include <iterator>
#include <memory>

#include "bench/av_file.h"
#include "bench/bare.h"
#include "bench/place.h"
#include "bench/recording.h"
#include "bench/table.h"
#include "record/video_file.h"

namespace bench {
namespace {

struct Peer {
  const char* name;
  const char* format;
  const char* file;
};
constexpr Peer kPeers[] = {{"libavformat avi", "avi", "clip.avi"},
                           {"libavformat mp4", "mov", "clip.mov"},
                           {"libavformat mpegts", "mpegts", "clip.ts"},
                           {"libavformat matroska", "matroska", "clip.mkv"}};

constexpr size_t kPeerCount = std::size(kPeers);

// A reader, what it is compared with, and the goals.
struct Rivalry {
  Container container;
  double bareGoal;  // 0: the container has no bare reading of its own
  double fastestGoal;
  int onlyPeer;  // -1: all of them
};
constexpr Rivalry kRivalries[] = {
    {Container::kKmv, 1.1, 0.7, -1}, {Container::kAvi, 1.1, 0, 0}, {Container::kMp4, 0, 0, 1}};

unsigned long g_sum;  // keeps the work from being left out

Cost LibraryPass(const std::string& path, size_t frames) {
  const Stopwatch watch;
  const std::unique_ptr<CVideoFile> file = CreateVideoFile(path.c_str());
  if (file->Open(path.c_str()) < 1) std::exit(1);
  unsigned char* data;
  long owned, video, key;
  unsigned long ms;
  size_t count = 0;
  for (int length; (length = file->GetMediaFrame(&data, owned, video, key, ms)) > 0; ++count) {
    g_sum += data[0] + data[length - 1];
    if (owned != 0) delete[] data;
  }
  file->Close();
  if (count != frames) {
    std::fprintf(stderr, "record_bench: %s: %zu frames, not %zu\n", path.c_str(), count, frames);
    std::exit(1);
  }
  return watch.Elapsed();
}

Cost BarePass(const std::string& path, const std::vector<Payload>& payloads) {
  const Stopwatch watch;
  g_sum += ReadInBlocks(path, payloads);
  return watch.Elapsed();
}

Cost AvPass(const std::string& path) {
  const Stopwatch watch;
  {
    AvReader reader(path);
    while (const AVPacket* packet = reader.Read()) g_sum += packet->data[0] + packet->data[packet->size - 1];
  }
  return watch.Elapsed();
}

size_t Fastest(const std::vector<Contender>& contenders) {
  size_t best = 0;
  for (size_t i = 1; i < contenders.size() && i < kPeerCount; ++i) {
    if (MedianRatio(contenders[i], contenders[best]).cpu < 1) best = i;
  }
  return best;
}

void ReadAt(const Place& place, const Options& options) {
  place.BecomeDevice();
  const Clip clip(options.clipSeconds);
  const size_t count = clip.Frames().size();
  std::vector<Contender> contenders;
  for (const Peer& peer : kPeers) {
    const std::string path = place.File(peer.file);
    MakeAvFile(peer.format, "", path, clip);
    contenders.push_back({peer.name, [path] { return AvPass(path); }});
  }
  // Behind the peers every container, each followed by its bare reading, if it has one.
  for (const Rivalry& rivalry : kRivalries) {
    const std::string path = place.File(std::string("clip") + ExtensionOf(rivalry.container));
    MakeRecordFile(rivalry.container, path, clip, true);
    contenders.push_back({NameOf(rivalry.container), [path, count] { return LibraryPass(path, count); }});
    if (rivalry.bareGoal <= 0) continue;
    contenders.push_back(
        {"bare block read, a copy a frame",
         [path, payloads = PayloadsOf(rivalry.container, path)] { return BarePass(path, payloads); }});
  }
  TakeTurns(options.rounds, contenders);

  const auto frames = static_cast<double>(count);
  const size_t fastest = Fastest(contenders);
  size_t at = kPeerCount;
  for (const Rivalry& rivalry : kRivalries) {
    const Contender& mine = contenders[at++];
    const std::string what = mine.name + " read, " + place.Kind();
    if (rivalry.bareGoal > 0) PrintRatio(what, mine, contenders[at++], frames, {rivalry.bareGoal, Measure::kCpu});
    for (size_t peer = 0; peer < kPeerCount; ++peer) {
      if (rivalry.onlyPeer < 0 || static_cast<size_t>(rivalry.onlyPeer) == peer)
        PrintRatio(what, mine, contenders[peer], frames,
                   {peer == fastest ? rivalry.fastestGoal : 0, Measure::kCpu});
    }
  }
}

}  // namespace

void ReadGroup(const Options& options) {
  PrintHeadline("Reading every frame (in the page cache)");
  ReadAt(Place("tmpfs", options.memory), options);
  ReadAt(Place("disk", options.disk), options);
}

}  // namespace bench
