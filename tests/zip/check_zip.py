#!/usr/bin/env python3
"""Checks a downloaded zip against the folder it was made of, with three
independent readers: Python's zipfile (every entry's bytes compared with the
file), unzip -t and 7z t. Usage: check_zip.py ZIP FOLDER [FILE...]
With FILEs, the archive must hold exactly those files under their base
names; otherwise the folder's tree (folders with a trailing "/"; symbolic
links, special files and hidden names, those beginning with ".", left
out). Exit 1 with the problems on any."""
import os, stat, subprocess, sys, zipfile

archive, top, files = sys.argv[1], sys.argv[2], sys.argv[3:]
want = {os.path.basename(f): f for f in files}
for dirpath, dirs, names in ([] if files else os.walk(top)):
    dirs[:] = [d for d in dirs if not d.startswith(".")]  # not entered either
    for n in [n for n in dirs + names if not n.startswith(".")]:
        p = os.path.join(dirpath, n)
        # Backslashes are folder separators to some extractors: sent as "_".
        entry = os.path.normpath(os.path.relpath(p, top)).replace("\\", "_")
        if n in dirs and not os.path.islink(p):
            want[entry + "/"] = None
        elif n in names and stat.S_ISREG(os.lstat(p).st_mode):
            want[entry] = p
problems = []
with zipfile.ZipFile(archive) as zf:
    if bad := zf.testzip():
        problems.append("zipfile: bad CRC in " + bad)
    names = [i.filename for i in zf.infolist()]
    if sorted(names) != sorted(want):
        problems.append("zipfile: names differ: extra %s missing %s" % (
            sorted(set(names) - set(want))[:5], sorted(set(want) - set(names))[:5]))
    for i in zf.infolist():
        if i.filename.startswith("/") or ".." in i.filename.split("/") or not i.flag_bits & 0x800 \
                or i.compress_type != zipfile.ZIP_STORED:
            problems.append("zipfile: entry %r: name, UTF-8 flag or method" % i.filename)
        if max(i.file_size, i.header_offset) >= 0xFFFFFFFF and i.extract_version < 45:
            problems.append("zipfile: ZIP64 entry %r needs version 4.5" % i.filename)
        path = want.get(i.filename)
        if path and i.file_size != os.path.getsize(path):
            problems.append("zipfile: size of %r differs" % i.filename)
        elif path:
            with zf.open(i) as a, open(path, "rb") as b:
                while (x := a.read(1 << 20)) == (y := b.read(1 << 20)) and x:
                    pass
                if x != y:
                    problems.append("zipfile: bytes of %r differ" % i.filename)
for cmd in (["unzip", "-tqq", archive], ["7z", "t", "-bd", "-bso0", "-bsp0", archive]):
    r = subprocess.run(cmd, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    if r.returncode != 0:
        problems.append("%s: exit %d: %s" % (cmd[0], r.returncode, r.stdout.decode()[-400:]))
if problems:
    sys.exit("\n".join(problems[:20]))  # to stderr, exit 1
