// The head of an AAC frame in an ADTS stream, and its twin in containers, the AudioSpecificConfig.
#ifndef PLATFORM_HOST_ADTS_H
#define PLATFORM_HOST_ADTS_H

#include <optional>

#include "platform/host/annexb.h"

namespace record {

constexpr size_t kAdtsLength = 7;  // without a checksum
constexpr int kAacSamples = 1024;  // a frame

// What both of them say of the stream.
struct AacConfig {
  unsigned profile = 1;    // object type less 1; 1 is AAC LC
  unsigned rateIndex = 0;  // 0 to 12
  unsigned channels = 0;   // 1 to 7
  bool operator==(const AacConfig& o) const {
    return profile == o.profile && rateIndex == o.rateIndex && channels == o.channels;
  }
};

struct AdtsFrame {
  AacConfig config;
  size_t headLength;
  size_t length;  // with the head
};

int RateOf(const AacConfig& config);  // samples a second

// Nothing when there is no ADTS form of the stream.
std::optional<AacConfig> ParseAudioConfig(const Bytes& config);
Bytes AudioConfigOf(const AacConfig& config);
// AAC LC; nothing when that rate has no index.
std::optional<AacConfig> AacConfigFor(int samplerate, int channels);

bool IsAdts(const unsigned char* data, size_t length);
// The frame that `data` begins with; nothing unless all of it is there and can stand without its head.
std::optional<AdtsFrame> ParseAdts(const unsigned char* data, size_t length);
// The head of a frame with `payload` bytes; false when that is too long for one.
bool MakeAdtsHead(const AacConfig& config, size_t payload, unsigned char (&head)[kAdtsLength]);

}  // namespace record

#endif
