/*
 * trkapi.h: read access to the recording files of Pupilon video eye trackers.
 *
 * Valid C99 and C++17. This is the only header a caller needs.
 *
 * A caller opens a recording, steps through its items in time order and fetches the items that it wants:
 *
 *     int error = 0;
 *     _TRKFILE *recording = trk_open_file("trial.trk", TRK_OPEN_CHECK, TRK_EVENTS_ALL, 1, &error);
 *     if (recording == NULL)
 *         return 1;
 *     for (int code; (code = trk_get_next_data(recording)) != 0;) {
 *         const ALLF_DATA *item = trk_get_float_data(recording);
 *         if (item != NULL && code == REC_SAMPLE)
 *             use(item->sample.time, item->sample.gaze_x[0], item->sample.gaze_y[0]);
 *     }
 *     trk_close_file(recording);
 *
 * Conventions, which hold for every call unless its own text says otherwise:
 *
 *  1. Handles. A handle comes from an open call and stays usable until trk_close_file. A null or closed handle is
 *     the caller's error: trk_close_file takes it, those that read many items at once fail with
 *     null, no other call checks it.
 *  2. Threads. Use a handle in one thread at a time. Different handles may be used in different threads at the
 *     same time. The log hook, the name of the extra message log and the viewing geometry are process-wide. They
 *     may be set and used from any thread; a log hook must be safe to be called from all threads that use the
 *     library, and threads that share the geometry share its averages.
 *  3. Returned records live in buffers of the handle. They are valid, and may be changed by the caller, until the
 *     next call with the same handle that steps, fetches, searches, sets trial texts or closes. Copy what must
 *     live longer. A message text that an event points at lives in another buffer of the handle, for the same
 *     time.
 *  4. Errors. Calls that return a record return null when there is none. Diagnostic lines go to the log hook,
 *     or to standard output when none is set. No call throws an exception: where memory runs out it gives its
 *     result for failure (null, -1 or 0) and logs "Out of memory\n". Some lines go to standard output whether or
 *     not a hook is set: those of trk_open_file and trk_open_file_ex ("loadEvents = N", and about the extra
 *     message log), those of trk_set_trial_identifier (the texts, and with trials by input values the numbers),
 *     and "removed last trial" of any call that collects trials: see at Trials. No other call prints.
 *  5. Units. Times are milliseconds of the tracker's clock. Gaze positions are display pixels, head-referenced
 *     (HREF) positions lie on a plane 15000 units before the eye, raw pupil positions are camera units,
 *     velocities are degrees of visual angle per second, resolutions are position units per degree. Pupil
 *     sizes are area or diameter in the tracker's own units.
 *  6. Eyes. Arrays of two are indexed 0 = left eye, 1 = right eye.
 *  7. Missing values. A value that is not known reads MISSING_DATA (100000000.0). Two more markers stand in
 *     samples: TRK_FIELD_ABSENT (-32768.0) in positions and pupil sizes that the record does not carry, and
 *     TRK_WORD_ABSENT (32768) in 16-bit words that it does not carry. Raw pupil and HREF positions and pupil
 *     sizes have no missing marker of their own in the file; a stored -32768 is handed on as such.
 */
#ifndef TRKAPI_TRKAPI_H
#define TRKAPI_TRKAPI_H

#include <stddef.h>
#include <stdint.h>

/*
 * Version of this header, for #if. Later versions of the same major version only add calls: a program that was
 * built with an older header runs with a newer library.
 */
#define TRKAPI_VERSION_MAJOR 4
#define TRKAPI_VERSION_MINOR 3
#define TRKAPI_VERSION_PATCH 0
#define TRKAPI_VERSION (TRKAPI_VERSION_MAJOR * 1000000 + TRKAPI_VERSION_MINOR * 10000 + TRKAPI_VERSION_PATCH)

#if defined(__GNUC__)
#define TRK_API __attribute__((visibility("default")))
#else
#define TRK_API
#endif

/* Calls throw no exception. */
#ifdef __cplusplus
#define TRK_NOTHROW noexcept
#else
#define TRK_NOTHROW
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Missing values ------------------------------------------------------------------------------------- */

/* A value marked as missing in the recording, lacking in this kind of record, or not computable. */
#define MISSING_DATA 100000000.0f
/* Initial value of a sample's positions: the record carries no such field group, or not for this eye. */
#define TRK_FIELD_ABSENT (-32768.0f)
/* FSAMPLE_REC.status, .input and .ext_type: the record does not carry this word. */
#define TRK_WORD_ABSENT 32768

/* ---- Data type codes ------------------------------------------------------------------------------------ */

/* What an item is. The code comes from trk_get_next_data; events repeat it in FEVENT.type. */
enum {
    REC_EVENT1 = 1,        /* not delivered */
    REC_EVENT2 = 2,        /* not delivered */
    REC_SBLINK = 3,        /* start of a blink, one eye */
    REC_EBLINK = 4,        /* end of a blink */
    REC_SSACC = 5,         /* start of a saccade */
    REC_ESACC = 6,         /* end of a saccade */
    REC_SFIX = 7,          /* start of a fixation */
    REC_EFIX = 8,          /* end of a fixation */
    REC_EVENT9 = 9,        /* eye event without special handling */
    REC_EVENT10 = 10,      /* eye event without special handling */
    REC_STARTSAMPLES = 15, /* start of a recording block that carries samples */
    REC_ENDSAMPLES = 16,   /* end of such a block */
    REC_STARTEVENTS = 17,  /* start of a recording block that carries events */
    REC_ENDEVENTS = 18,    /* end of such a block */
    REC_MESSAGE = 24,      /* message with a text */
    REC_BUTTON = 25,       /* button event; see at FEVENT */
    REC_INPUT = 28,        /* event of the digital input port */
    REC_RECORDING = 30,    /* start or end of a recording block, FRECORDING; made by the library */
    REC_SAMPLE = 200       /* sample, FSAMPLE_REC */
};

/* ---- Records -------------------------------------------------------------------------------------------- */

/* Bits of FSAMPLE_REC.flags. */
enum {
    TRK_SAMPLE_LEFT = 0x8000,            /* left-eye data present */
    TRK_SAMPLE_RIGHT = 0x4000,           /* right-eye data present */
    TRK_SAMPLE_FULL_TIME = 0x2000,       /* the file's record held a full 32-bit time stamp */
    TRK_SAMPLE_PUPIL_POSITION = 0x1000,  /* raw pupil position present */
    TRK_SAMPLE_HREF = 0x0800,            /* head-referenced position present */
    TRK_SAMPLE_GAZE = 0x0400,            /* gaze position present */
    TRK_SAMPLE_RESOLUTION = 0x0200,      /* resolution present */
    TRK_SAMPLE_PUPIL_SIZE = 0x0100,      /* pupil size present */
    TRK_SAMPLE_STATUS = 0x0080,          /* status word present */
    TRK_SAMPLE_INPUT = 0x0040,           /* input word present */
    TRK_SAMPLE_BUTTONS = 0x0020,         /* buttons word present */
    TRK_SAMPLE_EXTENSION = 0x0010,       /* extension words present */
    TRK_SAMPLE_SKIP_LIST1 = 0x0008,      /* the file's record held a first list of skipped blocks */
    TRK_SAMPLE_SKIP_LIST2 = 0x0004,      /* the file's record held a second list of skipped blocks */
    TRK_SAMPLE_DUPLICATE_TIME = 0x0002,  /* delivered under another time key than twice its time: the time stamp
                                            repeats that of the sample before; always set from 2147483648 ms on */
    TRK_SAMPLE_RECORD = 0x0001           /* always set in samples of the file; clear in dummy samples */
};

