#include "reader.h"

#include <math.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { kEventsAtOnce = 2048, kLongestText = 500, kSamplesAtOnce = 1 << 14 };

/* ---- Failures and memory ---- */

static int fail(Reader *reader, const char *kind, const char *format, ...) {
    va_list values;
    va_start(values, format);
    vsnprintf(reader->error, sizeof reader->error, format, values);
    va_end(values);
    reader->kind = kind;
    reader->offset = -1;
    return -1;
}

static int failAs(Reader *reader, const TRK_ERROR *error) {
    static const char *const kinds[] = {"failed",         "file",      "not_a_recording", "damaged",
                                        "temporary_file", "too_large", "memory",          "argument"};
    const int known = error->code > 0 && error->code < (int)(sizeof kinds / sizeof *kinds);
    fail(reader, kinds[known ? error->code : 0], "%s", error->text);
    reader->offset = error->offset;
    return -1;
}

/* Of a bulk reading; behind a damaged item it can go on. */
static int isFatal(int64_t rows, const TRK_ERROR *error) {
    return rows < 0 || error->item < 0 || (error->code != TRK_OK && error->code != TRK_ERROR_DAMAGED);
}

static void *own(Reader *reader, size_t count, size_t size) {
    void **const owned = realloc(reader->owned, (reader->ownedCount + 1) * sizeof *owned);
    void *memory = NULL;
    if (owned != NULL) {
        reader->owned = owned;
        memory = calloc(count == 0 ? 1 : count, size);
    }
    if (memory == NULL) {
        fail(reader, "memory", "Memory ran out");
    } else {
        owned[reader->ownedCount++] = memory;
    }
    return memory;
}

void readerClose(Reader *reader) {
    trk_close_file(reader->handle);
    free(reader->damages);
    for (size_t i = 0; i < reader->ownedCount; ++i) {
        free(reader->owned[i]);
    }
    free(reader->owned);
    memset(reader, 0, sizeof *reader);
}

/* ---- Texts ---- */

/* Length of the UTF-8 character at the beginning of a text; 0 when there is none. */
static size_t characterLength(const unsigned char *text, size_t size) {
    const size_t length = text[0] < 0x80                       ? 1
                          : text[0] >= 0xC2 && text[0] <= 0xDF ? 2
                          : text[0] >= 0xE0 && text[0] <= 0xEF ? 3
                          : text[0] >= 0xF0 && text[0] <= 0xF4 ? 4
                                                               : 0;
    if (length == 0 || length > size) {
        return 0;
    }
    for (size_t i = 1; i < length; ++i) {
        if ((text[i] & 0xC0) != 0x80) {
            return 0;
        }
    }
    /* Overlong forms, surrogates, and what is beyond the last character. */
    const int wrong = length > 2 && ((text[0] == 0xE0 && text[1] < 0xA0) || (text[0] == 0xED && text[1] > 0x9F) ||
                                     (text[0] == 0xF0 && text[1] < 0x90) || (text[0] == 0xF4 && text[1] > 0x8F));
    return wrong ? 0 : length;
}

/* A copy as UTF-8: what is none is taken as Latin-1, and zero bytes become U+2400, as in the tables of trk. */
static const char *keepText(Reader *reader, const char *text, size_t size) {
    const unsigned char *const bytes = (const unsigned char *)text;
    int isUtf8 = 1;
    for (size_t i = 0; i < size && isUtf8;) {
        const size_t length = characterLength(bytes + i, size - i);
        isUtf8 = length != 0;
        i += length;
    }
    char *const copy = own(reader, 3 * size + 1, 1);
    char *to = copy;
    for (size_t i = 0; copy != NULL && i < size; ++i) {
        if (bytes[i] == 0) {
            memcpy(to, "\xE2\x90\x80", 3);
            to += 3;
        } else if (bytes[i] < 0x80 || isUtf8) {
            *to++ = text[i];
        } else {
            *to++ = (char)(0xC0 | bytes[i] >> 6);
            *to++ = (char)(0x80 | (bytes[i] & 0x3F));
        }
    }
    return copy;
}

