// The boxes of an MP4 file on their outermost level: how it was ended, and where it breaks off.
#ifndef RECORDCTL_MP4_BOXES_H
#define RECORDCTL_MP4_BOXES_H

#include <string>

namespace recordctl {

struct Mp4Boxes {
  std::string error;  // why the file could not be looked into, in one line
  long long fileSize = 0;
  std::string brand;          // the major one, four characters
  bool hasMovie = false;      // a whole moov box
  bool isFragmented = false;  // whose samples stand in fragments
  bool hasFragmentIndex = false;
  long long fragments = 0;  // whole ones
  // Fragments that lie whole below a media box whose end is lost, and the index with it: a finished file, cut off.
  long long coveredFragments = 0;
  long long dataEnd = 0;    // behind the last whole box
  long long tornBytes = 0;  // of the box that was being written, or of what is no box

  // A fragmented file that has no index at its end may go on, or may have lost its end.
  bool HasEnd() const { return hasMovie && tornBytes == 0 && (!isFragmented || hasFragmentIndex); }
};

Mp4Boxes ReadMp4Boxes(const std::string& path);

// Makes the media box over covered fragments the small free box again that it was while the file grew. One write
// within a sector, and synced. "" or what went wrong, in one line.
// REQUIRES: coveredFragments > 0, and nobody is writing the file.
std::string UncoverFragments(const std::string& path);

}  // namespace recordctl

#endif
