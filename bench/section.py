#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
# Copyright (c) 2026 the xapel2_ext_sc authors
"""Puts the section of a machine into a page of benchmarks: in the place of the one with its heading, else at the end.

Usage: section.py PAGE SECTION
The first line of the file SECTION is its heading ("## ..."). All else of the page stays as it is.
"""

import re
import sys


def placed(page, section):
    heading = section.splitlines()[0]
    parts = re.split(r"(?m)^(?=## )", page)
    places = [i for i, part in enumerate(parts) if part.splitlines()[:1] == [heading]]
    text = section.rstrip() + "\n"
    if places:
        parts[places[0]] = text + ("\n" if places[0] + 1 < len(parts) else "")
        return "".join(parts)
    return page.rstrip() + "\n\n" + text


def main(arguments):
    with open(arguments[0], encoding="utf-8") as page, open(arguments[1], encoding="utf-8") as section:
        text = placed(page.read(), section.read())
    with open(arguments[0], "w", encoding="utf-8") as page:
        page.write(text)


if __name__ == "__main__":
    main(sys.argv[1:])
