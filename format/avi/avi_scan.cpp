#include "format/avi/avi_scan.h"

#include <algorithm>
#include <limits>

#include "format/defaults.h"

namespace record {
namespace {

std::uint32_t WordAt(const std::uint8_t* bytes) {
  std::uint32_t word;
  std::memcpy(&word, bytes, sizeof word);
  return word;
}

}  // namespace

bool AviIsIndex(FileWindow& window, long long offset, long long end) {
  constexpr int kWord = 4;
  const long long wanted = std::min<long long>(kAviPaddedTo - 1 + kWord, end - offset);
  if (wanted < kWord) return false;
  std::size_t available = 0;
  const std::uint8_t* bytes = window.Fetch(offset, static_cast<std::size_t>(wanted), &available);
  for (std::size_t padding = 0; padding < kAviPaddedTo && padding + kWord <= available; ++padding) {
    if (WordAt(bytes + padding) == kAviIndexId) return true;
    if (bytes[padding] != kAviPadding) break;
  }
  return false;
}

bool AviChunks::MayBegin(const std::uint8_t* word) {
  return AviIsFrame(WordAt(word));
}

bool AviChunks::LooksRight(FileWindow& window, const AviChunkHead&, long long frameEnd, long long fileEnd) {
  if (fileEnd - frameEnd < kAviChunkHeadSize || AviIsIndex(window, frameEnd, fileEnd)) return true;
  std::size_t available = 0;
  const std::uint8_t* bytes = window.Fetch(frameEnd, kAviChunkHeadSize, &available);
  return available >= sizeof(std::uint32_t) && MayBegin(bytes);
}

AviScanner::AviScanner(FileSource& source, const AviHead& head, long long end)
    : m_scanner(source, head.FirstChunk(), end),
      m_codec(head.Codec()),
      m_listStart(head.ListStart()),
      m_end(end),
      m_dataEnd(head.FirstChunk()) {}

bool AviScanner::StandsAtIndex() {
  return AviIsIndex(m_scanner.Window(), m_scanner.Offset(), m_end);
}

bool AviScanner::IsKey(long long offset, const AviChunkHead& chunk) {
  if (chunk.length == 0) return false;
  std::size_t available = 0;
  const std::size_t wanted = std::min<std::size_t>(chunk.length, kKeyFrameBytes);
  const std::uint8_t* bytes = m_scanner.Window().Fetch(offset + kAviChunkHeadSize, wanted, &available);
  return IsKeyFrame(m_codec, bytes, std::min(available, wanted));
}

bool AviScanner::Next(AviChunk& chunk) {
  chunk.damageFrom = -1;
  AviChunkHead head;
  while (!m_scanner.Next(head, chunk.offset)) {
    if (m_scanner.AtEnd() || StandsAtIndex()) return false;
    chunk.damageFrom = m_scanner.Offset();
    if (!m_scanner.SkipDamage()) return false;
  }
  m_dataEnd = m_scanner.Offset();
  const bool key = head.id == kAviAudioId || IsKey(chunk.offset, head);
  chunk.entry = {head.id, key ? kAviKeyFlag : 0, static_cast<std::uint32_t>(chunk.offset - m_listStart),
                 head.length};
  return true;
}

void AviCount(FrameTotals& totals, const AviIndexEntry& entry) {
  const long long bytes = kAviChunkHeadSize + entry.size;
  if (entry.id == kAviVideoId) {
    ++totals.videoFrames;
    totals.videoBytes += bytes;
    if (entry.flags == kAviKeyFlag) ++totals.keyFrames;
  } else if (entry.id == kAviAudioId) {
    ++totals.audioFrames;
    totals.audioBytes += bytes;
  }
}

std::uint32_t AviDuration(const FrameTotals& totals, std::uint32_t framerate) {
  const long long ms = totals.videoFrames * 1000 / (framerate != 0 ? framerate : kDefaultFramerate);
  return static_cast<std::uint32_t>(std::min<long long>(ms, std::numeric_limits<std::uint32_t>::max()));
}

}  // namespace record
