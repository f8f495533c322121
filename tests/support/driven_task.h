// A writer that the test drives by hand, in place of its record thread.
#ifndef TESTS_SUPPORT_DRIVEN_TASK_H
#define TESTS_SUPPORT_DRIVEN_TASK_H

#include <gtest/gtest.h>

#include <string>

#include "record/task.h"
#include "tests/support/recorded_file.h"

namespace fake {

template <typename Writer>
class DrivenTask : public Writer {
 public:
  explicit DrivenTask(const RECORD_TASK_PARAM& param) : Writer(param, DefaultConfig()) { this->m_running = 1; }
  ~DrivenTask() override { this->m_running = 0; }
  void SetPreRecorded(int frames) { this->m_preRecordedVideoFrames = frames; }
  void SetStopped() { this->m_running = 0; }
  bool IsFull() const { return this->m_fileFull; }

  void Video(int key, std::string bytes, unsigned ms) {
    EXPECT_EQ(this->RecordOneVideoFrame(key, bytes.data(), static_cast<int>(bytes.size()), ms), 0);
  }
  void Audio(std::string bytes, unsigned ms) {
    EXPECT_EQ(this->RecordOneAudioFrame(bytes.data(), static_cast<int>(bytes.size()), ms), 0);
  }
};

}  // namespace fake

#endif
