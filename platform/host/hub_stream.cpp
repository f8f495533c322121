#include <algorithm>

#include "platform/host/stream_hub.h"

namespace record {

void HubStream::SetConfig(std::vector<unsigned char> config) {
  std::lock_guard<std::mutex> guard(m_mutex);
  m_isThere = true;
  if (m_config != nullptr && *m_config == config) return;
  m_config = config.empty() ? nullptr : std::make_shared<const std::vector<unsigned char>>(std::move(config));
}

// Video that cannot be decoded is not handed out: it begins, and after a loss goes on, with a key frame.
bool HubStream::EndsWaiting(const EncodedFrame& frame) {
  if (m_isAudio) return true;
  if (frame.lost > 0) m_waitsForKey = true;
  if (frame.keyFrame) m_waitsForKey = false;
  return !m_waitsForKey;
}

bool HubStream::Publish(EncodedFrame frame) {
  Frames evicted;  // freed when the lock is gone
  std::lock_guard<std::mutex> guard(m_mutex);
  m_nextFrameIndex += std::max(frame.lost, 0);
  if (!EndsWaiting(frame)) {
    ++m_nextFrameIndex;
    return false;
  }
  m_lastTimestampMs = std::max(m_lastTimestampMs, frame.timestampMs);
  const bool canBegin = m_isAudio || frame.keyFrame;
  if (!m_isAudio && frame.keyFrame) {
    ++m_keyframeIndex;
    m_hasNewKey = true;
    m_keyAtMs = GetCurrentTimeStamp_u64();
  }

  HeldFrame held;
  // Readers take a plain pointer by contract; nobody writes through it.
  held.view.data = const_cast<unsigned char*>(frame.data);
  held.view.length = frame.length;
  held.view.keyFrame = frame.keyFrame ? 1 : 0;
  held.view.timestampMs = m_lastTimestampMs;
  held.view.keyframeIndex = m_isAudio ? 0 : m_keyframeIndex;
  held.view.frameIndex = m_nextFrameIndex++;
  held.owner = std::move(frame.owner);
  if (canBegin) m_keys.push_back(End());
  m_frames.push_back(std::move(held));
  m_bytes += frame.length;
  m_isThere = true;
  Evict(&evicted);
  return true;
}

void HubStream::DropOldest(Frames* evicted) {
  if (!m_keys.empty() && m_keys.front() == m_base) m_keys.pop_front();
  m_bytes -= m_frames.front().view.length;
  evicted->push_back(std::move(m_frames.front().owner));
  m_frames.pop_front();
  ++m_base;
}

// The byte limit holds whatever it costs (the newest frame stays). The time limit drops a group only when the
// one behind it reaches back far enough, so that the look-back promised is there from a key frame on.
void HubStream::Evict(Frames* evicted) {
  while (m_bytes > m_lookBackBytes && m_frames.size() > 1) DropOldest(evicted);
  const double needed = m_lastTimestampMs - m_lookBackMs;
  while (true) {
    const size_t next = !m_keys.empty() && m_keys.front() == m_base ? 1 : 0;
    if (m_keys.size() <= next || At(m_keys[next]).view.timestampMs > needed) return;
    const std::uint64_t keep = m_keys[next];
    while (m_base < keep) DropOldest(evicted);
  }
}

void HubStream::SetLookBack(double milliseconds, std::int64_t bytes) {
  Frames evicted;
  std::lock_guard<std::mutex> guard(m_mutex);
  m_lookBackMs = milliseconds;
  m_lookBackBytes = bytes;
  Evict(&evicted);
}

void HubStream::Clear() {
  Frames evicted;
  std::lock_guard<std::mutex> guard(m_mutex);
  while (!m_frames.empty()) DropOldest(&evicted);
  m_isThere = false;
  m_config = nullptr;
  m_waitsForKey = true;
  m_hasNewKey = false;
  ++m_nextFrameIndex;
  ForgetTimeUnseen();
}

void HubStream::Interrupt() {
  std::lock_guard<std::mutex> guard(m_mutex);
  m_hasNewKey = false;
}

long long HubStream::KeyFrameAgeMs() {
  std::lock_guard<std::mutex> guard(m_mutex);
  return m_hasNewKey ? static_cast<long long>(GetCurrentTimeStamp_u64() - m_keyAtMs) : -1;
}

// On a stream that was cleared time may begin anew when no reader is there to see it run backwards.
void HubStream::ForgetTimeUnseen() {
  const auto isRegistered = [](const auto& entry) { return entry.second.registered; };
  if (!m_isThere && std::none_of(m_readers.begin(), m_readers.end(), isRegistered)) m_lastTimestampMs = 0;
}

double HubStream::LastTimestampMs() {
  std::lock_guard<std::mutex> guard(m_mutex);
  return m_lastTimestampMs;
}

std::uint64_t HubStream::StartFor(double lookBackMs) const {
  const double wanted = m_lastTimestampMs - lookBackMs;
  for (auto key = m_keys.rbegin(); key != m_keys.rend(); ++key) {
    if (At(*key).view.timestampMs <= wanted) return *key;
  }
  return m_keys.empty() ? End() : m_keys.front();
}

HubStream::Reader* HubStream::FindReader(std::uintptr_t id) {
  for (auto& [readerId, reader] : m_readers) {
    if (readerId == id) return &reader;
  }
  return nullptr;
}

HubStream::Reader& HubStream::ReaderFor(std::uintptr_t id) {
  Reader* reader = FindReader(id);
  return reader != nullptr ? *reader : m_readers.emplace_back(id, Reader()).second;
}

int HubStream::Register(std::uintptr_t id, double* lookBackMs) {
  std::shared_ptr<const void> released;
  std::lock_guard<std::mutex> guard(m_mutex);
  if (!m_isThere) return -1;
  Reader& reader = ReaderFor(id);
  released = std::move(reader.reading);
  reader.registered = true;
  reader.needsKeyFrame = !m_isAudio;
  reader.position = StartFor(lookBackMs != nullptr ? std::max(*lookBackMs, 0.0) : 0.0);
  if (lookBackMs != nullptr) {
    *lookBackMs = reader.position < End() ? m_lastTimestampMs - At(reader.position).view.timestampMs : 0.0;
  }
  return 0;
}

int HubStream::Unregister(std::uintptr_t id) {
  Reader dropped;
  std::lock_guard<std::mutex> guard(m_mutex);
  const auto found =
      std::find_if(m_readers.begin(), m_readers.end(), [&](const auto& e) { return e.first == id; });
  if (found == m_readers.end()) return -1;
  dropped = std::move(found->second);
  m_readers.erase(found);
  ForgetTimeUnseen();
  return dropped.registered ? 0 : -1;
}

int HubStream::GetConfig(std::uintptr_t id, StreamFrame* out) {
  Config replaced;
  std::lock_guard<std::mutex> guard(m_mutex);
  if (m_config == nullptr) return -1;
  Reader& reader = ReaderFor(id);
  replaced = std::move(reader.config);
  reader.config = m_config;
  *out = {};
  out->data = const_cast<unsigned char*>(m_config->data());
  out->length = static_cast<int>(m_config->size());
  return 0;
}

// Moves a reader whose frame was evicted, or who waits for a key frame, to the next key frame held; to the
// end when there is none yet.
void HubStream::CatchUp(Reader* reader) const {
  if (reader->position < m_base) {
    reader->position = m_base;
    reader->needsKeyFrame = !m_isAudio;
  }
  if (!reader->needsKeyFrame) return;
  const auto key = std::lower_bound(m_keys.begin(), m_keys.end(), reader->position);
  reader->position = key != m_keys.end() ? *key : End();
  reader->needsKeyFrame = key == m_keys.end();
}

int HubStream::Read(std::uintptr_t id, StreamFrame* out) {
  std::shared_ptr<const void> released;
  std::lock_guard<std::mutex> guard(m_mutex);
  Reader* reader = FindReader(id);
  if (reader == nullptr || !reader->registered) return -1;
  CatchUp(reader);
  if (reader->position >= End()) return 0;
  const HeldFrame& frame = At(reader->position++);
  released = std::move(reader->reading);
  reader->reading = frame.owner;
  *out = frame.view;
  return 1;
}

int HubStream::Release(std::uintptr_t id) {
  std::shared_ptr<const void> released;
  std::lock_guard<std::mutex> guard(m_mutex);
  Reader* reader = FindReader(id);
  if (reader == nullptr || reader->reading == nullptr) return -1;
  released = std::move(reader->reading);
  return 0;
}

}  // namespace record
