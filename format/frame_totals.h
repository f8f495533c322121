// What the frames of a record file come to, counted one by one, whatever the file's end says of them.
#ifndef FORMAT_FRAME_TOTALS_H
#define FORMAT_FRAME_TOTALS_H

#include <cstdint>
#include <string>
#include <vector>

namespace record {

struct FrameTotals {
  long long videoFrames = 0;
  long long audioFrames = 0;
  long long keyFrames = 0;
  long long videoBytes = 0;  // as the side file counts them
  long long audioBytes = 0;
  bool hasStamps = true;         // whether frames carry time stamps
  std::uint32_t firstStamp = 0;  // of the first frame that has one
  std::uint32_t duration = 0;    // milliseconds from there to the last frame; by the frame rate without stamps
};

// A file that was looked into. Containers add what is their own.
struct FileReport {
  std::string error;  // why the file could not be looked into, in one line; then nothing below counts

  long long fileSize = 0;
  long long dataEnd = 0;    // behind the last whole frame
  long long tornBytes = 0;  // of the frame that was being written when recording stopped

  std::vector<std::string> inconsistencies;  // each of them one line of text
};

struct FileRepair {
  enum Outcome { Failed, NothingToDo, Done };
  Outcome outcome = Failed;
  std::string error;       // when Failed, one line
  long long packets = 0;   // whole frames that the new index was made from
  long long dataEnd = 0;   // where they end
  long long cutBytes = 0;  // behind them, given up
  long long fileSize = 0;  // of the file with its new end
};

}  // namespace record

#endif
