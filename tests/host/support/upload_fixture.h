// What the tests of uploads share: a device with a queue, its servers, and what is told of them.
#ifndef TESTS_HOST_SUPPORT_UPLOAD_FIXTURE_H
#define TESTS_HOST_SUPPORT_UPLOAD_FIXTURE_H

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/host/upload/upload_worker.h"
#include "record/storage.h"
#include "record_host/host.h"
#include "tests/host/support/clips.h"
#include "tests/host/support/servers.h"

namespace record {

namespace fs = std::filesystem;

// The uploads' alarms, as they come.
class Outcomes {
 public:
  Outcomes() : m_id(HostAlarmSubscribe(Hear, this)) {}
  ~Outcomes() { HostAlarmUnsubscribe(m_id); }
  Outcomes(const Outcomes&) = delete;
  Outcomes& operator=(const Outcomes&) = delete;

  // The text of the next one that was not looked at yet; it has to come and be `code`, those of `passed` do not
  // count.
  std::string Next(int code, int passed = 0) {
    const auto isNext = [this, passed] {
      while (m_seen < m_heard.size() && m_heard[m_seen].first == passed) ++m_seen;
      return m_seen < m_heard.size();
    };
    std::unique_lock<std::mutex> lock(m_mutex);
    if (!m_changed.wait_for(lock, std::chrono::seconds(20), isNext)) {
      ADD_FAILURE() << "nothing comes behind: " << (m_heard.empty() ? "nothing" : m_heard.back().second);
      return "";
    }
    const auto& [heard, text] = m_heard[m_seen++];
    EXPECT_EQ(heard, code) << text;
    return text;
  }
  // Passes over what is tried again.
  std::string NextEnd(int code) { return Next(code, HOST_UPLOAD_RETRY); }
  // How many there were that nobody looked at.
  size_t PassOver() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const size_t seen = m_seen;
    m_seen = m_heard.size();
    return m_seen - seen;
  }

 private:
  static void Hear(void* context, const HostAlarm* alarm) {
    auto* self = static_cast<Outcomes*>(context);
    if (alarm->kind != HOST_ALARM_UPLOAD) return;
    const std::lock_guard<std::mutex> lock(self->m_mutex);
    self->m_heard.emplace_back(alarm->code, alarm->text);
    self->m_changed.notify_all();
  }

  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::vector<std::pair<int, std::string>> m_heard;
  size_t m_seen = 0;
  int m_id;
};

template <size_t kSize>
void Set(char (&field)[kSize], const std::string& text) {
  ASSERT_LT(text.size(), kSize);
  std::memcpy(field, text.c_str(), text.size() + 1);
}

class UploadTest : public testing::Test {
 protected:
  UploadTest() {
    SetDeviceRoot(m_directory.Path().c_str());
    WriteFile(m_directory.Path() + "/password", std::string(kServerPassword) + "\n");
    fs::create_directories(Remote());
    Configure();
  }
  ~UploadTest() override {
    HostUploadStop();
    ExpectNoPasswordAnywhere();
    const HostUploadOptions usual = {};
    HostUploadConfigure(&usual);
    SetDeviceRoot("");
  }

  void Configure(const std::string& caFile = "", int limit = 0, int firstRetryMs = 20) {
    HostUploadOptions options = {};
    options.caFile = caFile.empty() ? nullptr : caFile.c_str();
    options.limit = limit;
    options.firstRetryMs = firstRetryMs;
    options.lastRetryMs = std::max(200, firstRetryMs);
    options.silenceTimeoutMs = 30000;
    HostUploadStop();
    ASSERT_EQ(0, HostUploadConfigure(&options));
  }

  fs::path Remote() const { return m_directory.Path() + "/remote"; }
  std::string Local() const { return m_directory.Path() + "/mnt"; }
  std::string Password() const { return "file:" + m_directory.Path() + "/password"; }

  FtpServer Ftp(const UploadServer& server, int flags = 0) const {
    FtpServer ftp = {};
    Set(ftp.host, "127.0.0.1");
    Set(ftp.user, flags == 0 ? kServerUser : "anonymous");
    Set(ftp.password, Password());
    ftp.port = server.Port();
    ftp.flags = flags;
    return ftp;
  }
  SmtpServerList Mail(const UploadServer& server, int flags = 0) const {
    SmtpServerList mail = {};
    Set(mail.host, "127.0.0.1");
    Set(mail.user, kServerUser);
    Set(mail.password, Password());
    Set(mail.sender, "cam@example.org");
    Set(mail.recipients, "guard@example.org, boss@example.org");
    mail.port = server.Port();
    mail.flags = flags;
    return mail;
  }

  // A record of `content`, put into the queue.
  int Send(FtpServer ftp, const std::string& name, const std::string& content) const {
    WriteFile(Local() + "/" + name, content);
    return FtpOneFile(&ftp, Local().c_str(), name.c_str(), "/10.0.0.5/2024-1-31/alarm", ("up-" + name).c_str());
  }
  fs::path Arrived(const std::string& name) const {
    return Remote() / "10.0.0.5/2024-1-31/alarm" / ("up-" + name);
  }

  static std::vector<std::string> Listed() {
    std::vector<std::string> lines;
    HostUploadList(
        [](void* context, const HostUpload* upload) {
          const fs::path path = upload->path;
          static_cast<std::vector<std::string>*>(context)->push_back(std::to_string(upload->state) + " " +
                                                                     path.filename().string());
        },
        &lines);
    return lines;
  }

  // Not in the queue, not in the log of alarms; and the queue is nobody else's.
  void ExpectNoPasswordAnywhere() const {
    for (const auto& entry : fs::recursive_directory_iterator(m_directory.Path())) {
      const fs::path& path = entry.path();
      if (!entry.is_regular_file() || path.filename() == "password" || entry.file_size() > 1000000) continue;
      EXPECT_EQ(ReadFile(path).find(kServerPassword), std::string::npos) << path;
    }
    struct stat status = {};
    if (stat(DevicePath("/var/lib/librecord/uploads/ftp").c_str(), &status) != 0) return;
    EXPECT_EQ(status.st_mode & 0777, 0700u);
  }

  const TempDir m_directory;
  Outcomes m_outcomes;
};

}  // namespace record

#endif
