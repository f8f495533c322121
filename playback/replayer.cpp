#include "base/no_throw.h"
#include "playback/file_replayer.h"
#include "record/replay.h"

CReplayer::CReplayer(char* path, ReplayContext context, bool follow)
    : m_state(std::make_shared<record::FileReplayer>(path, context, follow)) {}

CReplayer::~CReplayer() {
  Stop();
}

void CReplayer::SetCallbacks(ReplayWaitQuery waitQuery, ReplayReadError readError, ReplayVideoFrame video,
                             ReplayAudioFrame audio) {
  m_state->SetCallbacks({waitQuery, readError, video, audio});
}

int CReplayer::Start() try {
  const std::shared_ptr<record::FileReplayer> replayer =
      m_state;  // a callback may delete the replayer before this returns
  return replayer->Start();
}
RECORD_NO_THROW(-1)

int CReplayer::Stop() {
  m_state->Stop();
  return 0;
}

int CReplayer::Pause() {
  m_state->SetPaused(true);
  return 0;
}

int CReplayer::Resume() {
  m_state->SetPaused(false);
  return 0;
}

int CReplayer::Seek(int seconds) {
  m_state->Seek({false, seconds});
  return 0;
}

int CReplayer::SeekByPercent(int percent) {
  m_state->Seek({true, percent});
  return 0;
}

int CReplayer::Fast(int speed) {
  return m_state->SetSpeed(speed, 1);
}

int CReplayer::Slow(int speed) {
  return m_state->SetSpeed(speed, -1);
}

const VIDEO_PARAM& CReplayer::GetVideoParam() const {
  return m_state->Video();
}

const AUDIO_PARAM& CReplayer::GetAudioParam() const {
  return m_state->Audio();
}
