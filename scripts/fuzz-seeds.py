#!/usr/bin/env python3
"""Adds the golden scripts' calls (and, for tds, a few messages of each kind
a client sends) to the fuzz targets' seed corpora in
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


# ---- vrn-server's decoder: messages as clients send them (tds_fuzz.cpp) ----
V71, V74 = 0, 4  # indexes into its kVersions
COLLATION = bytes([0x09, 0x04, 0xD0, 0x00, 0x34])
ALL_HEADERS = struct.pack("<IIHQI", 22, 18, 2, 0, 1)


def us(text):
    return struct.pack("<H", len(text)) + text.encode("utf-16-le")


def b_varchar(text):
    return bytes([len(text)]) + text.encode("utf-16-le")


def tds_param(argument, types):
    """One RPC parameter: name, status, TYPE_INFO, value."""
    output = bool(re.search(r"\s(OUTPUT|OUT)$", argument, re.I))
    name = re.sub(r"\s+(OUTPUT|OUT)$", "", argument, flags=re.I).strip()
    head = b_varchar("") + bytes([1 if output else 0])
    value = literal(name)
    if value is not None and name.startswith("N'"):
        data = value.decode("cp1252").encode("utf-16-le")
        return head + b"\xe7" + struct.pack("<H", max(len(data), 2)) + COLLATION + struct.pack("<H", len(data)) + data
    if value is not None:
        return head + b"\xa7" + struct.pack("<H", max(len(value), 1)) + COLLATION + struct.pack("<H", len(value)) + value
    if re.fullmatch(r"-?\d+", name):
        return head + b"\x26\x04\x04" + struct.pack("<i", int(name))
    if name.upper() == "NULL":
        return head + b"\x1f"
    word, length = types.get(name.lstrip("@").lower(), ("int", 4))
    if word in ("varchar", "char"):
        return head + b"\xa7" + struct.pack("<H", length) + COLLATION + b"\xff\xff"
    if word in ("nvarchar", "nchar"):
        return head + b"\xe7" + struct.pack("<H", 2 * length) + COLLATION + b"\xff\xff"
    width = {"float": 8, "real": 4}.get(word)
    if width:
        return head + bytes([0x6D, width, 0])
    return head + bytes([0x26, {"smallint": 2, "tinyint": 1}.get(word, 4), 0])


def packets(kind, payload, size=512):
    """A message cut into packets of at most size bytes."""
    out, room = b"", size - 8
    for at in range(0, max(len(payload), 1), room):
        part = payload[at:at + room]
        last = at + room >= len(payload)
        out += struct.pack(">BBHHBB", kind, 1 if last else 0, len(part) + 8, 0, 1, 0) + part
    return out


def tds_fixed_seeds():
    prelogin = bytes.fromhex("000010000601000016000102001700010300180000040018000100ff0700000000000000000000")
    write("tds", bytes([V74, 18]) + prelogin)
    fields = ["host", "golden", "", "app", "127.0.0.1", "", "lib", "", "master"]
    data, offsets, at = b"", b"", 94
    for i, text in enumerate(fields):
        encoded = text.encode("utf-16-le")
        if i == 2:  # the password, obfuscated
            encoded = bytes((((b << 4) | (b >> 4)) & 0xFF) ^ 0xA5 for b in "golden".encode("utf-16-le"))
            offsets += struct.pack("<HH", at, len(encoded) // 2)
        elif i == 5:  # the feature extension's offset
            encoded = struct.pack("<I", at + 4) + b"\x0a\x01\x00\x00\x00\x01\xff"
            offsets += struct.pack("<HH", at, 4)
        else:
            offsets += struct.pack("<HH", at, len(text))
        data += encoded
        at += len(encoded)
    fixed = struct.pack("<IIIIII", 0, 0x74000004, 4096, 0x07000000, 0, 0) + bytes([0xE0, 0x03, 0, 0x10])
    fixed += struct.pack("<Ii", 0, 0x409) + offsets + bytes(6) + struct.pack("<HHHHHHI", at, 0, at, 0, at, 0, 0)
    login = fixed + data
    write("tds", bytes([V74, 16]) + struct.pack("<I", len(login)) + login[4:])
    write("tds", bytes([V74, 14]) + ALL_HEADERS + struct.pack("<H", 5) + b"\x00\x00")
    # sp_executesql by id with a PLP nvarchar(max) and a decimal, split over packets.
    text = "EXEC vrn_PercStrEval @P1, @P2 OUTPUT, @P3".encode("utf-16-le")
    params = "@P1 varchar(20), @P2 float OUTPUT, @P3 decimal(5,2)".encode("utf-16-le")
    rpc = ALL_HEADERS + b"\xff\xff" + struct.pack("<HH", 10, 0)
    rpc += b_varchar("") + b"\x00\xe7\xff\xff" + COLLATION + struct.pack("<QI", len(text), len(text)) + text + bytes(4)
    rpc += b_varchar("") + b"\x00\xe7" + struct.pack("<H", len(params)) + COLLATION + struct.pack("<H", len(params)) + params
    rpc += b_varchar("@P1") + b"\x00\xa7\x14\x00" + COLLATION + b"\x04\x0010+5"
    rpc += b_varchar("@P2") + b"\x01\x6d\x08\x00"
    rpc += b_varchar("@P3") + b"\x00\x6a\x05\x05\x02\x05\x01\x39\x30\x00\x00"
    write("tds", bytes([V74, 0]) + packets(3, rpc, 512) + packets(6, b""))


def write(target, data):
    folder = CORPUS / target
    folder.mkdir(parents=True, exist_ok=True)
    (folder / hashlib.sha1(data).hexdigest()).write_bytes(data)


def main():
    tds_fixed_seeds()
    for path in sorted((ROOT / "tests/sql").glob("*.sql")):
        script = path.read_text(encoding="utf-8")
        types = declared(script)
        batch = script.split("\nGO")[0][:3000]
        write("tds", bytes([V74, 1]) + ALL_HEADERS + batch.encode("utf-16-le"))
        mode, variables = b"0", []
        for m in re.finditer(r"EXEC(?:UTE)?\s+(?:@\w+\s*=\s*)?(?:\w*\.\.?)?\[?(\w+)\]?([^\n;]*)", script, re.I):
            procedure, args = m.group(1), arguments(m.group(2))
            first = literal(args[0]) if args else None
            if procedure in EXPORTS:
                write("params", bytes([EXPORTS.index(procedure), len(args)]) + b"".join(param_bytes(a, types) for a in args))
                call = us(procedure) + b"\x00\x00" + b"".join(tds_param(a, types) for a in args)
                write("tds", bytes([V74, 3]) + ALL_HEADERS + call)
                write("tds", bytes([V71, 3]) + call)
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
