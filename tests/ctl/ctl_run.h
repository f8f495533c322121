// Runs recordctl as its users do: as a process, below a root of the test's own.
#ifndef TESTS_CTL_CTL_RUN_H
#define TESTS_CTL_CTL_RUN_H

#include <gtest/gtest.h>
#include <sys/types.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace ctl {

using Arguments = std::vector<std::string>;
using Json = nlohmann::json;

struct Result {
  int code = -1;  // exit code; 128 + signal when one ended it
  std::string out;
  std::string err;

  std::vector<Json> Objects() const;  // of stdout, one a line
};

// A program that runs until it is waited for.
class Process {
 public:
  Process(const std::filesystem::path& directory, const Arguments& command);
  ~Process();  // kills what nobody waited for
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  void Signal(int signal) const;
  Result Wait();

 private:
  pid_t m_pid = -1;
  std::string m_out;
  std::string m_err;
};

std::string ReadFile(const std::filesystem::path& path);
void WriteFile(const std::filesystem::path& path, const std::string& bytes);
// Files below the directory whose names end in `extension`, in the order of their paths.
std::vector<std::filesystem::path> FilesBelow(const std::filesystem::path& directory,
                                              const std::string& extension);
// "2024-01-31 08:15:00", of a record's name.
std::string StartOf(const std::filesystem::path& record);

class CtlTest : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  Arguments Ctl(Arguments arguments) const;  // behind "recordctl --root ..."
  Result Run(const Arguments& arguments) const;
  Result Shell(const std::string& line) const;  // $CTL is recordctl with its root

  std::string Out(const std::string& name) const { return (m_directory / name).string(); }
  // A root for each container.
  std::string Root(const std::string& container) const { return (m_root / container).string(); }
  std::vector<std::filesystem::path> RecordsOf(const std::string& container) const {
    return FilesBelow(Root(container) + "/mnt", "." + container);
  }
  // So many seconds of the clip, with a file change every two, side by side.
  void RecordInto(const std::vector<std::string>& containers, int seconds) const;

  // The first seconds of the clip as a file of its own.
  std::string Clip(int seconds) const;
  std::vector<std::filesystem::path> Records() const;  // oldest first
  // Waits until a file of at least so many bytes is being recorded.
  std::filesystem::path AwaitRecord(std::uintmax_t bytes) const;
  std::vector<Json> Frames(const std::filesystem::path& record) const;
  std::string Raw(const std::filesystem::path& record, const std::string& medium) const;
  std::filesystem::path LockFile(const std::filesystem::path& record) const;

  std::filesystem::path m_directory;
  std::filesystem::path m_root;
};

}  // namespace ctl

#endif
