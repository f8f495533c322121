// Walking the packets of a KMV file by their heads.
#ifndef FORMAT_KMV_KMV_SCAN_H
#define FORMAT_KMV_KMV_SCAN_H

#include "format/frame_scanner.h"
#include "format/frame_totals.h"
#include "format/kmv/kmv_format.h"

namespace record {

// What the packets of a file come to.
struct KmvTotals : FrameTotals {
  KmvVideoIndex index = {};  // without magic and size
};

// Whether the index takes notice of such a packet: video key frames, or every audio frame when there is no video.
bool KmvIsIndexed(std::uint32_t streamFlags, const KmvPacketHead& packet);

void KmvCount(KmvTotals& totals, std::uint32_t streamFlags, long long offset, const KmvPacketHead& packet);

struct KmvPackets {
  using Head = KmvPacketHead;
  static constexpr long long kLookAt = kKmvPacketHeadSize;
  static bool MayBegin(const std::uint8_t* word) {
    constexpr std::uint32_t kMagic = KMV_PACKET_MAGIC;
    return std::memcmp(word, &kMagic, sizeof(kMagic)) == 0;
  }
  static bool IsHead(const KmvPacketHead& packet) { return packet.magic == KMV_PACKET_MAGIC; }
  static long long End(long long offset, const KmvPacketHead& packet) {
    return KmvPacketEnd(offset, packet.length);
  }
  // A head found by its magic has to look like one in every field that can tell.
  static bool LooksRight(const FileWindow&, const KmvPacketHead& packet, long long, long long) {
    return packet.media <= KMV_MEDIA_AUDIO && packet.frameType <= KMV_FRAME_KEY;
  }
};
using KmvScanner = FrameScanner<KmvPackets>;

// The scan of a file that lost its end, up to the first damage.
KmvTotals KmvScan(FileSource& source, std::uint32_t streamFlags);

}  // namespace record

#endif