/*
 * One time point, both eyes.
 *
 * A dummy sample stands for one that the tracker lost, or that is not where the index has it (files opened with
 * TRK_OPEN_CHECK_AND_FILL). It has flags LEFT and RIGHT without RECORD, MISSING_DATA in every position and in the
 * resolution, the last pupil sizes known in pupil_size, and 0 in input, buttons, ext_type and status. Its
 * velocities are MISSING_DATA too, unless a fixed resolution is given (CONFIG): then they are computed like those
 * of any other sample, and as it has no position itself, only the trackers that make do with its neighbours, all
 * but model 3, give it any. In such files a sample inside a blink has MISSING_DATA for the gaze of the eye that
 * blinks.
 *
 * Velocities are computed by the library from the neighbouring samples: `vel` is the smoothed estimate, `fvel`
 * the fast one. They read MISSING_DATA for an absent eye and where neighbours are lacking: beside a gap, at the
 * edges of a recording block, and after a jump into the middle of a block for want of the samples before it. For
 * tracker model 3 all neighbours of a span of 5 to 39 samples must be there; for the others, two samples do.
 */
typedef struct FSAMPLE_REC {
    uint32_t time;         /* ms */
    float pupil_x[2];      /* raw pupil position, camera units; TRK_FIELD_ABSENT when not carried */
    float pupil_y[2];
    float href_x[2];       /* head-referenced position, HREF units; TRK_FIELD_ABSENT when not carried */
    float href_y[2];
    float pupil_size[2];   /* tracker units; a sample without pupil size repeats the last one known, or 1000.0;
                              TRK_FIELD_ABSENT for an absent eye of a sample that carries pupil size */
    float gaze_x[2];       /* display pixels; MISSING_DATA when lost, TRK_FIELD_ABSENT when not carried */
    float gaze_y[2];
    float res_x;           /* resolution at the gaze position, pixels per degree; MISSING_DATA when not carried */
    float res_y;
    float gaze_vel_x[2];   /* smoothed velocities, degrees per second; MISSING_DATA when not computable */
    float gaze_vel_y[2];
    float href_vel_x[2];
    float href_vel_y[2];
    float pupil_vel_x[2];
    float pupil_vel_y[2];
    float gaze_fvel_x[2];  /* fast velocities, degrees per second; MISSING_DATA when not computable */
    float gaze_fvel_y[2];
    float href_fvel_x[2];
    float href_fvel_y[2];
    float pupil_fvel_x[2];
    float pupil_fvel_y[2];
    uint16_t ext_data[8];  /* extension words; 0 beyond those that the record carries */
    uint16_t flags;        /* TRK_SAMPLE_* bits */
    uint16_t input;        /* input port; TRK_WORD_ABSENT when not carried */
    uint16_t buttons;      /* button state, as the tracker wrote it: which bit is which button, and whether set is
                              pressed, is not known; 0 when not carried */
    uint16_t ext_type;     /* header byte of the extension words; TRK_WORD_ABSENT when not carried */
    uint16_t status;       /* status and error bits, as the tracker wrote them: what each bit stands for is not
                              known; TRK_WORD_ABSENT when not carried */
    uint64_t sort_key;     /* time key of the item: 2 x the file's time, plus 1 for a repeated time stamp */
} FSAMPLE_REC;

/*
 * Text of a message, ended by a zero byte. Messages of a recording hold `length` bytes, at most 498, of any value,
 * zero included. Messages of the extra log hold at most 260 bytes, while `length` is that of the whole text: read
 * them up to the zero byte.
 */
typedef struct TRK_MESSAGE {
    uint16_t length;
    char text[500];
} TRK_MESSAGE;

/*
 * Bits of FEVENT.read_flags: what the file's record carried. The position bits say which part of the event is
 * meant (start, end, average) and which coordinates (raw, HREF, gaze); TRK_EVENT_PUPIL_SIZE, _VELOCITY and
 * _RESOLUTION come with a bit of TRK_EVENT_AT_* in the same way.
 */
enum {
    TRK_EVENT_AT_START = 0x0001,         /* also: start time present */
    TRK_EVENT_AT_END = 0x0002,
    TRK_EVENT_AT_AVERAGE = 0x0004,       /* average, or peak of a velocity */
    TRK_EVENT_START_POSITION = 0x0008,
    TRK_EVENT_END_POSITION = 0x0010,
    TRK_EVENT_AVERAGE_POSITION = 0x0020,
    TRK_EVENT_END_TIME = 0x0040,
    TRK_EVENT_PUPIL_SIZE = 0x0080,
    TRK_EVENT_VELOCITY = 0x0100,
    TRK_EVENT_RESOLUTION = 0x0200,
    TRK_EVENT_RAW = 0x0400,
    TRK_EVENT_HREF = 0x0800,
    TRK_EVENT_GAZE = 0x1000,
    TRK_EVENT_STATUS = 0x2000
};

/*
 * An event: what happened at one moment (messages, buttons, inputs, starts) or over a span (ends of blinks,
 * saccades and fixations sum up the whole of it). A field that the file's record does not carry reads 0; HREF and
 * gaze positions, resolutions and velocities that it marks as missing read MISSING_DATA. A record that carries
 * raw positions puts them into the gaze fields, and their second value also into start_href_x (start and average)
 * or end_href_x (end), their first value at the average also into avg_href_x.
 *
 * In a start of a recording block several fields mean something else: start_pupil_size is the gaze divisor,
 * end_pupil_size the velocity divisor, avg_velocity the sample rate in samples per second where the record names
 * one, end_res_x the mode word, aux_word2 a block factor (1 when the record names none), status_word the block's
 * content flags (of a REC_STARTSAMPLES, TRK_SAMPLE_* bits; of a REC_STARTEVENTS, bits of its own, which are not
 * known), aux_word1 of a REC_STARTEVENTS the block's eyes.
 *
 * In every other event status_word, aux_word1 and aux_word2 are handed on as the tracker wrote them. What the bits
 * of status_word stand for is not known. Nor is it known which field of a REC_BUTTON holds the number and the
 * state of the button, and how: look at aux_word1 first, which holds the value of the port in a REC_INPUT, and
 * compare with FSAMPLE_REC.buttons of the samples around.
 */
typedef struct FEVENT {
    uint32_t time;          /* ms; 0 for events read from the file (before times are moved) */
    int16_t type;           /* REC_* code */
    uint16_t read_flags;    /* TRK_EVENT_* bits */
    uint32_t start_time;    /* ms */
    uint32_t end_time;      /* ms; 0 when the record carries none (before times are moved); start_time in a start
                               of a recording block, and in an end of one that carries none */
    float start_href_x;     /* positions at the start, HREF units and pixels */
    float start_href_y;
    float start_gaze_x;
    float start_gaze_y;
    float start_pupil_size; /* tracker units */
    float end_href_x;       /* the same at the end */
    float end_href_y;
    float end_gaze_x;
    float end_gaze_y;
    float end_pupil_size;
    float avg_href_x;       /* the same, averaged over the event */
    float avg_href_y;
    float avg_gaze_x;
    float avg_gaze_y;
    float avg_pupil_size;
    float avg_velocity;     /* degrees per second */
    float peak_velocity;
    float start_velocity;
    float end_velocity;
    float start_res_x;      /* resolution, pixels per degree */
    float end_res_x;
    float start_res_y;
    float end_res_y;
    int16_t eye;            /* 0 left, 1 right */
    uint16_t spare_word;    /* always 0 */
    uint16_t status_word;   /* status bits of the tracker, see above */
    uint16_t aux_word1;     /* REC_INPUT: the value of the input port; REC_BUTTON: see above */
    uint16_t aux_word2;
    uint16_t parse_flags;   /* low byte of the file's tag word, bit 0 cleared */
    const TRK_MESSAGE *message; /* text that the record carries, as every REC_MESSAGE should; owned by the handle
                                   (convention 3); null without text */
} FEVENT;

