// All of librecord.
#ifndef RECORD_RECORD_H
#define RECORD_RECORD_H

#include "record/avi_header.h"
#include "record/catalogue.h"
#include "record/export.h"
#include "record/lookups.h"
#include "record/maintenance.h"
#include "record/photo_task.h"
#include "record/platform.h"
#include "record/playback.h"
#include "record/pre_record.h"
#include "record/replay.h"
#include "record/storage.h"
#include "record/task.h"
#include "record/task_manager.h"
#include "record/types.h"
#include "record/video_file.h"

#endif
