// Positioned reading of one record file. No memory mapping: on a medium that may be pulled a lost page must be
// an error, not a signal.
#ifndef FORMAT_FILE_SOURCE_H
#define FORMAT_FILE_SOURCE_H

#include <cstddef>
#include <cstdint>
#include <memory>

namespace record {

class FileSource {
 public:
  FileSource() = default;
  ~FileSource();
  FileSource(const FileSource&) = delete;
  FileSource& operator=(const FileSource&) = delete;

  // Regular files only. Tells the kernel that reads will jump.
  bool Open(const char* path);
  void Close();
  bool IsOpen() const { return m_descriptor >= 0; }

  // As it was at Open or at the last RefreshSize.
  long long Size() const { return m_size; }
  bool RefreshSize();  // whether it changed

  // Bytes read; fewer than asked for at the end of the file or after an error. The second form fills two
  // places in a row with one call.
  std::size_t ReadAt(long long offset, void* to, std::size_t length) const;
  std::size_t ReadAt(long long offset, void* first, std::size_t firstLength, void* second,
                     std::size_t secondLength) const;

  // Whether the kernel shall read ahead. Off at first: a jump would drag in what nobody asked for.
  void ReadAhead(bool on);

 private:
  int m_descriptor = -1;
  long long m_size = 0;
  bool m_readAhead = false;
};

// A moving block of a source, in memory.
class FileWindow {
 public:
  // The first block after a jump has `smallest` bytes, each one in a row twice as many, up to `largest`.
  FileWindow(FileSource& source, std::size_t smallest, std::size_t largest);

  // The bytes from `offset` that are in memory already, and how many.
  std::uint8_t* At(long long offset, std::size_t* available) const;
  // The same after reading a block, should fewer than `needed` be there. Fewer only at the end of the file.
  std::uint8_t* Fetch(long long offset, std::size_t needed, std::size_t* available);
  // Reads exactly that much around the window, and the block behind it into the window. False: it ends early.
  bool ReadThrough(long long offset, std::uint8_t* to, std::size_t length);
  void Drop() { m_length = 0; }

 private:
  std::size_t NextFill(long long offset);

  FileSource& m_source;
  const std::size_t m_smallest;
  const std::size_t m_largest;
  std::unique_ptr<std::uint8_t[]> m_block;  // made at the first read
  long long m_begin = 0;
  std::size_t m_length = 0;
  std::size_t m_fill = 0;
};

}  // namespace record

#endif
