"""What can go wrong with a recording."""

from __future__ import annotations

import enum
from dataclasses import dataclass
from typing import Any, Optional, Sequence

from . import _library as c


class ErrorCode(enum.IntEnum):
    """Why a recording does not open, or a reading ended."""

    FILE = c.TRK_ERROR_FILE
    NOT_A_RECORDING = c.TRK_ERROR_NOT_A_RECORDING
    DAMAGED = c.TRK_ERROR_DAMAGED
    TEMPORARY_FILE = c.TRK_ERROR_TEMPORARY_FILE
    TOO_LARGE = c.TRK_ERROR_TOO_LARGE
    MEMORY = c.TRK_ERROR_MEMORY
    ARGUMENT = c.TRK_ERROR_ARGUMENT


class DamageKind(enum.IntEnum):
    """What is wrong with a stretch of a recording; from 100 on, what was repaired."""

    CUT = c.TRK_DAMAGE_CUT
    UNREADABLE = c.TRK_DAMAGE_UNREADABLE
    IMPLAUSIBLE = c.TRK_DAMAGE_IMPLAUSIBLE
    EARLY_END = c.TRK_DAMAGE_EARLY_END
    COMPRESSED_DATA = c.TRK_DAMAGE_COMPRESSED_DATA
    CHECKSUM = c.TRK_DAMAGE_CHECKSUM
    BLOCK_END_MISSING = c.TRK_DAMAGE_BLOCK_END_MISSING
    BEHIND_END = c.TRK_DAMAGE_BEHIND_END
    DROPPED_SAMPLES = c.TRK_REPAIR_DROPPED_SAMPLES
    MOVED_EVENTS = c.TRK_REPAIR_MOVED_EVENTS
    JOINED_BLINKS = c.TRK_REPAIR_JOINED_BLINKS
    FILLED_GAPS = c.TRK_REPAIR_FILLED_GAPS


def _named(kind: type[enum.IntEnum], value: int) -> int:
    """The member for a value, or the plain number that a newer library gives."""
    try:
        return kind(value)
    except ValueError:
        return value


@dataclass(frozen=True)
class Damage:
    """One damage of a recording, or what was repaired of one kind.

    Attributes
    ----------
    kind : DamageKind
        What it is.
    item : int
        Number of the first item behind the stretch, from 0; 0 for repairs.
    offset, length : int
        The stretch in bytes of the record stream; -1 and 0 for repairs.
    count : int
        1 for a damage; how often a repair was made.
    time : int
        About when, ms of the tracker's clock; 0 for repairs.
    text : str
        One sentence.
    """

    kind: int
    item: int
    offset: int
    length: int
    count: int
    time: int
    text: str

    @property
    def is_repair(self) -> bool:
        """Whether nothing is lost but what the tracker itself lost."""
        return self.kind >= DamageKind.DROPPED_SAMPLES

    @classmethod
    def _of(cls, record: c.TRK_DAMAGE) -> Damage:
        text = record.text.decode("utf-8", "replace")
        kind = _named(DamageKind, record.kind)
        return cls(kind, record.item, record.offset, record.length, record.count, record.time, text)


class RecordingError(OSError):
    """A recording cannot be opened or read.

    Attributes
    ----------
    code : ErrorCode
        Why.
    errno, filename
        Those of OSError, where the system said no; else errno is None.
    offset : int or None
        Byte of the record stream where the damage begins, where known.
    """

    def __init__(
        self, text: str, filename: str, code: int = 0, system_error: int = 0, offset: Optional[int] = None
    ) -> None:
        super().__init__(system_error or None, text, filename)
        self.text = text
        self.code = _named(ErrorCode, code)
        self.offset = offset

    def __str__(self) -> str:
        return self.text

    def __reduce__(self) -> tuple[Any, ...]:
        arguments = (self.text, self.filename, int(self.code), self.errno or 0, self.offset)
        return type(self), arguments, self.__dict__


class RecordingNotFound(RecordingError, FileNotFoundError):
    """There is no such file."""


class DamagedRecording(RecordingError):
    """A recording is damaged, and was opened with ``on_damage="raise"``.

    Attributes
    ----------
    damages : tuple of Damage
        What is wrong with it, in the order of the stream.
    """

    damages: tuple[Damage, ...] = ()


class DamageWarning(UserWarning):
    """A damaged recording was opened with ``on_damage="warn"``."""


def damaged(text: str, filename: str, offset: Optional[int], damages: Sequence[Damage]) -> DamagedRecording:
    """The error for a recording with these damages."""
    error = DamagedRecording(text, filename, c.TRK_ERROR_DAMAGED, 0, offset)
    error.damages = tuple(damages)
    return error
