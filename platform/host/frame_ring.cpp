// Frame rings: one arena of bytes that goes round, and a table of what lies in it.
#include <algorithm>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>

#include "base/log.h"
#include "record/platform.h"

namespace {

class FrameRing {
 public:
  // False when there is not enough memory.
  bool Allocate(size_t bytes, size_t maxFrames) {
    m_arena.reset(new (std::nothrow) unsigned char[bytes]);
    m_entries.reset(new (std::nothrow) Entry[maxFrames]);
    m_bytes = bytes;
    m_maxFrames = maxFrames;
    return m_arena != nullptr && m_entries != nullptr;
  }

  int Write(const RingFrameInfo& info, const unsigned char* data, size_t length) {
    if (length > m_bytes) return -1;
    std::lock_guard<std::mutex> guard(m_mutex);
    while (m_count == m_maxFrames || m_bytes - m_usedBytes < length) DropOldest();
    const size_t at = (m_firstByte + m_usedBytes) % m_bytes;
    const size_t toEnd = std::min(length, m_bytes - at);
    if (toEnd > 0) memcpy(m_arena.get() + at, data, toEnd);
    if (length > toEnd) memcpy(m_arena.get(), data + toEnd, length - toEnd);
    m_entries[(m_firstEntry + m_count) % m_maxFrames] = {info, length};
    ++m_count;
    m_usedBytes += length;
    return 0;
  }

  // The frame is copied out, because the writer may go over its place at once.
  unsigned char* Read(int* length, RingFrameInfo* info) {
    std::lock_guard<std::mutex> guard(m_mutex);
    if (m_count == 0 || !GrowOutput(m_entries[m_firstEntry].length)) return nullptr;
    const Entry& oldest = m_entries[m_firstEntry];
    const size_t toEnd = std::min(oldest.length, m_bytes - m_firstByte);
    memcpy(m_output.get(), m_arena.get() + m_firstByte, toEnd);
    memcpy(m_output.get() + toEnd, m_arena.get(), oldest.length - toEnd);
    *length = static_cast<int>(oldest.length);
    if (info != nullptr) *info = oldest.info;
    DropOldest();
    return m_output.get();
  }

  int Peek(RingFrameInfo* info) {
    std::lock_guard<std::mutex> guard(m_mutex);
    if (m_count == 0) return -1;
    *info = m_entries[m_firstEntry].info;
    return 0;
  }

 private:
  struct Entry {
    RingFrameInfo info;
    size_t length;
  };

  void DropOldest() {
    const size_t length = m_entries[m_firstEntry].length;
    m_firstByte = (m_firstByte + length) % m_bytes;
    m_usedBytes -= length;
    m_firstEntry = (m_firstEntry + 1) % m_maxFrames;
    --m_count;
  }

  bool GrowOutput(size_t length) {
    if (m_output != nullptr && length <= m_outputSize) return true;
    const size_t size = std::min(m_bytes, std::max<size_t>(length + length / 2, 4096));
    unsigned char* grown = new (std::nothrow) unsigned char[std::max(size, length)];
    if (grown == nullptr) return false;
    m_output.reset(grown);
    m_outputSize = std::max(size, length);
    return true;
  }

  // Constant after Allocate.
  std::unique_ptr<unsigned char[]> m_arena;
  std::unique_ptr<Entry[]> m_entries;
  size_t m_bytes = 0;
  size_t m_maxFrames = 0;

  std::mutex m_mutex;  // guards the rest
  size_t m_firstByte = 0;
  size_t m_usedBytes = 0;
  size_t m_firstEntry = 0;
  size_t m_count = 0;
  std::unique_ptr<unsigned char[]> m_output;
  size_t m_outputSize = 0;
};

}  // namespace

void* OsalRingInit(int bytes, int maxFrames) {
  if (bytes <= 0 || maxFrames <= 0) return nullptr;
  std::unique_ptr<FrameRing> ring(new (std::nothrow) FrameRing);
  if (ring == nullptr || !ring->Allocate(static_cast<size_t>(bytes), static_cast<size_t>(maxFrames))) {
    RECORD_LOG("no memory for a frame ring of %d bytes\n", bytes);
    return nullptr;
  }
  return ring.release();
}

int OsalRingWrite(void* ring, const RingFrameInfo* info, const unsigned char* data, int length) {
  if (ring == nullptr || info == nullptr || length < 0 || (data == nullptr && length > 0)) return -1;
  return static_cast<FrameRing*>(ring)->Write(*info, data, static_cast<size_t>(length));
}

unsigned char* OsalRingRead(void* ring, int* length, RingFrameInfo* info) {
  *length = 0;
  return ring != nullptr ? static_cast<FrameRing*>(ring)->Read(length, info) : nullptr;
}

int OsalRingGetFrameInfo(void* ring, RingFrameInfo* info) {
  return ring != nullptr ? static_cast<FrameRing*>(ring)->Peek(info) : -1;
}

void OsalRingRelease(void* ring) {
  delete static_cast<FrameRing*>(ring);
}
