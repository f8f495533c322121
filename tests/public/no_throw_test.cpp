// What fails inside an exported function ends as its result, never as an exception.
#include <new>

#include "query/day_catalogue.h"
#include "record/lookups.h"
#include "record/replay.h"
#include "record/storage.h"
#include "tests/playback/playback_test.h"

namespace playback {
namespace {

class NoThrowTest : public PlaybackTest {
 protected:
  // Calls it again and again, without memory at its first log line, its second and so on to its last; how many of
  // these calls told of a failure.
  int FailuresOf(const std::function<int()>& call) {
    for (int line = 1, failures = 0;; ++line) {
      int left = line;
      m_platform.OnLog([&left](const std::string&) {
        if (--left == 0) throw std::bad_alloc();
      });
      int result = 0;
      EXPECT_NO_THROW(result = call()) << "line " << line;
      m_platform.OnLog(nullptr);
      if (left > 0) return failures;
      failures += result < 0 ? 1 : 0;
    }
  }
};

TEST_F(NoThrowTest, WithoutMemoryCallsFail) {
  Mount(0, 4000);
  AddFile("20240130/100000-av-1.kmv", 1);
  AddFile("20240130/100001-av-1.kmv", 1);
  std::string path;
  unsigned offset = 0;
  char minutes[1440];
  const RecordConfig config = {1, 1, {}};
  pthread_mutex_t search = PTHREAD_MUTEX_INITIALIZER;
  TimelineReplayerReader reader(&search);
  const auto session = Session(At(10, 0, 0));
  const std::function<int()> calls[] = {
      [&] { return GetRecordFileAndOffset(2024, 1, 30, 10, 0, 0, path, offset); },
      [&] { return GetRecordFileAndOffset_by_streamIdx(2024, 1, 30, 10, 0, 0, path, offset, 1); },
      [&] { return GetRecordFileAndOffsetBySensorId(2024, 1, 30, 10, 0, 0, 0, path, offset); },
      [&] { return GetRecordDistribute(2024, 1, 30, minutes); },
      [&] { return query_record_distribute_by_idxfile(2024, 1, 30, minutes, sizeof minutes); },
      [&] {
        record::DayCatalogue day;
        return GetDayRecordInfo(2024, 1, 30, day.map);
      },
      [&] {
        const std::unique_ptr<char[]> directory(GetStoragePath(&config, RECORD_KIND_SCHEDULE, 1));
        return directory ? 0 : -1;
      },
      [&] { return reader.open(At(10, 0, 0)); },
      [&] { return session->SearchFiles(); },
      [&] { return session->InnerSeek(At(10, 0, 0)); },
      [&] { return session->NextFile(); },
  };
  for (size_t n = 0; n < std::size(calls); ++n) EXPECT_GT(FailuresOf(calls[n]), 0) << "call " << n;
  EXPECT_EQ(pthread_mutex_trylock(&search), 0);  // nobody holds it
  pthread_mutex_unlock(&search);
}

}  // namespace
}  // namespace playback
