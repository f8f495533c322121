// The end of a finished file: its tail, and the index that the tail points at.
#ifndef FORMAT_KMV_KMV_END_H
#define FORMAT_KMV_KMV_END_H

#include "format/file_source.h"
#include "format/kmv/kmv_format.h"

namespace record {

struct KmvEnd {
  KmvVideoFileTail tail;
  KmvVideoIndex index;
};

// How much of it is there. Only a whole one is used; a file with less is read like one that was cut off.
enum class KmvEndState {
  Missing,  // no tail at the end of the file
  NoIndex,  // a tail, but no index where it says
  Whole,
};

// Reads the end of a file of that size. `end` holds the tail unless Missing, the index only when Whole.
KmvEndState KmvReadEnd(const FileSource& source, long long fileSize, KmvEnd& end);

}  // namespace record

#endif
