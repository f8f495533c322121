#include "tests/trust/loop_disk.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <linux/loop.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <thread>

namespace trust {
namespace {

constexpr unsigned long kShutdown = _IOR('X', 125, std::uint32_t);  // of ext4, in no header
constexpr std::uint32_t kWithoutFlushingTheLog = 2;

// A mount namespace of the calling thread and what it starts; once is enough.
bool HaveOwnMounts() {
  static const bool done =
      unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
  return done;
}

}  // namespace

LoopDisk::LoopDisk(const std::string& directory, long long bytes) {
  Build(directory, bytes);
}

LoopDisk::~LoopDisk() {
  if (m_mounted) Unmount();
  if (m_loop >= 0) close(m_loop);
  if (!m_mountPoint.empty()) rmdir(m_mountPoint.c_str());
}

bool LoopDisk::Fail(const std::string& step) {
  m_whyNot = step + ": " + std::strerror(errno);
  return false;
}

bool LoopDisk::Build(const std::string& directory, long long bytes) {
  if (!HaveOwnMounts()) return Fail("no mount namespace of its own");
  std::string point = directory + "/record-disk-XXXXXX";
  if (mkdtemp(point.data()) == nullptr) return Fail("no directory to mount at");
  m_mountPoint = point;
  const std::string path = point + "/image";  // hidden by the mount, and unlinked before
  const int image = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (image < 0) return Fail("no image file");
  bool made = ftruncate(image, bytes) == 0;
  const std::string command = "PATH=$PATH:/sbin:/usr/sbin mkfs.ext4 -q -F -J size=16 " + path;
  made = made && std::system(command.c_str()) == 0;
  unlink(path.c_str());
  made = made ? Attach(image) : Fail("no ext4 in the image");
  close(image);
  return made && Mount();
}

bool LoopDisk::Attach(int image) {
  constexpr int kAttempts = 20;
  const int control = open("/dev/loop-control", O_RDWR | O_CLOEXEC);
  if (control < 0) return Fail("no loop devices");
  for (int attempt = 0; attempt < kAttempts && m_loop < 0; ++attempt) {
    const int number = ioctl(control, LOOP_CTL_GET_FREE);
    m_device = "/dev/loop" + std::to_string(number);
    const int loop = number >= 0 ? open(m_device.c_str(), O_RDWR | O_CLOEXEC) : -1;
    if (loop >= 0 && ioctl(loop, LOOP_SET_FD, image) == 0)
      m_loop = loop;
    else if (loop >= 0)
      close(loop);  // somebody else was quicker
  }
  const int error = errno;
  close(control);
  errno = error;
  if (m_loop < 0) return Fail("no free loop device");
  struct loop_info64 info = {};
  info.lo_flags = LO_FLAGS_AUTOCLEAR;
  return ioctl(m_loop, LOOP_SET_STATUS64, &info) == 0 || Fail("loop device");
}

bool LoopDisk::Mount() {
  m_mounted = mount(m_device.c_str(), m_mountPoint.c_str(), "ext4", MS_NOATIME, "noinit_itable") == 0;
  return m_mounted || Fail("mount refused");
}

bool LoopDisk::Unmount() {
  constexpr int kAttempts = 500;  // a killed process lets go of its files a little later
  for (int attempt = 0; attempt < kAttempts && m_mounted; ++attempt) {
    m_mounted = umount(m_mountPoint.c_str()) != 0 && errno == EBUSY;
    if (m_mounted) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return !m_mounted;
}

bool LoopDisk::Remount() {
  return Unmount() && Mount();
}

bool LoopDisk::Command(unsigned long request, void* argument) {
  const int directory = open(m_mountPoint.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (directory < 0) return false;
  const bool done = ioctl(directory, request, argument) == 0;
  close(directory);
  return done;
}

bool LoopDisk::CutPower() {
  std::uint32_t how = kWithoutFlushingTheLog;
  return Command(kShutdown, &how);
}

bool LoopDisk::StallFor(int milliseconds) {
  const int directory = open(m_mountPoint.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const pid_t child = fork();
  if (child == 0) {
    if (ioctl(directory, FIFREEZE, nullptr) != 0) _exit(1);
    usleep(static_cast<useconds_t>(milliseconds) * 1000);
    _exit(ioctl(directory, FITHAW, nullptr) == 0 ? 0 : 1);
  }
  close(directory);
  int status = -1;
  return child > 0 && waitpid(child, &status, 0) == child && status == 0;
}

LoopDisk::Load LoopDisk::GetLoad() const {
  constexpr size_t kFields = 17;
  enum { kWrites = 4, kSectorsWritten = 6, kFlushes = 15 };
  constexpr long long kSector = 512;
  std::ifstream file("/sys/block/" + m_device.substr(m_device.rfind('/') + 1) + "/stat");
  std::array<long long, kFields> values = {};
  for (long long& value : values) file >> value;
  return {values[kSectorsWritten] * kSector, values[kWrites], values[kFlushes]};
}

}  // namespace trust
