# SPDX-License-Identifier: MIT
# Copyright (c) 2026 the xapel2_ext_sc authors
"""Whether references are good, each and as a pair."""

from __future__ import annotations

import contextlib
import html
import json
import os
from typing import Any, Iterable, Iterator, Mapping, Optional, Union

from . import _core
from ._reference import OwnFolder, PathLike, Reference, as_files, write_reference

_COLOURS = {"good": "#1a7f37", "warning": "#9a6700", "refused": "#b42318"}


class Judgement(Mapping[str, Any]):
    """What there is to say about a pair of references: a mapping, the object that ``check --json --list`` prints.

    ``print()`` shows figures and findings for people, a notebook shows them by itself.

    Keys
    ----
    dark, light : dict
        Figures and findings of each reference.
    pair : dict
        The same of both together: conversion gain, predicted residual, non-uniformity.
    levels : dict
        Where levels were given: the gain of each colour class, its uncertainty, the points of its line, and findings.
    verdict : {"good", "warning", "refused"}
        What it comes to.
    """

    def __init__(self, content: Mapping[str, Any], text: str) -> None:
        self._content = dict(content)
        self._text = text

    def __getitem__(self, key: str) -> Any:
        return self._content[key]

    def __iter__(self) -> Iterator[str]:
        return iter(self._content)

    def __len__(self) -> int:
        return len(self._content)

    def __str__(self) -> str:
        return self._text

    def __repr__(self) -> str:
        return f"<Judgement: {self.verdict}>"

    def _repr_html_(self) -> str:
        colour = _COLOURS.get(self.verdict, "inherit")
        return (
            f'<div><strong style="color: {colour}">{html.escape(self.verdict)}</strong>'
            f"<pre>{html.escape(self._text)}</pre></div>"
        )

    @property
    def verdict(self) -> str:
        """``"good"``, ``"warning"`` or ``"refused"``."""
        return str(self["verdict"])

    @property
    def findings(self) -> list[dict[str, Any]]:
        """All findings: of the dark reference, of the light one, of the pair, of the levels."""
        parts = ("dark", "light", "pair", "levels")
        return [finding for part in parts if part in self for finding in self[part]["findings"]]


def check(
    dark: Union[PathLike, Reference],
    light: Union[PathLike, Reference],
    levels: Optional[Iterable[Union[PathLike, Reference]]] = None,
) -> Judgement:
    """Judge a dark and a light reference, alone and as a pair.

    Parameters
    ----------
    dark, light : path or Reference
        They are judged whether they go together or not.
    levels : iterable of path or Reference, optional
        Even light at several exposures, five or more, which the conversion gain is taken from: light references, or
        folders of image files, two frames or more each. Dark references among them go with the light ones of their
        exposure time, ``dark`` with all others.

    Returns
    -------
    Judgement
        A mapping that prints.

    Raises
    ------
    OSError
        A file cannot be read, or is no reference; a level is of a single frame, or of another format or size.
    ValueError
        The levels are dark references alone, or a folder has no image file.

    Examples
    --------
    >>> dark = Reference([[10.0, 10.0], [10.0, 10.0]], "dark", "Mono8", images=16)
    >>> light = Reference([[128.0, 120.0], [124.0, 255.0]], "light", "Mono8", images=16, saturated_share=0.25)
    >>> judgement = check(dark, light)
    >>> judgement.verdict, "saturated" in [finding["id"] for finding in judgement.findings]
    ('refused', True)
    """
    if isinstance(levels, (str, bytes, os.PathLike, Reference)):
        raise ValueError("expected a list of levels, got one")
    with contextlib.ExitStack() as stack:
        dark_file, light_file = stack.enter_context(as_files(dark, light))
        files = []
        for number, level in enumerate(levels or (), 1):
            if isinstance(level, Reference):
                files.append(os.path.join(stack.enter_context(OwnFolder()), f"level_{number}.tif"))
                write_reference(files[-1], level)
            else:
                files.append(os.fspath(level))
                os.stat(files[-1])  # Python's own exception for what is not there
        content, text = _core.check(dark_file, light_file, files)
    return Judgement(json.loads(content), text.decode("utf-8", "backslashreplace"))
