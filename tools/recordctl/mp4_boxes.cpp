#include "tools/recordctl/mp4_boxes.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "format/file_source.h"
#include "platform/host/mp4_movie.h"

namespace recordctl {
namespace {

constexpr long long kShortHead = 8;
constexpr int kMostBoxes = 4096;     // within another one; more is nobody's work
constexpr long long kLongHead = 16;  // with a size of 64 bits

struct Box {
  char type[5] = "";
  long long offset = 0;
  long long head = kShortHead;
  long long size = 0;  // with the head; 0: not whole before `end`

  bool Is(const char* name) const { return std::strcmp(type, name) == 0; }
};

std::uint64_t BigEndian(const unsigned char* bytes, int count) {
  std::uint64_t value = 0;
  for (int n = 0; n < count; ++n) value = value << 8 | bytes[n];
  return value;
}

class Walker {
 public:
  explicit Walker(const std::string& path) {
    if (!m_source.Open(path.c_str())) m_boxes.error = "cannot open " + path + ": " + std::strerror(errno);
  }

  Mp4Boxes Walk() {
    if (!m_boxes.error.empty()) return m_boxes;
    const long long end = m_boxes.fileSize = m_source.Size();
    Box box;
    while (m_boxes.dataEnd < end && ReadBox(m_boxes.dataEnd, end, box)) {
      Take(box);
      m_boxes.dataEnd += box.size;
    }
    m_boxes.tornBytes = end - m_boxes.dataEnd;
    if (!m_boxes.hasMovie) m_boxes.coveredFragments = CountCovered(end);
    return m_boxes;
  }

 private:
  static constexpr auto kFileTypeSize = static_cast<long long>(record::kFileTypeSize);

  // Behind the file type stands the switch that finished the file, and behind that the head of the fragments.
  long long CountCovered(long long end) {
    unsigned char head[record::kSwitchSize] = {};
    const bool isFinished = m_source.ReadAt(kFileTypeSize, head, sizeof head) == sizeof head &&
                            BigEndian(head, 4) == 1 && std::memcmp(head + 4, "mdat", 4) == 0;
    Box box;
    long long at = kFileTypeSize + kLongHead;
    if (!isFinished || !ReadBox(at, end, box) || !box.Is("moov") || !Holds(box, "mvex")) return 0;
    long long fragments = 0;
    bool isAnnounced = false;
    for (at += box.size; ReadBox(at, end, box); at += box.size) {
      if (!box.Is("moof") && !box.Is("mdat")) break;
      if (isAnnounced && box.Is("mdat")) ++fragments;
      isAnnounced = box.Is("moof");
    }
    return fragments;
  }

  // False when no whole box stands there.
  bool ReadBox(long long offset, long long end, Box& box) {
    unsigned char bytes[kLongHead] = {};
    box.offset = offset;
    box.head = kShortHead;
    if (end - offset < kShortHead || m_source.ReadAt(offset, bytes, kShortHead) != kShortHead) return false;
    std::memcpy(box.type, bytes + 4, 4);
    std::uint64_t size = BigEndian(bytes, 4);
    if (size == 1) {
      box.head = kLongHead;
      if (end - offset < kLongHead || m_source.ReadAt(offset, bytes, kLongHead) != kLongHead) return false;
      size = BigEndian(bytes + 8, 8);
    } else if (size == 0) {
      size = static_cast<std::uint64_t>(end - offset);  // goes on to the end of the file
    }
    if (size < static_cast<std::uint64_t>(box.head) || size > static_cast<std::uint64_t>(end - offset))
      return false;
    box.size = static_cast<long long>(size);
    return true;
  }

  void Take(const Box& box) {
    if (box.Is("ftyp")) {
      char brand[5] = "";
      if (box.size >= box.head + 4 && m_source.ReadAt(box.offset + box.head, brand, 4) == 4) m_boxes.brand = brand;
    } else if (box.Is("moov")) {
      m_boxes.hasMovie = true;
      m_boxes.isFragmented = Holds(box, "mvex");
    } else if (box.Is("mfra")) {
      m_boxes.hasFragmentIndex = true;
    } else if (box.Is("moof")) {
      m_announced = true;
    } else if (box.Is("mdat") && m_announced) {
      m_announced = false;
      ++m_boxes.fragments;
    }
  }

  bool Holds(const Box& parent, const char* type) {
    Box box;
    const long long end = parent.offset + parent.size;
    long long at = parent.offset + parent.head;
    for (int n = 0; n < kMostBoxes && at < end && ReadBox(at, end, box); ++n, at += box.size) {
      if (box.Is(type)) return true;
    }
    return false;
  }

  record::FileSource m_source;
  Mp4Boxes m_boxes;
  bool m_announced = false;  // by a moof: the next mdat is its own
};

}  // namespace

Mp4Boxes ReadMp4Boxes(const std::string& path) {
  return Walker(path).Walk();
}

std::string UncoverFragments(const std::string& path) {
  const record::Bytes box = record::UnfinishedSwitch();
  const int file = open(path.c_str(), O_WRONLY | O_CLOEXEC);
  const bool isDone =
      file >= 0 &&
      pwrite(file, box.data(), box.size(), record::kFileTypeSize) == static_cast<ssize_t>(box.size()) &&
      fdatasync(file) == 0;
  const std::string why = isDone ? "" : "cannot write " + path + ": " + std::strerror(errno);
  if (file >= 0) close(file);
  return why;
}

}  // namespace recordctl
