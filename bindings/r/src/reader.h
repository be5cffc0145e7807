/*
 * Tables of a recording, for languages that keep columns of numbers and texts. Knows the library, and neither R
 * nor MATLAB. Nothing in here jumps or prints; readerClose releases everything at any time.
 */
#ifndef TRKAPI_BINDINGS_READER_H
#define TRKAPI_BINDINGS_READER_H

#include <stdint.h>
#include <trkapi/trkapi.h>

enum { kMostColumns = 128 };

/* What is wanted. Only what a kind of table has a use for is looked at. */
typedef struct Request {
    const char *path;
    const char *what;     /* samples, events, messages, trials, blocks */
    const char *check;    /* check, fill, none; null for the first */
    const char *onDamage; /* raise, warn, salvage; null for the first */
    int keepTimes;        /* not 0: times are never moved */
    double start;         /* ms, of samples, events and messages: from the first item at or after it; NaN: all */
    double stop;          /* ms: up to the last item before it; NaN: all */
    const char *const *columns; /* of samples: names or groups */
    size_t columnCount;         /* 0 for the usual ones */
    int velocities;             /* not 0: the velocities, too */
    const char *startText;      /* of trials; null for none */
    const char *endText;
} Request;

/* One of `numbers` and `texts` is there; where it is neither, the caller of readSamples sets `numbers`. */
typedef struct Column {
    const char *name;
    const char *unit;
    const char *description;
    double *numbers;    /* NaN for what is missing */
    const char **texts; /* UTF-8; null for what is missing */
} Column;

typedef struct RecordingBlock {
    FRECORDING start;
    unsigned first;
    unsigned end; /* one past its last item */
    int hasEnd;
    uint32_t endTime; /* ms */
} RecordingBlock;

typedef struct Reader {
    Column columns[kMostColumns];
    size_t columnCount;
    int64_t rows;        /* of samples, before they are read: room that is enough for all */
    TRK_DAMAGE *damages; /* that is or was wrong; repairs are not among them */
    size_t damageCount;

    const char *kind; /* what failed: file, not_a_recording, damaged, ... */
    char error[512];  /* the sentence for it; without a kind: for a damaged recording that is read all the same */
    int64_t offset;   /* where, in bytes; -1 when not known */

    _TRKFILE *handle;
    unsigned items;
    unsigned first; /* items to be read */
    unsigned end;
    RecordingBlock *blocks;
    size_t blockCount;
    int ids[kMostColumns]; /* of the columns of samples */
    int64_t rowsRead;
    void **owned;
    size_t ownedCount;
} Reader;

/*
 * Opens a recording and makes the table; of samples, its columns only. The reader is all zeros before. Returns 0,
 * or -1: then kind and error say why.
 */
int readerOpen(Reader *reader, const Request *request);

/*
 * Reads some more samples into the caller's columns, each with room for `rows` numbers. Returns 1 when there may
 * be more, 0 at the end, and -1 as above. At the end `rows` is what was read: less where some cannot be read.
 */
int readSamples(Reader *reader);

/* Releases everything, and leaves zeros. */
void readerClose(Reader *reader);

#endif
