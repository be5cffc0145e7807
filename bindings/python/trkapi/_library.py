"""The shared library: where it is, its records and constants as trkapi.h has them, and its calls.

Names, sizes, offsets and values are those of the public header; a test compiles it and compares all of them.
"""

from __future__ import annotations

import ctypes
import functools
import os
from collections import deque
from ctypes import (
    POINTER,
    c_char,
    c_char_p,
    c_float,
    c_int,
    c_int16,
    c_int64,
    c_size_t,
    c_uint,
    c_uint8,
    c_uint16,
    c_uint32,
    c_uint64,
    c_void_p,
)
from pathlib import Path

SONAME = "libtrkapi.so.4"

MISSING_DATA = 100000000.0

REC_SBLINK = 3
REC_EBLINK = 4
REC_SSACC = 5
REC_ESACC = 6
REC_SFIX = 7
REC_EFIX = 8
REC_STARTSAMPLES = 15
REC_ENDSAMPLES = 16
REC_STARTEVENTS = 17
REC_ENDEVENTS = 18
REC_MESSAGE = 24
REC_BUTTON = 25
REC_INPUT = 28
REC_RECORDING = 30
REC_SAMPLE = 200

TRK_EVENT_AT_START = 0x0001
TRK_EVENT_AT_END = 0x0002
TRK_EVENT_AT_AVERAGE = 0x0004
TRK_EVENT_START_POSITION = 0x0008
TRK_EVENT_END_POSITION = 0x0010
TRK_EVENT_AVERAGE_POSITION = 0x0020
TRK_EVENT_PUPIL_SIZE = 0x0080
TRK_EVENT_VELOCITY = 0x0100
TRK_EVENT_RESOLUTION = 0x0200
TRK_EVENT_RAW = 0x0400
TRK_EVENT_HREF = 0x0800
TRK_EVENT_GAZE = 0x1000

TRK_BLOCK_START = 1
TRK_BLOCK_SAMPLES = 1
TRK_BLOCK_EVENTS = 2
TRK_BLOCK_SAMPLES_AND_EVENTS = 3
TRK_EYE_NONE = 0
TRK_EYE_LEFT = 1
TRK_EYE_RIGHT = 2
TRK_EYE_BOTH = 3

TRK_OPEN_NO_CHECK = 0
TRK_OPEN_CHECK = 1
TRK_OPEN_CHECK_AND_FILL = 2
TRK_OPEN_TOLERANT = 4
TRK_OPEN_KEEP_TIMES = 8
TRK_OPEN_MESSAGE_OFFSETS = 16
TRK_OPEN_SALVAGE = 0x100

TRK_OK = 0
TRK_ERROR_FILE = 1
TRK_ERROR_NOT_A_RECORDING = 2
TRK_ERROR_DAMAGED = 3
TRK_ERROR_TEMPORARY_FILE = 4
TRK_ERROR_TOO_LARGE = 5
TRK_ERROR_MEMORY = 6
TRK_ERROR_ARGUMENT = 7

TRK_DAMAGE_CUT = 1
TRK_DAMAGE_UNREADABLE = 2
TRK_DAMAGE_IMPLAUSIBLE = 3
TRK_DAMAGE_EARLY_END = 4
TRK_DAMAGE_COMPRESSED_DATA = 5
TRK_DAMAGE_CHECKSUM = 6
TRK_DAMAGE_BLOCK_END_MISSING = 7
TRK_DAMAGE_BEHIND_END = 8
TRK_REPAIR_DROPPED_SAMPLES = 100
TRK_REPAIR_MOVED_EVENTS = 101
TRK_REPAIR_JOINED_BLINKS = 102
TRK_REPAIR_FILLED_GAPS = 103

TRK_TYPE_FLOAT = 1
TRK_TYPE_DOUBLE = 2
TRK_TYPE_UINT8 = 3
TRK_TYPE_UINT16 = 4
TRK_TYPE_UINT32 = 5
TRK_TYPE_INT64 = 6

TRK_READ_NAN = 1


