#!/usr/bin/env python3
"""The camera build's contract with the closed libraries, checked.

On the camera, libcamwifi.so leaves the closed libraries' functions
undefined and the device resolves them at load time. This compares the
library's undefined dynamic symbols with what platform/include/ declares:

  * a symbol the library needs that no platform header declares (and no
    system library it links provides) would be missing on the device;
  * a function a platform header declares that the library never calls is
    an interface nobody maintains against the real library.

Either fails, naming the symbol. The declared names are not guessed from the
headers' text: clang parses the headers for the library's own target (C++
names are mangled per target: intptr_t is `int` on the camera and `long` on
a 64-bit PC) and reports every function and variable it declares with its
linkage name. Private members (copy guards), deleted, implicit and inline
functions are not part of the contract and are left out.

System symbols are those the libraries named in the library's DT_NEEDED
entries define (the C and C++ runtimes, libgcc, the loader); they are found
with the compiler that linked the library. Weak undefined symbols (profiling
and transactional-memory hooks the start files reference) are not needed by
anyone and are only listed.

usage: check_device_symbols.py --library libcamwifi.so --headers DIR
                               --cxx COMPILER [--clang clang++] [--nm nm]
                               [--readelf readelf]
Exit status 0 when both lists agree, 1 when not, 2 when the check could not
be made.
"""
import argparse
import glob
import json
import os
import subprocess
import sys

# AST node kinds that give the closed libraries a symbol.
FUNCTION_KINDS = {"FunctionDecl", "CXXMethodDecl", "CXXConstructorDecl", "CXXDestructorDecl"}


def run(cmd, **kw):
    try:
        return subprocess.run(cmd, check=True, capture_output=True, text=True, **kw).stdout
    except FileNotFoundError:
        sys.exit(f"check_device_symbols: cannot run {cmd[0]}")
    except subprocess.CalledProcessError as e:
        sys.stderr.write(e.stderr)
        sys.exit(f"check_device_symbols: {' '.join(cmd)} failed with status {e.returncode}")


def structor_variants(decl_kind, name):
    """Every linkage name a constructor or destructor may be referenced by.

    clang reports the complete-object variant (C1/D1); a caller may equally
    reference the base-object one (C2/D2) or the deleting destructor (D0)."""
    if decl_kind == "CXXConstructorDecl":
        tags = ("C1E", "C2E")
    elif decl_kind == "CXXDestructorDecl":
        tags = ("D1E", "D2E", "D0E")
    else:
        return [name]
    for t in tags:
        i = name.rfind(t)
        if i >= 0:
            return [name[:i] + other + name[i + len(t):] for other in tags]
    return [name]


class Declarations:
    """Walks clang's JSON AST in document order, knowing which file each node
    is in: the dump names a file only where it changes from the previous
    location it printed."""

    def __init__(self, header_dir):
        self.header_dir = os.path.realpath(header_dir)
        self.current = ""
        self.found = {}  # linkage name -> (readable name, header, kind)

    def in_headers(self, path):
        return bool(path) and os.path.realpath(path).startswith(self.header_dir + os.sep)

    def location(self, loc):
        if not isinstance(loc, dict):
            return
        # A macro-expanded location: spelling first, expansion last (the
        # expansion is where the declaration stands).
        for key in ("spellingLoc", "expansionLoc"):
            if key in loc:
                self.location(loc[key])
        if "file" in loc:
            self.current = loc["file"]

    def walk(self, node, access="public", member=False, inside_function=False):
        """access and member: the node's access and whether it is a class
        member; inside_function: it belongs to a function (parameters, a
        body), where nothing is a symbol of its own. Every node is still
        walked, for the file its locations name."""
        if isinstance(node, list):
            for n in node:
                self.walk(n, access, member, inside_function)
            return
        if not isinstance(node, dict):
            return
        self.location(node.get("loc"))
        where = self.current
        # The range's locations move the dump's idea of the file too, but the
        # declaration stands where its 'loc' is.
        rng = node.get("range")
        if isinstance(rng, dict):
            self.location(rng.get("begin"))
            self.location(rng.get("end"))
        kind = node.get("kind", "")
        if (not inside_function and access != "private" and self.in_headers(where)
                and self.contract(node, kind, member)):
            for variant in structor_variants(kind, node["mangledName"]):
                self.found[variant] = (node.get("name", variant), os.path.basename(where), kind)
        for key, value in node.items():
            if key in ("loc", "range"):
                continue
            if key == "inner" and kind == "CXXRecordDecl":
                self.members(value, "private" if node.get("tagUsed") == "class" else "public", inside_function)
            elif isinstance(value, (dict, list)):
                self.walk(value, access, False, inside_function or kind in FUNCTION_KINDS)

    def members(self, inner, access, inside_function):
        """A class's members in order: the dump states access once per
        `public:` / `private:` label, not on each member."""
        for node in inner:
            if isinstance(node, dict) and node.get("kind") == "AccessSpecDecl":
                access = node.get("access", access)
            self.walk(node, access, True, inside_function)

    @staticmethod
    def contract(node, kind, member):
        if "mangledName" not in node:
            return False
        if node.get("isImplicit"):
            return False
        if node.get("explicitlyDeleted") or node.get("explicitlyDefaulted"):
            return False
        if kind in FUNCTION_KINDS:
            if node.get("inline") or any(
                    isinstance(c, dict) and c.get("kind") == "CompoundStmt" for c in node.get("inner", [])):
                return False
            return True
        if kind == "VarDecl":
            # Variables the closed libraries define: extern ones, and static
            # data members of their classes.
            storage = node.get("storageClass")
            return (storage == "extern" or (member and storage == "static")) and "init" not in node
        return False