/* Values of FRECORDING.state, .record_type and .eye. */
enum { TRK_BLOCK_END = 0, TRK_BLOCK_START = 1 };
enum { TRK_BLOCK_SAMPLES = 1, TRK_BLOCK_EVENTS = 2, TRK_BLOCK_SAMPLES_AND_EVENTS = 3 };
enum { TRK_EYE_NONE = 0, TRK_EYE_LEFT = 1, TRK_EYE_RIGHT = 2, TRK_EYE_BOTH = 3 };

/* Start or end of a recording block, a stretch in which the tracker recorded without a pause. */
typedef struct FRECORDING {
    uint32_t time;                 /* ms */
    float sample_rate;             /* samples per second */
    uint16_t event_content_flags;  /* content flags of the block's events, bits that are not known; 0 at ends and
                                      when samples came first */
    uint16_t sample_content_flags; /* content flags of the block's samples, TRK_SAMPLE_* bits; 0 at an end or when
                                      events came first */
    uint8_t state;                 /* TRK_BLOCK_START or TRK_BLOCK_END */
    uint8_t record_type;           /* TRK_BLOCK_SAMPLES, _EVENTS or _SAMPLES_AND_EVENTS */
    uint8_t pupil_mode;            /* at a start: 1 when the file states a pupil mode other than 1, else 0; at an
                                      end 1 unless the end states mode 1 */
    uint8_t recording_mode;        /* 1 when the block's mode byte is not 0 */
    uint8_t filter_level;          /* level of the tracker's filter */
    uint8_t pos_type;              /* parse flags of the first record of the boundary that has any */
    uint8_t eye;                   /* TRK_EYE_* */
    uint64_t sort_key;             /* time key of the block: 2 x the file's time */
    float gaze_prescaler;          /* divisor of the block's gaze values; 0 at an end and when events came first */
    uint32_t window_size2;         /* height of the camera window, camera pixels: 190 */
    uint32_t window_size1;         /* width of the camera window, camera pixels: 176 */
    uint8_t close_pair;            /* 1 when less than 3 ms lie between this and a neighbouring start or end (files
                                      opened with a check) */
} FRECORDING;

/* Any item. Which member is valid follows from the code that trk_get_next_data returned. */
typedef union ALLF_DATA {
    FSAMPLE_REC sample;
    FEVENT event;
    FRECORDING recording;
} ALLF_DATA;

/*
 * Options of an open file, given by trk_open_file_ex and read at every delivered sample. A fixed resolution in
 * position units per degree, used for all velocities, those of dummy samples included, in place of each sample's
 * own; MISSING_DATA in the first field means none. Samples and dummy samples that have no resolution get gaze and
 * raw pupil velocities in this way only.
 */
typedef struct CONFIG {
    float velocity_param_1; /* horizontal */
    float velocity_param_2; /* vertical */
} CONFIG;

/* A trial: a stretch of the recording from one item to another. */
typedef struct TRIAL {
    FRECORDING *recording; /* the recording block in force when the trial ended; owned by the handle, valid until
                              it is closed, not to be changed */
    uint32_t duration;     /* ms; 0 for a trial that was ended by the end of its recording block only */
    uint32_t start_time;   /* ms, of the item that started the trial; never moved; 1 more for a close_pair block */
    uint32_t end_time;     /* ms, of the item that ended it; never moved */
} TRIAL;

/* A place in the walk, to come back to. */
typedef struct BOOKMARK {
    uint32_t item_position; /* number of items delivered before */
} BOOKMARK;

/* An open recording. */
typedef struct _TRKFILE _TRKFILE;

/*
 * Receives each diagnostic text, usually one line with its line end; texts are cut at 499 characters. The text is
 * the library's and valid during the call only.
 */
typedef void (*TRK_LOG_FUNCTION)(const char *text);

/* ---- Opening and closing -------------------------------------------------------------------------------- */

/*
 * Values of open_flags: one of the first three, plus any of the others. TRK_OPEN_CHECK and TRK_OPEN_CHECK_AND_FILL
 * together, that is 3, do what TRK_OPEN_CHECK does: nothing is filled. All other bits are ignored.
 */
enum {
    TRK_OPEN_NO_CHECK = 0,       /* items are sorted by time, nothing is repaired */
    TRK_OPEN_CHECK = 1,          /* samples outside recording blocks are dropped, eye events that lie outside are
                                    moved onto the nearest block boundary */
    TRK_OPEN_CHECK_AND_FILL = 2, /* besides, gaps in the samples are filled with dummy samples, several blinks in
                                    one saccade become one, gaze inside blinks reads MISSING_DATA, and ends of
                                    saccades and fixations take their start time from the matching start */
    TRK_OPEN_TOLERANT = 4,       /* a damaged or cut recording opens with the items before the damage */
    TRK_OPEN_KEEP_TIMES = 8,     /* never move the times of recordings that start late on the tracker's clock */
    TRK_OPEN_MESSAGE_OFFSETS = 16, /* a number before a message text is an offset: it is cut off and subtracted
                                     from the message's time */
    TRK_OPEN_SALVAGE = 0x100      /* trk_open only; includes TRK_OPEN_TOLERANT. At a damage the stretch is left
                                    out, and reading goes on where records make sense again, so that a damaged
                                    byte costs a few records. Times behind a damage are those that the sound part
                                    of the recording confirms; samples whose times nothing confirms are left out.
                                    Cost: the records are read once more */
};

/*
 * Values of loadEvents. Any value but 0 loads all events, and one with the bit of TRK_EVENTS_MESSAGE_LOG the extra
 * message log as well; other bits mean nothing more.
 *
 * Starts and ends of blocks of samples (REC_STARTSAMPLES, REC_ENDSAMPLES) come with the samples, those of blocks
 * of events (REC_STARTEVENTS, REC_ENDEVENTS) with the events, and a REC_RECORDING with either: with
 * TRK_EVENTS_BLOCKS_ONLY come those of the samples, and without samples nothing at all.
 */
enum {
    TRK_EVENTS_BLOCKS_ONLY = 0, /* no events but the starts and ends of the blocks of samples that are loaded */
    TRK_EVENTS_ALL = 1,         /* all events */
    TRK_EVENTS_MESSAGE_LOG = 2  /* all events, and the messages of the extra message log among them */
};

/*
 * Opens a recording, plain or compressed, and indexes all of it.
 *
 * path          file name.
 * open_flags    TRK_OPEN_* values.
 * loadEvents    TRK_EVENTS_* values.
 * load_samples  0: neither samples nor the starts and ends of their blocks are delivered; otherwise they are.
 * config        options, or null for none. Not copied: it must live as long as the handle.
 * error_value   receives 0 on success and -1 otherwise; may be null.
 *
 * Returns the handle, to be closed with trk_close_file, or null when the file cannot be opened, is no recording,
 * or (without TRK_OPEN_TOLERANT) breaks off or cannot be decoded. The reason goes to the log. A failed open holds
 * nothing.
 *
 * Reads the whole recording once. A compressed recording is first inflated into an anonymous temporary file.
 * Memory: about 24 bytes per item; a gap that is filled makes up to 9999 items. Prints the line "loadEvents = N",
 * N in hexadecimal, to standard output at every call, and with a message log its name and a line for each line
 * that should pair the clocks and cannot be read.
 */
TRK_API _TRKFILE *trk_open_file_ex(const char *path, int open_flags, int loadEvents, int load_samples,
                                   CONFIG *config, int *error_value) TRK_NOTHROW;

/* The same without options. */
TRK_API _TRKFILE *trk_open_file(const char *path, int open_flags, int loadEvents, int load_samples,
                                int *error_value) TRK_NOTHROW;

/*
 * Closes a recording and releases everything that the handle holds; records that it returned are gone.
 * Null, and what is no open handle (any more), is accepted and ignored; but a later open may get the same address
 * again. Returns 0.
 */
TRK_API int trk_close_file(_TRKFILE *handle) TRK_NOTHROW;

/* Sends the diagnostic lines of all handles to `function`, or to standard output again when it is null. */
TRK_API void trk_set_log_function(TRK_LOG_FUNCTION function) TRK_NOTHROW;

