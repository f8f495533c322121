// Alarms go to whoever subscribed and to a log of one JSON object a line.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <mutex>
#include <string>
#include <vector>

#include "base/log.h"
#include "platform/host/alarms.h"
#include "platform/host/json_text.h"
#include "record/storage.h"
#include "record_host/host.h"

namespace {

struct Subscriber {
  int id;
  HostAlarmCallback callback;
  void* context;
};

struct Alarms {
  // Held while callbacks run, so that an unsubscriber knows when they are through; recursive, because a
  // callback may subscribe and unsubscribe.
  std::recursive_mutex mutex;
  std::vector<Subscriber> subscribers;
  int lastId = 0;
  bool logPathIsSet = false;
  std::string logPath;
  void (*rebootHook)(void*) = nullptr;
  void* rebootContext = nullptr;
};

Alarms& All() {
  static auto* alarms = new Alarms;  // threads may outlive main
  return *alarms;
}

AlarmTime TimeNow() {
  const time_t now = time(nullptr);
  struct tm local = {};
  localtime_r(&now, &local);
  return {local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec};
}

const char* KindName(int kind) {
  static constexpr const char* kNames[] = {"report", "notify", "log", "reboot", "upload"};
  return kNames[kind];
}

std::string JsonLine(const HostAlarm& alarm) {
  char head[192];
  const AlarmTime& time = alarm.time;
  snprintf(
      head, sizeof(head),
      "{\"time\":\"%04d-%02d-%02dT%02d:%02d:%02d\",\"kind\":\"%s\",\"code\":%d,\"arg1\":%d,\"arg2\":%d,\"text\":",
      time.year, time.month, time.day, time.hour, time.minute, time.second, KindName(alarm.kind), alarm.code,
      alarm.arg1, alarm.arg2);
  return head + record::JsonString(alarm.text) + "}\n";
}

std::string LogPath(const Alarms& alarms) {
  if (alarms.logPathIsSet) return alarms.logPath;
  if (GetDeviceRoot()[0] == '\0') return "";
  SafeMakeDir(DevicePath("/tmp").c_str());
  return DevicePath("/tmp/alarms.jsonl");
}

// One write in append mode: lines of several processes do not mix.
void AppendToLog(const std::string& path, const std::string& line) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  const ssize_t written = file >= 0 ? write(file, line.data(), line.size()) : -1;
  if (written != static_cast<ssize_t>(line.size())) RECORD_LOG("cannot write the alarm log %s\n", path.c_str());
  if (file >= 0) close(file);
}

// Goes by id, because callbacks may change the list.
void CallSubscribers(Alarms* alarms, const HostAlarm& alarm) {
  const std::vector<Subscriber> called = alarms->subscribers;
  for (const Subscriber& one : called) {
    for (const Subscriber& still : alarms->subscribers) {
      if (still.id != one.id) continue;
      one.callback(one.context, &alarm);
      break;
    }
  }
}

void Raise(const HostAlarm& alarm) {
  Alarms& alarms = All();
  std::lock_guard<std::recursive_mutex> guard(alarms.mutex);
  const std::string path = LogPath(alarms);
  if (!path.empty()) AppendToLog(path, JsonLine(alarm));
  CallSubscribers(&alarms, alarm);
}

}  // namespace

void record::RaiseAlarm(int kind, int code, int arg1, int arg2, const std::string& text) {
  Raise({kind, TimeNow(), code, arg1, arg2, text.c_str()});
}

int HostAlarmSubscribe(HostAlarmCallback callback, void* context) {
  if (callback == nullptr) return -1;
  Alarms& alarms = All();
  std::lock_guard<std::recursive_mutex> guard(alarms.mutex);
  alarms.subscribers.push_back({++alarms.lastId, callback, context});
  return alarms.lastId;
}

int HostAlarmUnsubscribe(int id) {
  Alarms& alarms = All();
  std::lock_guard<std::recursive_mutex> guard(alarms.mutex);
  for (size_t i = 0; i < alarms.subscribers.size(); ++i) {
    if (alarms.subscribers[i].id != id) continue;
    alarms.subscribers.erase(alarms.subscribers.begin() + static_cast<std::ptrdiff_t>(i));
    return 0;
  }
  return -1;
}

int HostAlarmSetLog(const char* path) {
  if (path == nullptr) return -1;
  Alarms& alarms = All();
  std::lock_guard<std::recursive_mutex> guard(alarms.mutex);
  alarms.logPath = path;
  alarms.logPathIsSet = true;
  return 0;
}

void HostSetRebootHook(void (*hook)(void* context), void* context) {
  Alarms& alarms = All();
  std::lock_guard<std::recursive_mutex> guard(alarms.mutex);
  alarms.rebootHook = hook;
  alarms.rebootContext = context;
}

int AuxMsgReportAlarm(const AlarmTime* time, int code, int arg1, int arg2, const char* text) {
  Raise({HOST_ALARM_REPORT, time != nullptr ? *time : TimeNow(), code, arg1, arg2, text != nullptr ? text : ""});
  return 0;
}

int MsgNotifyAlarm(int code, int arg1, int arg2, const char* text) {
  Raise({HOST_ALARM_NOTIFY, TimeNow(), code, arg1, arg2, text != nullptr ? text : ""});
  return 0;
}

int add_by_multiparams(unsigned int channel, int type) {
  Raise({HOST_ALARM_LOG, TimeNow(), type, static_cast<int>(channel), 0, ""});
  return 0;
}

void MsgSystemReboot(void) {
  RECORD_LOG_MODULE_TEXT(record::kLogModuleLifecycle, "restart asked for; a host goes on\n");
  Raise({HOST_ALARM_REBOOT, TimeNow(), 0, 0, 0, ""});
  Alarms& alarms = All();
  std::lock_guard<std::recursive_mutex> guard(alarms.mutex);
  if (alarms.rebootHook != nullptr) alarms.rebootHook(alarms.rebootContext);
}
