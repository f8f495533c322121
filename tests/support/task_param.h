// What tasks are made with in tests.
#ifndef TESTS_SUPPORT_TASK_PARAM_H
#define TESTS_SUPPORT_TASK_PARAM_H

#include "record/task.h"

namespace fake {

// A scheduled task of the main stream with sensible values, without sound.
inline RECORD_TASK_PARAM DefaultParam() {
  RECORD_TASK_PARAM param = {};
  param.recordtype = RECORD_KIND_SCHEDULE;
  param.stream = STREAM_MAIN;
  param.video_enable = 1;
  param.width = 640;
  param.height = 360;
  param.bitrate = 1000000;
  param.framerate = 25;
  param.duration = 10;
  param.max_file_seconds = 1800;
  param.local_store = 1;
  param.video_type = VIDEO_CODEC_H264;
  param.audio_type = AUDIO_CODEC_NONE;
  param.keep_frame_tail = 1;
  param.rectype_code = 'A';
  return param;
}

// As a camera of today records, with the sound of a telephone: G.711, `law` being one of its two codecs.
inline RECORD_TASK_PARAM CameraParam(int law) {
  RECORD_TASK_PARAM param = DefaultParam();
  param.width = 1920;
  param.height = 1080;
  param.bitrate = 4000000;
  param.audio_enable = 1;
  param.audio_type = law;
  param.samplerate = 8000;
  param.bits = 16;
  param.channels = 1;
  param.audio_param_a = 25;
  param.audio_param_b = 64000;
  return param;
}

}  // namespace fake

#endif
