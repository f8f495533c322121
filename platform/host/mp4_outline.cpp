#include "platform/host/mp4_outline.h"

#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace record {
namespace {

constexpr std::uint64_t kHighestTrack = 0x7fffffff;
constexpr int kDeepest = 16;  // libavformat goes less far
constexpr size_t kOutlineBlock = 4096;

std::uint64_t BigEndian(const unsigned char* bytes, int count) {
  std::uint64_t value = 0;
  for (int i = 0; i < count; ++i) value = value << 8 | bytes[i];
  return value;
}

// However small the boxes are, a file costs a read for each block at most.
class BlockReader {
 public:
  BlockReader(int file, std::uint64_t size) : m_file(file), m_size(size) {}

  // False where the file ends before. `count` is at most 8.
  bool Number(std::uint64_t at, int count, std::uint64_t* value) {
    const auto length = static_cast<unsigned>(count);
    if (at > m_size || m_size - at < length) return false;
    if (at < m_at || at - m_at + length > m_length) {
      const ssize_t got = pread(m_file, m_block, sizeof(m_block), static_cast<off_t>(at));
      m_at = at;
      m_length = static_cast<std::uint64_t>(std::max<ssize_t>(got, 0));
      if (m_length < length) return false;
    }
    *value = BigEndian(m_block + (at - m_at), count);
    return true;
  }

 private:
  const int m_file;
  const std::uint64_t m_size;
  unsigned char m_block[kOutlineBlock];
  std::uint64_t m_at = 0;
  std::uint64_t m_length = 0;
};

constexpr std::uint32_t Type(const char (&name)[5]) {
  std::uint32_t type = 0;
  for (int i = 0; i < 4; ++i) type = type << 8 | static_cast<unsigned char>(name[i]);
  return type;
}

struct Box {
  std::uint32_t type;
  std::uint64_t content;  // offset
  std::uint64_t end;
};

// Boxes that are told by a number of entries of one size.
struct Table {
  std::uint32_t type;
  unsigned entrySize;
};
constexpr Table kTables[] = {{Type("stts"), 8}, {Type("ctts"), 8}, {Type("stsc"), 12}, {Type("stco"), 4},
                             {Type("co64"), 8}, {Type("stss"), 4}, {Type("stps"), 4},  {Type("stsd"), 8}};

constexpr std::uint32_t kHolders[] = {Type("moov"), Type("mdia"), Type("minf"), Type("stbl"), Type("moof"),
                                      Type("traf"), Type("edts"), Type("mvex"), Type("udta"), Type("dinf"),
                                      Type("tref"), Type("wave"), Type("sinf"), Type("schi")};

struct Track {
  bool hasNumber = false;
  std::uint64_t chunks = 0;
  Box samplesPerChunk = {};
  std::uint64_t number = 0;
  int parts = 0;  // of the media, in its edit list
};

class OutlineReader {
 public:
  OutlineReader(int file, std::uint64_t size) : m_bytes(file, size), m_size(size) {}

  Mp4Outline Read() {
    Track none;
    Walk({0, 0, m_size}, 0, none);
    // When there is no description elsewhere, libavformat looks for one in free space.
    m_looksIntoFreeSpace = !m_hasMovie;
    if (m_looksIntoFreeSpace && !IsRefused()) Walk({0, 0, m_size}, 0, none);
    return std::move(m_outline);
  }

 private:
  bool IsRefused() const { return !m_outline.refusal.empty(); }
  void Refuse(const char* why) { m_outline.refusal = why; }

  void Walk(const Box& in, int depth, Track& track) {
    Box box;
    for (std::uint64_t at = in.content; !IsRefused() && ReadBox(at, in.end, &box); at = box.end)
      Visit(box, depth, track);
  }

  // The box at `at` of those that end at `end`; false when there is none.
  bool ReadBox(std::uint64_t at, std::uint64_t end, Box* box) {
    std::uint64_t size = 0;
    std::uint64_t type = 0;
    if (at >= end || !m_bytes.Number(at, 4, &size) || !m_bytes.Number(at + 4, 4, &type)) return false;
    const bool isWide = size == 1 && m_bytes.Number(at + 8, 8, &size);
    const unsigned head = isWide ? 16 : 8;
    // To the end of what it stands in, or torn: libavformat goes into it all the same.
    if ((size == 0 && !isWide) || size > end - at) size = end - at;
    *box = {static_cast<std::uint32_t>(type), at + head, at + size};
    return size >= head;
  }

  void Visit(const Box& box, int depth, Track& track) {
    m_outline.hasFragments = m_outline.hasFragments || box.type == Type("moof");
    m_hasMovie = m_hasMovie || box.type == Type("moov");
    m_outline.isReordered = m_outline.isReordered || box.type == Type("ctts");
    if (box.type == Type("cmov")) return Refuse("a compressed index");
    if (box.type == Type("trak")) return VisitTrack(box, depth);
    if (box.type == Type("tkhd")) return TakeNumber(box, track);
    if (box.type == Type("elst")) return TakeEdits(box, track);
    if (box.type == Type("trun")) return TakeSamples(box.content + 4);
    if (box.type == Type("stsz") || box.type == Type("stz2")) return TakeSamples(box.content + 8);
    if (box.type == Type("stsc")) track.samplesPerChunk = box;
    for (const Table& table : kTables) {
      if (table.type == box.type) return TakeTable(box, table.entrySize, track);
    }
    if (Holds(box) && depth < kDeepest) Walk(box, depth + 1, track);
  }

