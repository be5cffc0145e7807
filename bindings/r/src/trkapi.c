/* What the functions in R/ call. */
#include "reader.h"

#define R_NO_REMAP
#include <R.h>
#include <R_ext/Rdynload.h>
#include <Rinternals.h>
#include <limits.h>
#include <math.h>
#include <string.h>

/* ---- From R ---- */

static SEXP option(SEXP options, const char *name) {
    const SEXP names = Rf_getAttrib(options, R_NamesSymbol);
    for (R_xlen_t i = 0; i < Rf_xlength(options); ++i) {
        if (strcmp(CHAR(STRING_ELT(names, i)), name) == 0) {
            return VECTOR_ELT(options, i);
        }
    }
    return R_NilValue;
}

/* R checked that these are one string or nothing. */
static const char *textOption(SEXP options, const char *name) {
    const SEXP value = option(options, name);
    return Rf_isNull(value) ? NULL : Rf_translateCharUTF8(STRING_ELT(value, 0));
}

static double numberOption(SEXP options, const char *name) {
    const SEXP value = option(options, name);
    return Rf_isNull(value) ? NAN : Rf_asReal(value);
}

/* ---- To R ---- */

/* Sets element `at` of two lists: a value and its name. */
static void put(SEXP list, SEXP names, int at, const char *name, SEXP value) {
    SET_VECTOR_ELT(list, at, value);
    SET_STRING_ELT(names, at, Rf_mkCharCE(name, CE_UTF8));
}

static SEXP newList(R_xlen_t size) {
    const SEXP list = PROTECT(Rf_allocVector(VECSXP, size));
    Rf_setAttrib(list, R_NamesSymbol, Rf_allocVector(STRSXP, size));
    UNPROTECT(1);
    return list;
}

static void asDataFrame(SEXP list, int rows) {
    const SEXP rowNames = PROTECT(Rf_allocVector(INTSXP, 2)); /* the short form of 1 to `rows` */
    INTEGER(rowNames)[0] = NA_INTEGER;
    INTEGER(rowNames)[1] = -rows;
    Rf_setAttrib(list, R_RowNamesSymbol, rowNames);
    const SEXP class = PROTECT(Rf_mkString("data.frame"));
    Rf_setAttrib(list, R_ClassSymbol, class);
    UNPROTECT(2);
}

static SEXP textOrNA(const char *text) { return text == NULL ? NA_STRING : Rf_mkCharCE(text, CE_UTF8); }

static SEXP readData(Reader *reader, SEXP list, SEXP names) {
    const R_xlen_t room = (R_xlen_t)reader->rows;
    int toBeRead = 0;
    for (size_t i = 0; i < reader->columnCount; ++i) {
        Column *const column = &reader->columns[i];
        put(list, names, (int)i, column->name, Rf_allocVector(column->texts != NULL ? STRSXP : REALSXP, room));
        const SEXP vector = VECTOR_ELT(list, (R_xlen_t)i);
        for (R_xlen_t row = 0; column->texts != NULL && row < room; ++row) {
            SET_STRING_ELT(vector, row, textOrNA(column->texts[row]));
        }
        if (column->texts == NULL && column->numbers != NULL && room > 0) {
            memcpy(REAL(vector), column->numbers, (size_t)room * sizeof(double));
        } else if (column->texts == NULL && column->numbers == NULL) {
            column->numbers = REAL(vector);
            toBeRead = 1;
        }
    }
    for (int more = toBeRead; more > 0;) {
        R_CheckUserInterrupt();
        more = readSamples(reader);
        if (more < 0) {
            return R_NilValue;
        }
    }
    for (R_xlen_t i = 0; i < Rf_xlength(list); ++i) {
        if ((R_xlen_t)reader->rows < room) {
            SET_VECTOR_ELT(list, i, Rf_xlengthgets(VECTOR_ELT(list, i), (R_xlen_t)reader->rows));
        }
        const SEXP vector = VECTOR_ELT(list, i);
        for (R_xlen_t row = 0; TYPEOF(vector) == REALSXP && row < Rf_xlength(vector); ++row) {
            if (ISNAN(REAL(vector)[row])) {
                REAL(vector)[row] = NA_REAL;
            }
        }
    }
    asDataFrame(list, (int)reader->rows);
    return list;
}

static SEXP columnsOf(const Reader *reader) {
    const SEXP list = PROTECT(newList(3));
    const SEXP names = Rf_getAttrib(list, R_NamesSymbol);
    static const char *const titles[] = {"name", "unit", "description"};
    for (int k = 0; k < 3; ++k) {
        put(list, names, k, titles[k], Rf_allocVector(STRSXP, (R_xlen_t)reader->columnCount));
        for (size_t i = 0; i < reader->columnCount; ++i) {
            const Column *const column = &reader->columns[i];
            const char *const text = k == 0 ? column->name : k == 1 ? column->unit : column->description;
            SET_STRING_ELT(VECTOR_ELT(list, k), (R_xlen_t)i, Rf_mkCharCE(text, CE_UTF8));
        }
    }
    asDataFrame(list, (int)reader->columnCount);
    UNPROTECT(1);
    return list;
}

