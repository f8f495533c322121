// The file that a command is about: found, and its container known, before anything is done with it.
#ifndef RECORDCTL_RECORD_FILE_H
#define RECORDCTL_RECORD_FILE_H

#include <string>

#include "tools/recordctl/containers.h"
#include "tools/recordctl/options.h"

namespace recordctl {

struct RecordFile {
  std::string path;
  Container container = Container::kKmv;  // by its first bytes, whatever it is called
};

// Sets the root and turns what the user wrote into a path. False with one clear line: no such file, a directory,
// no record file.
bool FindRecordFile(const Options& options, const std::string& name, RecordFile& file);

// A reader that has the file open; null, with one line, when it cannot. `name` as the user wrote it.
std::unique_ptr<CVideoFile> OpenRecord(const RecordFile& file, const std::string& name);

// The container that the file's first bytes tell. False: none.
bool RecognizeContainer(const std::string& path, Container& container);

}  // namespace recordctl

#endif
