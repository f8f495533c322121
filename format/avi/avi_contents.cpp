#include "format/avi/avi_contents.h"

#include <algorithm>
#include <new>

#include "base/log.h"
#include "format/avi/avi_index_reader.h"
#include "format/defaults.h"

namespace record {
namespace {

constexpr std::uint32_t kSpareSlots = 100;

// Twelve days, where a file has an hour: a damaged rate or index shall not fill the memory.
constexpr std::size_t kMostSlots = 1 << 20;

class Collector {
 public:
  Collector(const AviHead& head, AviContents& contents) : m_listStart(head.ListStart()), m_contents(contents) {
    contents = {};
    contents.framerate = head.video.rate != 0 ? head.video.rate : kDefaultFramerate;
  }

  void Add(const AviIndexEntry& entry) {
    if (entry.id == kAviVideoId) Place(entry);
    AviCount(m_contents.totals, entry);
  }

  void Finish() {
    AviContents& c = m_contents;
    c.duration = static_cast<std::uint32_t>(c.totals.videoFrames / c.framerate);
    c.slots.resize(std::min<std::size_t>(std::size_t{c.duration} + kSpareSlots, kMostSlots));
    c.keyNumbers.resize(c.slots.size());
    c.totals.hasStamps = false;
    c.totals.duration = AviDuration(c.totals, c.framerate);
  }

 private:
  // A frame that completes a second is the last one of its slot.
  void Place(const AviIndexEntry& entry) {
    AviContents& c = m_contents;
    if (entry.flags == kAviKeyFlag) {
      m_lastKey = m_listStart + entry.offset;
      m_lastKeyNumber = static_cast<std::uint32_t>(c.totals.videoFrames);
      if (c.firstKey < 0) c.firstKey = m_lastKey;
    }
    if (m_slotDone) {
      if (c.slots.size() >= kMostSlots) return;
      c.slots.push_back(0);
      c.keyNumbers.push_back(0);
    }
    c.slots.back() = m_lastKey;
    c.keyNumbers.back() = m_lastKeyNumber;
    m_slotDone = c.totals.videoFrames % c.framerate == 0;
  }

  const long long m_listStart;
  AviContents& m_contents;
  long long m_lastKey = 0;
  std::uint32_t m_lastKeyNumber = 0;
  bool m_slotDone = true;
};

AviIndexState ReadIndex(const FileSource& source, const AviHead& head, AviContents& contents) {
  AviIndexReader index(source);
  const AviIndexState state = index.Open(head.IndexOffset());
  if (state == AviIndexState::BadFlag) RECORD_LOG("bad index flag: %x\n\n", index.Flag());
  if (state == AviIndexState::NoFlag || state == AviIndexState::NoSize)
    RECORD_LOG_TEXT("read index flag failed.\n\n");
  if (state != AviIndexState::Whole && state != AviIndexState::NoEntries) return state;
  Collector collector(head, contents);
  AviIndexEntry entry;
  while (state == AviIndexState::Whole && index.Next(entry)) collector.Add(entry);
  if (index.Taken() < index.Count()) {
    RECORD_LOG_TEXT("read index failed.\n\n");
    return AviIndexState::NoEntries;
  }
  collector.Finish();
  contents.dataEnd = head.IndexOffset();
  contents.indexed = true;
  return AviIndexState::Whole;
}

bool Scan(FileSource& source, const AviHead& head, AviContents& contents) {
  RECORD_LOG_TEXT("No index found. try to scan whole file.\n\n");
  Collector collector(head, contents);
  AviScanner scanner(source, head, source.Size());
  AviChunk chunk;
  while (scanner.Next(chunk)) collector.Add(chunk.entry);
  collector.Finish();
  contents.dataEnd = scanner.DataEnd();
  return contents.totals.videoFrames + contents.totals.audioFrames > 0;
}

}  // namespace

int AviContents::Seconds() const {
  return static_cast<int>(std::min<std::size_t>(duration, slots.size()));
}

bool AviReadContents(FileSource& source, const AviHead& head, AviContents& contents) {
  try {
    if (ReadIndex(source, head, contents) == AviIndexState::Whole) return true;
    return head.IsRecorded() && Scan(source, head, contents);
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace record
