/*
 * The public records as compiled callers know them: sizes and offsets on machines with 64-bit pointers.
 * Included after the public header, which must need nothing before it.
 */
#ifndef TRKAPI_TESTS_ABI_LAYOUT_H
#define TRKAPI_TESTS_ABI_LAYOUT_H

#include <stddef.h>

#ifdef __cplusplus
#define HOLDS(name, condition) static_assert(condition, #name)
#else
#define HOLDS(name, condition) typedef char name[(condition) ? 1 : -1]
#endif
#define SIZE(record, bytes) HOLDS(record##_size, sizeof(record) == (bytes))
#define FIELD(record, field, offset) HOLDS(record##_##field, offsetof(record, field) == (offset))

SIZE(FSAMPLE_REC, 200);
FIELD(FSAMPLE_REC, time, 0);
FIELD(FSAMPLE_REC, pupil_x, 4);
FIELD(FSAMPLE_REC, pupil_y, 12);
FIELD(FSAMPLE_REC, href_x, 20);
FIELD(FSAMPLE_REC, href_y, 28);
FIELD(FSAMPLE_REC, pupil_size, 36);
FIELD(FSAMPLE_REC, gaze_x, 44);
FIELD(FSAMPLE_REC, gaze_y, 52);
FIELD(FSAMPLE_REC, res_x, 60);
FIELD(FSAMPLE_REC, res_y, 64);
FIELD(FSAMPLE_REC, gaze_vel_x, 68);
FIELD(FSAMPLE_REC, gaze_vel_y, 76);
FIELD(FSAMPLE_REC, href_vel_x, 84);
FIELD(FSAMPLE_REC, href_vel_y, 92);
FIELD(FSAMPLE_REC, pupil_vel_x, 100);
FIELD(FSAMPLE_REC, pupil_vel_y, 108);
FIELD(FSAMPLE_REC, gaze_fvel_x, 116);
FIELD(FSAMPLE_REC, gaze_fvel_y, 124);
FIELD(FSAMPLE_REC, href_fvel_x, 132);
FIELD(FSAMPLE_REC, href_fvel_y, 140);
FIELD(FSAMPLE_REC, pupil_fvel_x, 148);
FIELD(FSAMPLE_REC, pupil_fvel_y, 156);
FIELD(FSAMPLE_REC, ext_data, 164);
FIELD(FSAMPLE_REC, flags, 180);
FIELD(FSAMPLE_REC, input, 182);
FIELD(FSAMPLE_REC, buttons, 184);
FIELD(FSAMPLE_REC, ext_type, 186);
FIELD(FSAMPLE_REC, status, 188);
FIELD(FSAMPLE_REC, sort_key, 192);

SIZE(FEVENT, 128);
FIELD(FEVENT, time, 0);
FIELD(FEVENT, type, 4);
FIELD(FEVENT, read_flags, 6);
FIELD(FEVENT, start_time, 8);
FIELD(FEVENT, end_time, 12);
FIELD(FEVENT, start_href_x, 16);
FIELD(FEVENT, start_href_y, 20);
FIELD(FEVENT, start_gaze_x, 24);
FIELD(FEVENT, start_gaze_y, 28);
FIELD(FEVENT, start_pupil_size, 32);
FIELD(FEVENT, end_href_x, 36);
FIELD(FEVENT, end_href_y, 40);
FIELD(FEVENT, end_gaze_x, 44);
FIELD(FEVENT, end_gaze_y, 48);
FIELD(FEVENT, end_pupil_size, 52);
FIELD(FEVENT, avg_href_x, 56);
FIELD(FEVENT, avg_href_y, 60);
FIELD(FEVENT, avg_gaze_x, 64);
FIELD(FEVENT, avg_gaze_y, 68);
FIELD(FEVENT, avg_pupil_size, 72);
FIELD(FEVENT, avg_velocity, 76);
FIELD(FEVENT, peak_velocity, 80);
FIELD(FEVENT, start_velocity, 84);
FIELD(FEVENT, end_velocity, 88);
FIELD(FEVENT, start_res_x, 92);
FIELD(FEVENT, end_res_x, 96);
FIELD(FEVENT, start_res_y, 100);
FIELD(FEVENT, end_res_y, 104);
FIELD(FEVENT, eye, 108);
FIELD(FEVENT, spare_word, 110);
FIELD(FEVENT, status_word, 112);
FIELD(FEVENT, aux_word1, 114);
FIELD(FEVENT, aux_word2, 116);
FIELD(FEVENT, parse_flags, 118);
FIELD(FEVENT, message, 120);

SIZE(FRECORDING, 48);
FIELD(FRECORDING, time, 0);
FIELD(FRECORDING, sample_rate, 4);
FIELD(FRECORDING, event_content_flags, 8);
FIELD(FRECORDING, sample_content_flags, 10);
FIELD(FRECORDING, state, 12);
FIELD(FRECORDING, record_type, 13);
FIELD(FRECORDING, pupil_mode, 14);
FIELD(FRECORDING, recording_mode, 15);
FIELD(FRECORDING, filter_level, 16);
FIELD(FRECORDING, pos_type, 17);
FIELD(FRECORDING, eye, 18);
FIELD(FRECORDING, sort_key, 24);
FIELD(FRECORDING, gaze_prescaler, 32);
FIELD(FRECORDING, window_size2, 36);
FIELD(FRECORDING, window_size1, 40);
FIELD(FRECORDING, close_pair, 44);

SIZE(CONFIG, 8);
FIELD(CONFIG, velocity_param_1, 0);
FIELD(CONFIG, velocity_param_2, 4);

SIZE(ALLF_DATA, 200);
FIELD(TRK_MESSAGE, length, 0);
FIELD(TRK_MESSAGE, text, 2);

#endif
