/* A recording as a struct of columns, for MATLAB and Octave. trkread.m says how it is built and called. */
#include "../r/src/reader.h"

#include <math.h>
#include <mex.h>
#include <string.h>

enum { kMostTexts = 128, kTextSize = 4096 };

/* What is open is known here, for a call can end in the middle, as when memory runs out: then the next call closes
   it, or the end of the function's life. */
static Reader reader;
static char texts[kMostTexts][kTextSize];
static int textCount;

static void closeReader(void) { readerClose(&reader); }

static void stop(const char *kind, const char *text) {
    char id[64] = "trkapi:";
    char sentence[sizeof reader.error];
    strncat(id, kind, sizeof id - strlen(id) - 1);
    sentence[0] = '\0';
    strncat(sentence, text, sizeof sentence - 1);
    closeReader();
    mexErrMsgIdAndTxt(id, "%s", sentence);
}

/* ---- From the caller ---- */

static const char *textOf(const mxArray *value, const char *what) {
    if (textCount == kMostTexts || value == NULL || mxGetString(value, texts[textCount], kTextSize) != 0) {
        stop("argument", what);
    }
    return texts[textCount++];
}

static double numberOf(const mxArray *value, const char *what) {
    if (!(mxIsNumeric(value) || mxIsLogical(value)) || mxGetNumberOfElements(value) != 1 || mxIsComplex(value)) {
        stop("argument", what);
    }
    return mxGetScalar(value);
}

static void setColumns(Request *request, const mxArray *value) {
    static const char *names[kMostTexts];
    const char *const what = "columns is a name, or a cell array of names";
    const size_t count = mxIsCell(value) ? mxGetNumberOfElements(value) : 1;
    if (count == 0 || count > kMostColumns) {
        stop("argument", what);
    }
    for (size_t i = 0; i < count; ++i) {
        names[i] = textOf(mxIsCell(value) ? mxGetCell(value, i) : value, what);
    }
    request->columns = names;
    request->columnCount = count;
}

static void setOption(Request *request, const mxArray *nameValue, const mxArray *value) {
    const char *const name = textOf(nameValue, "options come as names and values");
    if (strcmp(name, "columns") == 0) {
        setColumns(request, value);
    } else if (strcmp(name, "start") == 0) {
        request->start = numberOf(value, "start is a number");
    } else if (strcmp(name, "stop") == 0) {
        request->stop = numberOf(value, "stop is a number");
    } else if (strcmp(name, "velocities") == 0) {
        request->velocities = numberOf(value, "velocities is true or false") != 0;
    } else if (strcmp(name, "keep_times") == 0) {
        request->keepTimes = numberOf(value, "keep_times is true or false") != 0;
    } else if (strcmp(name, "on_damage") == 0) {
        request->onDamage = textOf(value, "on_damage is one of raise, warn and salvage");
    } else if (strcmp(name, "check") == 0) {
        request->check = textOf(value, "check is one of check, fill and none");
    } else if (strcmp(name, "start_text") == 0) {
        request->startText = textOf(value, "start_text is a text");
    } else if (strcmp(name, "end_text") == 0) {
        request->endText = textOf(value, "end_text is a text");
    } else {
        stop("argument",
             "options are columns, start, stop, velocities, start_text, end_text, on_damage, check and "
             "keep_times");
    }
}

/* ---- To the caller ---- */

static mxArray *structOf(void) {
    const char *names[kMostColumns];
    for (size_t i = 0; i < reader.columnCount; ++i) {
        names[i] = reader.columns[i].name;
    }
    return mxCreateStructMatrix(1, 1, (int)reader.columnCount, names);
}

static mxArray *textColumn(const Column *column) {
    mxArray *const cells = mxCreateCellMatrix((mwSize)reader.rows, 1);
    for (mwIndex row = 0; row < (mwIndex)reader.rows; ++row) {
        mxSetCell(cells, row, mxCreateString(column->texts[row] == NULL ? "" : column->texts[row]));
    }
    return cells;
}

static mxArray *readColumns(void) {
    mxArray *const result = structOf();
    int toBeRead = 0;
    for (size_t i = 0; i < reader.columnCount; ++i) {
        Column *const column = &reader.columns[i];
        if (column->texts != NULL) {
            mxSetFieldByNumber(result, 0, (int)i, textColumn(column));
            continue;
        }
        mxArray *const numbers = mxCreateDoubleMatrix((mwSize)reader.rows, 1, mxREAL);
        mxSetFieldByNumber(result, 0, (int)i, numbers);
        if (column->numbers == NULL) {
            column->numbers = mxGetPr(numbers);
            toBeRead = 1;
        } else if (reader.rows > 0) {
            memcpy(mxGetPr(numbers), column->numbers, (size_t)reader.rows * sizeof(double));
        }
    }
    const int64_t room = reader.rows;
    for (int more = toBeRead && room > 0; more > 0;) {
        more = readSamples(&reader);
        if (more < 0) {
            stop(reader.kind, reader.error);
        }
    }
    for (size_t i = 0; reader.rows < room && i < reader.columnCount; ++i) {
        mxSetM(mxGetFieldByNumber(result, 0, (int)i), (mwSize)reader.rows);
    }
    return result;
}

/* Units and descriptions by column, and the sentences about damages. */
static mxArray *about(void) {
    static const char *titles[] = {"units", "descriptions", "damages"};
    mxArray *const result = mxCreateStructMatrix(1, 1, 3, titles);
    mxArray *const units = structOf();
    mxArray *const descriptions = structOf();
    mxArray *const damages = mxCreateCellMatrix((mwSize)reader.damageCount, 1);
    for (size_t i = 0; i < reader.columnCount; ++i) {
        mxSetFieldByNumber(units, 0, (int)i, mxCreateString(reader.columns[i].unit));
        mxSetFieldByNumber(descriptions, 0, (int)i, mxCreateString(reader.columns[i].description));
    }
    for (size_t i = 0; i < reader.damageCount; ++i) {
        mxSetCell(damages, (mwIndex)i, mxCreateString(reader.damages[i].text));
    }
    mxSetFieldByNumber(result, 0, 0, units);
    mxSetFieldByNumber(result, 0, 1, descriptions);
    mxSetFieldByNumber(result, 0, 2, damages);
    return result;
}

void mexFunction(int outCount, mxArray *out[], int inCount, const mxArray *in[]) {
    mexAtExit(closeReader);
    closeReader();
    textCount = 0;
    if (inCount < 2 || inCount % 2 != 0 || outCount > 2) {
        stop("argument", "it is [columns, about] = trkread(file, table, option, value, ...)");
    }
    Request request;
    memset(&request, 0, sizeof request);
    request.start = NAN;
    request.stop = NAN;
    request.path = textOf(in[0], "the first argument is the name of a file");
    request.what =
        textOf(in[1], "the second argument names the table: samples, events, messages, trials or blocks");
    for (int i = 2; i < inCount; i += 2) {
        setOption(&request, in[i], in[i + 1]);
    }
    if (readerOpen(&reader, &request) != 0) {
        stop(reader.kind, reader.error);
    }
    out[0] = readColumns();
    if (outCount > 1) {
        out[1] = about();
    }
    char warning[sizeof reader.error];
    strcpy(warning, reader.error);
    closeReader();
    if (*warning != '\0') {
        mexWarnMsgIdAndTxt("trkapi:damage", "%s", warning);
    }
}