static SEXP damagesOf(const Reader *reader) {
    static const char *const titles[] = {"item", "offset", "length", "time"};
    const R_xlen_t rows = (R_xlen_t)reader->damageCount;
    const SEXP list = PROTECT(newList(5));
    const SEXP names = Rf_getAttrib(list, R_NamesSymbol);
    for (int k = 0; k < 4; ++k) {
        put(list, names, k, titles[k], Rf_allocVector(REALSXP, rows));
        for (R_xlen_t i = 0; i < rows; ++i) {
            const TRK_DAMAGE *const damage = &reader->damages[i];
            const double numbers[] = {damage->item, (double)damage->offset, (double)damage->length, damage->time};
            REAL(VECTOR_ELT(list, k))[i] = numbers[k];
        }
    }
    put(list, names, 4, "text", Rf_allocVector(STRSXP, rows));
    for (R_xlen_t i = 0; i < rows; ++i) {
        SET_STRING_ELT(VECTOR_ELT(list, 4), i, Rf_mkCharCE(reader->damages[i].text, CE_UTF8));
    }
    asDataFrame(list, (int)rows);
    UNPROTECT(1);
    return list;
}

/* A list of kind, sentence and place: R makes a condition of it. */
static SEXP failureOf(const Reader *reader) {
    const SEXP list = PROTECT(newList(3));
    const SEXP names = Rf_getAttrib(list, R_NamesSymbol);
    put(list, names, 0, "kind", Rf_mkString(reader->kind));
    put(list, names, 1, "message", Rf_ScalarString(Rf_mkCharCE(reader->error, CE_UTF8)));
    put(list, names, 2, "offset", Rf_ScalarReal(reader->offset < 0 ? NA_REAL : (double)reader->offset));
    UNPROTECT(1);
    return list;
}

/* ---- Calls ---- */

typedef struct Call {
    Reader reader;
    Request request;
} Call;

static SEXP readTable(void *data) {
    Call *const call = data;
    Reader *const reader = &call->reader;
    if (readerOpen(reader, &call->request) != 0) {
        return failureOf(reader);
    }
    if (reader->rows > INT_MAX) {
        Rf_error("a data frame has at most %d rows: read a part with start and stop", INT_MAX);
    }
    const SEXP list = PROTECT(newList((R_xlen_t)reader->columnCount));
    const SEXP result = PROTECT(readData(reader, list, Rf_getAttrib(list, R_NamesSymbol)));
    if (Rf_isNull(result)) {
        UNPROTECT(2);
        return failureOf(reader);
    }
    const SEXP columns = PROTECT(columnsOf(reader));
    Rf_setAttrib(result, Rf_install("columns"), columns);
    const SEXP damages = PROTECT(damagesOf(reader));
    Rf_setAttrib(result, Rf_install("damages"), damages);
    if (*reader->error != '\0') {
        const SEXP sentence = PROTECT(Rf_ScalarString(Rf_mkCharCE(reader->error, CE_UTF8)));
        Rf_setAttrib(result, Rf_install("warning"), sentence);
        UNPROTECT(1);
    }
    UNPROTECT(4);
    return result;
}

static void closeReader(void *data) {
    Call *const call = data;
    readerClose(&call->reader);
}

static SEXP readAny(SEXP path, SEXP what, SEXP options) {
    Call call;
    memset(&call, 0, sizeof call);
    Request *const request = &call.request;
    request->path = Rf_translateChar(STRING_ELT(path, 0));
    request->what = CHAR(STRING_ELT(what, 0));
    request->check = textOption(options, "check");
    request->onDamage = textOption(options, "on_damage");
    request->keepTimes = Rf_asLogical(option(options, "keep_times")) == TRUE;
    request->start = numberOption(options, "start");
    request->stop = numberOption(options, "stop");
    request->velocities = Rf_asLogical(option(options, "velocities")) == TRUE;
    request->startText = textOption(options, "start_text");
    request->endText = textOption(options, "end_text");
    const SEXP columns = option(options, "columns");
    request->columnCount = (size_t)Rf_xlength(columns);
    if (request->columnCount > 0) {
        const char **const names = (const char **)R_alloc(request->columnCount, sizeof *names);
        for (size_t i = 0; i < request->columnCount; ++i) {
            names[i] = Rf_translateCharUTF8(STRING_ELT(columns, (R_xlen_t)i));
        }
        request->columns = names;
    }
    /* R jumps out of what it likes; the recording is closed in any case. */
    return R_ExecWithCleanup(readTable, &call, closeReader, &call);
}

static SEXP describe(void) {
    static const char *const titles[] = {"name", "group", "unit", "description", "missing"};
    enum { kTitles = sizeof titles / sizeof *titles };
    TRK_COLUMN_DESCRIPTION column;
    int count = 0;
    while (trk_describe_column(count + 1, &column) == 0) {
        ++count;
    }
    const SEXP list = PROTECT(newList(kTitles));
    for (int k = 0; k < kTitles; ++k) {
        put(list, Rf_getAttrib(list, R_NamesSymbol), k, titles[k], Rf_allocVector(STRSXP, count));
        for (int i = 0; i < count && trk_describe_column(i + 1, &column) == 0; ++i) {
            /* How it reads without NaN; in R it is NA, and of block NA as well. */
            const char *const missing = *column.missing != '\0' || column.id == TRK_COLUMN_BLOCK ? "NA" : "";
            const char *const texts[] = {column.name, column.group, column.unit, column.description, missing};
            SET_STRING_ELT(VECTOR_ELT(list, k), i, Rf_mkCharCE(texts[k], CE_UTF8));
        }
    }
    asDataFrame(list, count);
    UNPROTECT(1);
    return list;
}

void R_init_trkapi(DllInfo *library) {
    static const R_CallMethodDef calls[] = {
        {"trkapi_read", (DL_FUNC)&readAny, 3}, {"trkapi_describe", (DL_FUNC)&describe, 0}, {NULL, NULL, 0}};
    R_registerRoutines(library, NULL, calls, NULL, NULL);
    R_useDynamicSymbols(library, FALSE);
    R_forceSymbols(library, TRUE);
}
