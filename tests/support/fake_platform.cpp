#include "tests/support/fake_platform.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "base/clock.h"
#include "record/storage.h"

namespace fake {

Platform& Platform::Get() {
  static Platform* platform = new Platform;
  return *platform;
}

void Platform::Reset() {
  ClearRecord();
  OnLog(nullptr);
  mounted.clear();
  freeMB.clear();
  dirSpace.clear();
  serial = "SN0001";
  deviceName = "Cam";
  mediaConfigFails = false;
  records.clear();
  keepLog = true;
  runCommands = false;
  queryCount = 0;
  picture = nullptr;
  uploadsTaken = 1;
}

void Platform::ClearRecord() {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_calls.clear();
  m_log.clear();
}

std::vector<std::string> Platform::Calls() {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_calls;
}

std::vector<std::string> Platform::CallsTo(const std::string& name) {
  std::vector<std::string> found;
  for (const std::string& call : Calls()) {
    if (call.compare(0, name.size() + 1, name + "(") == 0) found.push_back(call);
  }
  return found;
}

std::vector<LogLine> Platform::Log() {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_log;
}

int Platform::CountLogged(const std::string& part) {
  int count = 0;
  for (const LogLine& line : Log()) count += line.text.find(part) != std::string::npos ? 1 : 0;
  return count;
}

void Platform::AddCall(std::string call) {
  const std::string root = GetDeviceRoot();
  for (size_t at; !root.empty() && (at = call.find(root)) != std::string::npos;) call.erase(at, root.size());
  std::lock_guard<std::mutex> lock(m_mutex);
  m_calls.push_back(std::move(call));
}

void Platform::AddLog(LogLine line) {
  std::lock_guard<std::mutex> lock(m_mutex);
  if (m_onLog) m_onLog(line.text);
  if (keepLog) m_log.push_back(std::move(line));
}

void Platform::ListRecords(std::vector<std::pair<std::string, std::string>> listed) {
  std::lock_guard<std::mutex> lock(m_mutex);
  records = std::move(listed);
}

std::vector<std::pair<std::string, std::string>> Platform::ListedRecords() {
  std::lock_guard<std::mutex> lock(m_mutex);
  return records;
}

void Platform::OnLog(std::function<void(const std::string& text)> hook) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_onLog = std::move(hook);
}

namespace {

std::string DeviceSide(const char* path) {
  const std::string root = GetDeviceRoot();
  return std::strncmp(path, root.c_str(), root.size()) == 0 ? path + root.size() : path;
}

int RunCommand(const std::string& command) {
  Platform& platform = Platform::Get();
  platform.AddCall("mysystem", command);
  return platform.runCommands ? std::system(command.c_str()) : 0;
}

}  // namespace
}  // namespace fake

using fake::Platform;

void DebugPrint(int module, int level, const char* format, ...) {
  if (!Platform::Get().keepLog) return;
  char text[4096];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  Platform::Get().AddLog({module, level, text});
}

int GetStreamData(int command, int stream, std::uintptr_t readerId, void* arg) {
  if (command == STREAM_REGISTER || command == STREAM_UNREGISTER)
    Platform::Get().AddCall("GetStreamData", command, stream);
  return fake::Streams::Get().Call(command, stream, readerId, arg);
}

int SetForceIdr(int stream) {
  Platform::Get().AddCall("SetForceIdr", stream);
  return fake::Streams::Get().ForceKey(stream);
}

int MsgGetMediaConfig(MediaConfig* config) {
  if (Platform::Get().mediaConfigFails) return -1;
  std::memset(config, 0, sizeof *config);
  Platform::Get().deviceName.copy(config->deviceName, sizeof config->deviceName);
  return 0;
}

int GetSN(char* serial, int size) {
  std::snprintf(serial, static_cast<size_t>(size), "%s", Platform::Get().serial.c_str());
  return 0;
}

int DRIVER_isDeviceMounted(const char* root) {
  return Platform::Get().mounted.count(fake::DeviceSide(root)) != 0 ? 1 : 0;
}

int GetStorageFreeSpace(int medium) {
  const auto& freeMB = Platform::Get().freeMB;
  const auto found = freeMB.find(medium);
  return found != freeMB.end() ? found->second : 0;
}

double GetStorageUsedPercentage(int) {
  return 25;
}

int SafeMakeDir(const char* path) {
  Platform::Get().AddCall("SafeMakeDir", path);
  return mkdir(path, 0755) == 0 || errno == EEXIST ? 0 : -1;
}

int FileExist(const char* path) {
  return access(path, F_OK) == 0 ? 1 : 0;
}

int LoadDirSpaceFromCache(const char* directory) {
  const auto& cache = Platform::Get().dirSpace;
  const auto found = cache.find(fake::DeviceSide(directory));
  return found != cache.end() ? found->second : 0;
}

