"""Typed results: the card record, the result classes of exports with several outputs (made from
the model when first used), and what the library sends by itself (Event)."""

import dataclasses
import time
from dataclasses import dataclass, field
from typing import Optional

from ._model import MODEL

# The card record's fields by the header's parameter names, where they differ from snake_case.
_CARD_ALIASES = {"role": "card_role"}


@dataclass
class CardRecord:
    """A controller's card record, as the add commands take it and the get commands give it.

    The fields a generation doesn't know are not sent (pin_exempt before generation 2,
    card_role before 3) and keep their defaults when read. Dates are "yyyy/mm/dd", times
    "hh:mm:ss", either may be "0". field7_value is a field of the reply that the add commands
    have no counterpart for."""

    card_set_id: int = 0
    no_format: int = 0
    card_number: str = ""
    pin: str = ""
    access_type: int = 1
    unique_id: int = 0
    access_group1: int = 0
    access_group2: int = 0
    access_group3: int = 0
    access_group4: int = 0
    access_group5: int = 0
    access_group6: int = 0
    access_group7: int = 0
    access_group8: int = 0
    extended_access: int = 0
    passback_exempt: int = 0
    pin_commands: int = 0
    start_date: str = "0"
    start_time: str = "0"
    end_date: str = "0"
    end_time: str = "0"
    escort_id: int = 0
    in_schedule_elevator_group: int = 0
    out_schedule_elevator_group: int = 0
    pin_exempt: int = 0
    card_role: int = 0
    field7_value: int = 0

    @staticmethod
    def field_of(param):
        """The record's field for a parameter of the card commands (a Param), or None."""
        name = _CARD_ALIASES.get(param.name, param.pyname)
        return name if name in _CARD_FIELDS else None

    @classmethod
    def from_outputs(cls, outputs, export):
        """The record in a call's or a decoded reply's outputs (by the header's names)."""
        record = cls()
        for p in export.outputs:
            name = cls.field_of(p)
            if name is not None and p.name in outputs:
                setattr(record, name, outputs[p.name])
        return record


_CARD_FIELDS = frozenset(f.name for f in dataclasses.fields(CardRecord))

_PY_TYPES = {"text": str, "bytes": bytes}


def result_type(export):
    """The dataclass an export with several outputs returns: `<Export>Result`, with the result
    first and then each output by its snake_case name. Made once, when first needed."""
    if export.result_type is None:
        fields = [("result", int, field(default=0))]
        for p in export.outputs:
            t = bytes if p.frame else _PY_TYPES.get(p.base, int)
            fields.append((p.pyname, t, field(default=t())))
        cls = dataclasses.make_dataclass(f"{export.name}Result", fields, frozen=True,
                                         namespace={"__module__": __name__})
        cls.__doc__ = f"What {export.name} gives: its result, then " + ", ".join(
            p.pyname for p in export.outputs) + "."
        export.result_type = cls
    return export.result_type


def __getattr__(name):
    # zanth.records.GetTimeDateResult and the like, for isinstance checks and annotations.
    if name.endswith("Result"):
        e = MODEL.exports.get(name[:-len("Result")])
        if e is not None and len(e.outputs) > 0:
            return result_type(e)
    raise AttributeError(f"module {__name__!r} has no attribute {name!r}")


@dataclass(frozen=True)
class Event:
    """Something a controller sent by itself, or a link's change.

    ``kind`` is the callback's kind in the model: "event", "alarm", "lookup", "here_i_am",
    "key_pad", "command_key", "post_access", "smart_card", "connected", "disconnected" or
    "response". ``text`` is the text as the library delivered it (blanks padding post-access
    and smart-card data removed; for connected and disconnected the MAC, "0" for a link that
    never identified itself). A "response" carries its decoded ``reply``."""

    kind: str
    text: str
    received: float = field(default_factory=time.time, compare=False)
    reply: Optional[object] = None

    @property
    def fields(self):
        """The text's ';'-separated fields (the last ';' ends the last field)."""
        parts = self.text.split(";")
        if parts and parts[-1] == "":
            parts.pop()
        return parts

    @property
    def mac(self):
        """The controller's MAC: the text of a connect or disconnect, otherwise the first field
        (every text a controller sends by itself names it there)."""
        if self.kind in ("connected", "disconnected"):
            return self.text
        if self.kind == "response":
            return None
        f = self.fields
        return f[0] if f else ""
