// What reading a record file through comes to, the same for every container, and what is the container's own.
#ifndef RECORDCTL_CONTENTS_H
#define RECORDCTL_CONTENTS_H

#include <string>
#include <utility>
#include <vector>

#include "format/frame_totals.h"
#include "tools/recordctl/output.h"
#include "tools/recordctl/record_file.h"

namespace recordctl {

// Lines that people read beside their labels, and fields that programs read.
struct Notes {
  std::vector<std::pair<std::string, std::string>> lines;
  Json fields = Json::object();
};

struct Contents : record::FileReport {
  record::FrameTotals totals;
  bool hasWallStamps = false;  // time stamps are the wall clock modulo 2^32, not counted from the file's begin
  unsigned long streamFlags = 0;
  VIDEO_PARAM video = {};
  AUDIO_PARAM audio = {};
  long long coveredFragments = 0;  // MP4: the file cannot be read, but after UncoverFragments
  int audioFramerate = -1;         // as the file tells it; -1: it does not
  Notes head;                      // what the container says at its begin
  Notes end;                       // and at its end
};

// Reads the whole file, with signs of life: large files on slow cards take their time. One that is `growing` has
// no end yet.
Contents ReadContents(const Options& options, const RecordFile& file, bool growing);
// The same without signs of life.
Contents ReadContents(const RecordFile& file, bool growing);

// Whether the file was ended properly. Looks at its structure only.
bool HasEnd(const RecordFile& file);

struct Repair {
  enum Outcome { kFailed, kNothingToDo, kDone };
  Outcome outcome = kFailed;
  std::string error;  // when it failed, one line
  std::string text;   // what was done or would be, or what there is to know, "" for nothing
  Json fields = Json::object();
};

// Gives a file that lost its end a new one, in place, where its container can have one.
// REQUIRES: nobody is writing the file.
Repair RepairEnd(const RecordFile& file, const Contents& contents, bool dryRun);

// The repair of a container in words: `end` is what it writes behind its `frames`.
Repair EndRepair(const record::FileRepair& made, bool dryRun, const char* end, const char* frames,
                 const char* frame);

// What each container adds.
Contents ReadKmvContents(const std::string& path, bool growing);
bool HasKmvEnd(const std::string& path);
Repair RepairKmvEnd(const std::string& path, bool dryRun);
Contents ReadAviContents(const std::string& path, bool growing);
bool HasAviEnd(const std::string& path);
Repair RepairAviEnd(const std::string& path, bool dryRun);
Contents ReadMp4Contents(const std::string& path, bool growing);
bool HasMp4End(const std::string& path);
Repair DescribeMp4End(const Contents& contents);

}  // namespace recordctl

#endif
