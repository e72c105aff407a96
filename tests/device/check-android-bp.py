#!/usr/bin/env python3
"""Checks that a build compiles the sources of Android.bp as the platform does.

For every module of Android.bp that lists sources, each source must be in the
build's compile_commands.json and be compiled with:
  - the defaults the platform gives a vendor module (PLATFORM_DEFAULTS);
  - every flag the module adds (cflags; cppflags for C++ sources);
  - exceptions or RTTI exactly when the module grants them.
And no other source in the directories Android.bp covers may be compiled, or
be granted exceptions or RTTI, without Android.bp saying so.

usage: check-android-bp.py ANDROID_BP COMPILE_COMMANDS_JSON
"""
import json
import os
import re
import shlex
import sys

# What Android 11 compiles a vendor cc_library with, before the module's own
# flags, as far as the sources can tell the difference.
PLATFORM_DEFAULTS = ["-fno-exceptions", "-fno-rtti", "-D_FORTIFY_SOURCE=2", "-stdlib=libc++"]
# Flags that switch a default off again; a module grants them in cppflags.
GRANTS = {"-fexceptions": "-fno-exceptions", "-frtti": "-fno-rtti"}
CXX_SUFFIXES = (".cpp", ".cc", ".cxx")

TOKEN = re.compile(r'\s+|//[^\n]*|/\*.*?\*/|"(?:[^"\\]|\\.)*"|[{}\[\]:,=+]|[A-Za-z0-9_.\-]+', re.S)


def tokens(text):
    pos = 0
    while pos < len(text):
        m = TOKEN.match(text, pos)
        if not m:
            raise SyntaxError("Android.bp: cannot read at offset %d" % pos)
        pos = m.end()
        tok = m.group(0)
        if tok.isspace() or tok.startswith("//") or tok.startswith("/*"):
            continue
        yield tok


class Parser:
    """Blueprint's subset that device build files use: modules, maps, lists, strings, bools."""

    def __init__(self, text):
        self.toks = list(tokens(text))
        self.i = 0

    def peek(self):
        return self.toks[self.i] if self.i < len(self.toks) else None

    def take(self, expected=None):
        tok = self.peek()
        if tok is None or (expected is not None and tok != expected):
            raise SyntaxError("Android.bp: expected %r, found %r" % (expected, tok))
        self.i += 1
        return tok

    def value(self):
        tok = self.take()
        if tok.startswith('"'):
            return json.loads(tok)
        if tok in ("true", "false"):
            return tok == "true"
        if tok == "[":
            items = []
            while self.peek() != "]":
                items.append(self.value())
                if self.peek() == ",":
                    self.take(",")
            self.take("]")
            return items
        if tok == "{":
            return self.properties("}")
        if re.fullmatch(r"-?[0-9]+", tok):
            return int(tok)
        raise SyntaxError("Android.bp: variables are not supported here (%r)" % tok)

    def properties(self, end):
        props = {}
        while self.peek() != end:
            key = self.take()
            self.take(":")
            props[key] = self.value()
            if self.peek() == ",":
                self.take(",")
        self.take(end)
        return props

    def modules(self):
        mods = []
        while self.peek() is not None:
            kind = self.take()
            self.take("{")
            props = self.properties("}")
            mods.append((kind, props))
        return mods


def main(bp_path, commands_path):
    root = os.path.dirname(os.path.abspath(bp_path))
    with open(bp_path) as f:
        modules = Parser(f.read()).modules()
    with open(commands_path) as f:
        entries = json.load(f)
    commands = {}
    for entry in entries:
        path = os.path.normpath(os.path.join(entry["directory"], entry["file"]))
        args = entry.get("arguments") or shlex.split(entry["command"])
        commands[path] = args

    problems = []
    listed = {}
    for kind, props in modules:
        name = props.get("name", "?")
        for src in props.get("srcs", []):
            path = os.path.normpath(os.path.join(root, src))
            listed[path] = name
            args = commands.get(path)
            if args is None:
                problems.append("%s: %s is not compiled by this build" % (name, src))
                continue
            cxx = src.endswith(CXX_SUFFIXES)
            wanted = list(props.get("cflags", [])) + (list(props.get("cppflags", [])) if cxx else [])
            for flag in PLATFORM_DEFAULTS if cxx else ["-D_FORTIFY_SOURCE=2"]:
                if flag not in args:
                    problems.append("%s: %s lacks the platform default %s" % (name, src, flag))
            for flag in wanted:
                if flag not in args:
                    problems.append("%s: %s lacks %s, which Android.bp gives it" % (name, src, flag))
            for grant, default in GRANTS.items():
                granted = grant in wanted
                if granted != has_grant(args, grant, default):
                    problems.append("%s: %s is %s %s here but %s in Android.bp" % (
                        name, src, "built with" if not granted else "built without", grant,
                        "granted it" if granted else "not granted it"))

    # Sources in the directories Android.bp covers that it does not list.
    covered = {os.path.dirname(p) for p in listed}
    for path, args in sorted(commands.items()):
        if os.path.dirname(path) in covered and path not in listed:
            problems.append("%s is compiled here but listed by no module of Android.bp" %
                            os.path.relpath(path, root))

    if problems:
        print("Android.bp and this build disagree:")
        for p in problems:
            print("  " + p)
        return 1
    print("Android.bp and this build agree on %d sources of %d modules" %
          (len(listed), sum(1 for _, p in modules if p.get("srcs"))))
    return 0


def has_grant(args, grant, default):
    """Whether the last of a grant and its default on the command line is the grant."""
    last = None
    for arg in args:
        if arg in (grant, default):
            last = arg
    return last == grant


if __name__ == "__main__":
    if len(sys.argv) != 3:
        print(__doc__)
        sys.exit(2)
    sys.exit(main(sys.argv[1], sys.argv[2]))
