#include "base/published_paths.h"

#include <algorithm>
#include <cstring>

#include "base/brief_wait.h"

namespace record {

// Release stores keep the odd sequence number in front of the words; acquire loads keep the second look at it
// behind them.
void PublishedText::Set(const char* text) {
  const size_t length = std::min(std::strlen(text), kCapacity);
  std::array<std::uint32_t, kWords> words{};
  std::memcpy(words.data(), text, length);

  const std::uint32_t sequence = m_sequence.load(std::memory_order_relaxed);
  m_sequence.store(sequence + 1, std::memory_order_relaxed);
  m_length.store(static_cast<std::uint32_t>(length), std::memory_order_release);
  for (size_t i = 0; i < kWords; ++i) m_words[i].store(words[i], std::memory_order_release);
  m_sequence.store(sequence + 2, std::memory_order_release);
}

std::string PublishedText::Get() const {
  std::array<std::uint32_t, kWords> words{};
  while (true) {
    const std::uint32_t before = m_sequence.load(std::memory_order_acquire);
    const std::uint32_t length = m_length.load(std::memory_order_acquire);
    const size_t used = std::min<size_t>(length, kCapacity);
    for (size_t i = 0; i * sizeof(words[0]) < used; ++i) words[i] = m_words[i].load(std::memory_order_acquire);
    if ((before & 1) == 0 && m_sequence.load(std::memory_order_relaxed) == before)
      return std::string(reinterpret_cast<const char*>(words.data()), used);
    BriefWait();
  }
}

}  // namespace record