class FSAMPLE_REC(ctypes.Structure):
    _fields_ = (
        [("time", c_uint32)]
        + [(name, c_float * 2) for name in ("pupil_x", "pupil_y", "href_x", "href_y", "pupil_size")]
        + [("gaze_x", c_float * 2), ("gaze_y", c_float * 2), ("res_x", c_float), ("res_y", c_float)]
        + [
            (f"{what}_{kind}_{axis}", c_float * 2)
            for kind in ("vel", "fvel")
            for what in ("gaze", "href", "pupil")
            for axis in ("x", "y")
        ]
        + [("ext_data", c_uint16 * 8)]
        + [(name, c_uint16) for name in ("flags", "input", "buttons", "ext_type", "status")]
        + [("sort_key", c_uint64)]
    )


class FEVENT(ctypes.Structure):
    _fields_ = (
        [("time", c_uint32), ("type", c_int16), ("read_flags", c_uint16)]
        + [("start_time", c_uint32), ("end_time", c_uint32)]
        + [
            (f"{part}_{what}", c_float)
            for part in ("start", "end", "avg")
            for what in ("href_x", "href_y", "gaze_x", "gaze_y", "pupil_size")
        ]
        + [(name, c_float) for name in ("avg_velocity", "peak_velocity", "start_velocity", "end_velocity")]
        + [(name, c_float) for name in ("start_res_x", "end_res_x", "start_res_y", "end_res_y")]
        + [("eye", c_int16)]
        + [(name, c_uint16) for name in ("spare_word", "status_word", "aux_word1", "aux_word2", "parse_flags")]
        + [("message", c_size_t)]  # a pointer, which bulk reading leaves null
    )


class FRECORDING(ctypes.Structure):
    _fields_ = [
        ("time", c_uint32),
        ("sample_rate", c_float),
        ("event_content_flags", c_uint16),
        ("sample_content_flags", c_uint16),
        ("state", c_uint8),
        ("record_type", c_uint8),
        ("pupil_mode", c_uint8),
        ("recording_mode", c_uint8),
        ("filter_level", c_uint8),
        ("pos_type", c_uint8),
        ("eye", c_uint8),
        ("sort_key", c_uint64),
        ("gaze_prescaler", c_float),
        ("window_size2", c_uint32),
        ("window_size1", c_uint32),
        ("close_pair", c_uint8),
    ]


class ALLF_DATA(ctypes.Union):
    _fields_ = [("sample", FSAMPLE_REC), ("event", FEVENT), ("recording", FRECORDING)]


class TRIAL(ctypes.Structure):
    _fields_ = [
        ("recording", POINTER(FRECORDING)),
        ("duration", c_uint32),
        ("start_time", c_uint32),
        ("end_time", c_uint32),
    ]


class CONFIG(ctypes.Structure):
    _fields_ = [("velocity_param_1", c_float), ("velocity_param_2", c_float)]


class TRK_OPEN_OPTIONS(ctypes.Structure):
    _fields_ = [
        ("size", c_size_t),
        ("flags", c_int),
        ("events", c_int),
        ("samples", c_int),
        ("config", CONFIG),
        ("message_log", c_char_p),
        ("temporary_folder", c_char_p),
        ("log", c_void_p),
        ("user", c_void_p),
    ]


class TRK_ERROR(ctypes.Structure):
    _fields_ = [
        ("code", c_int),
        ("system_error", c_int),
        ("offset", c_int64),
        ("text", c_char * 256),
        ("item", c_int64),
    ]


class TRK_DAMAGE(ctypes.Structure):
    _fields_ = [
        ("kind", c_int),
        ("item", c_uint),
        ("offset", c_int64),
        ("length", c_int64),
        ("count", c_int64),
        ("time", c_uint32),
        ("text", c_char * 256),
    ]


class TRK_COLUMN_DESCRIPTION(ctypes.Structure):
    _fields_ = [
        ("id", c_int),
        ("type", c_int),
        ("name", c_char_p),
        ("group", c_char_p),
        ("unit", c_char_p),
        ("description", c_char_p),
        ("missing", c_char_p),
        ("record_offset", c_int),
        ("velocity", c_int),
    ]


