/* Prints the saccades of a recording: walk FILE */
#include <stdio.h>
#include <trkapi/trkapi.h>

int main(int argc, char **argv) {
    int error = 0;
    _TRKFILE *recording = argc == 2 ? trk_open_file(argv[1], TRK_OPEN_CHECK, TRK_EVENTS_ALL, 1, &error) : NULL;
    if (recording == NULL) {
        fprintf(stderr, "walk: no recording can be read\n");
        return 1;
    }
    for (int code = trk_get_next_data(recording); code != 0; code = trk_get_next_data(recording)) {
        const ALLF_DATA *item = code == REC_ESACC ? trk_get_float_data(recording) : NULL;
        if (item != NULL) {
            const FEVENT *saccade = &item->event;
            printf("%s eye, %u to %u ms: from (%.1f, %.1f) to (%.1f, %.1f), peak %.1f degrees per second\n",
                   saccade->eye == 0 ? "left" : "right", (unsigned)saccade->start_time,
                   (unsigned)saccade->end_time, saccade->start_gaze_x, saccade->start_gaze_y, saccade->end_gaze_x,
                   saccade->end_gaze_y, saccade->peak_velocity);
        }
    }
    return trk_close_file(recording);
}
