"""An open handle of the library, with its lock, its log, and the process that it belongs to."""

from __future__ import annotations

import contextlib
import ctypes
import logging
import os
import threading
import weakref
from collections import deque
from typing import Iterator, Optional

from . import _library as c
from ._errors import Damage, RecordingError, RecordingNotFound, damaged

logger = logging.getLogger("trkapi")
logger.addHandler(logging.NullHandler())

_LINES_KEPT = 1000  # of the log, while a call runs


def _close(handle: int, lines: deque[bytes]) -> None:
    c.library().trk_close_file(handle)
    lines.clear()


class Session:
    """One handle. Calls with it go one at a time: ``with session.use() as handle`` takes its lock.

    A child process made by fork has a session of its own: the handle that it inherited shares the place in the
    file with its parent, and is left alone.
    """

    def __init__(self, path: str, flags: int, resolution: Optional[tuple[float, float]], folder: Optional[str]):
        self.path = path
        self._flags = flags
        self._resolution = resolution or (c.MISSING_DATA, c.MISSING_DATA)
        self._folder = None if folder is None else os.fsencode(folder)
        self._lock = threading.RLock()
        self._handle: Optional[int] = None
        self.closed = False
        self._open()
        self.path = os.path.abspath(path)  # for a child that goes on from another folder
        _live.add(self)

    def _open(self) -> None:
        options = c.TRK_OPEN_OPTIONS()
        c.library().trk_default_options(ctypes.byref(options))
        options.flags = self._flags
        options.config = c.CONFIG(*self._resolution)
        options.temporary_folder = self._folder
        self._lines: deque[bytes] = deque(maxlen=_LINES_KEPT)
        options.log = ctypes.cast(c.append_line, ctypes.c_void_p)
        options.user = id(self._lines)
        error = c.TRK_ERROR()
        name = os.fsencode(self.path)
        if b"\0" in name:
            raise ValueError(f"{self.path!r}: a file name holds no zero byte")
        handle = c.library().trk_open(name, ctypes.byref(options), ctypes.byref(error))
        self._pass_on_log()
        if not handle:
            raise error_of(error, self.path)
        self._handle = handle
        self._finalizer = weakref.finalize(self, _close, handle, self._lines)
        # At exit the system takes everything back, while other threads may still read.
        self._finalizer.atexit = False

    @contextlib.contextmanager
    def use(self) -> Iterator[int]:
        """The handle, for this thread alone.

        A generator, because an interrupt may come anywhere: one that is thrown away gives its lock back.
        """
        with self._lock:
            self.check()
            if self._handle is None:
                self._open()
            assert self._handle is not None
            try:
                yield self._handle
            finally:
                self._pass_on_log()

    def check(self) -> None:
        """Raise when it is closed."""
        if self.closed:
            name = os.path.basename(self.path)
            raise ValueError(f"{name} is closed: it was used after close() or behind its with block")

    def _pass_on_log(self) -> None:
        while self._lines:
            text = self._lines.popleft().decode("utf-8", "replace").rstrip()
            logger.info("%s: %s", os.path.basename(self.path), text)

    def close(self) -> None:
        with self._lock:
            self.closed = True
            self._handle = None
            self._finalizer()

    def after_fork(self) -> None:
        self._lock = threading.RLock()
        self._finalizer.detach()
        self._handle = None

    def damages(self) -> tuple[Damage, ...]:
        """All damages and repairs."""
        found: list[Damage] = []
        record = c.TRK_DAMAGE()
        with self.use() as handle:
            while c.library().trk_get_damage(handle, len(found), ctypes.byref(record)) == 0:
                found.append(Damage._of(record))
        return tuple(found)


def error_of(error: c.TRK_ERROR, path: str) -> Exception:
    """The exception for an error of the library."""
    text = error.text.decode("utf-8", "replace")
    if error.code == c.TRK_ERROR_MEMORY:
        return MemoryError(text)
    if error.code == c.TRK_ERROR_ARGUMENT:
        return ValueError(text)
    offset = error.offset if error.offset >= 0 else None
    if error.code == c.TRK_ERROR_DAMAGED:
        return damaged(text, path, offset, ())
    found = error.code != c.TRK_ERROR_FILE or os.path.lexists(path)
    kind = RecordingError if found else RecordingNotFound
    return kind(text, path, error.code, error.system_error, offset)


_live: weakref.WeakSet[Session] = weakref.WeakSet()


def _after_fork() -> None:
    for session in _live:
        with contextlib.suppress(AttributeError):  # one that another thread was opening
            session.after_fork()


if hasattr(os, "register_at_fork"):
    os.register_at_fork(after_in_child=_after_fork)
