// Holding a file that a stopped recorder left against what the recorder had noted.
#ifndef TESTS_TRUST_READ_BACK_H
#define TESTS_TRUST_READ_BACK_H

#include <string>
#include <vector>

#include "tests/trust/journal.h"

namespace trust {

struct ReadBack {
  std::uint32_t frames = 0;  // that many of the noted ones were read, from the first on, to the byte
  std::string fault;         // what is wrong, "" when nothing is
};

// Reads the frames of the file with the library's reader. Anything that was never handed to the writer, or is
// not in its order (MP4: within its medium), is a fault; how many there have to be is for the caller to say.
ReadBack ReadFrames(const std::string& path, const FileNote& note);

// Of so many written packets those that have to be there: in an MP4 file all but the running group.
std::uint32_t Promised(const std::string& path, const FileNote& note, std::uint32_t packets);

// Whether ffprobe opens an MP4 file and counts in it the pictures of so many packets at least, and none that was
// never written. "" or what is wrong.
std::string ProbeFault(const std::string& path, const FileNote& note, std::uint32_t packets);

// Repairs the file and looks into it before and after: what repair may touch, and that it leads to a file
// without inconsistencies that holds the same `frames`. "" or what is wrong. MP4 files are left as they are.
std::string RepairAndCheck(const std::string& path, const FileNote& note, std::uint32_t frames);

// Whether it has the end of a KMV or AVI file.
bool IsWhole(const std::string& path);

bool IsOf(const std::string& path, const char* extension);
// What stands in front of the first frame; an MP4 file has a head with the first group only.
std::uintmax_t HeadSize(const std::string& path);

// Record files below a device root's first card, in the order of their names.
std::vector<std::string> RecordFiles(const std::string& root);

}  // namespace trust

#endif
