#include "tools/recordctl/player.h"

#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>

#include "base/clock.h"
#include "base/time_word.h"
#include "record/platform.h"
#include "tools/recordctl/output.h"
#include "tools/recordctl/root.h"
#include "tools/recordctl/signals.h"
#include "tools/recordctl/time_text.h"

namespace recordctl {
namespace {

constexpr long kJumpSeconds = 10;
constexpr int kFastest = 16;

Player* g_player = nullptr;  // the callbacks carry nothing but a number

// Keys without waiting for a line, while it lives.
class RawTerminal {
 public:
  RawTerminal() : m_isTerminal(isatty(STDIN_FILENO) != 0 && tcgetattr(STDIN_FILENO, &m_before) == 0) {
    if (!m_isTerminal) return;
    struct termios raw = m_before;
    raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    tcsetattr(STDIN_FILENO, TCSANOW, &raw);
  }
  ~RawTerminal() {
    if (m_isTerminal) tcsetattr(STDIN_FILENO, TCSANOW, &m_before);
  }
  RawTerminal(const RawTerminal&) = delete;
  RawTerminal& operator=(const RawTerminal&) = delete;

  std::string Keys() const {
    struct pollfd input = {STDIN_FILENO, POLLIN, 0};
    char keys[16];
    if (!m_isTerminal || poll(&input, 1, 0) <= 0) return "";
    const ssize_t count = read(STDIN_FILENO, keys, sizeof keys);
    return std::string(keys, count > 0 ? static_cast<size_t>(count) : 0);
  }

 private:
  struct termios m_before = {};
  const bool m_isTerminal;
};

}  // namespace

Player::Player(const Options& options, const PlayRequest& request)
    : m_options(options),
      m_request(request),
      m_progress(ChosenProgress(options)),
      m_output([this] { return m_isQuit || WasInterrupted(); }) {
  g_player = this;
}

Player::~Player() {
  g_player = nullptr;
}

void Player::OnParams(unsigned int, const VIDEO_PARAM* video, const AUDIO_PARAM* audio) {
  g_player->TakeParams(*video, *audio);
}

PlaybackPushResult Player::OnVideo(unsigned int, const char* frame, unsigned int length, unsigned long long ptsMs,
                                   int key) {
  g_player->TakeVideo(frame, length, ptsMs, key != 0);
  return BUF_OK;
}

PlaybackPushResult Player::OnAudio(unsigned int, const char* frame, unsigned int length,
                                   unsigned long long ptsMs) {
  g_player->TakeAudio(frame, length, ptsMs);
  return BUF_OK;
}

void Player::OnSeekDone(unsigned int) {
  const std::lock_guard<std::mutex> lock(g_player->m_mutex);
  g_player->m_stats.Jump();
  g_player->m_walk.SeekDone();
}

int Player::PlayDay(long long time) {
  CPlaybackSession session(1, 0, record::ToTimeWord(time), OnParams, OnVideo, OnAudio, OnSeekDone);
  m_day = &session;
  m_walk.SoughtByUser(time);
  if (m_request.oneFile) session.isPlayBackOneVideo();
  const int code = Play(session);
  m_day = nullptr;
  return code;
}

int Player::PlayFile(const std::string& path) {
  CPlayFileSession session(1, path, OnParams, OnVideo, OnAudio, OnSeekDone);
  return Play(session);
}

int Player::Play(CPlaybackControls& session) {
  const DeferSignals defer;
  const RawTerminal terminal;
  m_session = &session;
  SetSpeed(m_request.speed);
  if (session.Start() != 0) return Fail("there is no thread to play on");
  while (!m_done && !WasInterrupted() && (session.IsPlaying() || GoOn())) {
    for (const char key : terminal.Keys()) TakeKey(key);
    if (m_progress.IsDue()) ShowStatus();
    record::SleepMs(kPollMs);
  }
  session.Stop();
  ClearProgressLine();
  return Report();
}

// The session itself stays at a file that it cannot open.
bool Player::GoOn() {
  if (!m_day || m_request.oneFile) return false;
  const std::lock_guard<std::mutex> lock(m_mutex);
  std::vector<std::string> unreadable;
  const long long time = m_walk.GoOn(m_day->GetEndedFile(), unreadable);
  for (const std::string& file : unreadable) Say(ShownFile(m_options, file) + ": cannot be played");
  m_hasUnreadable = m_hasUnreadable || !unreadable.empty();
  if (time >= 0) m_session->Seek(record::ToTimeWord(time));
  return time >= 0;
}

int Player::Report() {
  if (!m_error.empty()) return Fail(m_error);
  if (m_stats.Pictures() == 0 && !m_done && !WasInterrupted()) return Fail("there was nothing to play");
  const Json summary = m_stats.Summary();
  if (m_options.json && m_request.output != "-") WriteJson(summary);
  if (!m_options.json) {
    std::string text = Grouped(m_stats.Pictures()) + " pictures";
    for (const char* name :
         {"key_frames", "audio_frames", "repeated", "missing", "gaps", "late_p50_ms", "late_p99_ms"})
      text += std::string(", ") + name + " " + summary[name].dump();
    Say(text);
  }
  if (WasInterrupted()) return kInterrupted;
  return m_hasUnreadable ? kFailed : kOk;
}

void Player::TakeParams(const VIDEO_PARAM& video, const AUDIO_PARAM& audio) {
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_frameMs = video.framerate > 0 ? 1000 / video.framerate : 40;
  }
  if (m_request.output.empty() || m_done) return;
  if (m_output.IsOpen())
    m_output.Follow(video, audio);
  else if (!m_output.Open(m_request.output, video, audio))
    EndOutput();
}

