// The pre-record buffer: the newest frames of the main and the sub stream, audio interleaved into both, kept
// by one background thread so that an event recording can begin before its event.
#ifndef RECORD_PRE_RECORD_H
#define RECORD_PRE_RECORD_H

#include "record/platform.h"
#include "record/types.h"

extern "C" {

// Starts the buffer with rings of the given sizes in bytes. 0; -1 when it runs already, or there is no memory.
// Frames are kept once both streams (and audio, when enabled) are there, or 10 s were spent waiting for each.
RECORD_API int PreRecInit(int audioEnable, int mainSize, int subSize);
// Stops the thread and releases the rings; waits for a reader that is inside. 0.
RECORD_API int PreRecRelease(void);
RECORD_API int PreRecGetStatus(void);  // 1 running, 0 not

// Takes the oldest frame of the main (stream 0) or sub ring: its bytes, valid until the next call for that
// ring or PreRecRelease, with length and description; null and length 0 when there is none. One reader a
// ring at a time.
RECORD_API unsigned char* PreRecGetFrame(int stream, int* length, RingFrameInfo* info);
// Drops the frames in front of the first video frame that is at most `seconds` older than the newest. 0.
RECORD_API int PreRecDelExpiredFrame(int stream, int seconds);

}  // extern "C"

#endif
