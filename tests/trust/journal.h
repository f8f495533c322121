// What a recording process tells the test that will stop it: kept in memory that both share, so that it outlives
// the process. The recorder writes, the test reads once the recorder is gone (or looks at single words of it).
#ifndef TESTS_TRUST_JOURNAL_H
#define TESTS_TRUST_JOURNAL_H

#include <atomic>
#include <cstdint>
#include <string>

namespace trust {

std::int64_t NowNs();  // CLOCK_MONOTONIC, the same for both processes

struct PacketNote {
  std::uint32_t number;  // see FrameBytes
  std::int32_t length;
  std::uint32_t timestamp;
  bool key;
  bool video;
  std::int64_t returnedNs;  // 0: its write had not returned
};

// A sync of the file that came back well. One that is under way when power is cut promises nothing.
struct SyncNote {
  std::int64_t returnedNs;
  std::uint32_t covered;  // packets whose writes had returned before it began
};

enum class Phase : int { kNone, kBegin, kWaiting, kWrite, kEnd, kEnded };

struct FileNote {
  static constexpr std::uint32_t kMaxPackets = 4096;
  static constexpr std::uint32_t kMaxSyncs = 256;

  std::atomic<Phase> phase;
  char path[256];                       // valid once begunNs is not 0
  std::atomic<std::int64_t> begunNs;    // when RecordBegin returned
  std::int64_t endedNs;                 // when RecordEnd returned
  std::atomic<std::uint32_t> begun;     // packets handed to the writer
  std::atomic<std::uint32_t> returned;  // packets whose write came back well
  std::atomic<std::uint32_t> syncs;     // completed ones, the first kMaxSyncs of them noted below
  SyncNote syncNotes[kMaxSyncs];
  std::atomic<std::uint32_t> leastWhileSyncing;  // packets whose writes returned during one sync
  std::atomic<std::int64_t> longestSyncNs;
  std::int64_t longestWriteNs;
  std::int64_t longestPassNs;  // between two passes of the record thread
  PacketNote packets[kMaxPackets];

  // Of so many packets those that stand in whole groups of pictures, when another group has begun behind them.
  std::uint32_t WholeGroups(std::uint32_t count) const;
  // Packets that syncs which had returned by then cover; -1 when there was no such sync.
  long long SyncedAt(std::int64_t moment) const;
};

class Journal {
 public:
  static constexpr int kMaxFiles = 64;

  // A journal in memory that a process forked off later shares.
  static Journal* Create();
  static void Destroy(Journal* journal);

  FileNote* NewFile();  // null when it is full
  int FileCount() const;
  FileNote& File(int n) { return m_files[n]; }
  FileNote* Find(const std::string& path);  // null: no file of that path was begun

  std::atomic<std::int64_t> m_syncNs;  // spent in sync calls so far

 private:
  std::atomic<int> m_fileCount;
  FileNote m_files[kMaxFiles];
};

}  // namespace trust

#endif
