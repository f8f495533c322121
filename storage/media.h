// The media as directories of this machine.
#ifndef STORAGE_MEDIA_H
#define STORAGE_MEDIA_H

#include <string>
#include <vector>

namespace record {

bool IsMounted(int medium);
// Below it lie the record-type directories. The share holds one such directory a device, named by its serial
// number.
std::string MediumBase(int medium);

// The bases of what is mounted, in the order of the media table.
std::vector<std::string> MountedBases();

}  // namespace record

#endif
