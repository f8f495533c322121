// Reading directories that anybody may have made.
#ifndef BASE_DIRECTORY_H
#define BASE_DIRECTORY_H

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>

namespace record {

class Directory {
 public:
  // Whether the last part of the path may be a symbolic link. One found on a medium may lead anywhere.
  enum class Links { kRefuse, kFollow };

  explicit Directory(const std::string& path, Links links = Links::kRefuse)
      : Directory(AT_FDCWD, path.c_str(), links) {}
  Directory(int parent, const char* name, Links links = Links::kRefuse) {
    const int noFollow = links == Links::kRefuse ? O_NOFOLLOW : 0;
    const int file = openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | noFollow);
    if (file < 0) return;
    m_entries.reset(fdopendir(file));
    if (m_entries == nullptr) close(file);
  }

  bool IsOpen() const { return m_entries != nullptr; }
  int Descriptor() const { return dirfd(m_entries.get()); }

  // The next entry but "." and ".."; null behind the last.
  const dirent* Next() {
    const dirent* entry = readdir(m_entries.get());
    while (entry != nullptr && IsDots(entry->d_name)) entry = readdir(m_entries.get());
    return entry;
  }

  void Rewind() { rewinddir(m_entries.get()); }

  bool Look(const dirent& entry, struct stat& status) const {  // at a link itself, not behind it
    return fstatat(Descriptor(), entry.d_name, &status, AT_SYMLINK_NOFOLLOW) == 0;
  }
  bool IsDirectory(const dirent& entry) const { return IsOfType(entry, DT_DIR, S_IFDIR); }
  bool IsRegularFile(const dirent& entry) const { return IsOfType(entry, DT_REG, S_IFREG); }

 private:
  static bool IsDots(const char* name) {
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
  }
  // A file system that does not tell types is asked.
  bool IsOfType(const dirent& entry, unsigned char type, mode_t mode) const {
    if (entry.d_type != DT_UNKNOWN) return entry.d_type == type;
    struct stat status;
    return Look(entry, status) && (status.st_mode & S_IFMT) == mode;
  }

  struct Close {
    void operator()(DIR* directory) const { closedir(directory); }
  };
  std::unique_ptr<DIR, Close> m_entries;
};

}  // namespace record

#endif
