#include "format/kmv/kmv_packet_reader.h"

#include <limits>

#include "format/kmv/kmv_end.h"
#include "format/kmv/kmv_scan.h"

namespace record {
namespace {

// What a result of the reader can tell; nothing that a camera sends comes near it.
constexpr std::uint32_t kLongestPayload = std::numeric_limits<std::int32_t>::max();

}  // namespace

KmvPacketReader::KmvPacketReader(FileSource& source) : m_source(source), m_frames(source) {}

void KmvPacketReader::Begin(long long dataEnd) {
  m_finishedEnd = dataEnd;
  m_frames.Blocks().Drop();
  Seek(kKmvHeadSize);
}

void KmvPacketReader::Seek(long long offset) {
  m_next = offset;
  m_frames.Jumped();
}

long long KmvPacketReader::DataEnd() const {
  return m_finishedEnd >= 0 ? m_finishedEnd : m_source.Size();
}

// Looks at the file anew: it may have been appended to, or finished.
bool KmvPacketReader::Grown() {
  if (m_finishedEnd >= 0 || !m_source.RefreshSize()) return false;
  m_frames.Blocks().Drop();
  KmvEnd end;
  if (KmvReadEnd(m_source, m_source.Size(), end) == KmvEndState::Whole) m_finishedEnd = end.tail.indexOffset;
  return true;
}

bool KmvPacketReader::ReadHead(KmvPacketHead& packet) {
  if (!HeadIsThere()) {
    if (!Grown() || !HeadIsThere()) return false;
  }
  return m_frames.ReadHead(m_next, &packet, sizeof(packet));
}

// An index that the writer has not followed up with its tail yet.
bool KmvPacketReader::BeginsEnd(const KmvPacketHead& packet) const {
  return m_finishedEnd < 0 && packet.magic == KMV_INDEX_MAGIC && m_source.Size() < KmvFinishedSize(m_next);
}

// Whole words from the failing position on: a packet that does not stand on one of them is passed over.
bool KmvPacketReader::Resynchronise(KmvPacketHead& packet) {
  const long long found = FindWord(m_frames.Blocks(), m_next, DataEnd(), 4, KmvPackets::MayBegin, &m_next);
  if (found < 0) return false;
  m_next = found;
  return ReadHead(packet) && packet.magic == KMV_PACKET_MAGIC;
}

bool KmvPacketReader::Find(KmvPacketHead& packet) {
  if (!ReadHead(packet)) return false;
  if (packet.magic == KMV_PACKET_MAGIC) return true;
  Grown();
  if (m_next >= DataEnd() || BeginsEnd(packet)) return false;
  return Resynchronise(packet);
}

bool KmvPacketReader::IsWhole(const KmvPacketHead& packet) {
  const bool possible = packet.length <= kLongestPayload;
  const long long end = KmvPacketEnd(m_next, packet.length);
  if (possible && end <= DataEnd()) return true;
  if (possible && Grown() && end <= DataEnd()) return true;
  // A file that grows may complete it; in a finished one the next call looks for packets behind this head.
  if (!possible || m_finishedEnd >= 0) m_next = KmvPayloadOffset(m_next);
  return false;
}

bool KmvPacketReader::Next(KmvPacketHead& packet, bool mayLend, FramePayload& payload) {
  if (!Find(packet) || !IsWhole(packet)) {
    m_frames.Jumped();
    if (m_finishedEnd < 0) m_frames.Blocks().Drop();  // what follows is still to be written
    return false;
  }
  if (!m_frames.ReadPayload(KmvPayloadOffset(m_next), packet.length, mayLend, payload)) return false;
  m_next = KmvPacketEnd(m_next, packet.length);
  m_frames.Delivered();
  return true;
}

}  // namespace record
