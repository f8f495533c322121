#include <algorithm>
#include <cerrno>
#include <cstring>

#include "format/complaints.h"
#include "format/kmv/kmv_repair.h"

namespace record {
namespace {

class KmvInspection {
 public:
  KmvInspection(FileSource& source, bool growing, KmvReport& report)
      : m_source(source), m_growing(growing), m_report(report), m_complaints(report.inconsistencies) {}

  void Run() {
    CheckHead();
    ReadEnd();
    ReadPackets();
    CheckDataEnd();
    if (m_report.endState == KmvEndState::Whole) CheckEnd();
    m_complaints.Finish();
  }

 private:
  struct Medium {
    const char* name;
    bool seen = false;
    std::uint32_t sequence = 0;
    std::uint32_t timestamp = 0;
  };

  void CheckHead();
  void ReadEnd();
  void ReadPackets();
  void CheckPacket(long long offset, const KmvPacketHead& packet);
  void MarkSlots(long long offset, const KmvPacketHead& packet);
  void CheckDataEnd();
  void CheckEnd();
  void CheckCounts();
  void CheckIndex();

  bool HasStream(std::uint32_t flag) const { return (m_report.head.streamFlags & flag) != 0; }

  FileSource& m_source;
  const bool m_growing;
  KmvReport& m_report;
  Medium m_video{"video"};
  Medium m_audio{"audio"};
  std::vector<std::uint32_t> m_slots;  // the offsets that the index names, ascending, once each
  std::vector<bool> m_slotMet;         // whether a packet of the right kind stands there
  Complaints m_complaints;
};

void KmvInspection::CheckHead() {
  const KmvVideoFileHead& head = m_report.head;
  if (head.headSize != kKmvHeadSize) m_complaints.Add("the head gives its size as %u", head.headSize);
  if (head.version != kKmvVersion) m_complaints.Add("format version %u is unknown", head.version);
  if (!HasStream(RECORD_STREAM_VIDEO) && !HasStream(RECORD_STREAM_AUDIO)) {
    m_complaints.Add("the head names neither video nor audio");
  }
  if (HasStream(RECORD_STREAM_VIDEO) && KmvVideoCodecType(head.media.video.codec) < 0) {
    m_complaints.Add("unknown video codec \"%.31s\"", head.media.video.codec);
  }
  if (HasStream(RECORD_STREAM_AUDIO) && KmvAudioCodecType(head.media.audio.codec) < 0) {
    m_complaints.Add("unknown audio codec \"%.31s\"", head.media.audio.codec);
  }
  if (head.media.video.volLength > kKmvVolDataMax) {
    m_complaints.Add("the head gives %u bytes of codec configuration, %zu is the most", head.media.video.volLength,
                     kKmvVolDataMax);
  }
}

void KmvInspection::ReadEnd() {
  KmvReport& report = m_report;
  report.endState = KmvReadEnd(m_source, report.fileSize, report.end);
  if (report.endState == KmvEndState::Missing && !m_growing)
    m_complaints.Add("no tail: recording did not end properly");
  if (report.endState == KmvEndState::NoIndex) {
    m_complaints.Add("no index at offset %u, where the tail says it is", report.end.tail.indexOffset);
  }
  if (report.endState != KmvEndState::Whole) return;
  for (const std::uint32_t offset : report.end.index.slots) {
    if (offset != 0) m_slots.push_back(offset);
  }
  std::sort(m_slots.begin(), m_slots.end());
  m_slots.erase(std::unique(m_slots.begin(), m_slots.end()), m_slots.end());
  m_slotMet.resize(m_slots.size());
}

void KmvInspection::ReadPackets() {
  KmvReport& report = m_report;
  const bool whole = report.endState == KmvEndState::Whole;
  KmvScanner scanner(m_source, kKmvHeadSize, whole ? report.end.tail.indexOffset : report.fileSize);
  KmvPacketHead packet;
  long long offset = 0;
  for (;;) {
    while (scanner.Next(packet, offset)) {
      CheckPacket(offset, packet);
      KmvCount(report.totals, report.head.streamFlags, offset, packet);
      MarkSlots(offset, packet);
    }
    report.dataEnd = scanner.Offset();
    if (scanner.AtEnd()) return;
    const bool torn = scanner.IsTorn();
    if (!scanner.SkipDamage()) {
      report.tornBytes = torn && !whole ? report.fileSize - report.dataEnd : 0;
      return;
    }
    m_complaints.Add("damaged from offset %lld to %lld", report.dataEnd, scanner.Offset());
  }
}

void KmvInspection::CheckPacket(long long offset, const KmvPacketHead& packet) {
  if (packet.media > KMV_MEDIA_AUDIO) m_complaints.Add("offset %lld: unknown medium %u", offset, packet.media);
  if (packet.frameType > KMV_FRAME_KEY)
    m_complaints.Add("offset %lld: unknown frame type %u", offset, packet.frameType);
  const bool video = packet.media == KMV_MEDIA_VIDEO;
  if (!HasStream(video ? RECORD_STREAM_VIDEO : RECORD_STREAM_AUDIO)) {
    m_complaints.Add("offset %lld: %s, which the head does not name", offset, video ? "video" : "audio");
  }
  Medium& medium = video ? m_video : m_audio;
  const std::uint32_t expected = medium.seen ? medium.sequence + 1 : 0;
  if (packet.sequence != expected) {
    m_complaints.Add("offset %lld: %s frame %u follows where %u is due", offset, medium.name, packet.sequence,
                     expected);
  }
  // Modulo 2^32, as time stamps are.
  if (medium.seen && packet.timestamp - medium.timestamp > 0x7fffffffu) {
    m_complaints.Add("offset %lld: %s time stamp %u runs back from %u", offset, medium.name, packet.timestamp,
                     medium.timestamp);
  }
  medium.seen = true;
  medium.sequence = packet.sequence;
  medium.timestamp = packet.timestamp;
}

void KmvInspection::MarkSlots(long long offset, const KmvPacketHead& packet) {
  if (!KmvIsIndexed(m_report.head.streamFlags, packet)) return;
  const auto slot = std::lower_bound(m_slots.begin(), m_slots.end(), offset);
  if (slot != m_slots.end() && *slot == offset) m_slotMet[static_cast<std::size_t>(slot - m_slots.begin())] = true;
}

void KmvInspection::CheckDataEnd() {
  const KmvReport& report = m_report;
  const bool whole = report.endState == KmvEndState::Whole;
  const long long end = whole ? report.end.tail.indexOffset : report.fileSize;
  if (report.tornBytes > 0) {
    if (!m_growing)
      m_complaints.Add("the last packet is torn: %lld bytes of it at offset %lld", report.tornBytes,
                       report.dataEnd);
  } else if (report.dataEnd < end && !m_growing) {
    m_complaints.Add("%lld bytes behind the last whole packet at offset %lld are no packet", end - report.dataEnd,
                     report.dataEnd);
  }
  if (whole && KmvFinishedSize(end) < report.fileSize) {
    m_complaints.Add("%lld bytes between index and tail", report.fileSize - KmvFinishedSize(end));
  }
}

void KmvInspection::CheckEnd() {
  CheckCounts();
  CheckIndex();
  const KmvMediaFields& media = m_report.end.tail.media;
  const KmvMediaFields& head = m_report.head.media;
  if (std::memcmp(media.video.codec, head.video.codec, sizeof(media.video.codec)) != 0 ||
      std::memcmp(media.audio.codec, head.audio.codec, sizeof(media.audio.codec)) != 0) {
    m_complaints.Add("head and tail name different codecs");
  }
  // Both run on the same clock. The time stamps tell nothing: they begin before the file when the recorded past
  // is put in front, and a time lapse has its own.
  if (m_report.end.index.lastSlot < kKmvIndexSlots &&
      m_report.end.index.lastSlot > m_report.end.tail.duration / 1000) {
    m_complaints.Add("the tail gives %u ms, but the index goes on to second %u", m_report.end.tail.duration,
                     m_report.end.index.lastSlot);
  }
}

void KmvInspection::CheckCounts() {
  const KmvVideoFileTail& tail = m_report.end.tail;
  const KmvTotals& totals = m_report.totals;
  if (tail.videoFrames != totals.videoFrames) {
    m_complaints.Add("the tail counts %u video frames, the file holds %lld", tail.videoFrames, totals.videoFrames);
  }
  if (tail.audioFrames != totals.audioFrames) {
    m_complaints.Add("the tail counts %u audio frames, the file holds %lld", tail.audioFrames, totals.audioFrames);
  }
  // It counts over all files of a task, so it may well be more.
  if (tail.keyFrames < totals.keyFrames) {
    m_complaints.Add("the tail counts %u key frames, the file holds %lld", tail.keyFrames, totals.keyFrames);
  }
}

void KmvInspection::CheckIndex() {
  const KmvVideoIndex& index = m_report.end.index;
  if (index.indexSize != kKmvIndexSize) m_complaints.Add("the index gives its size as %u", index.indexSize);
  if (index.lastSlot >= kKmvIndexSlots) {
    m_complaints.Add("the index gives second %u as its last", index.lastSlot);
  }
  for (std::size_t slot = 0; slot < m_slots.size(); ++slot) {
    if (!m_slotMet[slot])
      m_complaints.Add("the index points at offset %u, where no such frame stands", m_slots[slot]);
  }
}

}  // namespace

KmvReport InspectKmv(const char* path, bool growing) {
  KmvReport report;
  FileSource source;
  if (!source.Open(path)) {
    report.error = std::string("cannot open ") + path + ": " + std::strerror(errno);
    return report;
  }
  report.fileSize = source.Size();
  if (source.ReadAt(0, &report.head, sizeof(report.head)) != sizeof(report.head) ||
      report.head.magic != KMV_HEAD_MAGIC) {
    report.error = std::string(path) + " is not a KMV file";
    return report;
  }
  KmvInspection(source, growing, report).Run();
  return report;
}

}  // namespace record