/*
 * Names the extra message log that later opens with TRK_EVENTS_MESSAGE_LOG read; `path` is copied. Process-wide.
 * Without a name it is the file "xq_messages.log" beside the recording. Null restores that. Returns 0.
 *
 * The extra message log is a text file that an experiment program writes on a clock of its own. Each line begins
 * with a time in milliseconds; lines with "TRACKER_TIME" pair that clock with the tracker's, and lines before the
 * first of them do not count; a line with "Quit logger" ends it. A log that cannot be opened, is no regular file,
 * holds no line that pairs the clocks, or lacks the end line is not merged; in the last case its messages still
 * count in trk_get_element_count.
 *
 * Its messages, the pairing lines among them, are delivered among the items as REC_MESSAGE events, at the
 * tracker's times: an FEVENT with type, start_time and message filled and everything else 0. The message is the
 * time, then what follows the time in the log, line end included. A message goes before the item of the same
 * millisecond. A pairing line and a "TRACKER_TIME" message of the recording within 2 ms of each other are both
 * left out; the last item of the recording is left out when a log message lies within 2 ms of it. Going to a trial
 * or bookmark leaves the place in the log.
 */
TRK_API int trk_set_extra_message_file(const char *path) TRK_NOTHROW;

/* ---- Walking through the items -------------------------------------------------------------------------- */

/*
 * Steps to the next item in time order.
 * Returns its REC_* code, or 0 when there is no further item. Codes that are not named above come from unknown
 * events in the recording; such items cannot be fetched.
 */
TRK_API int trk_get_next_data(_TRKFILE *handle) TRK_NOTHROW;

/*
 * Fetches the current item, the one that trk_get_next_data stepped to last. After a jump the current item is the
 * one before the next; but before the first step of all, the record is what the buffer holds, zeros or what
 * collecting trials or the search by time decoded last. An item may be fetched again; with
 * TRK_OPEN_CHECK_AND_FILL, ends of saccades and fixations then no longer find the start that they were paired
 * with, and in recordings whose times are moved those of log messages move again.
 *
 * Gaze positions and resolutions of samples are divided by the divisor of the start of block (REC_STARTSAMPLES,
 * REC_STARTEVENTS) that was fetched last, and before any by that of the last one in the file. In recordings whose
 * blocks differ in it, fetch the starts of a block before its samples, after a jump too.
 *
 * Returns the record, or null when there is no current item or it cannot be read (the log says why). In
 * recordings whose last time is 400000000 ms or later, times are moved, unless the file was opened with
 * TRK_OPEN_KEEP_TIMES: those of samples and events to count from the first record of the file, those of recording
 * blocks from the first record that was fetched.
 */
TRK_API ALLF_DATA *trk_get_float_data(_TRKFILE *handle) TRK_NOTHROW;

/*
 * The same when the current item is an event with one of the codes 1 to 10, 15 to 18, 24, 25 and 28 (first
 * call), a sample (second), or a recording block (third); null when it is of another kind. With an extra message
 * log use trk_get_float_data: these calls look at the recording's item last stepped to, not at a log message.
 */
TRK_API ALLF_DATA *trk_get_event_data(_TRKFILE *handle) TRK_NOTHROW;
TRK_API ALLF_DATA *trk_get_sample_data(_TRKFILE *handle) TRK_NOTHROW;
TRK_API ALLF_DATA *trk_get_recording_data(_TRKFILE *handle) TRK_NOTHROW;

/*
 * Views of a fetched record by the 16 bits in the place of FEVENT.type, bytes 4 and 5: trk_get_event returns the
 * same pointer unless they read 30 or 200, trk_get_sample when they read 200, trk_get_recording when they read 30;
 * otherwise null. They do not tell records apart; use the code of trk_get_next_data for that. What comes out:
 *
 *   of an event      always the event, and null from the other two: its type is never 30 or 200.
 *   of a sample      the bits are the lower half of pupil_x[0], which in no sample that the library hands out
 *                    reads 30 or 200: null from trk_get_sample, and a pointer from trk_get_event.
 *   of a block       the bits are the lower half of sample_rate. At every rate in whole samples per second, null
 *                    from trk_get_recording and a pointer from trk_get_event. Only an odd fraction makes the bits
 *                    read 30 or 200: 500 + 60 / 65536 samples per second gives trk_get_recording a pointer, and
 *                    500 + 400 / 65536 trk_get_sample.
 *
 * (On machines that store the lower half first.) `record` must not be null.
 */
TRK_API FEVENT *trk_get_event(ALLF_DATA *record) TRK_NOTHROW;
TRK_API FSAMPLE_REC *trk_get_sample(ALLF_DATA *record) TRK_NOTHROW;
TRK_API FRECORDING *trk_get_recording(ALLF_DATA *record) TRK_NOTHROW;

/* Number of items, dummy samples and recording blocks included, plus that of all of the extra log's messages. */
TRK_API unsigned int trk_get_element_count(_TRKFILE *handle) TRK_NOTHROW;

/* ---- Trials --------------------------------------------------------------------------------------------- */

/*
 * Without trial texts, each recording block is a trial. With them, a message that contains the start text starts a
 * trial and one that contains the end text ends it; messages that contain "!V" do neither. A start also ends a
 * trial that waits for its end, unless no recording block began since the trial started: then it is ignored. So
 * does, without a duration, the end of a recording block behind which another begins or the recording ends. A
 * recording block that begins while no trial is open starts one as well. A last trial that has no end is dropped,
 * with the line "removed last trial" on standard output, whichever call collects.
 *
 * Trials are collected when they are first needed, in one pass that decodes messages only, and again whenever
 * texts are set. They are needed by every call of this section but the two that return the texts, and of the calls
 * for raw data by those that use the divisor or the camera window: trk_get_uncorrected_raw_pupil, _cr_area and
 * _raw_cr, trk_get_pupil_dimension, trk_get_window_position and trk_get_pupil_cr. Collecting and counting leave
 * the read position; the calls that go to a trial move it to the trial's first item, which is the next one that
 * trk_get_next_data steps to.
 */

/*
 * Sets the trial texts and collects the trials. Null is no text. The texts are not copied: they must live as long
 * as the handle or until others are set. The library only reads them; that they are taken as writable is for the
 * calls that return them. So a const text needs a cast, and in C++ a text in quotes as well:
 *
 *     trk_set_trial_identifier(recording, (char *)"TRIALID", (char *)"TRIAL OK");
 *     trk_set_trial_identifier(recording, const_cast<char *>("TRIALID"), const_cast<char *>(text.c_str()));
 *
 * A start text "inPut_type_N" chooses trials by the values of the input port instead, for good: N starts a trial,
 * the number in `end_text` ends it. Texts of more than three characters there, and null, count as 0.
 * Prints the texts to standard output and flushes all output streams of the process. Returns 0.
 */
TRK_API int trk_set_trial_identifier(_TRKFILE *handle, char *start_text, char *end_text) TRK_NOTHROW;

/* The trial texts as they were set, a start text behind its prefix; null when there is none. */
TRK_API char *trk_get_start_trial_identifier(_TRKFILE *handle) TRK_NOTHROW;
TRK_API char *trk_get_end_trial_identifier(_TRKFILE *handle) TRK_NOTHROW;

/* Number of trials. */
TRK_API int trk_get_trial_count(_TRKFILE *handle) TRK_NOTHROW;

/* Goes to trial `trial`, counted from 0. Returns 0, or -1 and changes nothing when there is no such trial. */
TRK_API int trk_jump_to_trial(_TRKFILE *handle, int trial) TRK_NOTHROW;

/*
 * Copies the header of the trial last gone to into `header`. Returns 0, or -1 when no trial was gone to yet, it
 * does not exist any more, or `header` is null.
 */