int SaveDirSpaceToCache(const char* directory, int kib) {
  Platform::Get().dirSpace[fake::DeviceSide(directory)] = kib;
  return 0;
}

REPLAY_QUERY_RESULT* QueryRecordFile(const REPLAY_QUERY_CONDITION*) {
  static thread_local std::unique_ptr<REPLAY_QUERY_RESULT[]> t_result;
  Platform& platform = Platform::Get();
  ++platform.queryCount;
  const auto records = platform.ListedRecords();
  if (records.empty()) return nullptr;
  t_result = std::make_unique<REPLAY_QUERY_RESULT[]>(records.size());
  for (size_t i = 0; i < records.size(); ++i) {
    std::strncpy(t_result[i].szRootPath, records[i].first.c_str(), sizeof t_result[i].szRootPath);
    std::strncpy(t_result[i].szFileName, records[i].second.c_str(), sizeof t_result[i].szFileName);
    t_result[i].next = i + 1 < records.size() ? &t_result[i + 1] : nullptr;
  }
  return t_result.get();
}

unsigned int GetCurrentTimeStamp() {
  return static_cast<unsigned int>(GetCurrentTimeStamp_u64());
}

unsigned long long GetCurrentTimeStamp_u64() {
  return static_cast<unsigned long long>(fake::Clock::Get().RunUs() / 1000);
}

void SystemGetTimeofRun(unsigned int* seconds, unsigned int* microseconds) {
  const long long us = fake::Clock::Get().RunUs();
  *seconds = static_cast<unsigned int>(us / 1000000);
  *microseconds = static_cast<unsigned int>(us % 1000000);
}

long long timeval_differ(unsigned int endSeconds, unsigned int endMicroseconds, unsigned int startSeconds,
                         unsigned int startMicroseconds) {
  return ((static_cast<long long>(endSeconds) - static_cast<long long>(startSeconds)) * 1000000 +
          (static_cast<long long>(endMicroseconds) - static_cast<long long>(startMicroseconds))) /
         1000;
}

long long zq_mktime(int year, int month, int day, int hour, int minute, int second, int zone) {
  Platform::Get().AddCall("zq_mktime(" + std::to_string(hour) + ":" + std::to_string(minute) + ":" +
                          std::to_string(second) + ", " + std::to_string(zone) + ")");
  struct tm local = record::CalendarTime(year, month, day, hour, minute, second);
  return static_cast<long long>(mktime(&local));
}

int AuxMsgReportAlarm(const AlarmTime* time, int code, int arg1, int arg2, const char* text) {
  char moment[64];
  std::snprintf(moment, sizeof moment, "%04d-%02d-%02d %02d:%02d:%02d", time->year, time->month, time->day,
                time->hour, time->minute, time->second);
  Platform::Get().AddCall("AuxMsgReportAlarm", moment, code, arg1, arg2, text);
  return 0;
}

int MsgNotifyAlarm(int code, int arg1, int arg2, const char* text) {
  Platform::Get().AddCall("MsgNotifyAlarm", code, arg1, arg2, text);
  return 0;
}

void MsgSystemReboot() {
  Platform::Get().AddCall("MsgSystemReboot()");
}

int add_by_multiparams(unsigned int channel, int type) {
  Platform::Get().AddCall("add_by_multiparams", channel, type);
  return 0;
}

int TakeJpegPicture(int stream, int width, int height, int quality, JpegPicture* picture) {
  static thread_local std::string t_bytes;
  Platform& platform = Platform::Get();
  platform.AddCall("TakeJpegPicture", stream, width, height, quality);
  t_bytes = platform.picture ? platform.picture() : "JPEG";
  *picture = {reinterpret_cast<const unsigned char*>(t_bytes.data()), static_cast<int>(t_bytes.size())};
  return t_bytes.empty() ? -1 : 0;
}

int CanFtpFile(FtpServer*) {
  return Platform::Get().uploadsTaken;
}

int CanEmailFile(SmtpServerList*) {
  return Platform::Get().uploadsTaken;
}

int FtpOneFile(FtpServer*, const char* directory, const char* name, const char* remoteDirectory,
               const char* remoteName) {
  Platform::Get().AddCall("FtpOneFile", directory, name, remoteDirectory, remoteName);
  return 0;
}

int EmailOneFile(SmtpServerList*, int flags, const char* directory, const char* name, const char*) {
  Platform::Get().AddCall("EmailOneFile", flags, directory, name);
  return 0;
}

int mysystem(const char* command) {
  return fake::RunCommand(command);
}

int mysystem_with_param(const char* format, ...) {
  char command[2048];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(command, sizeof command, format, arguments);
  va_end(arguments);
  return fake::RunCommand(command);
}
