#include "platform/host/adts.h"

namespace record {
namespace {

constexpr size_t kLongestAdtsFrame = 0x1fff;
constexpr size_t kChecksumLength = 2;
constexpr int kRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000, 7350};
constexpr unsigned kRateCount = sizeof(kRates) / sizeof(kRates[0]);

bool IsValid(const AacConfig& config) {
  return config.profile <= 3 && config.rateIndex < kRateCount && config.channels >= 1 && config.channels <= 7;
}

}  // namespace

int RateOf(const AacConfig& config) {
  return config.rateIndex < kRateCount ? kRates[config.rateIndex] : 0;
}

// ISO 14496-3, 1.6.2.1: object type (5 bits), rate index (4), channels (4). What the ADTS head cannot say
// (an explicit rate, more than stereo described elsewhere) is refused. With SBR (5, 29) the core is AAC LC.
std::optional<AacConfig> ParseAudioConfig(const Bytes& config) {
  if (config.size() < 2) return std::nullopt;
  const unsigned objectType = config[0] >> 3;
  const bool isExtended = objectType == 5 || objectType == 29;
  if (objectType < 1) return std::nullopt;
  const AacConfig result = {isExtended ? 1 : objectType - 1, (config[0] & 7u) << 1 | config[1] >> 7,
                            config[1] >> 3 & 15u};
  return IsValid(result) ? std::optional(result) : std::nullopt;
}

Bytes AudioConfigOf(const AacConfig& config) {
  return {static_cast<unsigned char>((config.profile + 1) << 3 | config.rateIndex >> 1),
          static_cast<unsigned char>((config.rateIndex & 1) << 7 | config.channels << 3)};
}

std::optional<AacConfig> AacConfigFor(int samplerate, int channels) {
  AacConfig config;
  config.channels = static_cast<unsigned>(channels);
  while (config.rateIndex < kRateCount && kRates[config.rateIndex] != samplerate) ++config.rateIndex;
  return IsValid(config) ? std::optional(config) : std::nullopt;
}

bool IsAdts(const unsigned char* data, size_t length) {
  return length > kAdtsLength && data[0] == 0xff && (data[1] & 0xf6) == 0xf0;
}

std::optional<AdtsFrame> ParseAdts(const unsigned char* data, size_t length) {
  if (!IsAdts(data, length)) return std::nullopt;
  AdtsFrame frame;
  frame.config = {data[2] >> 6 & 3u, data[2] >> 2 & 15u, (data[2] & 1u) << 2 | data[3] >> 6};
  frame.headLength = kAdtsLength + ((data[1] & 1) == 0 ? kChecksumLength : 0);
  frame.length = (data[3] & 3u) << 11 | data[4] << 3 | data[5] >> 5;
  const bool isOneBlock = (data[6] & 3) == 0;  // several have checksums between them
  if (!isOneBlock || !IsValid(frame.config) || frame.length <= frame.headLength || frame.length > length) {
    return std::nullopt;
  }
  return frame;
}

bool MakeAdtsHead(const AacConfig& config, size_t payload, unsigned char (&head)[kAdtsLength]) {
  const size_t length = payload + kAdtsLength;
  if (payload > kLongestAdtsFrame - kAdtsLength) return false;
  head[0] = 0xff;
  head[1] = 0xf1;  // MPEG-4, no checksum
  head[2] = static_cast<unsigned char>(config.profile << 6 | config.rateIndex << 2 | config.channels >> 2);
  head[3] = static_cast<unsigned char>((config.channels & 3) << 6 | length >> 11);
  head[4] = static_cast<unsigned char>(length >> 3);
  head[5] = static_cast<unsigned char>((length & 7) << 5 | 0x1f);  // buffer fullness: variable rate
  head[6] = 0xfc;
  return true;
}

}  // namespace record
