/*
 * The public records as compiled callers know them: sizes, and the offset of the first field of each run of fields
 * of one type, on machines with 64-bit pointers. Compiled as C and as C++; the public header must need nothing
 * before it.
 */
#include "trkapi/trkapi.h"

/* NOLINTBEGIN(modernize-deprecated-headers,cppcoreguidelines-macro-usage): C as well */
#include <stddef.h>

/* Cannot be compiled unless the condition holds. */
#define HOLDS(name, condition) enum { name = 1 / ((condition) ? 1 : 0) }
#define SIZE(record, bytes) HOLDS(record##_size, sizeof(record) == (bytes))
#define FIELD(record, field, offset) HOLDS(record##_##field, offsetof(record, field) == (offset))

SIZE(FSAMPLE_REC, 200);
FIELD(FSAMPLE_REC, pupil_x, 4);
FIELD(FSAMPLE_REC, ext_data, 164);
FIELD(FSAMPLE_REC, sort_key, 192);

SIZE(FEVENT, 128);
FIELD(FEVENT, type, 4);
FIELD(FEVENT, start_time, 8);
FIELD(FEVENT, start_href_x, 16);
FIELD(FEVENT, eye, 108);
FIELD(FEVENT, message, 120);

SIZE(FRECORDING, 48);
FIELD(FRECORDING, event_content_flags, 8);
FIELD(FRECORDING, state, 12);
FIELD(FRECORDING, sort_key, 24);
FIELD(FRECORDING, gaze_prescaler, 32);
FIELD(FRECORDING, window_size2, 36);
FIELD(FRECORDING, close_pair, 44);

SIZE(CONFIG, 8);
SIZE(TRIAL, 24);
FIELD(TRIAL, duration, 8);
SIZE(BOOKMARK, 4);
SIZE(ALLF_DATA, 200);
FIELD(TRK_MESSAGE, text, 2);

SIZE(TRK_OPEN_OPTIONS, 64);
FIELD(TRK_OPEN_OPTIONS, flags, 8);
FIELD(TRK_OPEN_OPTIONS, config, 20);
FIELD(TRK_OPEN_OPTIONS, message_log, 32);
SIZE(TRK_ERROR, 280);
FIELD(TRK_ERROR, offset, 8);
FIELD(TRK_ERROR, text, 16);
FIELD(TRK_ERROR, item, 272);
SIZE(TRK_COLUMN, 24);
FIELD(TRK_COLUMN, type, 4);
FIELD(TRK_COLUMN, data, 8);
FIELD(TRK_COLUMN, stride, 16);
SIZE(TRK_COLUMN_DESCRIPTION, 56);
FIELD(TRK_COLUMN_DESCRIPTION, name, 8);
FIELD(TRK_COLUMN_DESCRIPTION, record_offset, 48);
SIZE(TRK_DAMAGE, 296);
FIELD(TRK_DAMAGE, offset, 8);
FIELD(TRK_DAMAGE, time, 32);
FIELD(TRK_DAMAGE, text, 36);
/* NOLINTEND(modernize-deprecated-headers,cppcoreguidelines-macro-usage) */
