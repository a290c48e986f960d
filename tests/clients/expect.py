#!/usr/bin/env python3
"""Runs scenarios.json through vrn-exec, the reference, and writes the table
with each call's batch form and its expected answer:
    expect.py VRN_EXEC TASK_STORE SCENARIOS OUT
The batch form declares one variable per parameter, set from @p1, @p2 ... (the
client's parameters), and selects the return status and OUTPUT values after
the call; the reference runs it with literals in their place."""
import json, re, subprocess, sys

vrn_exec, store, src, out = sys.argv[1:5]
table = json.load(open(src, encoding="utf-8"))


def batch(s):
    params = s["params"]
    decl = ["@rc int"] + [f"@v{i} {p[0]}" + ("" if p[1] is None else f" = @p{i}")
                          for i, p in enumerate(params, 1)]
    args = [f"@v{i}" + (" OUTPUT" if p[2:] else "") for i, p in enumerate(params, 1)]
    outs = [f"@v{i} AS v{i}" for i, p in enumerate(params, 1) if p[2:]]
    return (f"DECLARE {', '.join(decl)}; EXEC @rc = {s['proc']} {', '.join(args)}; "
            f"SELECT {', '.join(['@rc AS rc'] + outs)}")


def literal(p):
    kind, value = p[0], p[1]
    if isinstance(value, (int, float)) or "binary" in kind:
        return str(value)
    return ("N'" if kind.startswith("n") else "'") + value.replace("'", "''") + "'"


calls = [s for s in table if "proc" in s and "error" not in s]
for s in table:
    if "proc" in s:
        s["batch"] = batch(s)
script = "\nGO\n".join(re.sub(r"@p(\d+)\b", lambda m: literal(s["params"][int(m[1]) - 1]), s["batch"])
                       for s in calls)
run = subprocess.run([vrn_exec, "--json", "--task-store", store, "-"], input=script,
                     capture_output=True, text=True, timeout=60)
if run.returncode:
    sys.exit(f"vrn-exec failed: {run.stderr}")
lines = [json.loads(line) for line in run.stdout.splitlines()]
if len(lines) != 2 * len(calls):
    sys.exit(f"vrn-exec gave {len(lines)} answers for {len(calls)} calls")
for s, call, sel in zip(calls, lines[0::2], lines[1::2]):
    row = sel["select"]["rows"][0]
    outs = [i for i, p in enumerate(s["params"], 1) if p[2:]]
    s["expect"] = {
        "return": call["return"],
        "messages": [m["text"] for m in call["messages"]],
        "outputs": {str(i): v for i, v in zip(outs, row[1:])},
        "rows": call["resultsets"][0]["rows"] if call["resultsets"] else None,
    }
json.dump(table, open(out, "w", encoding="utf-8"), ensure_ascii=False, indent=1)
