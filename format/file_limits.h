// How long a record file may become.
#ifndef FORMAT_FILE_LIMITS_H
#define FORMAT_FILE_LIMITS_H

namespace record {

// Offsets and sizes within a file are 32-bit, and FAT ends there too.
constexpr long long kLongestRecordFile = 0xffffffffLL;

// A file is ended while this much is still free below its longest size, so that the frame which is due and the
// file's end always find room.
constexpr long long kRoomForOneMoreFrame = 32LL << 20;

// `finishedSize`: what the file would come to, were it ended now.
constexpr bool IsNearlyFull(long long finishedSize) {
  return finishedSize + kRoomForOneMoreFrame > kLongestRecordFile;
}

}  // namespace record

#endif
