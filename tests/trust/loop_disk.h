// An ext4 file system in an image file, on a loop device, whose power can be cut.
//
// Nothing is left behind however the test ends: the image is unlinked while it is in use, the loop device
// detaches itself when its last user goes, and the mounts live in a mount namespace of the test's process.
#ifndef TESTS_TRUST_LOOP_DISK_H
#define TESTS_TRUST_LOOP_DISK_H

#include <string>

namespace trust {

class LoopDisk {
 public:
  // Makes the image in `directory` (sparse, so large) and mounts it.
  explicit LoopDisk(const std::string& directory, long long bytes = 1LL << 30);
  ~LoopDisk();
  LoopDisk(const LoopDisk&) = delete;
  LoopDisk& operator=(const LoopDisk&) = delete;

  // Why there is no such disk: not root, no loop device, mounting refused ... "" when it is mounted.
  const std::string& WhyNot() const { return m_whyNot; }
  const std::string& MountPoint() const { return m_mountPoint; }

  // From now on nothing reaches the image: what the journal holds in memory is gone, as is every page that was
  // not written. False: the file system does not know how.
  bool CutPower();
  // Unmounts and mounts again, with journal recovery. REQUIRES: nobody uses the disk.
  bool Remount();

  // Whoever writes to the disk waits for so long. For a disk whose file this disk holds that is a device that
  // stalls. A process of its own does it, so that nothing stays frozen when the test is killed meanwhile.
  bool StallFor(int milliseconds);

  // Of the device so far.
  struct Load {
    long long bytesWritten;
    long long writes;
    long long flushes;  // of its cache
  };
  Load GetLoad() const;

 private:
  bool Build(const std::string& directory, long long bytes);
  bool Attach(int image);
  bool Mount();
  bool Unmount();
  bool Fail(const std::string& step);
  bool Command(unsigned long request, void* argument);

  std::string m_whyNot;
  std::string m_mountPoint;
  std::string m_device;
  int m_loop = -1;  // keeps the device attached while nothing is mounted
  bool m_mounted = false;
};

}  // namespace trust

#endif
