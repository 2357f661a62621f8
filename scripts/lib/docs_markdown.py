#!/usr/bin/env python3
"""Prints a Markdown file as Doxygen understands it: docs_markdown.py FILE (a filter of docs/Doxyfile).

The files are written for readers of the repository. On the site
- a page and its headings get the names that links use: page-STEM and page-STEM-HEADING;
- links to other pages, to headings and to public headers become references;
- links to other files of the repository lead to copies under source/, made by scripts/docs.sh;
- blocks marked "dot" become diagrams.
Lines stay where they are, so that warnings name the right one.
"""

import os
import pathlib
import re
import sys

ROOT = str(pathlib.Path(__file__).resolve().parents[2])
LINK = re.compile(r"(?<!!)\[([^\]]+)\]\(([^)\s]+)\)")
FENCE = re.compile(r"^\s*(```|~~~)(\w*)")
HEADING = re.compile(r"^(#{1,4}) +(.*?) *$")
SHOWN_AS_IS = (".svg", ".png", ".jpg", ".txt")


class Slugs:
    """The names that the headings of one file have in links; repeated ones are numbered."""

    def __init__(self):
        self.seen = {}

    def of(self, heading):
        text = re.sub(r"\[([^\]]*)\]\([^)]*\)", r"\1", heading).lower()
        slug = re.sub(r"[^\w\- ]", "", text).replace(" ", "-")
        count = self.seen.get(slug, 0)
        self.seen[slug] = count + 1
        return "%s-%d" % (slug, count) if count else slug


def page_name(path):
    return "page-" + os.path.splitext(os.path.basename(path))[0].lower()


def site_target(path, link):
    """Where a link of the file at path leads on the site; None for a link that stays as it is."""
    target, _, fragment = link.partition("#")
    file = os.path.normpath(os.path.join(os.path.dirname(path), target)) if target else path
    if re.match(r"\w+:", link) or not os.path.exists(file):
        return None
    if file.endswith(".md") and is_page(file):
        if fragment:
            return "@ref %s-%s" % (page_name(file), fragment)
        return "@ref mainpage" if is_main_page(file) else "@ref " + page_name(file)
    relative = os.path.relpath(file, ROOT)
    if relative.startswith("include/TnRobotKernel/") and relative.endswith(".h"):
        return "@ref " + os.path.basename(relative)
    if os.path.isdir(file):
        return ""
    return "source/" + relative + ("" if relative.endswith(SHOWN_AS_IS) else ".txt")


def is_main_page(file):
    return os.path.relpath(file, ROOT) == "README.md"


def is_page(file):
    return os.path.dirname(os.path.relpath(file, ROOT)) in ("", "docs")


def replaced_link(path, match):
    target = site_target(path, match[2])
    if target is None:
        return match[0]
    if target == "":  # a directory: the site has no page for it
        return match[1]
    if target.startswith("@ref"):
        return "[%s](%s)" % (match[1].replace("`", ""), target)
    return "[%s](%s)" % (match[1], target)


def named_heading(path, line, slug, is_title):
    if is_title:
        return line if is_main_page(path) else "%s {#%s}" % (line, page_name(path))
    return "%s {#%s-%s}" % (line, page_name(path), slug)


def convert(path, lines):
    fence, is_title, slugs = None, True, Slugs()
    for line in lines:
        mark = FENCE.match(line)
        if mark:
            opens = fence is None
            if "dot" in (mark[2], fence):
                line = "@dot" if opens else "@enddot"
            fence = (mark[2] or "text") if opens else None
        elif fence is None:
            heading = HEADING.match(line)
            line = LINK.sub(lambda match: replaced_link(path, match), line)
            if heading:
                line = named_heading(path, line.rstrip(), slugs.of(heading[2]), is_title)
                is_title = False
        yield line


def main():
    path = os.path.abspath(sys.argv[1])
    with open(path, encoding="utf-8") as file:
        print("\n".join(convert(path, file.read().splitlines())))


if __name__ == "__main__":
    main()
