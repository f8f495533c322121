// The 304-byte side file of a record file.
#ifndef STORAGE_RECORD_INFO_H
#define STORAGE_RECORD_INFO_H

#include <string>

#include "record/types.h"

namespace record {

// Span of the record in milliseconds; negative when the end stands before the start.
long long RecordInfoSpanMs(const RecordInfoStruct& info);
// The span rounded to the nearest second: what nTimeSeconds holds. 0 when the end stands before the start.
std::uint32_t RecordInfoSeconds(const RecordInfoStruct& info);

// Bytes read, at most sizeof(RecordInfoStruct); -1 when the file cannot be opened.
int ReadRecordInfo(const std::string& path, RecordInfoStruct& info);
// The same with a path below an open directory.
int ReadRecordInfoAt(int directory, const char* path, RecordInfoStruct& info);

// Writes the file whole, over what stands there: it is never shorter than complete in between, so a power cut
// leaves the old record or the new one. Returns the bytes written, fewer when that failed; -1 when it cannot be
// opened.
int WriteRecordInfo(const std::string& path, const RecordInfoStruct& info);

}  // namespace record

#endif