TRK_API int trk_get_trial_header(_TRKFILE *handle, TRIAL *header) TRK_NOTHROW;

/* Go to the trial before or after the one last gone to; at first, next is trial 0. Return 0, or -1 as above. */
TRK_API int trk_goto_previous_trial(_TRKFILE *handle) TRK_NOTHROW;
TRK_API int trk_goto_next_trial(_TRKFILE *handle) TRK_NOTHROW;

/* Go to the first trial whose start or end time is exactly `time`, in ms. Return 0, or -1 when there is none. */
TRK_API int trk_goto_trial_with_start_time(_TRKFILE *handle, unsigned int time) TRK_NOTHROW;
TRK_API int trk_goto_trial_with_end_time(_TRKFILE *handle, unsigned int time) TRK_NOTHROW;

/* ---- Bookmarks and search ------------------------------------------------------------------------------- */

/* Bookmarks are kept in the order in which they were set. All calls return 0, or -1 and change nothing. */

/*
 * Marks the read position and fills in `bookmark`. When the position is marked already, returns 0 and leaves
 * `bookmark` as it is. -1 for null, or behind the last item.
 */
TRK_API int trk_set_bookmark(_TRKFILE *handle, BOOKMARK *bookmark) TRK_NOTHROW;

/* Forgets the bookmark; the record itself stays the caller's. -1 for null or an unknown bookmark. */
TRK_API int trk_free_bookmark(_TRKFILE *handle, BOOKMARK *bookmark) TRK_NOTHROW;

/* Goes to a bookmark: the next item is the one behind it. -1 for null or an unknown bookmark. */
TRK_API int trk_goto_bookmark(_TRKFILE *handle, BOOKMARK *bookmark) TRK_NOTHROW;

/*
 * Go to the bookmark after or before the one last gone to. At first, the first bookmark counts as that, so that
 * the next one is the second; when the one last gone to is removed, the one before it does. -1 when there is none.
 */
TRK_API int trk_goto_next_bookmark(_TRKFILE *handle) TRK_NOTHROW;
TRK_API int trk_goto_previous_bookmark(_TRKFILE *handle) TRK_NOTHROW;

/*
 * Fetches the sample whose time is exactly `time`, below 2147483648, in ms of the tracker's clock before times are
 * moved. Returns null when there is none, when it is the first item, or when it shares its time with other items
 * and is missed; of a repeated time it finds the first sample. The read position stays. The record lies in the
 * buffer of trk_get_float_data; whether its time is moved, and which recording block its velocities go by, depends
 * on the item on which the walk stands.
 */
TRK_API ALLF_DATA *trk_get_sample_close_to_time(_TRKFILE *handle, unsigned int time) TRK_NOTHROW;

/* ---- Raw pupil and corneal reflection ------------------------------------------------------------------- */

/*
 * Samples can carry the uncorrected measurements of the camera, packed into fields that then hold nothing else:
 * either with a negative pupil_size in the sample's own fields, or in ext_data. These calls unpack them. They take
 * a sample that the handle delivered and an eye, 1 right or else left. Positions are camera pixels, areas camera
 * pixels in size, dimensions camera pixels; arrays of two are x and y, or width and height.
 *
 * The divisor of the packed form and the size of the camera window are looked up by the sample's time in the
 * trials, which are collected when they are not yet. Outside every trial the divisor counts as 0, and packed
 * values come out wrong: open recordings that start late with TRK_OPEN_KEEP_TIMES, and set trial texts, if any,
 * such that the samples lie in trials.
 */

/* Area of the pupil; 0 without raw data. */
TRK_API unsigned int trk_get_uncorrected_pupil_area(_TRKFILE *handle, FSAMPLE_REC *sample, int eye) TRK_NOTHROW;

/* Centre of the pupil; MISSING_DATA in both without raw data. */
TRK_API void trk_get_uncorrected_raw_pupil(_TRKFILE *handle, FSAMPLE_REC *sample, int eye,
                                           float out[2]) TRK_NOTHROW;

/*
 * Area of the corneal reflection; 0 when none was seen. Goes by the packed form for any negative pupil_size, even
 * that of an eye without raw data.
 */
TRK_API unsigned int trk_get_uncorrected_cr_area(_TRKFILE *handle, FSAMPLE_REC *sample, int eye) TRK_NOTHROW;

/* Centre of the corneal reflection; MISSING_DATA in both when none was seen. */
TRK_API void trk_get_uncorrected_raw_cr(_TRKFILE *handle, FSAMPLE_REC *sample, int eye, float out[2]) TRK_NOTHROW;

/* The same for the second corneal reflection, which samples of ext_type 196 and 200 can carry. */
TRK_API unsigned int trk_get_uncorrected_cr2_area(_TRKFILE *handle, FSAMPLE_REC *sample, int eye) TRK_NOTHROW;
TRK_API void trk_get_uncorrected_raw_cr2(_TRKFILE *handle, FSAMPLE_REC *sample, int eye, float out[2]) TRK_NOTHROW;

/* Dimensions of the pupil; 0 in both without raw data, 100000000 in both when it was lost. */
TRK_API void trk_get_pupil_dimension(_TRKFILE *handle, FSAMPLE_REC *sample, int eye, int out[2]) TRK_NOTHROW;

/* Dimensions of the corneal reflection; 100000000 in both for samples of ext_type 200, which carry none. */
TRK_API void trk_get_cr_dimension(_TRKFILE *handle, FSAMPLE_REC *sample, int out[2]) TRK_NOTHROW;

/* Centre of the camera window on the sensor, in whole pixels. Takes the input word as it is, even when absent. */
TRK_API void trk_get_window_position(_TRKFILE *handle, FSAMPLE_REC *sample, int out[2]) TRK_NOTHROW;

/*
 * The vector from 1.02 times the corneal reflection to the pupil, after a pupil that the reflection overlaps was
 * mended. A position that is missing goes into the difference as the number MISSING_DATA.
 */
TRK_API void trk_get_pupil_cr(_TRKFILE *handle, FSAMPLE_REC *sample, int eye, float out[2]) TRK_NOTHROW;

/* ---- Viewing geometry ----------------------------------------------------------------------------------- */

/*
 * Sets up the viewing geometry of the process: the screen's extent in millimetres from the point straight ahead of
 * the eye, x to the right and y downwards, so that a top edge above the eye is negative; the display's extent in
 * pixels; and the distance from the eye in millimetres: to the screen, with distance2 = MISSING_DATA, or to its
 * top edge (distance) and its bottom edge (distance2). Forgets the resolutions of the samples before. Returns 0.
 */
TRK_API int trk_compute_physical_setup(float distance, float distance2, float screen_left, float screen_top,
                                       float screen_right, float screen_bottom, float display_left,
                                       float display_top, float display_right, float display_bottom) TRK_NOTHROW;

/*
 * Display pixels per degree of visual angle at the sample's gaze position, horizontally and vertically, averaged
 * over the last ten values of this eye (1 right, else left) and rounded to one decimal. step_x and step_y set how
 * far from the gaze position to probe: (step + 1) / 50 pixels. Writes MISSING_DATA to both when the sample lacks
 * gaze or HREF, or the geometry gives no resolution there of at least 1; the latter also forgets the values
 * before.
 */
TRK_API void trk_calculate_ppd(FSAMPLE_REC *sample, int eye, double *ppd_x, double *ppd_y, float step_x,
                               float step_y) TRK_NOTHROW;

/* ---- About the recording -------------------------------------------------------------------------------- */

/*
 * Copies the preamble, the text before the records, into `buffer`: each line preceded by "** ", at most 1999
 * characters in all. `length` is the size of the buffer in bytes; a longer text is cut. The copy ends with a
 * zero byte; with a length of 0 or less, nothing is written. Returns 0.
 */
TRK_API int trk_get_preamble_text(_TRKFILE *handle, char *buffer, int length) TRK_NOTHROW;

