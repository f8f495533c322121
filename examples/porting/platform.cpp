// The skeleton of a platform: everything that librecord imports but the stream service, which is in encoder.cpp.
//
// Locks, clocks, directories and free space are real, and all that recording without a pre-record buffer needs.
// What only a device can answer is marked "the device's": it refuses or does nothing here. The MP4 names are
// left out: this version of the library does not import them.
#include "record/platform.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <thread>

#include "record/storage.h"

// ---------------------------------------------------------------------------------------------- mutex

namespace {

struct MutexState {
  std::mutex mutex;
  std::atomic<std::thread::id> owner{};  // written by the holder only
  std::atomic<unsigned> line{0};
  std::atomic<unsigned> lockedAt{0};
};

MutexState& State(void* impl) {
  return *static_cast<MutexState*>(impl);
}

}  // namespace

CMutex::CMutex() : m_impl(new MutexState) {}

CMutex::~CMutex() {
  delete static_cast<MutexState*>(m_impl);
}

int CMutex::Lock(unsigned int line) {
  MutexState& state = State(m_impl);
  state.mutex.lock();
  state.lockedAt = GetCurrentTimeStamp();
  state.line = line;
  state.owner = std::this_thread::get_id();
  return 0;
}

int CMutex::Unlock() {
  MutexState& state = State(m_impl);
  if (state.owner.load() != std::this_thread::get_id()) return -1;
  state.owner = std::thread::id();
  state.line = 0;
  state.mutex.unlock();
  return 0;
}

int CMutex::UnLock() {
  return Unlock();
}

int CMutex::IsLockedExeedtime(unsigned int milliseconds) {
  return GetLockedTime() > milliseconds ? 1 : 0;
}

unsigned int CMutex::GetLockedLine() {
  return State(m_impl).line;
}

unsigned int CMutex::GetLockedTime() {
  MutexState& state = State(m_impl);
  if (state.owner.load() == std::thread::id()) return 0;
  const unsigned since = state.lockedAt;  // read before the present time, or the difference could be negative
  return GetCurrentTimeStamp() - since;
}

// -------------------------------------------------------------------------------------------- logging

void DebugPrint(int module, int level, const char* format, ...) {
  static const bool wanted = std::getenv("SMOKE_LOG") != nullptr;
  if (!wanted) return;
  char text[1024];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  std::fprintf(stderr, "%d/%d %s", module, level, text);
}

// --------------------------------------------------------------------------------------------- clocks

unsigned long long GetCurrentTimeStamp_u64(void) {
  struct timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<unsigned long long>(now.tv_sec) * 1000u + static_cast<unsigned>(now.tv_nsec / 1000000);
}

unsigned int GetCurrentTimeStamp(void) {
  return static_cast<unsigned int>(GetCurrentTimeStamp_u64());
}

void SystemGetTimeofRun(unsigned int* seconds, unsigned int* microseconds) {
  struct timespec now = {};
  clock_gettime(CLOCK_BOOTTIME, &now);
  *seconds = static_cast<unsigned int>(now.tv_sec);
  *microseconds = static_cast<unsigned int>(now.tv_nsec / 1000);
}

long long timeval_differ(unsigned int endSeconds, unsigned int endMicroseconds, unsigned int startSeconds,
                         unsigned int startMicroseconds) {
  const long long seconds = static_cast<long long>(endSeconds) - static_cast<long long>(startSeconds);
  const long long rest = static_cast<long long>(endMicroseconds) - static_cast<long long>(startMicroseconds);
  return (seconds * 1000000 + rest) / 1000;
}

long long zq_mktime(int year, int month, int day, int hour, int minute, int second, int) {
  struct tm local = {};
  local.tm_year = year - 1900;
  local.tm_mon = month - 1;
  local.tm_mday = day;
  local.tm_hour = hour;
  local.tm_min = minute;
  local.tm_sec = second;
  local.tm_isdst = -1;
  return mktime(&local);
}

// -------------------------------------------------------------------------------------------- storage

namespace {

bool AskMedium(int medium, struct statvfs& space) {
  constexpr const char* kRoots[] = {"/mnt/mmc0", "/mnt/mmc1", "/mnt/usb", "/tmp/network"};
  return medium >= 0 && medium < 4 && statvfs(DevicePath(kRoots[medium]).c_str(), &space) == 0;
}

}  // namespace

int FileExist(const char* path) {
  struct stat status;
  return stat(path, &status) == 0 ? 1 : 0;
}

// The device's: ask the list of mounts. Here a directory that exists stands for a medium.
int DRIVER_isDeviceMounted(const char* root) {
  return FileExist(root);
}

