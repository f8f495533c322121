// Everything that can be asked of an MP4 file that anybody may have written: by the reader, over the host's
// demultiplexer.
#include <unistd.h>

#include <cstdint>
#include <string>

extern "C" {
#include <libavutil/log.h>
#include <libavutil/mem.h>
}

#include "fuzz/reader_run.h"
#include "record/platform.h"

namespace {

using fuzz::Require;

// Tables are checked before libavformat sees them. For a single description it asks for as much as that claims to
// be, up to a GiB, of which it touches what is there: that is no memory, but more than a fuzzer is allowed to ask
// for.
constexpr std::size_t kMostClaimed = 128 << 20;

struct Mp4 {
  using Reader = CMp4File;
  static constexpr auto kHandover = fuzz::Handover::kReaders;
  static constexpr bool kMayGoOn = true;  // a table may tell of the same bytes as often as it likes
  static constexpr int kMoves = 100;      // the reader does not tell when there are no more

  static bool IsEnd(int length) { return length < 0; }
  static std::size_t MostReads(std::size_t) { return 20000; }
  static void Check(CMp4File& reader) { Require(reader.GetTimeDuration() >= 0); }
};

// A lock file tells that the file is still being recorded, while this lives.
class Recorded {
 public:
  explicit Recorded(const std::string& path)
      : m_lock(record::LockFilePath(path.substr(path.rfind("fd/")).c_str())) {
    fake::WriteFile(m_lock, "");
  }
  ~Recorded() { unlink(m_lock.c_str()); }
  Recorded(const Recorded&) = delete;
  Recorded& operator=(const Recorded&) = delete;

 private:
  const std::string m_lock;
};

// What the reader does not pass on.
void AskDemuxer(const char* path) {
  Emp4VideoParams video;
  Emp4AudioParams audio;
  Emp4ExtraParams extra;
  void* demuxer = Emp4DemuxerOpen(path, &video, &audio, &extra);
  if (demuxer == nullptr) return;
  Require(video.codec == 1 || video.codec == 2);
  Require(video.config_length >= 0 && video.config_length <= static_cast<int>(sizeof(video.config)));
  Require(audio.enabled == 0 || (audio.codec >= 10 && audio.codec <= 12));
  Require(extra.duration >= 0);
  const auto end = static_cast<unsigned>(extra.duration % 100000) * 1000;
  for (const unsigned ms : {999u, end - 1, end + 1, UINT32_MAX}) {
    unsigned char* data = nullptr;
    int type = -1;
    int key = -1;
    unsigned stamp = 0;
    if (Emp4DemuxerSeek(demuxer, ms) != 0) continue;
    const int length = Emp4DemuxerReadFrame(demuxer, &data, &type, &key, &stamp);
    Require(length < 0 || (length > 0 && (type == 0 || type == 1) && (key == 0 || (key == 1 && type == 0))));
  }
  for (int moves = 0; moves < Mp4::kMoves && Emp4DemuxerSeekToNextKey(demuxer) == 0; ++moves) {
  }
  Emp4DemuxerClose(demuxer);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  av_log_set_level(AV_LOG_QUIET);
  av_max_alloc(kMostClaimed);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fuzz::Device device;
  fuzz::ReaderRun<Mp4> run(data, size);
  run.ReadWhole();
  if (size % 2 != 0) {
    const Recorded recorded(run.Path());
    run.ReadWhole();
  }
  AskDemuxer(run.Path());
  return 0;
}
