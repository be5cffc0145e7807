"""Structured arrays that know the units and the meaning of their columns."""

from __future__ import annotations

import difflib
import html
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any, Callable, Iterable, Mapping, Optional, Sequence

import numpy as np

if TYPE_CHECKING:
    import pandas


@dataclass(frozen=True)
class Column:
    """A column of a table.

    Attributes
    ----------
    name, unit, description : str
        `unit` is empty for a number without one.
    dtype : str
        NumPy's name of the type of its values.
    missing : str
        How a value that is not there reads; empty when all are there.
    """

    name: str
    dtype: str
    unit: str
    description: str
    missing: str = ""


def need(module: str, what: str) -> Any:
    """Import an optional package, or say what to install."""
    import importlib

    try:
        return importlib.import_module(module)
    except ImportError as error:
        package = module.split(".")[0]
        raise ImportError(f"{what} needs {package}, which is not installed: pip install {package}") from error


_LONGEST_CELL = 60  # characters of a text that are shown
_SHOWN = 5  # rows at the beginning and at the end of a table that is shown


def hint(name: str, known: Iterable[str], otherwise: str = "") -> str:
    """What may be meant by a name that is not known."""
    near = difflib.get_close_matches(name, list(known), n=4)
    return f"did you mean {', '.join(near)}?" if near else otherwise or f"there are {', '.join(known)}"


class Table(np.ndarray[Any, np.dtype[Any]]):
    """A structured array, one row an item, whose columns have names, units and descriptions.

    ``table["x"]`` is a plain array, ``table[["x", "y"]]`` and ``table[table["x"] > 3]`` are tables again. Missing
    numbers are NaN; texts that are missing are empty.

    Attributes
    ----------
    columns : dict of str to Column
    """

    columns: Mapping[str, Column]
    __array_priority__ = 1.0  # what NumPy makes of tables and arrays is a table

    def __new__(cls, array: np.ndarray[Any, Any], columns: Mapping[str, Column]) -> Table:
        table = np.asarray(array).view(cls)
        table.columns = columns
        return table

    @classmethod
    def empty(cls, rows: int, columns: Sequence[Column]) -> Table:
        """A table with room for so many rows, whose values are not set."""
        # Zeros cost what fresh memory costs, and what pads a row is the same in every table.
        dtype = np.dtype([(column.name, column.dtype) for column in columns], align=True)
        return cls(np.zeros(rows, dtype), {column.name: column for column in columns})

    @classmethod
    def of(cls, values: Mapping[str, Any], columns: Sequence[Column]) -> Table:
        """A table of columns that are all there."""
        table = cls.empty(len(next(iter(values.values()))), columns)
        for column in columns:
            table[column.name] = values[column.name]
        return table

    def __array_finalize__(self, other: Any) -> None:
        self.columns = getattr(other, "columns", {})

    def __getitem__(self, key: Any) -> Any:
        if isinstance(key, str) and key not in (self.dtype.names or ()):
            raise ValueError(f"there is no column {key!r}: {hint(key, self.dtype.names or ())}")
        value = super().__getitem__(key)
        plain = isinstance(value, Table) and value.dtype.names is None
        return value.view(np.ndarray) if plain else value

    def __array_function__(self, function: Any, types: Any, arguments: Any, keywords: Any) -> Any:
        """NumPy's functions; what np.concatenate makes of tables has columns, too."""
        result = super().__array_function__(function, types, arguments, keywords)
        if isinstance(result, Table) and not result.columns:
            result.columns = self.columns
        return result

    def __reduce__(self) -> Any:
        rebuild, arguments, state = super().__reduce__()  # type: ignore[misc]
        return rebuild, arguments, (state, dict(self.columns))

    def __setstate__(self, state: Any) -> None:
        super().__setstate__(state[0])
        self.columns = state[1]

    def _of_columns(self, what: Callable[[Column], str]) -> dict[str, str]:
        return {name: what(self.columns[name]) for name in self.dtype.names or () if name in self.columns}

    @property
    def units(self) -> dict[str, str]:
        """The unit of each column; empty for a number without one."""
        return self._of_columns(lambda column: column.unit)

    @property
    def descriptions(self) -> dict[str, str]:
        """What each column holds, in one line."""
        return self._of_columns(lambda column: column.description)

    def to_pandas(self) -> pandas.DataFrame:
        """The table as a pandas DataFrame.

        Returns
        -------
        pandas.DataFrame
            One column for each, with the same types; ``.attrs["units"]`` holds the units.
        """
        frame = need("pandas", "to_pandas()").DataFrame(
            {name: np.ascontiguousarray(self[name]) for name in self.dtype.names or ()}
        )
        frame.attrs["units"] = self.units
        return frame

    def _cells(self) -> list[list[str]]:
        """Header, the first rows and the last ones, as texts."""
        rows = [list(self.dtype.names or ())]
        whole = self.size <= 2 * _SHOWN
        for number in range(self.size) if whole else [*range(_SHOWN), *range(self.size - _SHOWN, self.size)]:
            rows.append([_cell(value) for value in self[number].item()])
            if not whole and number == _SHOWN - 1:
                rows.append(["..." for _ in rows[0]])
        return rows

    def __repr__(self) -> str:
        if self.dtype.names is None or self.ndim != 1:
            return super().__repr__()
        cells = self._cells()
        widths = [max(map(len, column)) for column in zip(*cells)]
        lines = ["  ".join(cell.rjust(width) for cell, width in zip(row, widths)) for row in cells]
        return "\n".join([*lines, f"[{self.size} rows x {len(self.dtype.names)} columns]"])

    __str__ = __repr__

    def _repr_html_(self) -> Optional[str]:
        return html_table(self) if self.dtype.names is not None and self.ndim == 1 else None


def shown(text: str, longest: int) -> str:
    """A text on one line: cut, and what cannot be printed as Python would write it."""
    text = text if len(text) <= longest else text[:longest] + "..."
    return "".join(letter if letter.isprintable() else repr(letter)[1:-1] for letter in text)


def _cell(value: Any) -> str:
    if isinstance(value, float):
        return f"{value:.7g}"
    return shown(value, _LONGEST_CELL) if isinstance(value, str) else str(value)


def html_title(name: str, unit: str) -> str:
    """The header of a column in HTML."""
    return f"<th>{html.escape(name)}" + (f"<br><small>{html.escape(unit)}</small>" if unit else "")


def html_table(table: Table) -> str:
    """The table in HTML, units in the header, its middle left out when it is long."""
    header, *rows = table._cells()
    units = table.units
    titles = (html_title(name, units.get(name, "")) for name in header)
    body = ("<tr>" + "".join(f"<td>{html.escape(cell)}" for cell in row) for row in rows)
    note = f"<p>{table.size} rows</p>" if table.size > 2 * _SHOWN else ""
    return f"<table><thead><tr>{''.join(titles)}</thead><tbody>{''.join(body)}</tbody></table>{note}"
