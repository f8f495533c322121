// The exported sessions: each call goes on to the player behind it.
#include <sys/prctl.h>

#include <utility>

#include "base/clock.h"
#include "base/no_throw.h"
#include "base/time_word.h"
#include "playback/day_player.h"
#include "playback/file_player.h"

using namespace record;

CPlaybackControls::CPlaybackControls(std::shared_ptr<PlaybackPump> pump) : m_pump(std::move(pump)) {}

CPlaybackControls::~CPlaybackControls() = default;

int CPlaybackControls::Start() try {
  const std::shared_ptr<PlaybackPump> pump = m_pump;  // a callback may delete the session before this returns
  return pump->Start();
}
RECORD_NO_THROW(-1)

int CPlaybackControls::Stop() {
  m_pump->Stop();
  return 0;
}

int CPlaybackControls::Seek(long target) {
  m_pump->Seek(target);
  return 0;
}

int CPlaybackControls::Fast(int speed) {
  m_pump->Fast(speed);
  return 0;
}

int CPlaybackControls::Slow(int speed) {
  m_pump->Slow(speed);
  return 0;
}

int CPlaybackControls::Pause() {
  m_pump->SetPaused(true);
  return 0;
}

int CPlaybackControls::UnPause() {
  m_pump->SetPaused(false);
  return 0;
}

int CPlaybackControls::SetAovMode() {
  m_pump->SetAovMode();
  return 0;
}

int CPlaybackControls::SeekNextIFrame() try {
  m_pump->SeekNextIFrame();
  return 0;
}
RECORD_NO_THROW(0)

unsigned int CPlaybackControls::GetSessionID() const {
  return m_pump->SessionId();
}

int CPlaybackControls::GetParams(VIDEO_PARAM* video, AUDIO_PARAM* audio) {
  return m_pump->GetParams(video, audio);
}

bool CPlaybackControls::IsPlaying() {
  return m_pump->IsPlaying();
}

unsigned int CPlaybackControls::GetFrameStamp() const {
  return m_pump->FrameStamp();
}

int CPlaybackControls::CloseFile() {
  m_pump->CloseFile();
  return 0;
}

int CPlaybackControls::Work() try { return m_pump->Work(); }
RECORD_NO_THROW(-1)

void* CPlaybackControls::PlaybackThread(void* session) {
  const std::shared_ptr<PlaybackPump> pump = static_cast<CPlaybackControls*>(session)->m_pump;
  prctl(PR_SET_NAME, "PlaybackThread");
  pump->ThreadMain();
  return nullptr;
}

// ----------------------------------------------------------------------------------------------- a day

CPlaybackSession::CPlaybackSession(unsigned int sessionId, int channel, long seekTime,
                                   PlaybackParamsCallback params, PlaybackVideoCallback videoPush,
                                   PlaybackAudioCallback audioPush, PlaybackSeekDoneCallback seekDone)
    : CPlaybackControls(std::make_shared<DayPlayer>(sessionId, channel, seekTime,
                                                    PlaybackCallbacks{params, videoPush, audioPush, seekDone})) {
  const struct tm at = LocalTime(FromTimeWord(seekTime));
  RECORD_LOG_MODULE(kLogModuleLifecycle, "new ch:%d, session %u, seektime %d(%04d-%02d-%02d %02d:%02d:%02d)\n",
                    channel, sessionId, static_cast<int>(seekTime), at.tm_year + 1900, at.tm_mon + 1, at.tm_mday,
                    at.tm_hour, at.tm_min, at.tm_sec);
}

CPlaybackSession::~CPlaybackSession() {
  RECORD_LOG_MODULE(kLogModuleLifecycle, "ready to destroy ch:%d, session %u\n", GetChannel(), GetSessionID());
  Stop();
  RECORD_LOG_MODULE(kLogModuleLifecycle, "succeed to destroy ch:%d, session %u\n", GetChannel(), GetSessionID());
}

DayPlayer& CPlaybackSession::Player() const {
  return static_cast<DayPlayer&>(*m_pump);
}

int CPlaybackSession::isPlayBackOneVideo() {
  Player().PlayOneFile();
  return 0;
}

int CPlaybackSession::GetChannel() const {
  return Player().Channel();
}

int CPlaybackSession::GetPlayTime(long& time) const {
  time = Player().ReportedTime();
  return 0;
}

unsigned int CPlaybackSession::GetPlaybackFileInfo(PlaybackFileInfo& out) {
  return Player().GetInfo(out);
}

std::string CPlaybackSession::GetPlayingFile() try { return Player().PlayingFile(); }
RECORD_NO_THROW({})

std::string CPlaybackSession::GetEndedFile() try { return Player().EndedFile(); }
RECORD_NO_THROW({})

int CPlaybackSession::SearchFiles() try { return Player().SearchFiles(); }
RECORD_NO_THROW(-1)

int CPlaybackSession::NextFile() try { return Player().NextFile(); }
RECORD_NO_THROW(-1)

int CPlaybackSession::InnerSeek(long time) try { return Player().InnerSeek(FromTimeWord(time)); }
RECORD_NO_THROW(-1)

int CPlaybackSession::OpenFile(std::string path, const PlaybackFileInfo& info) try {
  return Player().OpenFile(path, info);
}
RECORD_NO_THROW(-1)

bool CPlaybackSession::IsSameDay(long a, long b) const {
  return IsSameLocalDay(FromTimeWord(a), FromTimeWord(b));
}

bool CPlaybackSession::IsToday(long time) const {
  return IsSameLocalDay(FromTimeWord(time), WallNow().seconds);
}

unsigned int CPlaybackSession::GetStartTimestampByFileName(std::string path) const {
  return StartTimestampOf(path);
}

unsigned int CPlaybackSession::GetStartSecondByFileName(std::string path) const {
  return StartSecondOf(path);
}

// --------------------------------------------------------------------------------------------- a file

CPlayFileSession::CPlayFileSession(unsigned int sessionId, std::string path, PlaybackParamsCallback params,
                                   PlaybackVideoCallback videoPush, PlaybackAudioCallback audioPush,
                                   PlaybackSeekDoneCallback seekDone)
    : CPlaybackControls(std::make_shared<FilePlayer>(sessionId, std::move(path),
                                                     PlaybackCallbacks{params, videoPush, audioPush, seekDone})) {
  RECORD_LOG_MODULE(kLogModuleLifecycle, "new playfile:%s, session %u\n", Player().Path().c_str(), sessionId);
}

CPlayFileSession::~CPlayFileSession() {
  const std::string& path = Player().Path();
  // "session 1%u" is kept: its readers know it so.
  RECORD_LOG_MODULE(kLogModuleLifecycle, "ready to destroy %s, session 1%u\n", path.c_str(), GetSessionID());
  Stop();
  RECORD_LOG_MODULE(kLogModuleLifecycle, "succeed to destroy %s, session %u\n", path.c_str(), GetSessionID());
}

FilePlayer& CPlayFileSession::Player() const {
  return static_cast<FilePlayer&>(*m_pump);
}

int CPlayFileSession::GetPlaybackFileTime(unsigned long& time) {
  time = Player().FileTime();
  return 0;
}

int CPlayFileSession::OpenFile() try { return Player().OpenFile(); }
RECORD_NO_THROW(-1)

int CPlayFileSession::InnerSeek(int offset) try { return Player().InnerSeek(offset); }
RECORD_NO_THROW(-1)
