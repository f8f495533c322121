// Makes KMV files byte by byte from numbers, knowing nothing of the library's own layout: a mistake there must
// not be made here again.
#ifndef TESTS_FORMAT_KMV_BYTES_H
#define TESTS_FORMAT_KMV_BYTES_H

#include <cstdint>
#include <iterator>
#include <map>
#include <string>
#include <vector>

namespace kmvtest {

inline void PutU16(std::string& to, unsigned value) {
  to.push_back(static_cast<char>(value & 0xff));
  to.push_back(static_cast<char>(value >> 8 & 0xff));
}

inline void PutU32(std::string& to, std::uint32_t value) {
  PutU16(to, value & 0xffff);
  PutU16(to, value >> 16);
}

inline void PutText(std::string& to, std::string text, std::size_t size) {
  text.resize(size);
  to += text;
}

inline void SetU32(std::string& in, std::size_t offset, std::uint32_t value) {
  std::string bytes;
  PutU32(bytes, value);
  in.replace(offset, 4, bytes);
}

inline std::uint32_t GetU32(const std::string& in, std::size_t offset) {
  std::uint32_t value = 0;
  for (int i = 3; i >= 0; --i)
    value = value << 8 | static_cast<unsigned char>(in[offset + static_cast<std::size_t>(i)]);
  return value;
}

struct Packet {
  static constexpr int kBehindTheLast = -1;  // what the reader says there

  bool video;
  bool key;
  std::uint32_t stamp;
  std::string payload;
  std::size_t offset;
  std::size_t End() const { return offset + 24 + payload.size(); }
};

struct Options {
  bool video = true;
  bool audio = true;
  const char* videoCodec = "H.264";
  const char* audioCodec = "G.711A";
  std::uint32_t framerate = 25;
  std::string vol = "\x01\x02\x03";
  std::uint32_t scramble = 0;
  std::uint32_t step = 64;
  std::uint32_t start = 2;
};

class File {
 public:
  explicit File(const Options& options = Options()) : m_options(options) {
    PutU32(m_bytes, 0xdcfeab01);
    PutU16(m_bytes, 404);
    PutU16(m_bytes, (options.video ? 0x0001u : 0u) | (options.audio ? 0x0100u : 0u));
    m_bytes += Media(options.framerate, 50);
    PutU32(m_bytes, 1);
    PutU32(m_bytes, options.scramble);
    PutU32(m_bytes, options.step);
    PutU32(m_bytes, options.start);
    m_bytes.resize(404);
  }

  void Video(bool key, std::uint32_t stamp, const std::string& payload) { Add(true, key, stamp, payload); }
  void Audio(std::uint32_t stamp, const std::string& payload) { Add(false, false, stamp, payload); }

  // Index and tail, with a measured rate of 23 and 49.
  void Finish(std::uint32_t duration) {
    const std::size_t indexOffset = m_bytes.size();
    m_bytes += Index(m_slots.empty() ? 0 : static_cast<int>(m_slots.rbegin()->first));
    PutU32(m_bytes, 0xdcfeab03);
    PutU32(m_bytes, duration);
    PutU32(m_bytes, static_cast<std::uint32_t>(indexOffset));
    PutU32(m_bytes, m_counts[true]);
    PutU32(m_bytes, m_counts[false]);
    PutU32(m_bytes, m_keys);
    m_bytes += Media(23, 49);
    m_bytes.append(32, '\0');
  }

  // 2 s of video with two key frames a second apart and audio in between.
  void FillTwoSeconds() {
    for (std::uint32_t at = 0; at < 2000; at += 250) {
      Video(at % 1000 == 0, 5000 + at, "video" + std::to_string(at) + std::string(at % 7, 'v'));
      Audio(5010 + at, "audio" + std::to_string(at));
    }
  }

  const std::string& Bytes() const { return m_bytes; }
  const std::vector<Packet>& Packets() const { return m_packets; }
  std::size_t DataEnd() const { return m_packets.empty() ? 404 : m_packets.back().End(); }

 private:
  std::string Media(std::uint32_t videoRate, std::uint32_t audioRate) const {
    std::string out;
    if (m_options.video) {
      PutText(out, m_options.videoCodec, 32);
      for (const std::uint32_t word : {1920u, 1080u, videoRate, 4000000u}) PutU32(out, word);
      PutText(out, m_options.vol, 256);
      PutU32(out, static_cast<std::uint32_t>(m_options.vol.size()));
    }
    out.resize(308);
    if (m_options.audio) {
      PutText(out, m_options.audioCodec, 32);
      for (const std::uint32_t word : {8000u, 16u, 1u, 64000u, audioRate}) PutU32(out, word);
    }
    out.resize(360);
    return out;
  }

  void Add(bool video, bool key, std::uint32_t stamp, const std::string& payload) {
    const std::size_t offset = m_bytes.size();
    if (m_packets.empty()) m_firstStamp = stamp;
    if (key) m_keyStamp = stamp;
    PutU32(m_bytes, 0xdcfeab02);
    PutU32(m_bytes, stamp);
    PutU32(m_bytes, video ? m_keyStamp : 0);
    PutU32(m_bytes, static_cast<std::uint32_t>(payload.size()));
    PutU16(m_bytes, key ? 1 : 0);
    PutU16(m_bytes, video ? 0 : 1);
    PutU32(m_bytes, m_counts[video]++);
    m_bytes += payload;
    m_keys += key;
    const bool indexed = m_options.video ? key : !video;
    if (indexed && (stamp - m_firstStamp) / 1000 < 1800) m_slots.insert({(stamp - m_firstStamp) / 1000, offset});
    m_packets.push_back({video, key, stamp, payload, offset});
  }

  std::string Index(int last) const {
    std::string out;
    PutU32(out, 0xdcfeab04);
    PutU32(out, static_cast<std::uint32_t>(last));
    PutU32(out, 7212);
    for (int second = 0; second < 1800; ++second) {
      const auto behind = m_slots.upper_bound(static_cast<std::uint32_t>(second));
      const bool none = second > last || behind == m_slots.begin();
      PutU32(out, none ? 0 : static_cast<std::uint32_t>(std::prev(behind)->second));
    }
    return out;
  }

  Options m_options;
  std::string m_bytes;
  std::vector<Packet> m_packets;
  std::map<std::uint32_t, std::size_t> m_slots;
  std::map<bool, std::uint32_t> m_counts;
  std::uint32_t m_firstStamp = 0;
  std::uint32_t m_keyStamp = 0;
  std::uint32_t m_keys = 0;
};

}  // namespace kmvtest

#endif
