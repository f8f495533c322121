// Room that is reserved ahead of what an output gets, on ext4 and XFS: that costs the kernel less than to find it
// page by page, and files that are written side by side stay in long stretches. Only for a file that nobody trusts
// before it is whole: a power cut may leave zeros in what is written into reserved room.
#ifndef EXPORT_OUTPUT_ROOM_H
#define EXPORT_OUTPUT_ROOM_H

#include <cstdint>
#include <string>

namespace record {

class OutputRoom {
 public:
  OutputRoom() = default;
  ~OutputRoom() { GiveBack(); }
  OutputRoom(const OutputRoom&) = delete;
  OutputRoom& operator=(const OutputRoom&) = delete;

  // The file is there and still empty.
  void Begin(const std::string& path);
  // A frame of that length is about to be written.
  void Need(unsigned length);
  // What was reserved and not written; nothing is reserved any more.
  void GiveBack();

 private:
  int m_file = -1;
  std::uint64_t m_needed = 0;
  std::uint64_t m_reserved = 0;
};

}  // namespace record

#endif