  bool Holds(const Box& box) {
    std::uint64_t inner = 0;
    if (box.type == Type("hoov") || (box.type == Type("free") && m_looksIntoFreeSpace))
      return m_bytes.Number(box.content + 4, 4, &inner) && inner == Type("moov");
    return std::find(std::begin(kHolders), std::end(kHolders), box.type) != std::end(kHolders);
  }

  void VisitTrack(const Box& box, int depth) {
    Track track;
    if (depth < kDeepest) Walk(box, depth + 1, track);
    if (IsRefused()) return;
    // With a track whose number is the largest one, as it gives those without a head, libavformat counts to 2^32.
    if (!track.hasNumber) return Refuse("a track without a number");
    TakeChunks(track);
    if (track.parts > 1) m_outline.joined.push_back(static_cast<std::uint32_t>(track.number));
  }

  void TakeNumber(const Box& box, Track& track) {
    std::uint64_t version = 0;
    std::uint64_t number = 0;
    track.hasNumber = m_bytes.Number(box.content, 1, &version) &&
                      m_bytes.Number(box.content + (version == 1 ? 20 : 12), 4, &number) && number >= 1 &&
                      number <= kHighestTrack;
    if (!track.hasNumber) Refuse("a track without a number");
    track.number = number;
  }

  void TakeEdits(const Box& box, Track& track) {
    std::uint64_t version = 0;
    std::uint64_t count = 0;
    if (!m_bytes.Number(box.content, 1, &version) || !m_bytes.Number(box.content + 4, 4, &count)) return;
    const int width = version == 1 ? 8 : 4;
    const auto entrySize = static_cast<unsigned>(2 * width + 4);
    std::uint64_t at = box.content + 8;
    for (std::uint64_t n = 0; n < count && at + entrySize <= box.end; ++n, at += entrySize) {
      std::uint64_t time = 0;
      if (!m_bytes.Number(at + static_cast<unsigned>(width), width, &time)) return;
      // Else a stretch with nothing in it.
      if (time != (width == 8 ? UINT64_MAX : UINT32_MAX)) ++track.parts;
    }
  }

  // Every sample takes a byte of the file at least.
  void CountSamples(std::uint64_t chunks, std::uint64_t perChunk) {
    if (perChunk == 0) return;
    if (chunks > (m_size - m_samples) / perChunk) return Refuse("more samples than the file has bytes");
    m_samples += chunks * perChunk;
  }

  void TakeSamples(std::uint64_t countAt) {
    std::uint64_t count = 0;
    if (m_bytes.Number(countAt, 4, &count)) CountSamples(1, count);
  }

  void TakeTable(const Box& box, unsigned entrySize, Track& track) {
    std::uint64_t count = 0;
    if (!m_bytes.Number(box.content + 4, 4, &count)) return;
    if (count * entrySize > m_size) return Refuse("a table larger than the file");
    if (box.type == Type("stco") || box.type == Type("co64")) track.chunks = std::max(track.chunks, count);
  }

  // Sound that is not compressed gets its samples by chunks, which say their number once more.
  void TakeChunks(const Track& track) {
    std::uint64_t count = 0;
    const std::uint64_t behind = track.chunks + 1;
    if (track.samplesPerChunk.end == 0 || !m_bytes.Number(track.samplesPerChunk.content + 4, 4, &count)) return;
    const std::uint64_t samples = std::exchange(m_samples, 0);
    std::uint64_t at = track.samplesPerChunk.content + 8;
    std::uint64_t first = behind;
    std::uint64_t perChunk = 0;
    for (std::uint64_t n = 0; n <= count && !IsRefused(); ++n, at += 12) {
      std::uint64_t next = behind;
      std::uint64_t nextPerChunk = 0;
      if (n < count && (!m_bytes.Number(at, 4, &next) || !m_bytes.Number(at + 4, 4, &nextPerChunk))) return;
      next = std::min(next, behind);
      if (next > first) CountSamples(next - first, perChunk);
      first = next;
      perChunk = nextPerChunk;
    }
    m_samples = samples;
  }

  BlockReader m_bytes;
  const std::uint64_t m_size;
  bool m_hasMovie = false;
  bool m_looksIntoFreeSpace = false;
  std::uint64_t m_samples = 0;
  Mp4Outline m_outline;
};

}  // namespace

bool Mp4Outline::IsJoined(std::uint32_t track) const {
  return std::find(joined.begin(), joined.end(), track) != joined.end();
}

Mp4Outline ReadMp4Outline(int file, std::uint64_t size) {
  return OutlineReader(file, size).Read();
}

}  // namespace record
