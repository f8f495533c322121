// recordctl snapshot, record with upload targets, uploads: against real servers.
#include <gmock/gmock.h>

#include <csignal>
#include <thread>

#include "tests/ctl/ctl_run.h"
#include "tests/host/support/servers.h"

namespace fs = std::filesystem;
using record::UploadServer;
using testing::HasSubstr;

namespace ctl {
namespace {

class UploadCtlTest : public CtlTest {
 protected:
  void SetUp() override {
    CtlTest::SetUp();
    setenv("RECORD_FTP_PASSWORD", record::kServerPassword, 1);
    setenv("RECORD_SMTP_PASSWORD", record::kServerPassword, 1);
    for (const char* each : {"ftp", "mail"}) fs::create_directories(m_directory / each);
  }
  void TearDown() override {
    unsetenv("RECORD_FTP_PASSWORD");
    unsetenv("RECORD_SMTP_PASSWORD");
    CtlTest::TearDown();
  }

  static std::string Url(const char* scheme, const UploadServer& server) {
    return std::string(scheme) + "://cam@127.0.0.1:" + std::to_string(server.Port());
  }
};

struct UploadCase {
  const char* container;
  const char* remote;  // how the name at the server ends
};

// Every container's last file arrives although it was ended by a stop, under the writer's own name.
TEST_F(UploadCtlTest, RecordsOfEveryContainerArriveByFtpAndMail) {
  constexpr UploadCase kCases[] = {
      {"kmv", "-av-1-motion.avi"}, {"avi", "-av-1-motion.avi"}, {"mp4", "-av-1-motion.mp4"}};
  UploadServer ftp("ftp", m_directory / "ftp");
  UploadServer mail("mail", m_directory / "mail");
  ASSERT_TRUE(ftp.Start() && mail.Start());
  int mails = 0;
  for (const UploadCase& each : kCases) {
    SCOPED_TRACE(each.container);
    const std::string root = (m_directory / each.container).string();
    const Result recorded = Process(m_directory, {RECORDCTL, "--root", root, "record", "--input", CAMERA_CLIP,
                                                  "--container", each.container, "--kind", "motion", "--duration",
                                                  "1", "--ftp", Url("ftp", ftp) + "/" + each.container, "--email",
                                                  "guard@example.org", "--smtp", Url("smtp-plain", mail)})
                                .Wait();
    ASSERT_EQ(recorded.code, 0) << recorded.err;
    EXPECT_THAT(recorded.err, HasSubstr("is uploaded: ftp 127.0.0.1:" + std::string(each.container) + "/"));
    const auto local = FilesBelow(fs::path(root) / "mnt", std::string(".") + each.container);
    const auto remote = FilesBelow(m_directory / "ftp" / each.container, fs::path(each.remote).extension());
    ASSERT_EQ(local.size(), 1u);
    ASSERT_EQ(remote.size(), 1u);
    EXPECT_THAT(remote[0].string(), testing::EndsWith(each.remote));
    EXPECT_EQ(remote[0].parent_path().filename(), "motion");
    EXPECT_EQ(ReadFile(remote[0]), ReadFile(local[0]));
    EXPECT_EQ(ReadFile(m_directory / "mail" / (std::to_string(++mails) + ".attachment")), ReadFile(local[0]));
  }
}

TEST_F(UploadCtlTest, WhatWasBrokenOffByAKillIsSentLater) {
  const std::string clip = Clip(2);
  UploadServer slow("ftp", m_directory / "ftp", {"--bytes-per-second", "20000"});
  ASSERT_TRUE(slow.Start());
  {
    Process recorder(m_directory, Ctl({"record", "--input", clip, "--ftp", Url("ftp", slow)}));
    for (int i = 0; i < 2000 && FilesBelow(m_directory / "ftp", ".part").empty(); ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    recorder.Signal(SIGKILL);
    recorder.Wait();
  }
  const int port = slow.Port();
  slow.Kill();
  const std::vector<Json> before = Run({"--json", "uploads"}).Objects();
  ASSERT_EQ(before.size(), 1u);
  EXPECT_EQ(before[0]["state"], "due");
  EXPECT_TRUE(FilesBelow(m_directory / "ftp", ".avi").empty()) << "nothing half under the real name";

  UploadServer server("ftp", m_directory / "ftp", {"--port", std::to_string(port)});
  ASSERT_TRUE(server.Start());
  const Result sent = Run({"uploads", "--send"});
  EXPECT_EQ(sent.code, 0) << sent.err;
  ASSERT_EQ(FilesBelow(m_directory / "ftp", ".avi").size(), 1u);
  EXPECT_EQ(ReadFile(FilesBelow(m_directory / "ftp", ".avi")[0]), ReadFile(Records()[0]));
  EXPECT_TRUE(FilesBelow(m_directory / "ftp", ".part").empty());
  EXPECT_EQ(Run({"--json", "uploads"}).Objects().at(0)["state"], "sent");
  server.Kill();
  const Result again = Run({"uploads", "--send"});
  EXPECT_EQ(again.code, 0) << "nothing waits any more";
}

TEST_F(UploadCtlTest, SnapshotsAreStoredToldAndSent) {
  UploadServer ftp("ftp", m_directory / "ftp");
  ASSERT_TRUE(ftp.Start());
  const Result taken = Run({"--json", "snapshot", "--input", CAMERA_CLIP, "--count", "2", "--every", "0", "--size",
                            "320x180", "--kind", "alarm", "--ftp", Url("ftp", ftp)});
  ASSERT_EQ(taken.code, 0) << taken.err;
  ASSERT_EQ(taken.Objects().size(), 2u);
  for (const Json& picture : taken.Objects()) {
    const fs::path path = picture["path"].get<std::string>();
    EXPECT_EQ(fs::file_size(path), picture["bytes"].get<std::uintmax_t>());
    EXPECT_THAT(path.string(), testing::ContainsRegex("/mnt/mmc0/alarm/[0-9]{8}/[0-9]{8}_[0-9]{6}_[12].jpg$"));
    EXPECT_EQ(
        Shell("ffprobe -v error -show_entries stream=codec_name,width,height -of csv=p=0 " + path.string()).out,
        "mjpeg,320,180\n");
  }
  EXPECT_EQ(FilesBelow(m_directory / "ftp", ".jpg").size(), 2u);

  // One that is gone before it was sent is a failure of those that send.
  ftp.Kill();
  const Result waits = Run({"--json", "snapshot", "--input", CAMERA_CLIP, "--ftp", Url("ftp", ftp)});
  ASSERT_EQ(waits.code, 0) << waits.err;
  fs::remove(waits.Objects().at(0)["path"].get<std::string>());
  const Result sent = Run({"uploads", "--send"});
  EXPECT_EQ(sent.code, 1);
  EXPECT_THAT(sent.err, HasSubstr("is given up"));
}

TEST_F(UploadCtlTest, ASeriesEndsWithItsFile) {
  const Result taken = Run({"snapshot", "--input", Clip(1), "--count", "3", "--every", "5"});
  EXPECT_EQ(taken.code, 1);
  EXPECT_THAT(taken.err, HasSubstr("the source has ended after 1 of 3 pictures"));
}

TEST_F(UploadCtlTest, OptionsThatMakeNoSenseAreRefused) {
  unsetenv("RECORD_FTP_PASSWORD");
  struct {
    Arguments options;
    const char* complaint;
  } const cases[] = {
      {{"--ftp", "ftp://cam:pa55@h/"}, "a password on the command line"},
      {{"--ftp", "http://h/"}, "--ftp needs a URL: ftp://, ftpes:// or ftps://"},
      {{"--ftp", "ftp://cam@h/"}, "set RECORD_FTP_PASSWORD"},
      {{"--ftp", "ftp://h:99999/"}, "there is no server in that URL"},
      {{"--email", "a@b"}, "--email and --smtp need each other"},
      {{"--size", "320"}, "'320' is no size of a picture"},
      {{"--kind", "none"}, "there is no kind 'none'"},
  };
  for (const auto& each : cases) {
    Arguments arguments = {"snapshot", "--input", CAMERA_CLIP};
    arguments.insert(arguments.end(), each.options.begin(), each.options.end());
    const Result refused = Run(arguments);
    EXPECT_EQ(refused.code, 2) << each.complaint;
    EXPECT_THAT(refused.err, HasSubstr(each.complaint));
    EXPECT_EQ(refused.err.find("pa55"), std::string::npos);
  }
}

}  // namespace
}  // namespace ctl