static const char *eyesName(unsigned eyes) {
    static const char *const names[] = {"none", "left", "right", "both"};
    return names[eyes & TRK_EYE_BOTH];
}

/* ---- Tables ---- */

static Column *addColumn(Reader *reader, const char *name, const char *unit, const char *description) {
    Column *const column = &reader->columns[reader->columnCount++];
    column->name = name;
    column->unit = unit;
    column->description = description;
    return column;
}

static Column *addNumbers(Reader *reader, const char *name, const char *unit, const char *description) {
    Column *const column = addColumn(reader, name, unit, description);
    column->numbers = own(reader, (size_t)reader->rows, sizeof(double));
    return column->numbers == NULL ? NULL : column;
}

static Column *addTexts(Reader *reader, const char *name, const char *description) {
    Column *const column = addColumn(reader, name, "", description);
    column->texts = own(reader, (size_t)reader->rows, sizeof(char *));
    return column->texts == NULL ? NULL : column;
}

/* From 1; NaN for an item outside. */
static double blockOf(const Reader *reader, unsigned item) {
    size_t low = 0;
    for (size_t high = reader->blockCount; low < high;) {
        const size_t middle = low + (high - low) / 2;
        if (reader->blocks[middle].first <= item) {
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    return low > 0 && item < reader->blocks[low - 1].end ? (double)low : NAN;
}

/* ---- Recording blocks ---- */

static const FRECORDING *fetchBlock(Reader *reader, unsigned item) {
    if (trk_goto_item(reader->handle, item) != 0 || trk_get_next_data(reader->handle) != REC_RECORDING) {
        return NULL;
    }
    const ALLF_DATA *const data = trk_get_float_data(reader->handle);
    return data == NULL ? NULL : &data->recording;
}

static int findBlocks(Reader *reader) {
    const int64_t count = trk_count_items(reader->handle, 0, reader->items, REC_RECORDING);
    unsigned *const marks = own(reader, (size_t)count, sizeof *marks);
    reader->blocks = own(reader, (size_t)count, sizeof *reader->blocks);
    if (marks == NULL || reader->blocks == NULL) {
        return -1;
    }
    trk_list_items(reader->handle, 0, reader->items, REC_RECORDING, marks, count);
    /* Times that are moved count from what is fetched first. */
    if (trk_goto_item(reader->handle, 0) == 0 && trk_get_next_data(reader->handle) != 0) {
        trk_get_float_data(reader->handle);
    }
    RecordingBlock *block = NULL; /* that has not ended */
    for (int64_t i = 0; i < count; ++i) {
        const FRECORDING *const mark = fetchBlock(reader, marks[i]);
        if (mark == NULL) {
            continue;
        }
        const int starts = mark->state == TRK_BLOCK_START;
        if (block != NULL) {
            block->end = marks[i] + !starts;
            block->hasEnd = !starts;
            block->endTime = mark->time;
        }
        block = NULL;
        if (starts) {
            block = &reader->blocks[reader->blockCount++];
            block->start = *mark;
            block->first = marks[i];
            block->end = reader->items;
        }
    }
    return 0;
}

static int makeBlocks(Reader *reader) {
    static const char *const types[] = {"unknown", "samples", "events", "samples+events"};
    reader->rows = (int64_t)reader->blockCount;
    Column *const number = addNumbers(reader, "block", "", "number of the recording block, from 1");
    Column *const first = addNumbers(reader, "first_item", "", "number of its first item, from 0");
    Column *const last = addNumbers(reader, "last_item", "", "number of its last item");
    Column *const start = addNumbers(reader, "start", "ms", "start of the block");
    Column *const end = addNumbers(reader, "end", "ms", "end of the block; missing where the recording has none");
    Column *const duration = addNumbers(reader, "duration", "ms", "end minus start");
    Column *const eyes = addTexts(reader, "eyes", "left, right, both or none");
    Column *const rate = addNumbers(reader, "sample_rate", "Hz", "samples per second");
    Column *const samples = addNumbers(reader, "samples", "", "number of samples, dummy samples among them");
    Column *const messages = addNumbers(reader, "messages", "", "number of messages");
    Column *const type = addTexts(reader, "record_type", "what the block's records are");
    Column *const mode = addNumbers(reader, "pupil_mode", "", "pupil sizes are 0 area, 1 diameter");
    Column *const filter = addNumbers(reader, "filter_level", "", "level of the tracker's filter");
    if (reader->kind != NULL) {
        return -1;
    }
    for (int64_t i = 0; i < reader->rows; ++i) {
        const RecordingBlock *const block = &reader->blocks[i];
        const FRECORDING *const facts = &block->start;
        number->numbers[i] = (double)(i + 1);
        first->numbers[i] = block->first;
        last->numbers[i] = block->end - 1.0;
        start->numbers[i] = facts->time;
        end->numbers[i] = block->hasEnd ? block->endTime : NAN;
        duration->numbers[i] = end->numbers[i] - facts->time;
        eyes->texts[i] = eyesName(facts->eye);
        rate->numbers[i] = facts->sample_rate;
        samples->numbers[i] = (double)trk_count_items(reader->handle, block->first, block->end, REC_SAMPLE);
        messages->numbers[i] = (double)trk_count_items(reader->handle, block->first, block->end, REC_MESSAGE);
        type->texts[i] = types[facts->record_type & TRK_BLOCK_SAMPLES_AND_EVENTS];
        mode->numbers[i] = facts->pupil_mode;
        filter->numbers[i] = facts->filter_level;
    }
    return 0;
}

/* ---- Events ---- */

/* Those among the items [first, end), some at a time. */
typedef struct Events {
    unsigned first;
    unsigned end;
    int64_t row;
    int64_t rows;
    unsigned items[kEventsAtOnce];
    FEVENT records[kEventsAtOnce];
    int64_t offsets[kEventsAtOnce + 1];
    char texts[kEventsAtOnce * kLongestText];
} Events;

static Events *findEvents(Reader *reader, unsigned first, unsigned end) {
    Events *const events = own(reader, 1, sizeof *events);
    if (events != NULL) {
        events->first = first;
        events->end = end;
        events->row = -1;
    }
    return events;
}

/* Goes to the next one that can be read. Returns 1, 0 behind the last, or -1 as readerOpen. */
static int nextEvent(Reader *reader, Events *events) {
    while (++events->row >= events->rows) {
        if (events->first >= events->end) {
            return 0;
        }
        TRK_ERROR error;
        events->rows = trk_read_events(reader->handle, events->first, events->end, events->records, kEventsAtOnce,
                                       events->texts, sizeof events->texts, events->offsets, &error);
        if (isFatal(events->rows, &error)) {
            return failAs(reader, &error);
        }
        trk_list_items(reader->handle, events->first, events->end, 0, events->items, events->rows);
        events->first = (unsigned)error.item + (error.code == TRK_ERROR_DAMAGED ? 1 : 0);
        events->row = -1;
    }
    return 1;
}

static const char *textOf(const Events *events) { return events->texts + events->offsets[events->row]; }

/* -1 for an event without text. */
static int64_t textLength(const Events *events) {
    return events->offsets[events->row + 1] - events->offsets[events->row] - 1;
}

static int64_t count(const Reader *reader, int code) {
    return trk_count_items(reader->handle, reader->first, reader->end, code);
}

static int makeMessages(Reader *reader) {
    reader->rows = count(reader, REC_MESSAGE);
    Column *const item = addNumbers(reader, "item", "", "number of the item, from 0");
    Column *const time = addNumbers(reader, "time", "ms", "when it stands, on the tracker's clock");
    Column *const block = addNumbers(reader, "block", "", "number of the recording block, from 1");
    Column *const text = addTexts(reader, "text", "text of the message");
    Events *const events = findEvents(reader, reader->first, reader->end);
    if (reader->kind != NULL) {
        return -1;
    }
    int64_t row = 0;
    int more = 0;
    while (row < reader->rows && (more = nextEvent(reader, events)) > 0) {
        if (events->records[events->row].type != REC_MESSAGE) {
            continue;
        }
        item->numbers[row] = events->items[events->row];
        time->numbers[row] = events->records[events->row].start_time;
        block->numbers[row] = blockOf(reader, events->items[events->row]);
        if (textLength(events) >= 0) {
            text->texts[row] = keepText(reader, textOf(events), (size_t)textLength(events));
        }
        ++row;
    }
    reader->rows = row;
    return more < 0 || reader->kind != NULL ? -1 : 0;
}

/* Of the columns of events, those of eye events. */
enum { kFirstValue = TRK_EVENT_COLUMN_START_GAZE_X, kValueCount = TRK_EVENT_COLUMN_END_RES_Y - kFirstValue + 1 };

static Column *addEventColumn(Reader *reader, int id) {
    TRK_COLUMN_DESCRIPTION description;
    trk_describe_event_column(id, &description);
    return addNumbers(reader, description.name, description.unit, description.description);
}

static double valueOf(const FEVENT *event, int id) {
    double value = NAN;
    trk_get_event_column(event, 1, id, &value);
    return value;
}

static const char *wholeKind(int code) {
    switch (code) {
    case REC_EBLINK:
        return "blink";
    case REC_ESACC:
        return "saccade";
    case REC_EFIX:
        return "fixation";
    case REC_BUTTON:
        return "button";
    case REC_INPUT:
        return "input";
    default:
        return NULL;
    }
}

static int makeEvents(Reader *reader) {
    reader->rows = count(reader, REC_EBLINK) + count(reader, REC_ESACC) + count(reader, REC_EFIX) +
                   count(reader, REC_BUTTON) + count(reader, REC_INPUT);
    Column *const item = addNumbers(reader, "item", "", "number of the item, from 0");
    Column *const kind = addTexts(reader, "kind", "fixation, saccade, blink, button or input");
    Column *const eye = addTexts(reader, "eye", "left or right; missing for buttons and inputs");
    Column *const block = addNumbers(reader, "block", "", "number of the recording block, from 1");
    Column *const start = addEventColumn(reader, TRK_EVENT_COLUMN_START);
    Column *const end = addNumbers(reader, "end", "ms", "end of the event; its start for buttons and inputs");
    Column *const duration = addEventColumn(reader, TRK_EVENT_COLUMN_DURATION);
    Column *const amplitude = addEventColumn(reader, TRK_EVENT_COLUMN_AMPLITUDE);
    Column *const values = &reader->columns[reader->columnCount];
    for (int i = 0; i < kValueCount; ++i) {
        addEventColumn(reader, kFirstValue + i);
    }
    Column *const input = addEventColumn(reader, TRK_EVENT_COLUMN_INPUT);
    Column *const button = addEventColumn(reader, TRK_EVENT_COLUMN_BUTTON);
    Column *const buttons = addEventColumn(reader, TRK_EVENT_COLUMN_BUTTON_VALUE);
    Column *const state = addEventColumn(reader, TRK_EVENT_COLUMN_BUTTON_STATE);
    Events *const events = findEvents(reader, reader->first, reader->end);
    if (reader->kind != NULL) {
        return -1;
    }
    int64_t row = 0;
    int more = 0;
    while (row < reader->rows && (more = nextEvent(reader, events)) > 0) {
        const FEVENT *const event = &events->records[events->row];
        kind->texts[row] = wholeKind(event->type);
        if (kind->texts[row] == NULL) {
            continue;
        }
        const int isEye = event->type != REC_INPUT && event->type != REC_BUTTON;
        item->numbers[row] = events->items[events->row];
        eye->texts[row] = isEye ? eyesName(event->eye == 0 ? TRK_EYE_LEFT : TRK_EYE_RIGHT) : NULL;
        block->numbers[row] = blockOf(reader, events->items[events->row]);
        start->numbers[row] = valueOf(event, TRK_EVENT_COLUMN_START);
        end->numbers[row] = isEye ? valueOf(event, TRK_EVENT_COLUMN_END) : start->numbers[row];
        duration->numbers[row] = end->numbers[row] - start->numbers[row];
        amplitude->numbers[row] = valueOf(event, TRK_EVENT_COLUMN_AMPLITUDE);
        for (int i = 0; i < kValueCount; ++i) {
            values[i].numbers[row] = valueOf(event, kFirstValue + i);
        }
        input->numbers[row] = valueOf(event, TRK_EVENT_COLUMN_INPUT);
        button->numbers[row] = valueOf(event, TRK_EVENT_COLUMN_BUTTON);
        buttons->numbers[row] = valueOf(event, TRK_EVENT_COLUMN_BUTTON_VALUE);
        state->numbers[row] = valueOf(event, TRK_EVENT_COLUMN_BUTTON_STATE);
        ++row;
    }
    reader->rows = row;
    return more < 0 ? -1 : 0;
}

/* ---- Trials ---- */

/* 1 when a message holds the text (or, with trials by input values, there is an input), 0 when none does. */
static int occurs(Reader *reader, const char *text, int byInput) {
    if (byInput) {
        return trk_count_items(reader->handle, 0, reader->items, REC_INPUT) > 0;
    }
    Events *const events = findEvents(reader, 0, reader->items);
    const size_t size = strlen(text);
    int more = -1;
    while (events != NULL && (more = nextEvent(reader, events)) > 0) {
        const int64_t last = textLength(events) - (int64_t)size;
        for (int64_t i = 0; events->records[events->row].type == REC_MESSAGE && i <= last; ++i) {
            if (memcmp(textOf(events) + i, text, size) == 0) {
                return 1;
            }
        }
    }
    return more;
}

/* A text that occurs nowhere makes the library take the recording blocks, which nobody asked for. */
static int demand(Reader *reader, const char *text, const char *does, int byInput) {
    if (text != NULL && *text == '\0') {
        return fail(reader, "argument", "an empty text %s no trial", does);
    }
    const int found = text == NULL ? 1 : occurs(reader, text, byInput);
    return found == 0 ? fail(reader, "argument", "nothing %s a trial by \"%s\"", does, text) : found > 0 ? 0 : -1;
}

static int setTrialTexts(Reader *reader, const Request *request) {
    if (request->startText == NULL && request->endText == NULL) {
        return 0;
    }
    const int byInput = request->startText != NULL && strncmp(request->startText, "inPut_type_", 11) == 0;
    if (demand(reader, request->startText, "starts", byInput) != 0 ||
        demand(reader, request->endText, "ends", byInput) != 0) {
        return -1;
    }
    char *texts[2] = {NULL, NULL}; /* as long as the handle */
    const char *const given[2] = {request->startText, request->endText};
    for (int i = 0; i < 2; ++i) {
        if (given[i] != NULL && (texts[i] = own(reader, strlen(given[i]) + 1, 1)) == NULL) {
            return -1;
        }
        if (given[i] != NULL) {
            strcpy(texts[i], given[i]);
        }
    }
    return trk_set_trial_identifier(reader->handle, texts[0], texts[1]);
}

static int makeTrials(Reader *reader, const Request *request) {
    if (setTrialTexts(reader, request) != 0) {
        return -1;
    }
    const int trials = trk_get_trial_count(reader->handle);
    reader->rows = trials < 0 ? 0 : trials;
    Column *const number = addNumbers(reader, "trial", "", "number of the trial, from 1");
    Column *const block = addNumbers(reader, "block", "", "number of the first recording block it reaches into");
    Column *const firsts = addNumbers(reader, "first_item", "", "number of its first item, from 0");
    Column *const last = addNumbers(reader, "last_item", "", "number of its last item, the one that ended it");
    Column *const start = addNumbers(reader, "start", "ms", "start on the tracker's clock, never moved");
    Column *const ends = addNumbers(reader, "end", "ms", "end on the tracker's clock, never moved");
    Column *const duration = addNumbers(reader, "duration", "ms", "end minus start");
    Column *const text = addTexts(reader, "text", "text of the message that started it");
    Column *const samples = addNumbers(reader, "samples", "", "number of samples, dummy samples among them");
    if (reader->kind != NULL) {
        return -1;
    }
    Events *const events = findEvents(reader, 0, 0);
    for (int i = 0; events != NULL && i < reader->rows; ++i) {
        TRIAL trial = {0};
        unsigned first = 0;
        unsigned end = 0;
        trk_jump_to_trial(reader->handle, i);
        trk_get_trial_header(reader->handle, &trial);
        trk_get_trial_range(reader->handle, i, &first, &end);
        number->numbers[i] = i + 1;
        block->numbers[i] = NAN;
        for (size_t k = 0; k < reader->blockCount; ++k) {
            if (reader->blocks[k].end > first) {
                block->numbers[i] = reader->blocks[k].first < end ? (double)(k + 1) : NAN;
                break;
            }
        }
        firsts->numbers[i] = first;
        last->numbers[i] = end - 1.0;
        start->numbers[i] = trial.start_time;
        ends->numbers[i] = trial.end_time;
        duration->numbers[i] = trial.end_time > trial.start_time ? trial.end_time - trial.start_time : 0;
        samples->numbers[i] = (double)trk_count_items(reader->handle, first, end, REC_SAMPLE);
        events->first = first;
        events->end = first + 1;
        events->rows = 0;
        events->row = -1;
        const int more = nextEvent(reader, events);
        if (more < 0) {
            return -1;
        }
        if (more > 0 && events->records[0].type == REC_MESSAGE && textLength(events) >= 0) {
            text->texts[i] = keepText(reader, textOf(events), (size_t)textLength(events));
        }
    }
    return reader->kind != NULL ? -1 : 0;
}

/* ---- Samples ---- */

static void choose(Reader *reader, const TRK_COLUMN_DESCRIPTION *column) {
    for (size_t i = 0; i < reader->columnCount; ++i) {
        if (reader->ids[i] == column->id) {
            return;
        }
    }
    if (reader->columnCount < kMostColumns) {
        reader->ids[reader->columnCount] = column->id;
        addColumn(reader, column->name, column->unit, column->description);
    }
}

/* The columns of a name or a group. */
static int chooseByName(Reader *reader, const char *name) {
    TRK_COLUMN_DESCRIPTION column;
    int known = 0;
    for (int id = 1; trk_describe_column(id, &column) == 0; ++id) {
        if (strcmp(name, column.name) == 0 || strcmp(name, column.group) == 0) {
            choose(reader, &column);
            known = 1;
        }
    }
    return known ? 0 : fail(reader, "argument", "samples have no column or group of columns \"%s\"", name);
}

static int makeSamples(Reader *reader, const Request *request) {
    reader->rows = count(reader, REC_SAMPLE);
    int isFast = 0; /* samples share a millisecond */
    for (size_t i = 0; i < reader->blockCount; ++i) {
        isFast = isFast || reader->blocks[i].start.sample_rate > 1000;
    }
    const char *const usual[] = {"time", isFast ? "time_exact" : "time", "block", "gaze", "pupil_size"};
    const size_t usualCount = request->columnCount == 0 ? sizeof usual / sizeof *usual : 0;
    int failed = 0;
    for (size_t i = 0; i < usualCount && !failed; ++i) {
        failed = chooseByName(reader, usual[i]);
    }
    for (size_t i = 0; i < request->columnCount && !failed; ++i) {
        failed = chooseByName(reader, request->columns[i]);
    }
    return !failed && request->velocities ? chooseByName(reader, "velocity") : failed;
}

int readSamples(Reader *reader) {
    TRK_COLUMN columns[kMostColumns];
    for (size_t i = 0; i < reader->columnCount; ++i) {
        const TRK_COLUMN column = {reader->ids[i], TRK_TYPE_DOUBLE, reader->columns[i].numbers + reader->rowsRead,
                                   0};
        columns[i] = column;
    }
    const int64_t room = reader->rows - reader->rowsRead;
    TRK_ERROR error;
    const int64_t rows = trk_read_samples(reader->handle, reader->first, reader->end, columns, reader->columnCount,
                                          room < kSamplesAtOnce ? room : kSamplesAtOnce, TRK_READ_NAN, &error);
    if (isFatal(rows, &error)) {
        return failAs(reader, &error);
    }
    for (size_t i = 0; i < reader->columnCount; ++i) {
        double *const numbers = columns[i].data;
        for (int64_t row = 0; reader->ids[i] == TRK_COLUMN_BLOCK && row < rows; ++row) {
            numbers[row] = numbers[row] == 0 ? NAN : numbers[row];
        }
    }
    reader->rowsRead += rows;
    reader->first = (unsigned)error.item + (error.code == TRK_ERROR_DAMAGED ? 1 : 0);
    if (reader->first < reader->end && reader->rowsRead < reader->rows) {
        return 1;
    }
    reader->rows = reader->rowsRead;
    return 0;
}

/* ---- Opening ---- */

/* The place of a word in a list that ends with null; that of the first for none, -1 for another. */
static int wordOf(const char *word, const char *const *words) {
    for (int i = 0; words[i] != NULL; ++i) {
        if (word == NULL || strcmp(word, words[i]) == 0) {
            return i;
        }
    }
    return -1;
}

static int listDamages(Reader *reader) {
    TRK_DAMAGE damage;
    while (trk_get_damage(reader->handle, (int)reader->damageCount, &damage) == 0 &&
           damage.kind < TRK_REPAIR_DROPPED_SAMPLES) {
        TRK_DAMAGE *const more = realloc(reader->damages, (reader->damageCount + 1) * sizeof *more);
        if (more == NULL) {
            return fail(reader, "memory", "Memory ran out");
        }
        reader->damages = more;
        reader->damages[reader->damageCount++] = damage;
    }
    return 0;
}

/* The first item at or after a time; `other` when no time is given. */
static int itemAt(Reader *reader, double time, unsigned other, unsigned *item) {
    *item = other;
    if (isnan(time)) {
        return 0;
    }
    if (!(time >= 0 && time <= UINT32_MAX && time == floor(time))) {
        return fail(reader, "argument", "start and stop are whole milliseconds from 0 on");
    }
    *item = trk_find_time(reader->handle, (unsigned)time);
    return 0;
}

int readerOpen(Reader *reader, const Request *request) {
    static const char *const tables[] = {"samples", "events", "messages", "trials", "blocks", NULL};
    static const char *const checks[] = {"check", "fill", "none", NULL};
    static const char *const ways[] = {"raise", "warn", "salvage", NULL};
    static const int checkFlags[] = {TRK_OPEN_CHECK, TRK_OPEN_CHECK_AND_FILL, TRK_OPEN_NO_CHECK};
    static const int wayFlags[] = {0, TRK_OPEN_TOLERANT, TRK_OPEN_SALVAGE};
    const int table = wordOf(request->what, tables);
    const int check = wordOf(request->check, checks);
    const int way = wordOf(request->onDamage, ways);
    if (table < 0 || check < 0 || way < 0) {
        return table < 0   ? fail(reader, "argument", "there are samples, events, messages, trials and blocks")
               : check < 0 ? fail(reader, "argument", "check is one of check, fill and none")
                           : fail(reader, "argument", "on_damage is one of raise, warn and salvage");
    }
    TRK_OPEN_OPTIONS options;
    TRK_ERROR error;
    trk_default_options(&options);
    options.flags = checkFlags[check] | wayFlags[way] | (request->keepTimes ? TRK_OPEN_KEEP_TIMES : 0);
    reader->handle = trk_open(request->path, &options, &error);
    if (reader->handle == NULL) {
        return failAs(reader, &error);
    }
    if (listDamages(reader) != 0) {
        return -1;
    }
    if (way != 2 && reader->damageCount > 0) {
        const char *const slash = strrchr(request->path, '/');
        fail(reader, way == 0 ? "damaged" : NULL, "%s is damaged: %s", slash == NULL ? request->path : slash + 1,
             reader->damages[0].text);
        reader->offset = reader->damages[0].offset;
        if (way == 0) {
            return -1;
        }
    }
    reader->items = trk_get_element_count(reader->handle);
    if (itemAt(reader, request->start, 0, &reader->first) != 0 ||
        itemAt(reader, request->stop, reader->items, &reader->end) != 0 || findBlocks(reader) != 0) {
        return -1;
    }
    switch (table) {
    case 0:
        return makeSamples(reader, request);
    case 1:
        return makeEvents(reader);
    case 2:
        return makeMessages(reader);
    case 3:
        return makeTrials(reader, request);
    default:
        return makeBlocks(reader);
    }
}
