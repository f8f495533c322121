// A record file that anybody may have written, played by whole sessions and replayers: as the file of a day
// between two good ones, and by itself. The first bytes also choose the speed and the point to begin at.
#include <cstdint>
#include <string>

#include "fuzz/fuzz_device.h"
#include "record/playback.h"
#include "record/replay.h"
#include "tests/format/kmv_bytes.h"

namespace {

using fuzz::Require;

constexpr const char* kNames[] = {"20240130/080000-av-1.kmv", "20240130/080010-av-1.kmv",
                                  "20240130/080020-av-1.kmv"};
constexpr std::uint32_t kBegin = 1706601600;  // 2024-01-30 08:00:00

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
  static const fuzz::Device device([](const fuzz::Device& made) {
    kmvtest::File good;
    good.FillTwoSeconds();
    good.Finish(2000);
    for (const char* name : kNames) made.AddRecord(name, good.Bytes(), kBegin, 10);
  });
  if (size > 65536) return 0;
  device.PutRecord(kNames[1], std::string(reinterpret_cast<const char*>(data), size), kBegin, 10);
  const int speed = size > 0 ? data[0] % 16 + 1 : 1;
  const long begin = static_cast<long>(kBegin) + (size > 1 ? data[1] % 30 : 0);

  CPlaybackSession day(1, 0, begin, nullptr, Video, Audio, nullptr);
  Play(day, speed);
  CPlayFileSession file(2, device.RecordPath(kNames[1]), nullptr, Video, Audio, nullptr);
  file.Seek(begin - static_cast<long>(kBegin));
  Play(file, 16);
  fake::Platform::Get().ClearRecord();
  device.AwaitThreads();
  return 0;
}
