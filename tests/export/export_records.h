// A day of records on the fake device, and exports of it that run to their end.
#ifndef TESTS_EXPORT_EXPORT_RECORDS_H
#define TESTS_EXPORT_EXPORT_RECORDS_H

#include <condition_variable>
#include <string>
#include <vector>

#include "record/export.h"
#include "tests/format/kmv_bytes.h"
#include "tests/query/catalogue_records.h"
#include "tests/support/fake_mp4.h"

namespace exporttest {

// What completion callbacks told, which have nothing but the number of the export.
class Endings {
 public:
  static Endings& Get();
  static int Done(int id, int result);
  int Await(int id);  // the result of that export
  int Count(int id);

 private:
  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::multimap<int, int> m_results;
};

struct Stream {
  int framesPerSecond = 10;
  int framesPerGroup = 10;
  bool audio = true;
  std::uint32_t delayMs = 0;  // of the sound behind its picture
  kmvtest::Options head;
};

constexpr char kDay[] = "20240130/";
constexpr DayTimeSpan kSpan = {8, 0, 0, 8, 10, 0};

class ExportTest : public catalogue::CatalogueTest {
 protected:
  // A file of so many seconds, listed and with a side file; names are times of day such as "080000".
  void AddFile(const std::string& time, const std::string& extension, const std::string& bytes, double seconds);
  // The frames of a stream that began at 08:00:00.000, from `fromMs` on, cut out with their stamps.
  void AddKmv(const std::string& time, long long fromMs, long long toMs, const Stream& stream = {});
  void AddMp4(const std::string& time, long long fromMs, long long toMs, int audioCode = 11);

  int Run(CExportRecord& job, int id);
  // Exports kSpan, or what is asked for, into m_output; what the multiplexer got.
  fake::Mp4Clip Export(const DayTimeSpan& span = kSpan);
  int RunTimelapse(int seconds, const std::string& output);  // of an hour

  std::string Full(const std::string& time, const std::string& extension = "kmv");
  const std::string m_output = Path("/tmp/out.mp4");
  int m_id = 0;
  int m_result = 99;
};

// "v40k" for a key picture at 40 ms, "v80", "a80" for sound, in the order of writing.
std::vector<std::string> Times(const fake::Mp4Clip& clip, bool video, bool audio);

}  // namespace exporttest

#endif
