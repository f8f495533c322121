// What the readers of all containers are put through: a file that grows while it is read, then whole, then
// repaired.
//
// `Container` tells what differs:
//   Reader                 the class
//   kHandover              whether frames become the caller's; such a frame is no longer than its file
//   IsEnd(length)          whether that result of reading means that there is nothing more
//   MostReads(fileSize)    after so many results the end has to have come ...
//   kMayGoOn               ... or the container may really tell of more
//   kMoves                 how many moves to the next key frame are tried
//   Check(reader)          holds for every open file
//   Repair(path)           only for ReadRepaired()
#ifndef FUZZ_READER_RUN_H
#define FUZZ_READER_RUN_H

#include <cstdint>

#include "format/repair_file.h"
#include "fuzz/memory_file.h"
#include "record/video_file.h"

namespace fuzz {

enum class Handover { kCallers, kReaders };

template <typename Container>
class ReaderRun {
 public:
  ReaderRun(const std::uint8_t* data, std::size_t size) : m_file(data, size / 2), m_size(size) {
    fake::Platform::Get().ClearRecord();  // or its log grows with every run
    Reader growing;
    const bool begun = growing.Open(m_file.Path()) == 1;
    if (begun) ReadAll(growing, size);
    m_file.Append(data + size / 2, size - size / 2);
    if (begun) ReadAll(growing, size);
  }

  const char* Path() const { return m_file.Path(); }

  void ReadWhole() {
    Reader reader;
    if (reader.Open(Path()) != 1) return;
    Ask(reader);
    ReadAll(reader, m_size);
    Jump(reader);
    reader.SeekTimeOffset(0);
    ReadAll(reader, m_size);
    reader.Close();
    Require(ReadFrame(reader, m_size) < 0);
  }

  // What can be repaired at all needs no more of it, and can be read.
  void ReadRepaired() {
    if (Container::Repair(Path()).outcome == record::FileRepair::Failed) return;
    Require(Container::Repair(Path()).outcome == record::FileRepair::NothingToDo);
    Reader reader;
    Require(reader.Open(Path()) == 1);
    ReadAll(reader, 3 * m_size + 10000);  // with its new index
  }

 private:
  using Reader = typename Container::Reader;

  // Every byte of the frame is looked at.
  static int ReadFrame(CVideoFile& reader, std::size_t fileSize) {
    unsigned char* data = nullptr;
    long owned = 0;
    long video = 0;
    long key = 0;
    unsigned long stamp = 0;
    const int length = reader.GetMediaFrame(&data, owned, video, key, stamp);
    if (length < 0) return length;
    if (Container::kHandover == Handover::kCallers)
      Require(length == 0 || (owned == 1 && static_cast<std::size_t>(length) + 8 <= fileSize));
    else
      Require(owned == 0 && (key == 0 || video == 1));
    unsigned sum = 0;
    for (int at = 0; at < length; ++at) sum += data[at];
    volatile unsigned sink = sum;
    static_cast<void>(sink);
    if (length > 0 && owned == 1) delete[] data;
    return length;
  }

  static void ReadAll(CVideoFile& reader, std::size_t fileSize) {
    const std::size_t most = Container::MostReads(fileSize);
    for (std::size_t reads = 0; !Container::IsEnd(ReadFrame(reader, fileSize)); ++reads) {
      if (reads < most) continue;
      Require(Container::kMayGoOn);
      return;
    }
  }

  static void Ask(Reader& reader) {
    unsigned long flags = 0;
    VIDEO_PARAM video = {};
    AUDIO_PARAM audio = {};
    reader.GetMeidaParam(&flags, &video, &audio);
    Require((flags & RECORD_STREAM_VIDEO) == 0 ||
            (video.config_length <= sizeof video.config && video.codec[31] == '\0'));
    Require((flags & RECORD_STREAM_AUDIO) == 0 || audio.codec[31] == '\0');
    Require(reader.GetVideoFrameCount() >= 0 && reader.GetAudioFrameCount() >= 0);
    reader.GetVideoFramerate();
    reader.GetVideoFrameInterval();
    reader.GetKeyFrameTimeInterval();
    reader.GetTimeOffset();
    Container::Check(reader);
  }

  void Jump(Reader& reader) const {
    const auto read = [&](int sought) {
      if (sought == 0) ReadFrame(reader, m_size);
    };
    const auto duration = static_cast<unsigned long>(reader.GetTimeDuration());
    for (const unsigned long second : {0ul, 1ul, 2ul, duration / 2, duration - 1, duration, 1799ul, 1800ul}) {
      read(reader.SeekTimeOffset(second));
      read(reader.MovePrevKeyFrame());
      read(reader.MoveNextKeyFrame());
    }
    for (const unsigned long percent : {0ul, 50ul, 100ul, 101ul}) read(reader.SeekTimeByPercent(percent));
    for (int moves = 0; moves < Container::kMoves && reader.MoveNextKeyFrame() == 0; ++moves) {
    }
  }

  MemoryFile m_file;
  const std::size_t m_size;
};

}  // namespace fuzz

#endif
