// Two short texts that one thread writes and any thread reads without a lock (a sequence lock whose words are
// atomics, so that a torn read is seen and repeated, and no data race exists).
#ifndef BASE_PUBLISHED_PATHS_H
#define BASE_PUBLISHED_PATHS_H

#include <array>
#include <atomic>
#include <cstdint>
#include <string>

namespace record {

class PublishedText {
 public:
  static constexpr size_t kCapacity = 256;  // longest text

  void Set(const char* text);  // one writer at a time; longer texts are cut
  std::string Get() const;

 private:
  static constexpr size_t kWords = kCapacity / sizeof(std::uint32_t);
  std::atomic<std::uint32_t> m_sequence{0};  // odd while a write is under way
  std::atomic<std::uint32_t> m_length{0};
  std::array<std::atomic<std::uint32_t>, kWords> m_words{};
};

// What other threads may ask of a running task.
class PublishedPaths {
 public:
  PublishedText storageBase;
  PublishedText localFileName;
};

}  // namespace record

#endif