def declared_symbols(header_dir, clang, target):
    headers = sorted(glob.glob(os.path.join(header_dir, "*.h")))
    if not headers:
        sys.exit(f"check_device_symbols: no headers in {header_dir}")
    source = "".join(f'#include "{os.path.abspath(h)}"\n' for h in headers)
    ast = run([clang, f"--target={target}", "-std=c++17", "-fsyntax-only", "-x", "c++", "-",
               "-I", header_dir, "-Xclang", "-ast-dump=json"], input=source)
    walker = Declarations(header_dir)
    walker.walk(json.loads(ast))
    return walker.found


def undefined_symbols(nm, library):
    """(strong, weak): the library's undefined dynamic symbols, version tags
    dropped."""
    strong, weak = set(), set()
    for line in run([nm, "-D", "--undefined-only", library]).splitlines():
        parts = line.split()
        if len(parts) < 2:
            continue
        kind, name = parts[-2], parts[-1].split("@")[0]
        (weak if kind in ("w", "v") else strong).add(name)
    return strong, weak


def system_symbols(readelf, nm, cxx, library):
    """Names defined by the libraries the library itself says it needs."""
    needed = []
    for line in run([readelf, "-d", "-W", library]).splitlines():
        if "(NEEDED)" in line and "[" in line:
            needed.append(line.split("[", 1)[1].rstrip("]"))
    names, where = set(), {}
    for lib in needed:
        path = run([cxx, f"-print-file-name={lib}"]).strip()
        if not os.path.isabs(path) or not os.path.exists(path):
            sys.exit(f"check_device_symbols: {cxx} does not know where {lib} is")
        where[lib] = path
        for line in run([nm, "-D", "--defined-only", path]).splitlines():
            parts = line.split()
            if parts:
                names.add(parts[-1].split("@")[0])
    return names, where


def demangle(names):
    if not names:
        return {}
    try:
        out = subprocess.run(["c++filt"], input="\n".join(names), capture_output=True, text=True,
                             check=True).stdout.splitlines()
        return dict(zip(names, out))
    except (OSError, subprocess.CalledProcessError):
        return {n: n for n in names}


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    ap.add_argument("--library", required=True)
    ap.add_argument("--headers", required=True)
    ap.add_argument("--cxx", required=True, help="the compiler that built the library")
    ap.add_argument("--clang", default="clang++")
    ap.add_argument("--nm", default="nm")
    ap.add_argument("--readelf", default="readelf")
    a = ap.parse_args()

    target = run([a.cxx, "-dumpmachine"]).strip()
    declared = declared_symbols(a.headers, a.clang, target)
    strong, weak = undefined_symbols(a.nm, a.library)
    system, needed = system_symbols(a.readelf, a.nm, a.cxx, a.library)

    closed = strong - system
    missing = sorted(closed - set(declared))
    # A declaration is used when any of its linkage names is referenced.
    by_decl = {}
    for linkage, (shown, header, kind) in declared.items():
        by_decl.setdefault((shown, header, structor_variants(kind, linkage)[0]), []).append(linkage)
    unused = sorted((header, key) for (shown, header, key), names in by_decl.items()
                    if not any(n in strong or n in weak for n in names))
    readable = demangle(missing + [k for _, k in unused])

    print(f"device library {a.library} ({target})")
    print(f"  links: {', '.join(needed) or 'nothing'}")
    print(f"  undefined: {len(strong)} ({len(strong & system)} from those, {len(closed)} left for the device)")
    print(f"  declared in {a.headers}: {len(by_decl)} functions and variables")
    if weak - system:
        print(f"  weak, not needed: {', '.join(sorted(weak - system))}")
    for name in missing:
        print(f"NEEDED BUT NOT DECLARED: {readable.get(name, name)}  [{name}]")
    for header, name in unused:
        print(f"DECLARED BUT NEVER USED: {readable.get(name, name)}  [{name}] in {header}")
    if missing or unused:
        print(f"device symbols: FAILED ({len(missing)} needed but not declared, {len(unused)} declared but never used)")
        return 1
    print(f"device symbols: OK, the {len(closed)} symbols left for the device are exactly those declared")
    return 0


if __name__ == "__main__":
    sys.exit(main())
