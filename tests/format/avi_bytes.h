// Makes AVI record files chunk by chunk from numbers. The header is the library's, which its images vouch for.
#ifndef TESTS_FORMAT_AVI_BYTES_H
#define TESTS_FORMAT_AVI_BYTES_H

#include <string>
#include <vector>

#include "record/avi_header.h"
#include "tests/format/kmv_bytes.h"

namespace avitest {

using kmvtest::GetU32;
using kmvtest::PutU32;
using kmvtest::SetU32;

// First bytes that tell a key frame, or another one.
inline std::string Start(int codec, bool key) {
  if (codec == VIDEO_CODEC_MPEG4) return std::string("\0\0\1\xb6", 4) + (key ? '\x10' : '\x50');
  if (codec == VIDEO_CODEC_H265) return std::string("\0\0\0\1", 4) + (key ? '\x26' : '\x02');
  return std::string("\0\0\0\1", 4) + (key ? '\x65' : '\x41') + '\0';
}

struct Packet {
  static constexpr int kBehindTheLast = -2;  // what the reader says there

  bool video;
  bool key;
  std::string payload;
  std::size_t offset;
  std::size_t End() const { return offset + 8 + payload.size(); }
};

class File {
 public:
  explicit File(bool audio = true, int codec = VIDEO_CODEC_H264, int framerate = 5)
      : m_audio(audio), m_codec(codec) {
    AVI_FILE_HEADER_AV av;
    AVI_FILE_HEADER_VIDEO video;
    init_avi_header(&av, codec, AUDIO_CODEC_G711_ULAW, 640, 360, 800000, framerate, 8000, 16, 1);
    init_avi_header_video(&video, codec, 640, 360, 800000, framerate);
    if (audio)
      m_bytes.assign(reinterpret_cast<const char*>(&av), sizeof av);
    else
      m_bytes.assign(reinterpret_cast<const char*>(&video), sizeof video);
  }

  void Video(bool key, const std::string& rest) { Add(true, key, Start(m_codec, key) + rest); }
  void Audio(const std::string& payload) { Add(false, true, payload); }

  // A key frame every second, `rate` frames each, sound in between; the first key frame fills 300 bytes.
  void FillSeconds(int seconds, int rate = 5) {
    for (int n = 0; n < seconds * rate; ++n) {
      Video(n % rate == 0, "frame " + std::to_string(n) + std::string(static_cast<std::size_t>(n % 7), 'v'));
      if (m_audio) Audio("sound " + std::to_string(n) + std::string(static_cast<std::size_t>(n % 3), 'a'));
    }
  }

  // Padding, index, and the sizes in the header.
  void Finish() {
    const std::size_t padded = (DataEnd() - HeaderSize() + 3) / 4 * 4;
    m_bytes.resize(HeaderSize() + padded, '\xff');
    m_bytes += "idx1";
    PutU32(m_bytes, static_cast<std::uint32_t>(16 * m_packets.size()));
    std::uint32_t videoFrames = 0;
    for (const Packet& packet : m_packets) {
      m_bytes += packet.video ? "00dc" : "01wb";
      PutU32(m_bytes, packet.key ? 16 : 0);
      PutU32(m_bytes, static_cast<std::uint32_t>(packet.offset - HeaderSize() + 4));
      PutU32(m_bytes, static_cast<std::uint32_t>(packet.payload.size()));
      videoFrames += packet.video;
    }
    SetU32(m_bytes, 4, static_cast<std::uint32_t>(m_bytes.size() - 8));
    SetU32(m_bytes, 48, videoFrames);
    SetU32(m_bytes, HeaderSize() - 8, static_cast<std::uint32_t>(padded + 4));
  }

  std::size_t HeaderSize() const { return m_audio ? 9896 : 5672; }
  std::size_t DataEnd() const { return m_packets.empty() ? HeaderSize() : m_packets.back().End(); }
  std::size_t IndexOffset() const { return HeaderSize() + (DataEnd() - HeaderSize() + 3) / 4 * 4; }
  const std::string& Bytes() const { return m_bytes; }
  const std::vector<Packet>& Packets() const { return m_packets; }

 private:
  void Add(bool video, bool key, const std::string& payload) {
    m_packets.push_back({video, key, payload, m_bytes.size()});
    m_bytes += video ? "00dc" : "01wb";
    PutU32(m_bytes, static_cast<std::uint32_t>(payload.size()));
    m_bytes += payload;
  }

  const bool m_audio;
  const int m_codec;
  std::string m_bytes;
  std::vector<Packet> m_packets;
};

}  // namespace avitest

#endif
