#include "export/output_room.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace record {
namespace {

constexpr std::uint64_t kReservedAtOnce = 4 << 20;
constexpr unsigned kFrameOverhead = 16;  // what a container notes of each frame

// Elsewhere zeros are written into reserved room, or what a crash leaves of it is taken for damage.
bool NotesWhatIsUnwritten(int file) {
  struct statfs status;
  return fstatfs(file, &status) == 0 && (status.f_type == EXT4_SUPER_MAGIC || status.f_type == XFS_SUPER_MAGIC);
}

}  // namespace

void OutputRoom::Begin(const std::string& path) {
  GiveBack();
  m_needed = 0;
  m_reserved = 0;
  m_file = open(path.c_str(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (m_file >= 0 && !NotesWhatIsUnwritten(m_file)) GiveBack();
}

// A reservation that fails may have taken all that was left: others need it, too, and what cannot be had now may
// be there by the time it is written.
void OutputRoom::Need(unsigned length) {
  m_needed += length + kFrameOverhead;
  while (m_file >= 0 && m_reserved < m_needed) {
    const auto from = static_cast<off_t>(m_reserved);
    m_reserved += kReservedAtOnce;
    if (fallocate(m_file, FALLOC_FL_KEEP_SIZE, from, kReservedAtOnce) != 0) GiveBack();
  }
}

void OutputRoom::GiveBack() {
  if (m_file < 0) return;
  struct stat status;
  if (m_reserved > 0 && fstat(m_file, &status) == 0 && ftruncate(m_file, status.st_size) != 0) {
    // The room goes when the file goes.
  }
  close(m_file);
  m_file = -1;
}

}  // namespace record
