// A record file that anybody may have written, played by whole sessions and replayers: as the file of a day
// between two good ones, and by itself. The first bytes also choose the speed and the point to begin at.
#include <cstdint>
#include <memory>
#include <string>

#include "fuzz/fuzz_device.h"
#include "record/playback.h"
#include "record/replay.h"
#include "storage/layout.h"
#include "storage/record_info.h"
#include "tests/format/kmv_bytes.h"
#include "tests/support/device_test.h"

namespace {

using fuzz::Require;

constexpr char kRoot[] = "/mnt/mmc0/schedule";
constexpr const char* kNames[] = {"20240130/080000-av-1.kmv", "20240130/080010-av-1.kmv",
                                  "20240130/080020-av-1.kmv"};
constexpr long kBegin = 1706601600;  // 2024-01-30 08:00:00

PlaybackPushResult Video(unsigned, const char* frame, unsigned length, unsigned long long, int) {
  unsigned sum = 0;
  for (unsigned at = 0; at < length; ++at) sum += static_cast<unsigned char>(frame[at]);
  volatile unsigned sink = sum;
  static_cast<void>(sink);
  return BUF_OK;
}

PlaybackPushResult Audio(unsigned session, const char* frame, unsigned length, unsigned long long ptsMs) {
  return Video(session, frame, length, ptsMs, 0);
}

void Put(const fuzz::Device& device, const char* name, const std::string& bytes) {
  const std::string path = device.Path(std::string(kRoot) + "/" + name);
  fake::WriteFile(path, bytes);
  RecordInfoStruct info = {};
  info.startSeconds = static_cast<std::uint32_t>(kBegin);
  info.endSeconds = info.startSeconds + 10;
  record::WriteRecordInfo(record::InfoPath(path), info);
}

void Play(CPlaybackControls& session, int speed) {
  speed > 0 ? session.Fast(speed) : session.Slow(-speed);
  fake::Clock& clock = fake::Clock::Get();
  Require(clock.StartThread([&] { return session.Start() == 0; }));
  Require(clock.WatchUntil([&] { return !session.IsPlaying(); }, 1LL << 40));
  const fake::Clock::Pause pause;
  session.Stop();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fuzz::Device device;
  static const bool prepared = [] {
    kmvtest::File good;
    good.FillTwoSeconds();
    good.Finish(2000);
    for (const int n : {2, 1, 0}) {
      Put(device, kNames[n], good.Bytes());
      fake::Platform::Get().records.push_back({kRoot, kNames[n]});
    }
    return true;
  }();
  static_cast<void>(prepared);
  if (size > 65536) return 0;
  Put(device, kNames[1], std::string(reinterpret_cast<const char*>(data), size));
  const int speed = size > 0 ? data[0] % 16 + 1 : 1;
  const long begin = kBegin + (size > 1 ? data[1] % 30 : 0);

  CPlaybackSession day(1, 0, begin, nullptr, Video, Audio, nullptr);
  Play(day, speed);
  CPlayFileSession file(2, device.Path(std::string(kRoot) + "/" + kNames[1]), nullptr, Video, Audio, nullptr);
  file.Seek(begin - kBegin);
  Play(file, 16);
  fake::Platform::Get().ClearRecord();
  device.AwaitThreads();
  return 0;
}