class TRK_COLUMN(ctypes.Structure):
    _fields_ = [("id", c_int), ("type", c_int), ("data", c_void_p), ("stride", c_size_t)]


# A log function that appends its text to the deque that `user` points at. A method of a builtin type runs no
# Python code: no signal is handled and nothing is raised inside of a call of the library.
append_line = ctypes.CFUNCTYPE(None, ctypes.py_object, c_char_p)(deque.append)

_PROTOTYPES = {
    "trk_default_options": (None, [POINTER(TRK_OPEN_OPTIONS)]),
    "trk_open": (c_void_p, [c_char_p, POINTER(TRK_OPEN_OPTIONS), POINTER(TRK_ERROR)]),
    "trk_close_file": (c_int, [c_void_p]),
    "trk_get_damage": (c_int, [c_void_p, c_int, POINTER(TRK_DAMAGE)]),
    "trk_goto_item": (c_int, [c_void_p, c_uint]),
    "trk_get_next_data": (c_int, [c_void_p]),
    "trk_get_float_data": (POINTER(ALLF_DATA), [c_void_p]),
    "trk_get_element_count": (c_uint, [c_void_p]),
    "trk_find_time": (c_uint, [c_void_p, c_uint]),
    "trk_set_trial_identifier": (c_int, [c_void_p, c_char_p, c_char_p]),
    "trk_get_trial_count": (c_int, [c_void_p]),
    "trk_jump_to_trial": (c_int, [c_void_p, c_int]),
    "trk_get_trial_header": (c_int, [c_void_p, POINTER(TRIAL)]),
    "trk_get_trial_range": (c_int, [c_void_p, c_int, POINTER(c_uint), POINTER(c_uint)]),
    "trk_get_preamble_text": (c_int, [c_void_p, c_void_p, c_int]),
    "trk_get_preamble_text_length": (c_int, [c_void_p]),
    "trk_get_revision": (c_int, [c_void_p]),
    "trk_get_pupilon_revision": (c_int, [c_void_p]),
    "trk_is_compressed": (c_int, [c_void_p]),
    "trk_describe_column": (c_int, [c_int, POINTER(TRK_COLUMN_DESCRIPTION)]),
    "trk_describe_event_column": (c_int, [c_int, POINTER(TRK_COLUMN_DESCRIPTION)]),
    "trk_get_event_column": (c_int, [c_void_p, c_int64, c_int, c_void_p]),
    "trk_count_items": (c_int64, [c_void_p, c_uint, c_uint, c_int]),
    "trk_list_items": (c_int64, [c_void_p, c_uint, c_uint, c_int, c_void_p, c_int64]),
    "trk_read_samples": (
        c_int64,
        [c_void_p, c_uint, c_uint, POINTER(TRK_COLUMN), c_size_t, c_int64, c_int, POINTER(TRK_ERROR)],
    ),
    "trk_read_events": (
        c_int64,
        [c_void_p, c_uint, c_uint, c_void_p, c_int64, c_void_p, c_size_t, c_void_p, POINTER(TRK_ERROR)],
    ),
}


def _load() -> ctypes.CDLL:
    named = os.environ.get("TRKAPI_LIBRARY")
    inside = Path(__file__).with_name(SONAME)
    candidates = [named] if named else ([str(inside)] if inside.exists() else []) + [SONAME]
    failures = []
    for candidate in candidates:
        try:
            return ctypes.CDLL(candidate)
        except OSError as error:
            failures.append(str(error))
    raise ImportError(
        f"the library {SONAME} cannot be loaded ({'; '.join(failures)}): install it, install the wheel that has "
        "it inside, or name its file in the environment variable TRKAPI_LIBRARY"
    )


@functools.lru_cache(maxsize=None)
def library() -> ctypes.CDLL:
    """The library, loaded when it is first needed. Its calls run without the interpreter's lock."""
    loaded = _load()
    for name, (result, arguments) in _PROTOTYPES.items():
        try:
            call = getattr(loaded, name)
        except AttributeError:
            raise ImportError(
                f"{loaded._name} has no {name}: it is older than this package, 4.3 is needed"
            ) from None
        call.restype, call.argtypes = result, arguments
    return loaded
