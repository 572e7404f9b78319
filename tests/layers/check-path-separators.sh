#!/usr/bin/env bash
# Paths are joined with the platform's separator (kPathSeparator, FSJoinPath), never with a "/"
# spelled in the code: on Windows it is "\". Outside src/platform and the Linux-only halves
# (*_posix.cpp), this check fails on a text or character in quotes that is a separator alone
# ("/", '/'), begins a name to append ("/QRV Manual.pdf"), ends a folder to prepend ("db/"), or
# holds a relative path to a file ("db/Backup.db"). A line whose "/" is not a separator (a
# date, a unit) says so with the comment "// not a path separator".
set -u
root=${1:?source root}
cd "$root" || exit 2
python3 - <<'PY'
import re, sys, pathlib
literal = re.compile(r'"(?:[^"\\\n]|\\.)*"|\'(?:[^\'\\\n]|\\.)\'')
separator = re.compile(r'^["\']/["\']$|^"/[A-Za-z0-9_.]|[A-Za-z0-9_.]/"$|[A-Za-z0-9_]/[A-Za-z0-9_ ]+\.[A-Za-z0-9]+"$')
found = 0
for path in sorted(pathlib.Path("src").rglob("*")):
    if path.suffix not in (".cpp", ".h") or path.parts[1] == "platform" or path.stem.endswith("_posix"):
        continue
    # Raw texts (help and usage) are prose; their lines are blanked, keeping the numbering.
    text = re.sub(r'R"\((.*?)\)"', lambda m: '""' + "\n" * m.group(0).count("\n"),
                  path.read_text(errors="replace"), flags=re.S)
    for number, line in enumerate(text.splitlines(), 1):
        code = line.strip()
        if code.startswith(("//", "*", "/*", "#include")) or "// not a path separator" in line:
            continue
        for text in literal.findall(line):
            if "://" in text or not separator.search(text):
                continue
            print(f"{path}:{number}: {text} spells the path separator; use kPathSeparator or FSJoinPath")
            found += 1
sys.exit(1 if found else 0)
PY
