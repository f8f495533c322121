#include "format/kmv/kmv_format.h"

#include <cstring>

namespace record {
namespace {

struct CodecName {
  int type;
  const char* name;
};

// On disk, never rename.
constexpr CodecName kVideoNames[] = {
    {VIDEO_CODEC_MPEG4, "MPEG4"}, {VIDEO_CODEC_H264, "H.264"}, {VIDEO_CODEC_H265, "H.265"}};
constexpr CodecName kAudioNames[] = {{AUDIO_CODEC_G711_ULAW, "G.711"},
                                     {AUDIO_CODEC_AAC, "AAC"},
                                     {AUDIO_CODEC_G711_ALAW, "G.711A"},
                                     {AUDIO_CODEC_PCM, "PCM"}};

template <std::size_t N>
const char* NameOf(const CodecName (&table)[N], int type, const char* otherwise) {
  for (const CodecName& entry : table) {
    if (entry.type == type) return entry.name;
  }
  return otherwise;
}

template <std::size_t N>
int TypeOf(const CodecName (&table)[N], const char (&name)[kKmvCodecNameMax]) {
  for (const CodecName& entry : table) {
    if (std::strncmp(entry.name, name, sizeof(name)) == 0) return entry.type;
  }
  return -1;
}

}  // namespace

void KmvIndexUpdate(KmvVideoIndex& index, std::uint32_t offset, long long second) {
  if (second < 0 || second >= kKmvIndexSlots) return;
  if (index.slots[second] == 0) index.slots[second] = offset;
  if (index.lastSlot < kKmvIndexSlots) {
    const std::uint32_t previous = index.slots[index.lastSlot];
    for (long long gap = index.lastSlot + 1LL; gap < second; ++gap) index.slots[gap] = previous;
  }
  index.lastSlot = static_cast<std::uint32_t>(second);
}

void KmvInvertBytes(std::uint8_t* data, std::size_t length, std::uint32_t step, std::uint32_t start) {
  if (step == 0) return;
  for (std::uint64_t at = static_cast<std::uint64_t>(start) * step; at < length; at += step) {
    data[at] = static_cast<std::uint8_t>(~data[at]);
  }
}

const char* KmvVideoCodecName(int videoType) {
  return NameOf(kVideoNames, videoType, "H.264");
}

const char* KmvAudioCodecName(int audioType) {
  return NameOf(kAudioNames, audioType, "");
}

int KmvVideoCodecType(const char (&name)[kKmvCodecNameMax]) {
  return TypeOf(kVideoNames, name);
}

int KmvAudioCodecType(const char (&name)[kKmvCodecNameMax]) {
  return TypeOf(kAudioNames, name);
}

}  // namespace record
