// The frames of a record file with the times at which pictures are decoded. Files of other makers tell when they
// are shown, which goes back and forth; record tasks take times that go up.
#ifndef RECORDCTL_DECODE_ORDER_H
#define RECORDCTL_DECODE_ORDER_H

#include <deque>
#include <set>
#include <vector>

#include "tools/recordctl/frame_reader.h"

namespace recordctl {

class DecodeOrder {
 public:
  // `isShown`: whether the file tells the times of showing.
  DecodeOrder(CVideoFile& file, bool isShown) : m_reader(file), m_isShown(isShown) {}

  // In the file's order; the data of one frame is gone with the next.
  bool Next(Frame& frame);

 private:
  struct Held {
    Frame frame;
    std::vector<unsigned char> bytes;
  };
  void ReadAhead();

  FrameReader m_reader;
  const bool m_isShown;
  bool m_isAtEnd = false;
  std::deque<Held> m_ahead;
  std::multiset<unsigned long> m_stamps;  // of the pictures ahead
  Held m_current;
};

}  // namespace recordctl

#endif
