#include "format/kmv/kmv_scan.h"

namespace record {
namespace {

constexpr std::uint32_t kIndexedMilliseconds = kKmvIndexSlots * 1000u;

}  // namespace

bool KmvIsIndexed(std::uint32_t streamFlags, const KmvPacketHead& packet) {
  if (streamFlags & RECORD_STREAM_VIDEO) return KmvIsVideoKey(packet);
  return packet.media == KMV_MEDIA_AUDIO;
}

void KmvCount(KmvTotals& totals, std::uint32_t streamFlags, long long offset, const KmvPacketHead& packet) {
  if (packet.media == KMV_MEDIA_VIDEO) {
    ++totals.videoFrames;
    totals.videoBytes += packet.length;
    if (packet.frameType == KMV_FRAME_KEY) ++totals.keyFrames;
  } else {
    ++totals.audioFrames;
    totals.audioBytes += packet.length;
  }
  if (totals.firstStamp == 0) totals.firstStamp = packet.timestamp;
  std::uint32_t delta = packet.timestamp - totals.firstStamp;
  // A packet from before the first one (audio behind its picture) belongs to the begin of the file.
  const bool early = delta > 0x7fffffffu;
  if (early) delta = 0;
  if (KmvIsIndexed(streamFlags, packet) && delta < kIndexedMilliseconds && offset <= kLongestRecordFile) {
    KmvIndexUpdate(totals.index, static_cast<std::uint32_t>(offset), delta / 1000);
  }
  if (!early) totals.duration = delta;
}

KmvTotals KmvScan(FileSource& source, std::uint32_t streamFlags) {
  KmvTotals totals;
  KmvScanner scanner(source, kKmvHeadSize, source.Size());
  KmvPacketHead packet;
  long long offset = 0;
  while (scanner.Next(packet, offset)) KmvCount(totals, streamFlags, offset, packet);
  return totals;
}

}  // namespace record
