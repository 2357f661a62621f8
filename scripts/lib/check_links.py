#!/usr/bin/env python3
"""Looks for relative links that lead nowhere: check_links.py PATH...

A .md file is read as Markdown, a directory as a site of HTML files. Headings and anchors count. So do
files of the repository that a text names without a link, like `src/CMakeLists.txt`.
Links to other hosts are not followed.
"""

import html.parser
import os
import re
import sys
import urllib.parse

import docs_markdown

INLINE_CODE = re.compile(r"`[^`]*`")
PATH = re.compile(r"`((?:abi|bench|cmake|docs|examples|fuzz|include|logger|packaging|scripts|src|tests|tools)/[\w./-]+)`")
LINK = re.compile(r"\[(?:[^\]]*)\]\(([^)\s]+)\)")


def markdown_lines(file):
    """The lines of a Markdown file that are not within a block of code."""
    fence = False
    with open(file, encoding="utf-8") as text:
        for number, line in enumerate(text, 1):
            if docs_markdown.FENCE.match(line):
                fence = not fence
            elif not fence:
                yield number, line


def markdown_anchors(file):
    slugs = docs_markdown.Slugs()
    headings = (docs_markdown.HEADING.match(line) for _, line in markdown_lines(file))
    return {slugs.of(heading[2]) for heading in headings if heading}


def markdown_links(file):
    for number, line in markdown_lines(file):
        text = INLINE_CODE.sub("code", line)
        for match in LINK.finditer(text):
            yield "%s:%d" % (file, number), match[1]


def markdown_paths(file):
    """Files and directories of the repository that the text names as code."""
    for number, line in markdown_lines(file):
        for match in PATH.finditer(line):
            yield "%s:%d" % (file, number), match[1]


class Page(html.parser.HTMLParser):
    """The anchors and links of one HTML file."""

    def __init__(self, file):
        super().__init__()
        self.anchors, self.links = set(), []
        with open(file, encoding="utf-8") as text:
            self.feed(text.read())

    def handle_starttag(self, tag, attrs):
        for name, value in attrs:
            if name in ("id", "name"):
                self.anchors.add(value)
            elif name in ("href", "src", "data", "xlink:href") and value:
                self.links.append(value)


class Checker:
    def __init__(self):
        self.pages, self.broken, self.count = {}, [], 0

    def anchors(self, file):
        if file.endswith(".md"):
            return markdown_anchors(file)
        return self.page(file).anchors

    def page(self, file):
        if file not in self.pages:
            self.pages[file] = Page(file)
        return self.pages[file]

    def check(self, file, place, link):
        if re.match(r"\w+:|//", link):
            return
        self.count += 1
        path, fragment = urllib.parse.urldefrag(urllib.parse.unquote(link))
        target = os.path.normpath(os.path.join(os.path.dirname(file), path)) if path else file
        if not os.path.exists(target):
            self.broken.append("%s: %s is not there" % (place, link))
        elif fragment and target.endswith((".md", ".html")) and fragment not in self.anchors(target):
            self.broken.append("%s: %s has no such place" % (place, link))

    def check_markdown(self, file):
        for place, link in markdown_links(file):
            self.check(file, place, link)
        for place, path in markdown_paths(file):
            self.count += 1
            if not os.path.exists(path):
                self.broken.append("%s: %s is not there" % (place, path))

    def check_site(self, directory):
        for folder, _, names in os.walk(directory):
            for name in names:
                file = os.path.join(folder, name)
                if name.endswith((".html", ".svg")):
                    for link in self.page(file).links:
                        self.check(file, file, link)


def main():
    checker = Checker()
    for path in sys.argv[1:]:
        if os.path.isdir(path):
            checker.check_site(path)
        else:
            checker.check_markdown(path)
    print("\n".join(sorted(set(checker.broken))) or "%d links lead somewhere" % checker.count)
    return 1 if checker.broken else 0


if __name__ == "__main__":
    sys.exit(main())
