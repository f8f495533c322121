// The device root: the directory that holds a whole device tree, and the paths of files below it.
#ifndef RECORDCTL_ROOT_H
#define RECORDCTL_ROOT_H

#include <string>

#include "tools/recordctl/options.h"

namespace recordctl {

// Where the root is when nothing is said: RECORD_ROOT, else "recordings".
std::string DefaultRoot();

// Puts the library below the root. False with a message.
bool UseRoot(const Options& options);
// The same, and makes the tree that recording needs: one medium, /tmp and /opt/zq.
bool MakeRoot(const Options& options);

// A path below the device root as the user would write it: behind the root as it was given.
std::string ShownPath(const Options& options, const std::string& devicePath);
// The same of a path as the library tells it: behind the device root. "" stays.
std::string ShownFile(const Options& options, const std::string& path);

// The file that the user means: as it stands, or as a device path ("/mnt/mmc0/...") below the root.
std::string FindFile(const Options& options, const std::string& name);

// Name of the lock file of a record file, "" when the file lies in no day directory. The root is taken from the
// file's own path: it need not be the one in use.
std::string LockFileOf(const std::string& recordFile);
// The record kind that the file's directory stands for, "" when it stands for none.
std::string KindOf(const std::string& recordFile);

}  // namespace recordctl

#endif