int GetStorageFreeSpace(int medium) {
  struct statvfs space;
  if (!AskMedium(medium, space)) return -1;
  const unsigned long long bytes = static_cast<unsigned long long>(space.f_bavail) * space.f_frsize;
  const unsigned long long megabytes = bytes >> 20;
  return megabytes < 0x7fffffff ? static_cast<int>(megabytes) : 0x7fffffff;
}

double GetStorageUsedPercentage(int medium) {
  struct statvfs space;
  if (!AskMedium(medium, space) || space.f_blocks == 0) return 100;
  return 100.0 - 100.0 * static_cast<double>(space.f_bavail) / static_cast<double>(space.f_blocks);
}

int SafeMakeDir(const char* path) {
  return mkdir(path, 0755) == 0 || errno == EEXIST ? 0 : -1;
}

int LoadDirSpaceFromCache(const char*) {
  return 0;  // nothing remembered: the library counts anew
}

int SaveDirSpaceToCache(const char*, int) {
  return 0;
}

// The device's: without it every day looks empty.
REPLAY_QUERY_RESULT* QueryRecordFile(const REPLAY_QUERY_CONDITION*) {
  return nullptr;
}

// ----------------------------------------------------------------------------- identity, alarms, shell

int MsgGetMediaConfig(MediaConfig*) {
  return -1;  // the device's; only log lines and the text of mails miss the name
}

int GetSN(char* serial, int size) {
  std::snprintf(serial, static_cast<size_t>(size), "%s", "SKELETON");
  return 0;
}

int AuxMsgReportAlarm(const AlarmTime*, int code, int, int, const char* text) {
  std::fprintf(stderr, "alarm %d: %s\n", code, text);
  return 0;
}

int MsgNotifyAlarm(int code, int, int, const char* text) {
  std::fprintf(stderr, "notice %d: %s\n", code, text);
  return 0;
}

void MsgSystemReboot(void) {
  std::fprintf(stderr, "the encoder is dead\n");
}

int add_by_multiparams(unsigned int, int) {
  return 0;
}

int mysystem(const char* command) {
  return std::system(command) == 0 ? 0 : -1;  // NOLINT(cert-env33-c): running shell lines is its task
}

int mysystem_with_param(const char* format, ...) {
  char command[2048];
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(command, sizeof command, format, arguments);
  va_end(arguments);
  return length >= 0 && length < static_cast<int>(sizeof command) ? mysystem(command) : -1;
}

// ------------------------------------------------------------------ the device's: pre-record, pictures, uploads

void* OsalRingInit(int, int) {
  return nullptr;  // PreRecInit then fails; recording without pre-record goes on
}

int OsalRingWrite(void*, const RingFrameInfo*, const unsigned char*, int) {
  return -1;
}

unsigned char* OsalRingRead(void*, int* length, RingFrameInfo*) {
  *length = 0;
  return nullptr;
}

int OsalRingGetFrameInfo(void*, RingFrameInfo*) {
  return -1;
}

void OsalRingRelease(void*) {}

int TakeJpegPicture(int, int, int, int, JpegPicture*) {
  return -1;  // the device's: a series of pictures then tells that it has none
}

int CanFtpFile(FtpServer*) {
  return 0;
}

int CanEmailFile(SmtpServerList*) {
  return 0;
}

int FtpOneFile(FtpServer*, const char*, const char*, const char*, const char*) {
  return -1;
}

int EmailOneFile(SmtpServerList*, int, const char*, const char*, const char*) {
  return -1;
}

// --------------------------------------------------------------------------- the device's: MP4 files

// Null: tasks that record MP4 end without a file, MP4 files do not open. KMV and AVI need none of it.
void* Emp4MuxerOpen(const char*, const Emp4VideoParams*, const Emp4AudioParams*, const Emp4ExtraParams*) {
  return nullptr;
}

int Emp4MuxerWriteVideoNALU(void*, int, const unsigned char*, int, unsigned int) {
  return -1;
}

int Emp4MuxerWriteAudio(void*, const unsigned char*, int, unsigned int) {
  return -1;
}

int Emp4MuxerCommit(void*) {
  return -1;
}

void Emp4MuxerClose(void*) {}

void* Emp4DemuxerOpen(const char*, Emp4VideoParams*, Emp4AudioParams*, Emp4ExtraParams*) {
  return nullptr;
}

int Emp4DemuxerReadFrame(void*, unsigned char**, int*, int*, unsigned int*) {
  return -1;
}

int Emp4DemuxerSeek(void*, unsigned int) {
  return -1;
}

int Emp4DemuxerSeekByPercent(void*, unsigned int) {
  return -1;
}

int Emp4DemuxerSeekToNextKey(void*) {
  return -1;
}

void Emp4DemuxerClose(void*) {}
