// What waits in the queue of uploads, and what is read of a file that is sent.
#include <fstream>

#include "platform/host/upload/upload_source.h"
#include "tests/host/support/upload_fixture.h"

namespace record {
namespace {

// What one upload failed at keeps those waiting that would fail, too, and no others.
TEST(UploadDueTest, DependsOnWhatOthersFailedAt) {
  constexpr long long kNow = 1000000;
  const RetryPauses pauses = {10000, 600000, 1};
  UploadJob failed;
  failed.host = "host";
  failed.port = 21;
  failed.user = "user";
  failed.nextMs = kNow + 5000;
  const auto waits = [&](Obstacle obstacle, const auto& differ) {
    failed.obstacle = obstacle;
    UploadJob job = failed;
    job.obstacle = Obstacle::kNone;
    job.nextMs = 0;
    differ(job);
    UploadJob kept;  // as the queue's file keeps it
    failed.name = "name";
    EXPECT_TRUE(ParseJob(JobText(failed), &kept));
    return DueAt(job, {job, kept}, pauses, kNow) > kNow;
  };
  const auto same = [](UploadJob&) {};
  const auto user = [](UploadJob& job) { job.user = "other"; };
  const auto flags = [](UploadJob& job) { job.flags = UPLOAD_UNVERIFIED; };
  const auto port = [](UploadJob& job) { job.port = 2121; };
  EXPECT_FALSE(waits(Obstacle::kNone, same));
  for (const Obstacle each : {Obstacle::kServer, Obstacle::kSecurity, Obstacle::kLogin}) {
    EXPECT_TRUE(waits(each, same));
    EXPECT_FALSE(waits(each, port));
    EXPECT_EQ(waits(each, user), each != Obstacle::kLogin);
    EXPECT_EQ(waits(each, flags), each == Obstacle::kServer);
  }
}

// A file that is written to while it is sent: nobody gets its last byte, and so nobody takes it for whole.
TEST(UploadSourceTest, EndsOnlyWithAFileThatStayedAsItWas) {
  const TempDir directory;
  const std::string path = directory.Path() + "/file";
  char buffer[64];
  WriteFile(path, "0123456789");
  UploadSource source(path);
  ASSERT_EQ(source.Size(), 10);
  EXPECT_EQ(source.Read(buffer, 6), 6);
  EXPECT_EQ(source.Read(buffer, 64), 4);
  EXPECT_EQ(source.Read(buffer, 64), 0);
  EXPECT_TRUE(source.Rewind());
  EXPECT_EQ(source.Read(buffer, 6), 6);
  std::ofstream(path, std::ios::app) << "grown";
  EXPECT_EQ(source.Read(buffer, 64), -1);
  EXPECT_EQ(source.Error(), "the file changed while it was sent");

  UploadSource cut(path);
  fs::resize_file(path, 0);
  EXPECT_EQ(cut.Read(buffer, 64), -1);
  EXPECT_TRUE(UploadSource(directory.Path() + "/none").IsGone());
  EXPECT_TRUE(UploadSource(directory.Path()).IsGone()) << "a directory";
}

}  // namespace
}  // namespace record
