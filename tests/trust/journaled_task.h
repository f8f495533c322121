// The library's tasks, noting in the journal what they are asked to do and when that has returned.
#ifndef TESTS_TRUST_JOURNALED_TASK_H
#define TESTS_TRUST_JOURNALED_TASK_H

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <memory>
#include <string>

#include "record/task.h"
#include "tests/trust/frames.h"
#include "tests/trust/journal.h"

namespace trust {

template <typename Writer>
class JournaledTask : public Writer {
 public:
  JournaledTask(const RECORD_TASK_PARAM& param, const RecordConfig& config, Journal& journal,
                std::atomic<bool>& alive)
      : Writer(param, config), m_journal(journal), m_alive(alive) {
    m_alive = true;
  }
  ~JournaledTask() override { m_alive = false; }

  int RecordBegin() override {
    m_note = m_journal.NewFile();
    if (m_note == nullptr) pause();  // nothing more can be noted: wait for the end
    m_note->phase = Phase::kBegin;
    const int result = Writer::RecordBegin();
    std::snprintf(m_note->path, sizeof m_note->path, "%s", this->GetFilePath());
    m_note->begunNs = NowNs();
    m_note->phase = Phase::kWaiting;
    return result;
  }

  int RecordEnd() override {
    m_note->phase = Phase::kEnd;
    const int result = Writer::RecordEnd();
    m_note->endedNs = NowNs();
    m_note->phase = Phase::kEnded;
    return result;
  }

  int RecordOneVideoFrame(int keyFrame, char* data, int length, unsigned int timestampMs) override {
    return Note({FrameNumber(data, length), length, timestampMs, keyFrame != 0, true, 0},
                [&] { return Writer::RecordOneVideoFrame(keyFrame, data, length, timestampMs); });
  }

  int RecordOneAudioFrame(char* data, int length, unsigned int timestampMs) override {
    return Note({FrameNumber(data, length), length, timestampMs, false, false, 0},
                [&] { return Writer::RecordOneAudioFrame(data, length, timestampMs); });
  }

  void SyncAV() override {
    const std::int64_t now = NowNs();
    if (m_passNs != 0) m_note->longestPassNs = std::max(m_note->longestPassNs, now - m_passNs);
    m_passNs = now;
  }

 private:
  template <typename Write>
  int Note(const PacketNote& packet, const Write& write) {
    const std::uint32_t n = m_note->begun;
    if (n == FileNote::kMaxPackets) pause();
    m_note->packets[n] = packet;
    m_note->begun = n + 1;
    m_note->phase = Phase::kWrite;
    const std::int64_t begin = NowNs();
    const int result = write();
    const std::int64_t end = NowNs();
    if (this->IsWriteFailed() == 0) {
      m_note->packets[n].returnedNs = end;
      m_note->returned = n + 1;
    }
    m_note->longestWriteNs = std::max(m_note->longestWriteNs, end - begin);
    m_note->phase = Phase::kWaiting;
    return result;
  }

  Journal& m_journal;
  std::atomic<bool>& m_alive;
  FileNote* m_note = nullptr;
  std::int64_t m_passNs = 0;
};

// A task that records into files of that extension (".kmv"). `alive` becomes false when it is deleted.
inline std::unique_ptr<CRecordTask> NewJournaledTask(const std::string& extension, const RECORD_TASK_PARAM& param,
                                                     const RecordConfig& config, Journal& journal,
                                                     std::atomic<bool>& alive) {
  if (extension == ".avi") return std::make_unique<JournaledTask<CAviTask>>(param, config, journal, alive);
  if (extension == ".mp4") return std::make_unique<JournaledTask<CMp4Task>>(param, config, journal, alive);
  return std::make_unique<JournaledTask<CKmvTask>>(param, config, journal, alive);
}

}  // namespace trust

#endif
