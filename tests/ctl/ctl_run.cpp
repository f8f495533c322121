#include "tests/ctl/ctl_run.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <memory>
#include <sstream>
#include <thread>

namespace fs = std::filesystem;

namespace ctl {
namespace {

std::string NextName(const fs::path& directory, const char* what) {
  static int s_number = 0;
  return (directory / (std::string(what) + std::to_string(s_number++))).string();
}

void Redirect(const std::string& path, int descriptor) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (file < 0 || dup2(file, descriptor) < 0) _exit(126);
}

}  // namespace

std::vector<Json> Result::Objects() const {
  std::vector<Json> objects;
  std::istringstream lines(out);
  for (std::string line; std::getline(lines, line);) objects.push_back(Json::parse(line));
  return objects;
}

Process::Process(const fs::path& directory, const Arguments& command)
    : m_out(NextName(directory, "out")), m_err(NextName(directory, "err")) {
  std::vector<char*> arguments;
  for (const std::string& argument : command) arguments.push_back(const_cast<char*>(argument.c_str()));
  arguments.push_back(nullptr);
  m_pid = fork();
  if (m_pid != 0) return;
  Redirect(m_out, STDOUT_FILENO);
  Redirect(m_err, STDERR_FILENO);
  execvp(arguments[0], arguments.data());
  _exit(127);
}

Process::~Process() {
  if (m_pid <= 0) return;
  kill(m_pid, SIGKILL);
  waitpid(m_pid, nullptr, 0);
}

void Process::Signal(int signal) const {
  kill(m_pid, signal);
}

Result Process::Wait() {
  int status = 0;
  waitpid(m_pid, &status, 0);
  m_pid = -1;
  const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return {code, ReadFile(m_out), ReadFile(m_err)};
}

std::string ReadFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void WriteFile(const fs::path& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

std::vector<fs::path> FilesBelow(const fs::path& directory, const std::string& extension) {
  std::vector<fs::path> files;
  std::error_code none;
  for (const auto& entry : fs::recursive_directory_iterator(directory, none)) {
    if (entry.is_regular_file(none) && entry.path().extension() == extension) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

std::string StartOf(const fs::path& record) {
  const std::string day = record.parent_path().filename().string();
  const std::string time = record.filename().string();
  return day.substr(0, 4) + "-" + day.substr(4, 2) + "-" + day.substr(6, 2) + " " + time.substr(0, 2) + ":" +
         time.substr(2, 2) + ":" + time.substr(4, 2);
}

void CtlTest::SetUp() {
  char name[] = "/tmp/ctl_test_XXXXXX";
  ASSERT_NE(mkdtemp(name), nullptr);
  m_directory = name;
  m_root = m_directory / "root";
  setenv("CTL", (std::string(RECORDCTL) + " --root " + m_root.string()).c_str(), 1);
}

void CtlTest::TearDown() {
  std::error_code ignored;
  fs::remove_all(m_directory, ignored);
}

Arguments CtlTest::Ctl(Arguments arguments) const {
  arguments.insert(arguments.begin(), {RECORDCTL, "--root", m_root.string()});
  return arguments;
}

Result CtlTest::Run(const Arguments& arguments) const {
  return Process(m_directory, Ctl(arguments)).Wait();
}

Result CtlTest::Shell(const std::string& line) const {
  return Process(m_directory, {"bash", "-c", "set -o pipefail; " + line}).Wait();
}

void CtlTest::RecordInto(const std::vector<std::string>& containers, int seconds) const {
  std::vector<std::unique_ptr<Process>> recordings;
  for (const std::string& container : containers)
    recordings.push_back(std::make_unique<Process>(
        m_directory,
        Arguments{RECORDCTL, "--root", Root(container), "record", "--input", CAMERA_CLIP, "--container", container,
                  "--duration", std::to_string(seconds), "--max-file", "2", "--pre", "0"}));
  for (const auto& recording : recordings) {
    const Result recorded = recording->Wait();
    ASSERT_EQ(recorded.code, 0) << recorded.err;
    ASSERT_GE(std::count(recorded.out.begin(), recorded.out.end(), '\n'), 2) << "no file change";
  }
}

std::string CtlTest::Clip(int seconds) const {
  std::string clip = (m_directory / "clip.mkv").string();
  const Result cut =
      Shell("ffmpeg -nostdin -v error -i " CAMERA_CLIP " -t " + std::to_string(seconds) + " -c copy " + clip);
  EXPECT_EQ(cut.code, 0) << cut.err;
  return clip;
}

std::vector<fs::path> CtlTest::Records() const {
  std::vector<fs::path> records;
  for (const char* extension : {".kmv", ".avi", ".mp4"}) {
    const std::vector<fs::path> found = FilesBelow(m_root / "mnt", extension);
    records.insert(records.end(), found.begin(), found.end());
  }
  std::sort(records.begin(), records.end());
  return records;
}

fs::path CtlTest::AwaitRecord(std::uintmax_t bytes) const {
  for (int tries = 0; tries < 1000; ++tries) {
    const std::vector<fs::path> records = Records();
    if (!records.empty() && fs::file_size(records.back()) >= bytes) return records.back();
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  ADD_FAILURE() << "no record of " << bytes << " bytes came";
  return {};
}

std::vector<Json> CtlTest::Frames(const fs::path& record) const {
  const Result frames = Run({"--json", "frames", record.string()});
  EXPECT_EQ(frames.code, 0) << frames.err;
  return frames.Objects();
}

std::string CtlTest::Raw(const fs::path& record, const std::string& medium) const {
  const Result raw = Run({"frames", record.string(), "--raw", medium});
  EXPECT_EQ(raw.code, 0) << raw.err;
  return raw.out;
}

fs::path CtlTest::LockFile(const fs::path& record) const {
  return m_root / "tmp" / (record.parent_path().filename().string() + record.filename().string());
}

}  // namespace ctl
