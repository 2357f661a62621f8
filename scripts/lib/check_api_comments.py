#!/usr/bin/env python3
"""Looks for API comments that leave out who owns what or which threads may call.

check_api_comments.py XML-DIRECTORY, with what Doxygen writes there. Missing comments, parameters and
results are Doxygen's own errors. Beyond that
- every class, and every creation function, says "thread-safe" or "externally synchronised";
- every out-pointer says "+1" or "borrowed", and so does every result that is a pointer.
"""

import os
import re
import sys
import xml.etree.ElementTree as ElementTree

THREADS = re.compile(r"thread-safe|externally synchronised", re.IGNORECASE)
OWNER = re.compile(r"\+1|borrowed|owned")


def text(node):
    return "" if node is None else " ".join("".join(node.itertext()).split())


def comment(node):
    return text(node.find("briefdescription")) + " " + text(node.find("detaileddescription"))


def declared_type(node):
    return text(node.find("type"))


def place(node):
    location = node.find("location")
    return "%s:%s" % (location.get("file"), location.get("line"))


def parameter_comments(function):
    """Name of each documented parameter, and what is said about it."""
    for item in function.iter("parameteritem"):
        for name in item.iter("parametername"):
            yield text(name), text(item.find("parameterdescription"))


def result_comment(function):
    return " ".join(text(section) for section in function.iter("simplesect") if section.get("kind") == "return")


def class_complaints(compound):
    if compound.get("kind") == "class" and not THREADS.search(comment(compound)):
        yield "%s: class %s does not say which threads may use it" % (place(compound), text(compound.find("compoundname")))


def function_complaints(function):
    name = text(function.find("name"))
    comments = dict(parameter_comments(function))
    if name.startswith("TnCreateRobot") and not THREADS.search(comment(function)):
        yield "%s: %s does not say which threads may call it" % (place(function), name)
    for parameter in function.findall("param"):
        parameter_name = text(parameter.find("declname"))
        if declared_type(parameter).endswith("**") and not OWNER.search(comments.get(parameter_name, "")):
            yield "%s: %s does not say who owns %s" % (place(function), name, parameter_name)
    if declared_type(function).endswith("*") and not OWNER.search(result_comment(function)):
        yield "%s: %s does not say who owns its result" % (place(function), name)


def complaints(compound):
    yield from class_complaints(compound)
    for member in compound.iter("memberdef"):
        if member.get("kind") == "function" and member.get("prot") != "private":
            yield from function_complaints(member)


def main():
    directory = sys.argv[1]
    found, functions = set(), set()
    for name in sorted(os.listdir(directory)):
        tree = ElementTree.parse(os.path.join(directory, name)) if name.endswith(".xml") else None
        for compound in tree.iter("compounddef") if tree else ():
            found.update(complaints(compound))
            functions.update(m.get("id") for m in compound.iter("memberdef") if m.get("kind") == "function")
    print("\n".join(sorted(found)) or "%d functions say who owns what, and who may call" % len(functions))
    return 1 if found or not functions else 0


if __name__ == "__main__":
    sys.exit(main())
