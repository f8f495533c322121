// The samples of a finished MP4 file, read by the index that libavformat has made of it: in the order in which
// libavformat would hand them out, without a packet of their own for each of them.
#ifndef PLATFORM_HOST_MP4_SAMPLE_READER_H
#define PLATFORM_HOST_MP4_SAMPLE_READER_H

#include <cstdint>
#include <vector>

#include "platform/host/av_handles.h"

namespace record {

class Mp4SampleReader {
 public:
  // Takes the descriptor. The streams stay the caller's; in the order of their numbers.
  Mp4SampleReader(int file, std::uint64_t fileSize, const std::vector<AVStream*>& streams);
  ~Mp4SampleReader();
  Mp4SampleReader(const Mp4SampleReader&) = delete;
  Mp4SampleReader& operator=(const Mp4SampleReader&) = delete;

  // That sample is the stream's next one.
  void GoTo(const AVStream* stream, int number);
  // Fills in where the sample is, when, and whether it is a key frame. The bytes are in the reader's own block;
  // they may be changed and last until the next call. False at the end, or when the file ends early.
  bool Read(AVPacket* packet);

 private:
  struct Cursor {
    AVStream* stream;
    int next;
    const AVIndexEntry* entry;  // of the next one; null at the end
    std::int64_t time;          // of it, in units of AV_TIME_BASE
  };
  static void Move(Cursor& cursor, int number);
  static bool IsBefore(const Cursor& a, const Cursor& b);
  Cursor* Choose();
  unsigned char* Load(std::int64_t offset, size_t length);
  bool Fill(size_t needed, size_t wanted);

  const int m_file;
  const std::int64_t m_fileSize;
  std::vector<Cursor> m_cursors;

  std::vector<unsigned char> m_block;
  std::int64_t m_offset = 0;  // in the file, of the first byte that has not been handed out
  size_t m_at = 0;            // the same byte in the block
  size_t m_left = 0;          // bytes there from it on
};

}  // namespace record

#endif