/* Size in bytes of the buffer that the whole preamble text needs, the final zero byte included. */
TRK_API int trk_get_preamble_text_length(_TRKFILE *handle) TRK_NOTHROW;

/* File format revision that the preamble states; 0 when it states none. */
TRK_API int trk_get_revision(_TRKFILE *handle) TRK_NOTHROW;

/* Tracker model that the preamble states: 1, 2 (V2) or 3 (LX). */
TRK_API int trk_get_pupilon_revision(_TRKFILE *handle) TRK_NOTHROW;

/* Version of the library. The text is constant. */
TRK_API const char *trk_get_version(void) TRK_NOTHROW;

/* ---- The calls that came later -------------------------------------------------------------------------- */

/*
 * A second door for callers that are libraries themselves. A recording that trk_open opens can be used with all
 * calls above and below. What any call does with it prints nothing, flushes nothing and changes nothing else of
 * the process: the log hook is not called, and the lines that calls print to standard output go to the
 * recording's own log, in the thread that makes the call. Where memory runs out a call gives its result for
 * failure, as for every recording, and logs "Out of memory\n".
 */

/* Receives the lines of one recording; `user` is that of the options. The text is valid during the call only. */
typedef void (*TRK_LOG_TO)(void *user, const char *text);

/*
 * How to open a recording. Fill it with trk_default_options and change what is to be different. Members may be
 * added behind the last one; a caller that was compiled before has a smaller `size`, and gets the defaults for
 * them.
 */
typedef struct TRK_OPEN_OPTIONS {
    size_t size;             /* sizeof(TRK_OPEN_OPTIONS) as the caller compiled it; later members read as 0 */
    int flags;               /* TRK_OPEN_* bits; not both check levels. Default TRK_OPEN_CHECK */
    int events;              /* TRK_EVENTS_* value. Default TRK_EVENTS_ALL */
    int samples;             /* 0: samples are not delivered. Default 1 */
    CONFIG config;           /* fixed resolution, copied; none when the first field is 0 or MISSING_DATA, as it is
                                by default */
    const char *message_log; /* file merged with TRK_EVENTS_MESSAGE_LOG; one that cannot be read is a
                                TRK_ERROR_FILE. Default null: the usual name beside the recording; the name of
                                trk_set_extra_message_file does not count here */
    const char *temporary_folder; /* where a compressed recording is inflated when it takes more than 64 MiB; one
                                     that takes less stays in memory and needs no file. Default null: that of
                                     the environment variable TMPDIR, else the system's */
    TRK_LOG_TO log;          /* receives the recording's diagnostic lines. Default null: nobody does */
    void *user;              /* handed to `log` */
} TRK_OPEN_OPTIONS;

/* Why a call failed. Values never change their meaning; a caller takes one that it does not know for a failure. */
enum TRK_ERROR_CODE {
    TRK_OK = 0,
    TRK_ERROR_FILE = 1,            /* the file cannot be opened or read; system_error says why */
    TRK_ERROR_NOT_A_RECORDING = 2, /* it is something else */
    TRK_ERROR_DAMAGED = 3,         /* it is a recording that breaks off or cannot be decoded */
    TRK_ERROR_TEMPORARY_FILE = 4,  /* a compressed recording found no place to be inflated in */
    TRK_ERROR_TOO_LARGE = 5,       /* it goes beyond the bounds of any recording (docs/robustness.md) */
    TRK_ERROR_MEMORY = 6,          /* memory ran out */
    TRK_ERROR_ARGUMENT = 7         /* an argument is not allowed */
};

typedef struct TRK_ERROR {
    int code;          /* TRK_ERROR_CODE */
    int system_error;  /* errno, or 0 */
    int64_t offset;    /* byte of the record stream where reading stopped, -1 when not known: the damage begins
                          there or in the record before. The record stream of a plain recording is the file itself;
                          that of a compressed one what its data inflate to */
    char text[256];    /* one sentence for a person, with no line end: what, where, why and what to do. UTF-8 where
                          the path is; a longer one is cut */
    int64_t item;      /* the item at which a reading ended, -1 for none */
} TRK_ERROR;

/*
 * Fills in the defaults, size included. `options` must not be null. It writes these members only, in later
 * versions of the library too: members that a later header adds are set by hand, and `size` with them.
 */
TRK_API void trk_default_options(TRK_OPEN_OPTIONS *options) TRK_NOTHROW;

/*
 * Opens a recording as trk_open_file_ex does, quietly.
 *
 * path     file name; must not be null.
 * options  null for the defaults. Copied, texts included.
 * error    receives code TRK_OK, or why the recording does not open; may be null.
 *
 * Returns the handle, to be closed with trk_close_file, or null. Arguments are checked: a size that is none, flags
 * or values of `events` that are not named here, and both check levels together are TRK_ERROR_ARGUMENT. What the
 * surroundings are to blame for (descriptors, a full disk, a disk that cannot be read) is never reported as
 * damage, and fails with TRK_OPEN_TOLERANT and TRK_OPEN_SALVAGE too.
 */
TRK_API _TRKFILE *trk_open(const char *path, const TRK_OPEN_OPTIONS *options, TRK_ERROR *error) TRK_NOTHROW;

/* What is wrong with a recording, or was. Values never change their meaning; from 100 on they are repairs. */
enum TRK_DAMAGE_KIND {
    TRK_DAMAGE_CUT = 1,               /* the records break off, or have no end mark */
    TRK_DAMAGE_UNREADABLE = 2,        /* bytes that are no record */
    TRK_DAMAGE_IMPLAUSIBLE = 3,       /* records that can be decoded and cannot be: a time far from its neighbours,
                                         an event that does not exist, a sample that is not as its block
                                         announces */
    TRK_DAMAGE_EARLY_END = 4,         /* an end mark with records behind it */
    TRK_DAMAGE_COMPRESSED_DATA = 5,   /* compressed data that cannot be inflated */
    TRK_DAMAGE_CHECKSUM = 6,          /* the checksum of the compressed data is wrong */
    TRK_DAMAGE_BLOCK_END_MISSING = 7, /* a recording block without an end */
    TRK_DAMAGE_BEHIND_END = 8,        /* bytes behind the end mark that are no records */
    TRK_REPAIR_DROPPED_SAMPLES = 100, /* samples outside of recording blocks, dropped */
    TRK_REPAIR_MOVED_EVENTS = 101,    /* eye events outside of recording blocks, moved onto their boundaries */
    TRK_REPAIR_JOINED_BLINKS = 102,   /* blinks within one saccade, joined */
    TRK_REPAIR_FILLED_GAPS = 103      /* gaps in the samples, filled with dummy samples: one entry for each length,
                                         which `length` tells in samples */
};

/*
 * One damage, or what was repaired of one kind. Every way in which a recording gives less, or other, than its
 * bytes promise is one, however it was opened, also where the calls deliver the stretch as it stands. A sound
 * recording has none; one with repairs only has lost nothing but what the tracker itself lost.
 */
typedef struct TRK_DAMAGE {
    int kind;       /* TRK_DAMAGE_KIND */
    unsigned item;  /* number of the first item behind the stretch, in the order of the walk; 0 for repairs */
    int64_t offset; /* of the stretch in the record stream, bytes; -1 for repairs */
    int64_t length; /* of the stretch, bytes; 0 where nothing is there that should be */
    int64_t count;  /* 1 for a damage; how often a repair was made */
    uint32_t time;  /* about when, ms of the tracker's clock: that of the last record before, or, at the start, of
                       one behind; 0 for repairs */
    char text[256]; /* one sentence for a person, with no line end */
} TRK_DAMAGE;

/*
 * Copies damage number `number`, from 0: damages in the order of the stream, then repairs. Returns 0, or -1 past
 * the last one, for null, and when memory runs out. The first call for a recording that was opened without
 * TRK_OPEN_SALVAGE reads all of its records once more. The read position stays.
 */
