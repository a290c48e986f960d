#!/usr/bin/env python3
"""Adds the golden scripts' calls to the fuzz targets' seed corpora in
tests/fuzz/corpus/: scripts/fuzz-seeds.py, from anywhere. Seeds are named by
their hash, so a second run adds only what is new, and none is removed."""
import hashlib
import pathlib
import re
import struct

ROOT = pathlib.Path(__file__).resolve().parents[1]
CORPUS = ROOT / "tests/fuzz/corpus"

# The exports in the order of fuzz.h's list, which the params target indexes.
EXPORTS = re.findall(r"X\((vrn_\w+)\)", (ROOT / "tests/fuzz/fuzz.h").read_text())
# Indexes into kTypes of params_fuzz.cpp.
VARCHAR, NVARCHAR, INT, FLOAT, REAL, NULLTYPE = 1, 3, 9, 11, 12, 15
SMALL = {"smallint": 8, "tinyint": 7, "bit": 10}


def arguments(text):
    """Splits an argument list at the commas outside quotes and parentheses."""
    parts, depth, quoted, current = [], 0, False, ""
    for c in text:
        quoted ^= c == "'"
        depth += (c == "(") - (c == ")") if not quoted else 0
        if c == "," and not quoted and depth == 0:
            parts.append(current.strip())
            current = ""
        else:
            current += c
    return parts + ([current.strip()] if current.strip() else [])


def literal(argument):
    """The bytes of a literal argument, or None for a variable or a number."""
    m = re.fullmatch(r"N?'((?:[^']|'')*)'", argument)
    if m:
        return m.group(1).replace("''", "'").encode("cp1252")
    m = re.fullmatch(r"CAST\(0x([0-9A-Fa-f]*) AS n?varchar\(\d+\)\)", argument)
    return bytes.fromhex(m.group(1)) if m else None


def declared(script):
    """Variable name -> its type word and length."""
    return {m.group(1).lower(): (m.group(2).lower(), int(m.group(3) or 1))
            for m in re.finditer(r"@(\w+)\s+(?:AS\s+)?(\w+)(?:\((\d+)\))?", script)
            if m.group(2).lower() not in ("output", "out")}


def param_bytes(argument, types):
    """One parameter in the encoding of params_fuzz.cpp's NextParam."""
    output = bool(re.search(r"\s(OUTPUT|OUT)$", argument, re.I))
    name = re.sub(r"\s+(OUTPUT|OUT)$", "", argument, flags=re.I).strip()
    flags = 2 if output else 0
    value = literal(name)
    if value is not None:
        return bytes([NVARCHAR if name.startswith("N'") else VARCHAR, flags, len(value) & 0xFF]) + value
    if re.fullmatch(r"-?\d+", name):
        return bytes([INT, flags]) + struct.pack("<i", int(name))
    if name.upper() == "NULL":
        return bytes([NULLTYPE, 1, 0])
    word, length = types.get(name.lstrip("@").lower(), ("int", 4))
    flags |= 1  # a variable's value: NULL, as most of them are when passed
    if word in ("varchar", "char"):
        return bytes([VARCHAR, flags, length & 0xFF])
    if word in ("nvarchar", "nchar"):
        return bytes([NVARCHAR, flags, (2 * length) & 0xFF])
    return bytes([{"float": FLOAT, "real": REAL}.get(word, SMALL.get(word, INT)), flags])


def write(target, data):
    folder = CORPUS / target
    folder.mkdir(parents=True, exist_ok=True)
    (folder / hashlib.sha1(data).hexdigest()).write_bytes(data)


def main():
    for path in sorted((ROOT / "tests/sql").glob("*.sql")):
        script = path.read_text(encoding="utf-8")
        types = declared(script)
        mode, variables = b"0", []
        for m in re.finditer(r"EXEC(?:UTE)?\s+(?:@\w+\s*=\s*)?(?:\w*\.\.?)?\[?(\w+)\]?([^\n;]*)", script, re.I):
            procedure, args = m.group(1), arguments(m.group(2))
            first = literal(args[0]) if args else None
            if procedure in EXPORTS:
                write("params", bytes([EXPORTS.index(procedure), len(args)]) + b"".join(param_bytes(a, types) for a in args))
            if procedure == "vrn_PercStrSymb_Init" and args and args[0].isdigit():
                mode, variables = args[0].encode(), []  # Init unsets every variable
            if first is None:
                continue
            if procedure.startswith("vrn_PFormula_"):
                write("formula", first)
            elif procedure in ("vrn_PercStrNormalize", "vrn_PercStrEval"):
                write("percstr", first)
            elif procedure == "vrn_PercStrSymb_SetVar" and len(args) > 1:
                value = literal(args[1])
                variables.append(first + (b"=" + value if value is not None else b""))
            elif procedure == "vrn_PercStrSymb_Eval":
                write("symbolic", b"\n".join([mode] + variables + [first]))


if __name__ == "__main__":
    main()
