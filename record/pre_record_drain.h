// Taking all that a pre-record ring holds, alone: while this lives nobody else reads the ring and it is not
// released. A second task on the same stream finds nothing to drain and goes straight to live frames.
#ifndef RECORD_PRE_RECORD_DRAIN_H
#define RECORD_PRE_RECORD_DRAIN_H

#include "record/platform.h"

namespace record {

class PreRecordDrain {
 public:
  explicit PreRecordDrain(int stream);
  ~PreRecordDrain();
  PreRecordDrain(const PreRecordDrain&) = delete;
  PreRecordDrain& operator=(const PreRecordDrain&) = delete;

  // As PreRecGetFrame and PreRecDelExpiredFrame.
  unsigned char* Next(int* length, RingFrameInfo* info);
  void DropExpiredFrames(int seconds);

 private:
  int m_stream;
  bool m_owns;
};

}  // namespace record

#endif
