#include "platform/host/mp4_sample_reader.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace record {
namespace {

constexpr size_t kBlockSize = 256 * 1024;

}  // namespace

Mp4SampleReader::Mp4SampleReader(int file, std::uint64_t fileSize, const std::vector<AVStream*>& streams)
    : m_file(file), m_fileSize(static_cast<std::int64_t>(fileSize)) {
  for (AVStream* stream : streams) {
    m_cursors.push_back({stream, 0, nullptr, 0});
    Move(m_cursors.back(), 0);
  }
}

Mp4SampleReader::~Mp4SampleReader() {
  close(m_file);
}

void Mp4SampleReader::Move(Cursor& cursor, int number) {
  cursor.next = number;
  cursor.entry = avformat_index_get_entry(cursor.stream, number);
  if (cursor.entry != nullptr)
    cursor.time = av_rescale_q(cursor.entry->timestamp, cursor.stream->time_base, {1, AV_TIME_BASE});
}

void Mp4SampleReader::GoTo(const AVStream* stream, int number) {
  for (Cursor& cursor : m_cursors) {
    if (cursor.stream == stream) Move(cursor, number);
  }
  m_left = 0;  // what is in the block may have been changed
}

// Tracks are taken as they stand in the file, until one is a second behind.
bool Mp4SampleReader::IsBefore(const Cursor& a, const Cursor& b) {
  const std::int64_t later = av_sat_sub64(a.time, b.time);
  if (later < -AV_TIME_BASE || later > AV_TIME_BASE) return later < 0;
  return a.entry->pos < b.entry->pos;
}

Mp4SampleReader::Cursor* Mp4SampleReader::Choose() {
  Cursor* best = nullptr;
  for (Cursor& cursor : m_cursors) {
    if (cursor.entry != nullptr && (best == nullptr || IsBefore(cursor, *best))) best = &cursor;
  }
  return best;
}

bool Mp4SampleReader::Read(AVPacket* packet) {
  av_packet_unref(packet);
  Cursor* const cursor = Choose();
  if (cursor == nullptr) return false;
  const AVIndexEntry entry = *cursor->entry;
  Move(*cursor, cursor->next + 1);
  if (entry.size > 0) packet->data = Load(entry.pos, static_cast<size_t>(entry.size));
  if (packet->data == nullptr && entry.size > 0) return false;
  packet->size = entry.size;
  packet->stream_index = cursor->stream->index;
  packet->pts = packet->dts = entry.timestamp;
  if ((entry.flags & AVINDEX_KEYFRAME) != 0) packet->flags |= AV_PKT_FLAG_KEY;
  return true;
}

// Whole blocks while the samples stand in a row, single samples while they do not.
unsigned char* Mp4SampleReader::Load(std::int64_t offset, size_t length) {
  if (offset < 0 || offset > m_fileSize || length > static_cast<std::uint64_t>(m_fileSize - offset))
    return nullptr;
  const bool isInRow = offset >= m_offset && offset - m_offset <= static_cast<std::int64_t>(m_left);
  const size_t passed = isInRow ? static_cast<size_t>(offset - m_offset) : m_left;
  m_at += passed;
  m_left -= passed;
  m_offset = offset;
  if (m_left < length && !Fill(length, isInRow ? std::max(length, kBlockSize) : length)) return nullptr;
  unsigned char* const data = m_block.data() + m_at;
  m_at += length;
  m_left -= length;
  m_offset += static_cast<std::int64_t>(length);
  return data;
}

bool Mp4SampleReader::Fill(size_t needed, size_t wanted) {
  if (m_block.size() < wanted) m_block.resize(std::max(wanted, kBlockSize));
  std::memmove(m_block.data(), m_block.data() + m_at, m_left);
  m_at = 0;
  while (m_left < needed) {
    const ssize_t got = pread(m_file, m_block.data() + m_left, wanted - m_left,
                              static_cast<off_t>(m_offset + static_cast<std::int64_t>(m_left)));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    m_left += static_cast<size_t>(got);
  }
  return true;
}

}  // namespace record