TRK_API int trk_get_damage(_TRKFILE *handle, int number, TRK_DAMAGE *damage) TRK_NOTHROW;

/* The read position: the number of items delivered before it, log messages not counted. Jumps set it. */
TRK_API unsigned trk_get_position(_TRKFILE *handle) TRK_NOTHROW;

/* Moves the read position: item `item`, from 0, is the next one. Returns 0, or -1 when there is no such item. */
TRK_API int trk_goto_item(_TRKFILE *handle, unsigned item) TRK_NOTHROW;

/*
 * The number of the first item at or after a time in ms, as items are delivered with it; the number of all items
 * past the last. Ends of blinks, saccades and fixations stand at their end time, all other events at their start.
 */
TRK_API unsigned trk_find_time(_TRKFILE *handle, unsigned ms) TRK_NOTHROW;

/*
 * The items of trial `trial`, from 0: `first` is the one that starts it, `end` one past its last. Either may be
 * null. Returns 0, or -1 when there is no such trial.
 */
TRK_API int trk_get_trial_range(_TRKFILE *handle, int trial, unsigned *first, unsigned *end) TRK_NOTHROW;

/* 1 when the recording is compressed, else 0. */
TRK_API int trk_is_compressed(_TRKFILE *handle) TRK_NOTHROW;

/* ---- Many samples or events a call ---------------------------------------------------------------------- */

/*
 * Columns of samples. Names, units and meaning of each can be asked for with trk_describe_column; the names are
 * those of the columns of `trk dump`. Values never change; from 1 on there is none left out.
 */
enum TRK_COLUMN_ID {
    TRK_COLUMN_ITEM = 1,
    TRK_COLUMN_BLOCK = 2,
    TRK_COLUMN_TIME = 3,
    TRK_COLUMN_TIME_EXACT = 4,
    TRK_COLUMN_DUMMY = 5,
    TRK_COLUMN_EYES = 6,
    TRK_COLUMN_FLAGS = 7,
    TRK_COLUMN_IN_BLINK_LEFT = 8,
    TRK_COLUMN_IN_BLINK_RIGHT = 9,
    TRK_COLUMN_GAZE_X_LEFT = 10,
    TRK_COLUMN_GAZE_Y_LEFT = 11,
    TRK_COLUMN_GAZE_X_RIGHT = 12,
    TRK_COLUMN_GAZE_Y_RIGHT = 13,
    TRK_COLUMN_PUPIL_SIZE_LEFT = 14,
    TRK_COLUMN_PUPIL_SIZE_RIGHT = 15,
    TRK_COLUMN_HREF_X_LEFT = 16,
    TRK_COLUMN_HREF_Y_LEFT = 17,
    TRK_COLUMN_HREF_X_RIGHT = 18,
    TRK_COLUMN_HREF_Y_RIGHT = 19,
    TRK_COLUMN_PUPIL_X_LEFT = 20,
    TRK_COLUMN_PUPIL_Y_LEFT = 21,
    TRK_COLUMN_PUPIL_X_RIGHT = 22,
    TRK_COLUMN_PUPIL_Y_RIGHT = 23,
    TRK_COLUMN_RES_X = 24,
    TRK_COLUMN_RES_Y = 25,
    TRK_COLUMN_GAZE_VEL_X_LEFT = 26,
    TRK_COLUMN_GAZE_VEL_Y_LEFT = 27,
    TRK_COLUMN_GAZE_VEL_X_RIGHT = 28,
    TRK_COLUMN_GAZE_VEL_Y_RIGHT = 29,
    TRK_COLUMN_HREF_VEL_X_LEFT = 30,
    TRK_COLUMN_HREF_VEL_Y_LEFT = 31,
    TRK_COLUMN_HREF_VEL_X_RIGHT = 32,
    TRK_COLUMN_HREF_VEL_Y_RIGHT = 33,
    TRK_COLUMN_PUPIL_VEL_X_LEFT = 34,
    TRK_COLUMN_PUPIL_VEL_Y_LEFT = 35,
    TRK_COLUMN_PUPIL_VEL_X_RIGHT = 36,
    TRK_COLUMN_PUPIL_VEL_Y_RIGHT = 37,
    TRK_COLUMN_GAZE_FVEL_X_LEFT = 38,
    TRK_COLUMN_GAZE_FVEL_Y_LEFT = 39,
    TRK_COLUMN_GAZE_FVEL_X_RIGHT = 40,
    TRK_COLUMN_GAZE_FVEL_Y_RIGHT = 41,
    TRK_COLUMN_HREF_FVEL_X_LEFT = 42,
    TRK_COLUMN_HREF_FVEL_Y_LEFT = 43,
    TRK_COLUMN_HREF_FVEL_X_RIGHT = 44,
    TRK_COLUMN_HREF_FVEL_Y_RIGHT = 45,
    TRK_COLUMN_PUPIL_FVEL_X_LEFT = 46,
    TRK_COLUMN_PUPIL_FVEL_Y_LEFT = 47,
    TRK_COLUMN_PUPIL_FVEL_X_RIGHT = 48,
    TRK_COLUMN_PUPIL_FVEL_Y_RIGHT = 49,
    TRK_COLUMN_INPUT = 50,
    TRK_COLUMN_BUTTONS = 51,
    TRK_COLUMN_STATUS = 52,
    TRK_COLUMN_EXT_TYPE = 53,
    TRK_COLUMN_EXT_DATA_1 = 54,
    TRK_COLUMN_EXT_DATA_2 = 55,
    TRK_COLUMN_EXT_DATA_3 = 56,
    TRK_COLUMN_EXT_DATA_4 = 57,
    TRK_COLUMN_EXT_DATA_5 = 58,
    TRK_COLUMN_EXT_DATA_6 = 59,
    TRK_COLUMN_EXT_DATA_7 = 60,
    TRK_COLUMN_EXT_DATA_8 = 61
};

/* Types of the values in the caller's memory. */
enum TRK_TYPE {
    TRK_TYPE_FLOAT = 1,
    TRK_TYPE_DOUBLE = 2,
    TRK_TYPE_UINT8 = 3,
    TRK_TYPE_UINT16 = 4,
    TRK_TYPE_UINT32 = 5,
    TRK_TYPE_INT64 = 6
};

/* What a column holds. The texts are constant. */
typedef struct TRK_COLUMN_DESCRIPTION {
    int id;                  /* TRK_COLUMN_ID, of events TRK_EVENT_COLUMN_ID */
    int type;                /* TRK_TYPE that holds every value; wider ones do, too */
    const char *name;        /* as in `trk dump` */
    const char *group;       /* what to ask for together: "item", "gaze", "pupil_size", "href", "pupil",
                                "resolution", "velocity", "words", "extension"; of events also "times",
                                "amplitude" */
    const char *unit;        /* "" for a number without one */
    const char *description; /* one line */
    const char *missing;     /* how a value that is not there stands in the record, and without TRK_READ_NAN; ""
                                when all are there */
    int record_offset;       /* in bytes, of the field of FSAMPLE_REC or FEVENT that holds it as a `type`; -1: none
                                does */
    int velocity;            /* 1 for a velocity of samples: these cost more than all others */
} TRK_COLUMN_DESCRIPTION;

/* Fills in the description of a column. Returns 0, or -1 for an id that is none: from 1 up to the first of them
   one sees all columns. */
TRK_API int trk_describe_column(int id, TRK_COLUMN_DESCRIPTION *description) TRK_NOTHROW;

/*
 * Where a column of the caller begins, and how far apart its values are in bytes. Arrays of structures and
 * separate arrays are described alike.
 */
typedef struct TRK_COLUMN {
    int id;        /* TRK_COLUMN_ID */
    int type;      /* TRK_TYPE: that of the description, or one that holds all of its values: a wider integer,
                      double for all, float for integers of 16 bits and less */
    void *data;    /* where the first value goes; it need not be aligned */
    size_t stride; /* bytes from value to value; 0: side by side */
} TRK_COLUMN;

