#!/usr/bin/env python3
"""pyodbc through FreeTDS's ODBC driver: every scenario in its batch form (the
driver sends it as sp_prepexec or sp_executesql) at TDS 7.4 and 7.2, those
without OUTPUT parameters also as {CALL ...} (an RPC by name), and a
transaction. Reads VRN_PORT, VRN_USER, VRN_PASSWORD and VRN_EXPECTED; VRN_TLS=1:
every connection encrypted."""
import json, os, re
import pyodbc

env = os.environ
table = json.load(open(env["VRN_EXPECTED"], encoding="utf-8"))
tally = {"passed": 0, "failed": 0}
ENCRYPTION = "require" if env.get("VRN_TLS") == "1" else "off"
SQL_TYPES = {"varchar": pyodbc.SQL_VARCHAR, "nvarchar": pyodbc.SQL_WVARCHAR, "int": pyodbc.SQL_INTEGER,
             "smallint": pyodbc.SQL_SMALLINT, "float": pyodbc.SQL_DOUBLE, "real": pyodbc.SQL_REAL,
             "varbinary": pyodbc.SQL_VARBINARY}


def connect(version, password=None):
    cnxn = pyodbc.connect(
        "DRIVER=/usr/lib/x86_64-linux-gnu/odbc/libtdsodbc.so;SERVER=127.0.0.1;"
        f"PORT={env['VRN_PORT']};DATABASE=master;UID={env['VRN_USER']};"
        f"PWD={{{password or env['VRN_PASSWORD']}}};TDS_Version={version};Encryption={ENCRYPTION};ClientCharset=UTF-8",
        autocommit=True, timeout=10)
    cnxn.timeout = 20
    return cnxn


def arg(p, client):
    value = p[1]
    if isinstance(value, str):
        value = value.replace("@CLIENT@", client)
        return bytes.fromhex(value[2:]) if "binary" in p[0] else value
    return value


def text(v):
    if isinstance(v, (bytes, bytearray)):
        return "0x" + v.hex().upper()
    return None if v is None else str(v)


def differs(kind, got, want, client):
    if got is None or want is None or kind not in ("float", "real"):
        return text(got) != (want.replace("@CLIENT@", client) if isinstance(want, str) else want)
    return float(got) != float(want)


def clean(message):  # the driver puts its bracketed state, number and names before the text
    return re.sub(r"^(\[[^\]]*\]\s*(\(\d+\)\s*)?)+", "", message[1] if isinstance(message, tuple) else message)


def answer(cur):
    sets, messages = [], []
    for _ in range(50):
        messages += [clean(m) for m in cur.messages]
        if cur.description:
            sets.append([list(row) for row in cur.fetchall()])
        if not cur.nextset():
            return sets, messages
    raise RuntimeError("more than 50 results")


def mismatch(s, got, client):
    want = s["expect"]
    if "return" in got and got["return"] != want["return"]:
        return f"return {got['return']}, expected {want['return']}"
    if got["messages"] != want["messages"]:
        return f"messages {got['messages']!r}, expected {want['messages']!r}"
    for n, value in got.get("outputs", {}).items():
        if differs(s["params"][int(n) - 1][0], value, want["outputs"][n], client):
            return f"output {n} {value!r}, expected {want['outputs'][n]!r}"
    rows, wanted = got["rows"], want["rows"] or []
    if [len(r) for r in rows] != [len(r) for r in wanted] or any(
            differs("", g, w, client) for r, wr in zip(rows, wanted) for g, w in zip(r, wr)):
        return f"rows {rows!r}, expected {wanted!r}"
    return ""


def run_batch(cnxn, s, client):
    cur = cnxn.cursor()
    cur.execute(re.sub(r"@p\d+\b", "?", s["batch"]), *[arg(p, client) for p in s["params"] if p[1] is not None])
    sets, messages = answer(cur)
    last = sets.pop()[0]
    outs = [str(i) for i, p in enumerate(s["params"], 1) if p[2:]]
    return {"return": last[0], "messages": messages, "outputs": dict(zip(outs, last[1:])), "rows": sets[0] if sets else []}


def run_call(cnxn, s, client):
    cur = cnxn.cursor()
    sizes = []
    for kind, *_ in s["params"]:
        name, size = re.fullmatch(r"(\w+)(?:\((\d+)\))?", kind).groups()
        sizes.append((SQL_TYPES[name], int(size or 0), 0))
    cur.setinputsizes(sizes)
    cur.execute(f"{{CALL {s['proc']}({', '.join('?' * len(sizes))})}}", *[arg(p, client) for p in s["params"]])
    sets, messages = answer(cur)
    return {"messages": messages, "rows": sets[0] if sets else []}


def report(label, problem):
    tally["failed" if problem else "passed"] += 1
    print(f"{'FAIL' if problem else 'ok  '} python {label}{': ' + problem if problem else ''}", flush=True)


def attempt(label, s, run):
    try:
        got = run()
        problem = f"expected error {s['error']}" if "error" in s else mismatch(s, got, label)
    except pyodbc.Error as e:
        said = " ".join(str(a) for a in e.args)
        problem = "" if "error" in s and str(s["error"]) in said and s["text"] in said else said
    report(f"{label} {s['name']}", problem)


def run_pass(version, form):
    label = f"tds{version}_{form}".replace(".", "")
    cnxn = connect(version)
    for s in table:
        if "password" in s:
            attempt(label, s, lambda: connect(version, s["password"]))
        elif form == "batch":
            attempt(label, s, lambda: run_batch(cnxn, s, label))
        elif not any(p[2:] for p in s["params"]):
            attempt(label, s, lambda: run_call(cnxn, s, label))
    cnxn.close()


def transaction():
    cnxn = connect("7.4")
    cnxn.autocommit = False
    s = next(s for s in table if s["name"] == "eval mode 1")
    problem = mismatch(s, run_batch(cnxn, s, "tx"), "tx")
    cnxn.commit()
    problem = problem or mismatch(s, run_batch(cnxn, s, "tx"), "tx")
    cnxn.rollback()
    cnxn.close()
    return problem


for version, form in (("7.4", "batch"), ("7.4", "call"), ("7.2", "batch")):
    try:
        run_pass(version, form)
    except pyodbc.Error as e:
        report(f"tds{version} {form} connection", str(e))
try:
    report("transaction", transaction())
except pyodbc.Error as e:
    report("transaction", str(e))
print(f"{tally['passed']} passed, {tally['failed']} failed")
raise SystemExit(1 if tally["failed"] else 0)
