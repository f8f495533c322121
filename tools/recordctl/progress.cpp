#include "tools/recordctl/progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>

#include "tools/recordctl/output.h"

namespace recordctl {
namespace {

constexpr std::chrono::seconds kInterval{1};
constexpr char kClearLine[] = "\r\x1b[K";
bool g_lineStands = false;

// A line that wraps could not be taken off again.
std::string Fitting(std::string line) {
  struct winsize terminal = {};
  const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &terminal) == 0 && terminal.ws_col > 1;
  if (known && line.size() >= terminal.ws_col) line.resize(terminal.ws_col - 1U);
  return line;
}

}  // namespace

ProgressStyle ChosenProgress(const Options& options) {
  if (options.progress == "kv") return ProgressStyle::kKeyValue;
  if (options.progress == "none") return ProgressStyle::kNone;
  return isatty(STDERR_FILENO) != 0 ? ProgressStyle::kLine : ProgressStyle::kNone;
}

void ClearProgressLine() {
  if (!g_lineStands) return;
  std::fputs(kClearLine, stderr);
  g_lineStands = false;
}

Progress::Progress(ProgressStyle style) : m_style(style), m_next(std::chrono::steady_clock::now() + kInterval) {}

Progress::~Progress() {
  ClearProgressLine();
}

bool Progress::IsDue() {
  const auto now = std::chrono::steady_clock::now();
  if (m_style == ProgressStyle::kNone || now < m_next) return false;
  m_next = now + kInterval;
  return true;
}

void Progress::Show(const std::string& line, const Values& values) {
  if (m_style == ProgressStyle::kLine) {
    std::fprintf(stderr, "%s%s", kClearLine, Fitting(Printable(line)).c_str());
    g_lineStands = true;
    return;
  }
  std::string text;
  for (const auto& [key, value] : values)
    text.append(text.empty() ? "" : " ").append(key).append("=").append(value);
  std::fprintf(stderr, "%s\n", Printable(text).c_str());
}

Waiting::Waiting(const Options& options, std::string what, std::string phase)
    : m_what(std::move(what)), m_phase(std::move(phase)), m_progress(ChosenProgress(options)) {
  if (ChosenProgress(options) != ProgressStyle::kNone) m_thread = std::thread(&Waiting::Run, this);
}

Waiting::~Waiting() {
  if (!m_thread.joinable()) return;
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_ended = true;
  }
  m_end.notify_one();
  m_thread.join();
}

void Waiting::Run() {
  std::unique_lock<std::mutex> lock(m_mutex);
  for (int seconds = 1; !m_end.wait_for(lock, kInterval, [this] { return m_ended; }); ++seconds) {
    const std::string waited = std::to_string(seconds);
    m_progress.Show(m_what + ": " + waited + " s", {{"phase", m_phase}, {"elapsed", waited}});
  }
}

}  // namespace recordctl