/* Bits of `flags` of trk_read_samples. */
enum {
    TRK_READ_NAN = 1 /* in float and double columns, values that are missing or that the record did not carry read
                        NaN, and so does a pupil size of 0; else they read as in FSAMPLE_REC. A head-referenced or
                        raw position that was recorded as -32768 cannot be told from one that was not carried */
};

/*
 * The number of items in [first, end) with a code: REC_SAMPLE, REC_MESSAGE, ...; 0 counts what trk_read_events
 * reads. Items of an external message log are none of them. -1 for null.
 */
TRK_API int64_t trk_count_items(_TRKFILE *handle, unsigned first, unsigned end, int code) TRK_NOTHROW;

/*
 * The numbers of the items that trk_count_items counts, in order: up to `rows` of them go to `items`. Returns how
 * many were written, or -1 for null or less than no room.
 */
TRK_API int64_t trk_list_items(_TRKFILE *handle, unsigned first, unsigned end, int code, unsigned *items,
                               int64_t rows) TRK_NOTHROW;

/*
 * Reads the samples among the items [first, end), dummy samples included, into columns of the caller. `end` may
 * lie past the last item.
 *
 * columns  what to read and where to put it; the same id may come twice
 * rows     room in each column; when there are more samples the first ones are read
 * flags    TRK_READ_* bits
 * error    receives code TRK_OK and, in `item`, the item to go on from: `end` when all was read, else the first
 *          sample that found no room; or why the reading ended; may be null
 *
 * Returns the number of rows written. A sample that cannot be read ends the reading: the rows before it are
 * written, the code is TRK_ERROR_DAMAGED and `item` the number of the sample; a call from the next item on goes
 * on behind it. -1 when an argument is not allowed (TRK_ERROR_ARGUMENT: a null handle, an unknown id or type, a
 * type that does not hold the column's values, a null address, null columns, unknown flags, rows below 0) or
 * memory runs out; then nothing was written, or no row counts.
 *
 * The values are those that a walk over all items from the first on, fetching each, would deliver, whatever was
 * read before, and whatever the part of the recording: each sample is decoded as its own recording block says, and
 * velocities are computed from neighbours on both sides of `first` and `end`. The read position, the pairing of
 * events and what was fetched stay as they are: a walk may be going on. Messages of an external log are no items
 * here, and what their merge leaves out of a walk is read. Velocities are worked out only when a column of them is
 * asked for. Memory beyond the caller's does not grow with the number of rows. Where a recording block cannot be
 * read without what lies before it, as after damage, and in recordings opened with TRK_EVENTS_BLOCKS_ONLY, a
 * reading costs as much as a walk to there.
 */
TRK_API int64_t trk_read_samples(_TRKFILE *handle, unsigned first, unsigned end, const TRK_COLUMN *columns,
                                 size_t column_count, int64_t rows, int flags, TRK_ERROR *error) TRK_NOTHROW;

/*
 * Reads the events among the items [first, end), messages included; block items (FRECORDING) and items of a kind
 * that is not known are none.
 *
 * events        receives one record for each; `message` of all is null. May be null when only texts are wanted
 * rows          room in `events` and, less one, in `text_offsets`
 * texts         receives the texts of the messages, one behind the other, each with a zero byte behind it. They
 *               can hold zero bytes themselves. May be null: then texts are left out
 * texts_size    its size in bytes; when it is full the reading ends before the event. No text takes more than 500;
 *               with less room a reading can stand still, with 0 rows
 * text_offsets  receives, for each event, where its text begins in `texts`, and at the end where the next one
 *               would: the text of event i has text_offsets[i + 1] - text_offsets[i] - 1 bytes, or is none when
 *               both are the same. May be null
 * error         as for trk_read_samples
 *
 * Returns the number of events written, likewise, and with the values of such a walk. Ends of eye events depend on
 * the starts before them: the first reading, and one before the last, goes over the events from the first item on.
 */
TRK_API int64_t trk_read_events(_TRKFILE *handle, unsigned first, unsigned end, FEVENT *events, int64_t rows,
                                char *texts, size_t texts_size, int64_t *text_offsets,
                                TRK_ERROR *error) TRK_NOTHROW;

/*
 * Columns of events, for those who make tables of the records of trk_read_events. The names are those of the
 * columns of `trk dump` and `trk convert`. Values never change; from 1 on there is none left out.
 */
enum TRK_EVENT_COLUMN_ID {
    TRK_EVENT_COLUMN_TIME = 1,
    TRK_EVENT_COLUMN_START = 2,
    TRK_EVENT_COLUMN_END = 3,
    TRK_EVENT_COLUMN_DURATION = 4,
    TRK_EVENT_COLUMN_AMPLITUDE = 5,
    TRK_EVENT_COLUMN_START_GAZE_X = 6,
    TRK_EVENT_COLUMN_START_GAZE_Y = 7,
    TRK_EVENT_COLUMN_END_GAZE_X = 8,
    TRK_EVENT_COLUMN_END_GAZE_Y = 9,
    TRK_EVENT_COLUMN_AVG_GAZE_X = 10,
    TRK_EVENT_COLUMN_AVG_GAZE_Y = 11,
    TRK_EVENT_COLUMN_START_HREF_X = 12,
    TRK_EVENT_COLUMN_START_HREF_Y = 13,
    TRK_EVENT_COLUMN_END_HREF_X = 14,
    TRK_EVENT_COLUMN_END_HREF_Y = 15,
    TRK_EVENT_COLUMN_AVG_HREF_X = 16,
    TRK_EVENT_COLUMN_AVG_HREF_Y = 17,
    TRK_EVENT_COLUMN_START_PUPIL_SIZE = 18,
    TRK_EVENT_COLUMN_END_PUPIL_SIZE = 19,
    TRK_EVENT_COLUMN_AVG_PUPIL_SIZE = 20,
    TRK_EVENT_COLUMN_START_VELOCITY = 21,
    TRK_EVENT_COLUMN_END_VELOCITY = 22,
    TRK_EVENT_COLUMN_AVG_VELOCITY = 23,
    TRK_EVENT_COLUMN_PEAK_VELOCITY = 24,
    TRK_EVENT_COLUMN_START_RES_X = 25,
    TRK_EVENT_COLUMN_START_RES_Y = 26,
    TRK_EVENT_COLUMN_END_RES_X = 27,
    TRK_EVENT_COLUMN_END_RES_Y = 28,
    TRK_EVENT_COLUMN_STATUS = 29,
    TRK_EVENT_COLUMN_AUX_WORD1 = 30,
    TRK_EVENT_COLUMN_AUX_WORD2 = 31,
    TRK_EVENT_COLUMN_READ_FLAGS = 32,
    TRK_EVENT_COLUMN_PARSE_FLAGS = 33,
    TRK_EVENT_COLUMN_INPUT = 34,
    TRK_EVENT_COLUMN_BUTTON = 35,
    TRK_EVENT_COLUMN_BUTTON_VALUE = 36,
    TRK_EVENT_COLUMN_BUTTON_STATE = 37
};

/* Fills in the description of a column of events. Returns as trk_describe_column. */
TRK_API int trk_describe_event_column(int id, TRK_COLUMN_DESCRIPTION *description) TRK_NOTHROW;

/*
 * A column of events.
 *
 * events  `count` records, one behind the other, of any kind but FRECORDING
 * values  receives a value for each; NaN for what the record does not carry, or what is none of its kind: the
 *         positions of a button, the button of a saccade, the end of a start. What stands in
 *         the field of a value that was not recorded, such as 0 or MISSING_DATA, never reads as one
 *
 * Returns 0, or -1 for an id that is none, a count below 0, or null.
 */
TRK_API int trk_get_event_column(const FEVENT *events, int64_t count, int id, double *values) TRK_NOTHROW;

#ifdef __cplusplus
}
#endif

#endif