// Who closes the other end of a pipe has seen enough; all else is an error.
void Player::EndOutput() {
  if (!m_output.Error().empty()) m_error = m_request.output + ": " + m_output.Error();
  m_done = true;
}

void Player::TakeVideo(const char* frame, unsigned length, unsigned long long ptsMs, bool isKey) {
  const std::optional<long long> time = NotePicture(length, ptsMs, isKey);
  if (time && m_output.IsOpen() && !m_output.WriteVideo(frame, length, *time, isKey)) EndOutput();
}

// Its time in the output.
std::optional<long long> Player::NotePicture(unsigned length, unsigned long long ptsMs, bool isKey) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  if (!m_hasPicture) m_firstPts = ptsMs;
  m_hasPicture = true;
  if (m_request.duration > 0 && ptsMs >= m_firstPts + 1000ULL * static_cast<unsigned>(m_request.duration))
    m_done = true;
  if (m_done) return std::nullopt;
  const std::string file = PlayingFile();
  const bool beginsFile = file != m_walk.Playing();
  m_walk.Plays(file);
  const bool hasStreamStamp = file.find(".kmv") != std::string::npos || file.find(".KMV") != std::string::npos;
  const auto now = static_cast<long long>(GetCurrentTimeStamp_u64());
  const ArrivedPicture picture = {ptsMs, m_session->GetFrameStamp(), hasStreamStamp, beginsFile, isKey, length,
                                  now};
  const unsigned gapMs = m_stats.Take(picture, m_speed, m_frameMs);
  if (gapMs > 0) TellOfGap(ptsMs, gapMs);
  const auto step = static_cast<long long>(ptsMs - m_lastPts);
  const long long shown = step > 0 && step <= 1000LL * std::max<int>(m_speed, 1) ? step : m_frameMs;
  if (m_stats.Pictures() > 1) m_outputMs += m_speed < 0 ? shown * -m_speed : shown / m_speed;
  m_lastPts = ptsMs;
  return m_outputMs;
}

void Player::TakeAudio(const char* frame, unsigned length, unsigned long long ptsMs) {
  const std::optional<long long> time = NoteSound(length, ptsMs);
  if (time && m_output.IsOpen() && !m_output.WriteAudio(frame, length, *time)) EndOutput();
}

std::optional<long long> Player::NoteSound(unsigned length, unsigned long long ptsMs) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  if (m_done || !m_hasPicture) return std::nullopt;
  m_stats.TakeSound(length);
  if (!m_output.WithoutSound().empty() && !m_toldOfSound) {
    Say(m_request.output + ": sound is left out: " + m_output.WithoutSound());
    m_toldOfSound = true;
  }
  const auto behind = static_cast<long long>(ptsMs - m_lastPts);
  return std::max(m_outputMs + behind, 0LL);
}

void Player::TellOfGap(unsigned long long ptsMs, unsigned gapMs) {
  Say("nothing was recorded for " + SecondsText(gapMs) + " s before " + TimeText(ptsMs));
}

std::string Player::TimeText(unsigned long long ptsMs) const {
  return m_day ? IsoTime(static_cast<long long>(ptsMs)) : SecondsText(static_cast<long long>(ptsMs)) + " s";
}

std::string Player::PlayingFile() {
  return m_day ? m_day->GetPlayingFile() : m_request.file;
}

void Player::SetSpeed(int speed) {
  m_speed = speed;
  speed < 0 ? m_session->Slow(-speed) : m_session->Fast(speed);
}

// Forward over a gap to what lies behind it: the session would go back to the file before. Nowhere at the end.
void Player::Jump(long long time, bool forward) {
  if (m_day) {
    time = forward ? PlayableFrom(time) : m_walk.BackTo(time);
    if (time <= 0) return;
    m_walk.SoughtByUser(time);
  }
  m_session->Seek(record::ToTimeWord(std::max(time, 0LL)));
}

// The arrows come as ESC [ and a letter, of which the letter alone counts.
void Player::TakeKey(char key) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  const auto now = static_cast<long long>(m_lastPts / 1000);
  switch (key) {
    case 'q':
      m_isQuit = true;
      m_done = true;
      break;
    case ' ':
      m_isPaused = !m_isPaused;
      m_isPaused ? m_session->Pause() : m_session->UnPause();
      m_stats.Jump();
      break;
    case 'C':
    case 'D':
      Jump(now + (key == 'C' ? kJumpSeconds : -kJumpSeconds), key == 'C');
      break;
    case '+':
    case '-': {
      const int next = m_speed + (key == '+' ? 1 : -1);
      SetSpeed(
          std::clamp(next == 0 || (next == -1 && key == '-') ? (key == '+' ? 1 : -2) : next, -kFastest, kFastest));
      m_stats.Jump();
      break;
    }
    default:
      break;
  }
}

void Player::ShowStatus() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  const unsigned long long pictures = m_stats.Pictures() - m_shownPictures;
  m_shownPictures = m_stats.Pictures();
  const std::string time = TimeText(m_lastPts);
  const std::string file = m_day ? ShownFile(m_options, PlayingFile()) : m_request.file;
  const std::string late = std::to_string(m_stats.LastLateness());
  const std::string speed = std::to_string(m_speed);
  m_progress.Show(
      time + "  speed " + speed + "  " + std::to_string(pictures) + " frames/s  " + late + " ms late  " + file,
      {{"phase", "play"},
       {"time", time},
       {"speed", speed},
       {"frames", std::to_string(pictures)},
       {"late_ms", late},
       {"file", file}});
}

}  // namespace recordctl
