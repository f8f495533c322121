// Uploads to real servers: what arrives, and what becomes of everything that can go wrong on the way.
#include <gmock/gmock.h>
#include <sys/mount.h>

#include <fstream>
#include <thread>

#include "tests/host/support/upload_fixture.h"

namespace record {
namespace {

using testing::HasSubstr;

struct Channel {
  const char* name;
  const char* tls;  // the server's; "" for none
  int flags;
};

class ChannelTest : public UploadTest, public testing::WithParamInterface<Channel> {
 protected:
  std::vector<std::string> ServerOptions() const {
    if (GetParam().tls[0] == '\0') return {};
    return {"--tls", GetParam().tls, "--cert", ServerCertificate()};
  }
  // With TLS: not before its certificate is trusted, or the exception is named.
  template <typename SendOne>
  void ExpectVerified(const SendOne& send) {
    if (GetParam().tls[0] == '\0') return;
    EXPECT_EQ(0, send(GetParam().flags));
    EXPECT_THAT(m_outcomes.Next(HOST_UPLOAD_RETRY), HasSubstr("the certificate of 127.0.0.1 is not trusted"));
    HostUploadStop();
    fs::remove_all(DevicePath("/var"));
    EXPECT_EQ(0, send(GetParam().flags | UPLOAD_UNVERIFIED));
    EXPECT_THAT(m_outcomes.NextEnd(HOST_UPLOAD_DONE), HasSubstr("is uploaded"));
    Configure(ServerCertificate());
  }
};

TEST_P(ChannelTest, FtpMakesDirectoriesAndShowsWholeFilesOnly) {
  UploadServer server("ftp", Remote(), ServerOptions());
  ASSERT_TRUE(server.Start());
  ExpectVerified([&](int flags) { return Send(Ftp(server, flags), "first.kmv", "first"); });
  const std::string content(300000, 'x');
  ASSERT_EQ(0, Send(Ftp(server, GetParam().flags), "a b#%.kmv", content));
  EXPECT_EQ(m_outcomes.NextEnd(HOST_UPLOAD_DONE),
            "a b#%.kmv is uploaded: ftp 127.0.0.1:10.0.0.5/2024-1-31/alarm/up-a b#%.kmv");
  EXPECT_EQ(ReadFile(Arrived("a b#%.kmv")), content);
  EXPECT_FALSE(fs::exists(Arrived("a b#%.kmv").string() + ".part"));
  EXPECT_EQ(Listed().back(), "2 a b#%.kmv");
}

TEST_P(ChannelTest, MailCarriesTheFileAsItsAttachment) {
  UploadServer server("mail", Remote(), ServerOptions());
  ASSERT_TRUE(server.Start());
  const auto send = [&](int flags) {
    SmtpServerList mail = Mail(server, flags);
    WriteFile(Local() + "/clip.kmv", std::string("\0\r\n.\r\n\xff", 7) + std::string(100000, 'y'));
    return EmailOneFile(&mail, 0, Local().c_str(), "clip.kmv",
                        "[SN1][K\xc3\xbc"
                        "che] alarm\r\nBcc: x@y.z");
  };
  ExpectVerified(send);
  const int number = GetParam().tls[0] == '\0' ? 1 : 2;
  ASSERT_EQ(0, send(GetParam().flags));
  EXPECT_EQ(m_outcomes.NextEnd(HOST_UPLOAD_DONE),
            "clip.kmv is uploaded: guard@example.org, boss@example.org by 127.0.0.1");
  const auto part = [&](const char* ending) { return ReadFile(Remote() / (std::to_string(number) + ending)); };
  EXPECT_EQ(part(".attachment"), ReadFile(Local() + "/clip.kmv"));
  EXPECT_EQ(part(".name"), "clip.kmv");
  EXPECT_EQ(part(".subject"),
            "[SN1][K\xc3\xbc"
            "che] alarm  Bcc: x@y.z, clip.kmv");
  EXPECT_EQ(part(".envelope"), "cam@example.org guard@example.org,boss@example.org");
}

INSTANTIATE_TEST_SUITE_P(Channels, ChannelTest,
                         testing::Values(Channel{"plain", "", 0}, Channel{"explicit", "explicit", UPLOAD_TLS},
                                         Channel{"implicit", "implicit", UPLOAD_TLS_IMPLICIT}),
                         [](const testing::TestParamInfo<Channel>& info) { return std::string(info.param.name); });

TEST_F(UploadTest, AServerThatIsAwayGetsEverythingWhenItIsBackEvenAfterARestart) {
  UploadServer server("ftp", Remote());
  ASSERT_TRUE(server.Start());
  server.Kill();
  ASSERT_EQ(0, Send(Ftp(server), "1.kmv", "one"));
  EXPECT_THAT(m_outcomes.Next(HOST_UPLOAD_RETRY), HasSubstr("nobody answers at 127.0.0.1; tried again in 1 s"));
  ASSERT_EQ(0, Send(Ftp(server), "2.kmv", "two"));
  HostUploadStop();
  EXPECT_EQ(Listed().size(), 2u);
  ASSERT_TRUE(server.Start());
  EXPECT_EQ(0, HostUploadStart());
  EXPECT_THAT(m_outcomes.NextEnd(HOST_UPLOAD_DONE), HasSubstr("1.kmv is uploaded"));
  EXPECT_THAT(m_outcomes.NextEnd(HOST_UPLOAD_DONE), HasSubstr("2.kmv is uploaded"));
  EXPECT_EQ(ReadFile(Arrived("1.kmv")) + ReadFile(Arrived("2.kmv")), "onetwo");
}

TEST_F(UploadTest, AWrongPasswordIsToldAndMayBeMended) {
  UploadServer server("ftp", Remote());
  UploadServer post("mail", Remote());
  ASSERT_TRUE(server.Start() && post.Start());
  for (const bool isMail : {false, true}) {
    WriteFile(m_directory.Path() + "/password", "wrong\n");
    SmtpServerList mail = Mail(post);
    WriteFile(Local() + "/1.kmv", "one");
    const int queued =
        isMail ? EmailOneFile(&mail, 0, Local().c_str(), "1.kmv", "text") : Send(Ftp(server), "1.kmv", "one");
    ASSERT_EQ(0, queued);
    EXPECT_THAT(m_outcomes.Next(HOST_UPLOAD_RETRY), HasSubstr("user name or password refused by 127.0.0.1"));
    WriteFile(m_directory.Path() + "/password", kServerPassword);
    EXPECT_THAT(m_outcomes.NextEnd(HOST_UPLOAD_DONE), HasSubstr("1.kmv is uploaded"));
  }
}

TEST_F(UploadTest, NothingGoesOverADataChannelInTheClear) {
  UploadServer server("ftp-clear-data", Remote(), {"--cert", ServerCertificate()});
  ASSERT_TRUE(server.Start());
  ASSERT_EQ(0, Send(Ftp(server, UPLOAD_TLS_IMPLICIT | UPLOAD_UNVERIFIED), "1.kmv", "one"));
  EXPECT_THAT(m_outcomes.Next(HOST_UPLOAD_RETRY), HasSubstr("127.0.0.1 offers no TLS"));
}

TEST_F(UploadTest, WhatTheServerRefusesForGoodIsGivenUpAtTheThirdTime) {
  UploadServer server("ftp", Remote());
  UploadServer post("mail", Remote());
  ASSERT_TRUE(server.Start() && post.Start());
  WriteFile(Remote() / "taken/file", "");
  WriteFile(Local() + "/1.kmv", "one");
  FtpServer ftp = Ftp(server);
  EXPECT_EQ(0, FtpOneFile(&ftp, Local().c_str(), "1.kmv", "/", "taken"));
  for (const int outcome : {HOST_UPLOAD_RETRY, HOST_UPLOAD_RETRY, HOST_UPLOAD_GIVEN_UP})
    EXPECT_THAT(m_outcomes.Next(outcome), HasSubstr("(550 "));
  SmtpServerList mail = Mail(post);
  Set(mail.recipients, "nobody@example.org");
  EXPECT_EQ(0, EmailOneFile(&mail, 0, Local().c_str(), "1.kmv", "text"));
  for (const int outcome : {HOST_UPLOAD_RETRY, HOST_UPLOAD_RETRY, HOST_UPLOAD_GIVEN_UP})
    EXPECT_THAT(m_outcomes.Next(outcome), HasSubstr("RCPT failed: 550 (550 there is no nobody)"));
}

TEST_F(UploadTest, AServerWithoutRoomKeepsNothingHalfAndGetsItLater) {
  if (mount("none", Remote().c_str(), "tmpfs", 0, "size=1m") != 0) GTEST_SKIP() << "no mounting here";
  WriteFile(Remote() / "ballast", std::string(900000, 'b'));
  Configure("", 0, 60000);  // a second attempt would be broken off below, with half a file at the server
  {
    UploadServer server("ftp", Remote());
    ASSERT_TRUE(server.Start());
    ASSERT_EQ(0, Send(Ftp(server), "1.kmv", std::string(500000, 'x')));
    // What the server said, or that it hung up while we were sending.
    EXPECT_THAT(m_outcomes.Next(HOST_UPLOAD_RETRY),
                testing::AnyOf(HasSubstr("transfer aborted"), HasSubstr("127.0.0.1 broke the connection off")));
    HostUploadStop();
    EXPECT_TRUE(!fs::exists(Arrived("1.kmv")) && !fs::exists(Arrived("1.kmv").string() + ".part"));
    fs::remove(Remote() / "ballast");
    EXPECT_EQ(0, HostUploadRetryNow());
    EXPECT_EQ(0, HostUploadStart());
    EXPECT_THAT(m_outcomes.NextEnd(HOST_UPLOAD_DONE), HasSubstr("1.kmv is uploaded"));
    EXPECT_EQ(fs::file_size(Arrived("1.kmv")), 500000u);
  }
  umount2(Remote().c_str(), MNT_DETACH);
}

TEST_F(UploadTest, ARefusedLoginHoldsUpNobodyElseAndDamagedJobsTakeNoRoom) {
  const std::string queue = DevicePath("/var/lib/librecord/uploads/ftp");
  for (const char* damaged : {"", "librecord upload 1\nhost=a\n", "noise"})
    WriteFile(queue + "/1-" + std::to_string(std::strlen(damaged)) + ".wait", damaged);
  ASSERT_EQ(0, chmod(queue.c_str(), 0700));
  UploadServer server("ftp", Remote());
  ASSERT_TRUE(server.Start());
  Configure("", 2, 60000);
  FtpServer stranger = Ftp(server);
  Set(stranger.user, "stranger");
  ASSERT_EQ(0, Send(stranger, "1.kmv", "one"));
  EXPECT_THAT(m_outcomes.Next(HOST_UPLOAD_RETRY), HasSubstr("user name or password refused"));
  ASSERT_EQ(0, Send(Ftp(server), "2.kmv", "two"));
  EXPECT_THAT(m_outcomes.Next(HOST_UPLOAD_DONE), HasSubstr("2.kmv is uploaded"));
  EXPECT_TRUE(fs::exists(queue + "/1-5.damaged") && !fs::exists(queue + "/1-5.wait"));
}

// The next attempt cannot be noted then.
TEST_F(UploadTest, AQueueWithoutRoomDoesNotTryWithoutAPause) {
  const std::string queue = DevicePath("/var");
  fs::create_directories(queue);
  if (mount("none", queue.c_str(), "tmpfs", 0, "size=64k") != 0) GTEST_SKIP() << "no mounting here";
  UploadServer server("ftp", Remote());
  ASSERT_TRUE(server.Start());
  server.Kill();
  EXPECT_EQ(0, Send(Ftp(server), "1.kmv", "one"));
  EXPECT_THAT(m_outcomes.Next(HOST_UPLOAD_RETRY), HasSubstr("nobody answers"));
  HostUploadStop();
  WriteFile(queue + "/ballast", std::string(100000, 'b'));
  m_outcomes.PassOver();
  Configure("", 0, 60000);
  EXPECT_EQ(0, HostUploadStart());
  EXPECT_THAT(m_outcomes.Next(HOST_UPLOAD_RETRY), HasSubstr("tried again in"));
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  HostUploadStop();
  EXPECT_EQ(m_outcomes.PassOver(), 0u);
  umount2(queue.c_str(), MNT_DETACH);
}

TEST_F(UploadTest, ALargeFileArrivesWhole) {
  constexpr size_t kBytes = 200 << 20;
  UploadServer server("ftp", Remote());
  ASSERT_TRUE(server.Start());
  WriteFile(Local() + "/big.kmv", std::string(1 << 20, 'a'));
  fs::resize_file(Local() + "/big.kmv", kBytes);
  std::fstream(Local() + "/big.kmv", std::ios::in | std::ios::out | std::ios::ate) << "end";
  FtpServer ftp = Ftp(server);
  ASSERT_EQ(0, FtpOneFile(&ftp, Local().c_str(), "big.kmv", "/x", "big.kmv"));
  EXPECT_THAT(m_outcomes.NextEnd(HOST_UPLOAD_DONE), HasSubstr("big.kmv is uploaded"));
  EXPECT_EQ(fs::file_size(Remote() / "x/big.kmv"), kBytes + 3);
  EXPECT_EQ(0, system(("cmp " + Local() + "/big.kmv " + (Remote() / "x/big.kmv").string()).c_str()));
}

TEST_F(UploadTest, WhatCannotBeSentIsRefusedOrGivenUpInAClearLine) {
  UploadServer server("ftp", Remote());
  ASSERT_TRUE(server.Start());
  FtpServer ftp = Ftp(server);
  WriteFile(Local() + "/1.kmv", "one");
  const auto refused = [&](FtpServer wrong, const std::string& reason) {
    // What waits already is tried again meanwhile.
    EXPECT_EQ(0, CanFtpFile(&wrong));
    EXPECT_EQ(m_outcomes.Next(HOST_UPLOAD_REFUSED, HOST_UPLOAD_RETRY), "a file (ftp) is not uploaded: " + reason);
    EXPECT_EQ(-1, Send(wrong, "1.kmv", "one"));
    EXPECT_EQ(m_outcomes.Next(HOST_UPLOAD_REFUSED, HOST_UPLOAD_RETRY), "1.kmv is not uploaded: " + reason);
  };
  FtpServer wrong = ftp;
  Set(wrong.password, "the password itself");
  refused(wrong, "a password has to be told as file:PATH or env:NAME");
  wrong = ftp;
  Set(wrong.host, "");
  refused(wrong, "no server is named");
  wrong = ftp;
  wrong.port = 70000;
  refused(wrong, "the server's port makes no sense");
  EXPECT_EQ(-1, FtpOneFile(&ftp, Local().c_str(), "1.kmv", "/x", "a\r\nDELE b"));
  EXPECT_THAT(m_outcomes.Next(HOST_UPLOAD_REFUSED), HasSubstr("control characters in a name"));

  // A file that was deleted meanwhile; one whose password is not there yet.
  EXPECT_EQ(0, FtpOneFile(&ftp, Local().c_str(), "gone.kmv", "/x", "gone.kmv"));
  EXPECT_EQ(m_outcomes.Next(HOST_UPLOAD_GIVEN_UP),
            "gone.kmv is given up, ftp 127.0.0.1:x/gone.kmv: the file is not there any more");
  Set(ftp.password, "env:RECORD_TEST_PASSWORD");
  unsetenv("RECORD_TEST_PASSWORD");
  ASSERT_EQ(0, Send(ftp, "1.kmv", "one"));
  EXPECT_THAT(m_outcomes.Next(HOST_UPLOAD_RETRY),
              HasSubstr("the environment has no password RECORD_TEST_PASSWORD"));

  // The queue is full while a server is away.
  server.Kill();
  Configure("", 2);
  ASSERT_EQ(0, Send(ftp, "2.kmv", "two"));
  HostUploadStop();
  refused(ftp, "the queue is full, 2 uploads wait");
  EXPECT_THAT(Listed(), testing::ElementsAre("3 gone.kmv", testing::_, testing::_));
}

}  // namespace
}  // namespace record
