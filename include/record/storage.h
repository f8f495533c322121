// Where recordings live: the device root, the choice of a medium, the directories of the storage tree.
#ifndef RECORD_STORAGE_H
#define RECORD_STORAGE_H

#include <ctime>
#include <string>

#include "record/types.h"

// Puts every fixed device path (/mnt/mmc0, /tmp, /opt/zq ...) below `directory`; "" (the default) restores
// the device's own paths. Call it before anything else of the library. Returns 0, or -1 when the path is
// longer than 160 bytes (nothing is changed then).
RECORD_API int SetDeviceRoot(const char* directory);
// The directory set above, without a trailing slash; "" by default.
RECORD_API const char* GetDeviceRoot();
// A device path ("/mnt/mmc0/schedule") as it is found on this machine. Without memory for it std::bad_alloc, since
// another path would be a wrong one.
RECORD_API std::string DevicePath(const std::string& path);

// While record files are open, one background thread syncs them to the medium every `milliseconds`
// (default 1000), so that a power cut costs at most about that much. 0 switches it off: files are then
// synced only when they end. Takes effect within the interval in force.
RECORD_API void SetRecordSyncInterval(int milliseconds);

// The first medium (0 first card, 1 second card, 2 USB) that is mounted and has strictly more than `needMB`
// megabytes free; -1 when there is none. `config` is not read.
RECORD_API int GetStorageMediaIndex(const RecordConfig* config, int needMB);

// The directory for a new file of `recordtype` as of now, created on the way. The result is a heap array of
// 512 bytes that the caller releases with delete[]; null when recording there is switched off or no medium
// qualifies. The network share and RAM are not asked for their free space.
RECORD_API char* GetStoragePath(const RecordConfig* config, int recordtype, int needMB);
RECORD_API char* GetNetworkStoragePath(const RecordConfig* config, int recordtype, int needMB);
// The RAM directory; for the motion and alarm kinds only, null for others.
RECORD_API char* GetTmpFsPath(const RecordConfig* config, int recordtype, int needMB);
// The directory for time-lapse material, the network share preferred; "" when there is none.
RECORD_API std::string GetCreateTimelapsePath(const RecordConfig* config, int needMB);

// Size of the files directly in `directory` in KiB, each one rounded down; remembered by the platform's cache.
RECORD_API int GetDirSpace(const char* directory);

// Local time of `milliseconds` since 1970, in the C library's static buffer; and its millisecond part.
RECORD_API struct tm* TimeStampGetTm(double milliseconds);
RECORD_API int TimeStampGetMis(double milliseconds);

#endif
