/*
 * Tells how good a recording is: what is damaged, and how much gaze is missing in each trial. Usage: quality FILE
 * Exit status: 0 sound, or sound after repairs; 1 damaged; 2 wrong usage; 3 not readable.
 */
#include <stdio.h>
#include <trkapi/trkapi.h>

/* Prints damages and repairs. Returns the number of damages. */
static int print_damages(_TRKFILE *recording) {
    int damages = 0;
    TRK_DAMAGE damage;
    for (int i = 0; trk_get_damage(recording, i, &damage) == 0; ++i) {
        if (damage.kind >= TRK_REPAIR_DROPPED_SAMPLES) {
            printf("repaired: %s\n", damage.text);
        } else {
            ++damages;
            printf("damage at byte %lld, %lld bytes long, behind %u ms: %s\n", (long long)damage.offset,
                   (long long)damage.length, (unsigned)damage.time, damage.text);
        }
    }
    return damages;
}

static const unsigned eye_flags[2] = {TRK_SAMPLE_LEFT, TRK_SAMPLE_RIGHT};

/* Counts the samples of each eye, and those without gaze. A dummy sample, which stands for a lost one, has the
   flags of both eyes whatever was recorded: then the eyes of the recording block count. */
static void count(const FSAMPLE_REC *sample, unsigned block_eyes, unsigned samples[2], unsigned missing[2]) {
    const int dummy = (sample->flags & TRK_SAMPLE_RECORD) == 0;
    const int carried = (sample->flags & TRK_SAMPLE_GAZE) != 0;
    for (unsigned eye = 0; eye < 2; ++eye) {
        if (dummy ? block_eyes >> eye & 1U : carried && (sample->flags & eye_flags[eye]) != 0) {
            ++samples[eye];
            missing[eye] += sample->gaze_x[eye] == MISSING_DATA || sample->gaze_y[eye] == MISSING_DATA;
        }
    }
}

/* Prints how much gaze the trial lacks in each eye. A trial begins with a recording block, which has the eyes. */
static void print_trial(_TRKFILE *recording, int trial) {
    unsigned first = 0, end = 0, block_eyes = 0, samples[2] = {0, 0}, missing[2] = {0, 0};
    if (trk_get_trial_range(recording, trial, &first, &end) != 0 || trk_goto_item(recording, first) != 0) {
        return;
    }
    for (; first < end; ++first) {
        const int code = trk_get_next_data(recording);
        const ALLF_DATA *item = code == REC_SAMPLE || code == REC_RECORDING ? trk_get_float_data(recording) : NULL;
        if (item != NULL && code == REC_RECORDING) {
            block_eyes = item->recording.eye;
        } else if (item != NULL) {
            count(&item->sample, block_eyes, samples, missing);
        }
    }
    printf("trial %d:", trial + 1);
    for (int eye = 0; eye < 2; ++eye) {
        if (samples[eye] > 0) {
            printf("%s %s gaze missing in %.2f %% of %u samples", eye == 1 && samples[0] > 0 ? "," : "",
                   eye == 0 ? "left" : "right", 100.0 * missing[eye] / samples[eye], samples[eye]);
        }
    }
    puts(samples[0] + samples[1] > 0 ? "" : " no gaze");
}

int main(int argc, char **argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: quality FILE\n");
        return 2;
    }
    TRK_OPEN_OPTIONS options;
    TRK_ERROR error;
    trk_default_options(&options);
    options.flags = TRK_OPEN_CHECK_AND_FILL | TRK_OPEN_SALVAGE;
    _TRKFILE *recording = trk_open(argv[1], &options, &error);
    if (recording == NULL) {
        fprintf(stderr, "quality: %s\n", error.text);
        return 3;
    }
    const int damages = print_damages(recording);
    const int trials = trk_get_trial_count(recording);
    for (int trial = 0; trial < trials; ++trial) {
        print_trial(recording, trial);
    }
    trk_close_file(recording);
    return damages > 0 ? 1 : 0;
}
