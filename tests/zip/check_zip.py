#!/usr/bin/env python3
"""Checks a downloaded zip against the folder it was made of, with three
independent readers: Python's zipfile (every entry's bytes compared with the
file), unzip -t and 7z t. Usage: check_zip.py ZIP FOLDER [FILE...]
With FILEs, the archive must hold exactly those files under their base
names; otherwise the folder's tree (folders with a trailing "/", symbolic
links and special files left out). Prints the problems; exit 1 on any."""
import os, stat, subprocess, sys, zipfile

def entry_name(rel):
    # Backslashes are folder separators to some extractors: sent as "_".
    return os.path.normpath(rel).replace("\\", "_")

def expected_tree(top):
    want = {}
    for dirpath, dirs, files in os.walk(top):
        rel = os.path.relpath(dirpath, top)
        for d in dirs:
            p = os.path.join(dirpath, d)
            if not os.path.islink(p):
                want[entry_name(os.path.join(rel, d)) + "/"] = None
        for f in files:
            p = os.path.join(dirpath, f)
            if stat.S_ISREG(os.lstat(p).st_mode):
                want[entry_name(os.path.join(rel, f))] = p
    return want

def same_bytes(zf, info, path):
    with zf.open(info) as a, open(path, "rb") as b:
        while True:
            x, y = a.read(1 << 20), b.read(1 << 20)
            if x != y:
                return False
            if not x:
                return True

def main():
    archive, top, files = sys.argv[1], sys.argv[2], sys.argv[3:]
    want = ({os.path.basename(f): f for f in files} if files else expected_tree(top))
    problems = []
    with zipfile.ZipFile(archive) as zf:
        bad = zf.testzip()
        if bad:
            problems.append("zipfile: bad CRC in " + bad)
        infos = zf.infolist()
        names = [i.filename for i in infos]
        if sorted(names) != sorted(want):
            problems.append("zipfile: names differ: extra %s missing %s" % (
                sorted(set(names) - set(want))[:5], sorted(set(want) - set(names))[:5]))
        for i in infos:
            bad_name = i.filename.startswith("/") or ".." in i.filename.split("/")
            if bad_name or not i.flag_bits & 0x800 or i.compress_type != zipfile.ZIP_STORED:
                problems.append("zipfile: entry %r: name, UTF-8 flag or method" % i.filename)
            path = want.get(i.filename)
            if path and (i.file_size != os.path.getsize(path) or not same_bytes(zf, i, path)):
                problems.append("zipfile: bytes of %r differ" % i.filename)
    for cmd in (["unzip", "-tqq", archive], ["7z", "t", "-bd", "-bso0", "-bsp0", archive]):
        r = subprocess.run(cmd, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        if r.returncode != 0:
            problems.append("%s: exit %d: %s" % (cmd[0], r.returncode, r.stdout.decode()[-400:]))
    for p in problems[:20]:
        print(p)
    sys.exit(1 if problems else 0)

main()
