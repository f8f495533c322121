#include "format/frame_window.h"

#include <cstring>
#include <new>

namespace record {
namespace {

constexpr std::size_t kReadBlock = 64 * 1024;
constexpr std::size_t kReadBlockMax = 256 * 1024;
constexpr std::size_t kLongestLent = kReadBlockMax / 2;  // what a block begins with is moved to its front

}  // namespace

FrameWindow::FrameWindow(FileSource& source) : m_source(source), m_window(source, kReadBlock, kReadBlockMax) {}

bool FrameWindow::ReadHead(long long offset, void* head, std::size_t length) {
  std::size_t available = 0;
  const std::uint8_t* bytes = m_window.At(offset, &available);
  if (available < length) {
    m_source.ReadAhead(m_inRow);
    if (!m_inRow) return m_source.ReadAt(offset, head, length) == length;
    bytes = m_window.Fetch(offset, length, &available);
    if (available < length) return false;
  }
  std::memcpy(head, bytes, length);
  return true;
}

bool FrameWindow::ReadPayload(long long offset, std::size_t length, bool mayLend, FramePayload& payload) {
  payload = {};
  if (length == 0) return true;
  if (mayLend && m_inRow && length <= kLongestLent) payload.data = Lend(offset, length);
  if (payload.data) return true;
  payload.owned.reset(new (std::nothrow) unsigned char[length]);
  if (!payload.owned || !Copy(offset, payload.owned.get(), length)) return false;
  payload.data = payload.owned.get();
  return true;
}

unsigned char* FrameWindow::Lend(long long offset, std::size_t length) {
  std::size_t available = 0;
  unsigned char* bytes = m_window.Fetch(offset, length, &available);
  return available >= length ? bytes : nullptr;
}

bool FrameWindow::Copy(long long offset, unsigned char* to, std::size_t length) {
  std::size_t available = 0;
  const std::uint8_t* bytes = m_window.At(offset, &available);
  if (available >= length) {
    std::memcpy(to, bytes, length);
    return true;
  }
  if (available > 0) std::memcpy(to, bytes, available);
  const std::size_t rest = length - available;
  const long long restOffset = offset + static_cast<long long>(available);
  if (m_inRow) return m_window.ReadThrough(restOffset, to + available, rest);
  return m_source.ReadAt(restOffset, to + available, rest) == rest;
}

}  // namespace record
