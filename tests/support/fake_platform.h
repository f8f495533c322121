// The platform under a test's control: what the library asks is recorded, what it gets is set here.
#ifndef TESTS_SUPPORT_FAKE_PLATFORM_H
#define TESTS_SUPPORT_FAKE_PLATFORM_H

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "record/platform.h"
#include "tests/support/fake_clock.h"
#include "tests/support/fake_streams.h"

namespace fake {

struct LogLine {
  int module;
  int level;
  std::string text;  // formatted, with its "[function:line]" prefix
};

class Platform {
 public:
  static Platform& Get();
  void Reset();

  // What was asked: "Name(argument, ...)" in order. Paths stand without the device root.
  std::vector<std::string> Calls();
  std::vector<std::string> CallsTo(const std::string& name);
  std::vector<LogLine> Log();
  int CountLogged(const std::string& part);  // lines that hold `part`
  bool Logged(const std::string& part) { return CountLogged(part) > 0; }
  void ClearRecord();

  void AddCall(std::string call);
  template <typename First, typename... Rest>
  void AddCall(const std::string& name, const First& first, const Rest&... rest) {
    std::ostringstream call;
    call << name << "(" << first;
    ((call << ", " << rest), ...);
    AddCall(call.str() + ")");
  }
  void AddLog(LogLine line);
  // Replaces `records` while threads run.
  void ListRecords(std::vector<std::pair<std::string, std::string>> listed);
  std::vector<std::pair<std::string, std::string>> ListedRecords();

  // Runs with every line, in the thread that logs: something that happens meanwhile. It logs nothing itself.
  void OnLog(std::function<void(const std::string& text)> hook);

  // What the library is told. Set up before threads run.
  std::set<std::string> mounted;        // device paths of mounted roots
  std::map<int, int> freeMB;            // by medium
  std::map<std::string, int> dirSpace;  // the directory-size cache
  std::string serial = "SN0001";
  std::string deviceName = "Cam";
  bool mediaConfigFails = false;
  std::vector<std::pair<std::string, std::string>> records;  // QueryRecordFile: root and name, in this order
  std::atomic<bool> keepLog{true};  // a thread that ends may still log while the next test begins
  bool runCommands = false;         // mysystem really runs the line
  std::atomic<int> queryCount{0};
  std::function<std::string()> picture;  // the next JPEG, "" for none; null: always "JPEG"
  int uploadsTaken = 1;                  // what CanFtpFile and CanEmailFile say

 private:
  std::mutex m_mutex;
  std::vector<std::string> m_calls;
  std::vector<LogLine> m_log;
  std::function<void(const std::string& text)> m_onLog;
};

}  // namespace fake

#endif
