// tedious against vrn-server: every scenario as an RPC by name with typed and
// OUTPUT parameters (TDS 7.4 and 7.1) and in its batch form through
// sp_executesql; then a PLP text and a cancelled WAITFOR. Reads VRN_PORT,
// VRN_USER, VRN_PASSWORD, VRN_EXPECTED and VRN_WORK (the server's folder);
// VRN_TLS=1: every connection encrypted.
'use strict';
const { test } = require('node:test');
const assert = require('node:assert/strict');
const fs = require('node:fs');
const path = require('node:path');
const { Connection, Request, TYPES } = require('tedious');

const env = process.env;
const table = JSON.parse(fs.readFileSync(env.VRN_EXPECTED, 'utf8'));
const tally = { passed: 0, failed: 0 };
process.on('exit', () => console.log(`${tally.passed} passed, ${tally.failed} failed`));

function connect(tdsVersion, password = env.VRN_PASSWORD) {
  return new Promise((resolve, reject) => {
    const c = new Connection({
      server: '127.0.0.1',
      authentication: { type: 'default', options: { userName: env.VRN_USER, password } },
      options: {
        port: Number(env.VRN_PORT), database: 'master', encrypt: env.VRN_TLS === '1', trustServerCertificate: true,
        tdsVersion, connectTimeout: 10000, requestTimeout: 20000,
      },
    });
    let number;
    c.on('errorMessage', (m) => { number = m.number; });
    c.connect((err) => (err ? reject(Object.assign(err, { number })) : resolve(c)));
  });
}

const TYPE = { varchar: TYPES.VarChar, nvarchar: TYPES.NVarChar, int: TYPES.Int, smallint: TYPES.SmallInt,
  float: TYPES.Float, real: TYPES.Real, varbinary: TYPES.VarBinary };

function addParam(req, name, [kind, value, out], client) {
  const [, type, length] = kind.match(/^(\w+)(?:\((\d+)\))?$/);
  if (typeof value === 'string') value = value.replaceAll('@CLIENT@', client);
  if (type === 'varbinary' && value !== null) value = Buffer.from(value.slice(2), 'hex');
  const options = length ? { length: Number(length) } : {};
  if (out) req.addOutputParameter(name, TYPE[type], value, options);
  else req.addParameter(name, TYPE[type], value, options);
}

// Runs a request and gathers what came back: messages, row sets, outputs, the status.
function run(c, send, make) {
  return new Promise((resolve, reject) => {
    const got = { messages: [], sets: [], outputs: {} };
    const onInfo = (m) => got.messages.push(m.message);
    c.on('infoMessage', onInfo);
    const req = new Request(make.text, (err) => {
      c.off('infoMessage', onInfo);
      if (err) reject(err); else resolve(got);
    });
    make.params(req);
    req.on('columnMetadata', () => got.sets.push([]));
    req.on('row', (cols) => got.sets.at(-1).push(cols.map((col) => col.value)));
    req.on('returnValue', (name, value) => { got.outputs[name.replace(/^p/, '')] = value; });
    // tedious hands the RETURNSTATUS over with the DONEPROC that follows it.
    req.on('doneProc', (count, more, status) => { if (status !== undefined) got.return = status; });
    c[send](req);
  });
}

const text = (v) => (v === null || v === undefined ? null : Buffer.isBuffer(v) ? `0x${v.toString('hex').toUpperCase()}` : String(v));
const fix = (v, client) => (typeof v === 'string' ? v.replaceAll('@CLIENT@', client) : v);

function compare(s, got, client) {
  const want = s.expect;
  assert.equal(got.return, want.return, 'return status');
  assert.deepEqual(got.messages, want.messages, 'messages');
  for (const [n, expected] of Object.entries(want.outputs)) {
    const kind = s.params[n - 1][0];
    if (['float', 'real'].includes(kind) && expected !== null) assert.equal(got.outputs[n], Number(expected), `output ${n}`);
    else assert.equal(text(got.outputs[n]), fix(expected, client), `output ${n}`);
  }
  assert.deepEqual((got.rows || []).map((r) => r.map(text)), (want.rows || []).map((r) => r.map((v) => fix(v, client))), 'rows');
}

const forms = {
  rpc: (c, s, client) => run(c, 'callProcedure', {
    text: s.proc,
    params: (req) => s.params.forEach((p, i) => addParam(req, `p${i + 1}`, p, client)),
  }).then((got) => ({ ...got, rows: got.sets[0] })),
  // sp_executesql: the variables take the parameters, a SELECT gives the status and the outputs back.
  execsql: (c, s, client) => run(c, 'execSql', {
    text: s.batch,
    params: (req) => s.params.forEach((p, i) => p[1] !== null && addParam(req, `p${i + 1}`, [p[0], p[1]], client)),
  }).then((got) => {
    const last = got.sets.pop()[0];
    const outs = s.params.map((p, i) => p[2] && String(i + 1)).filter(Boolean);
    return { messages: got.messages, rows: got.sets[0], return: last[0], outputs: Object.fromEntries(outs.map((n, i) => [n, last[i + 1]])) };
  }),
};

async function scenario(t, name, fn) {
  await t.test(name, async () => {
    try { await fn(); tally.passed++; } catch (e) { tally.failed++; throw e; }
  });
}

async function expectError(promise, s) {
  await assert.rejects(promise, (err) => {
    assert.equal(err.number, s.error, `${err.message}: error number`);
    assert.equal(err.message, s.text);
    return true;
  });
}

for (const [tdsVersion, form] of [['7_4', 'rpc'], ['7_4', 'execsql'], ['7_1', 'rpc']]) {
  test(`tds ${tdsVersion} ${form}`, async (t) => {
    const client = `node${tdsVersion}${form}`;
    const c = await connect(tdsVersion);
    try {
      for (const s of table) {
        await scenario(t, s.name, async () => {
          if (s.password) await expectError(connect(tdsVersion, s.password), s);
          else if (s.error) await expectError(forms[form](c, s, client), s);
          else compare(s, await forms[form](c, s, client), client);
        });
      }
    } finally { c.close(); }
  });
}

test('long texts and cancel', async (t) => {
  const c = await connect('7_4');
  try {
    // varchar beyond 8000 goes as varchar(max), in chunks; è is one byte of code page 1252 in the file.
    await scenario(t, 'PLP text to a file', async () => {
      const body = `è${'x'.repeat(9999)}`;
      const got = await run(c, 'callProcedure', {
        text: 'vrn_StrToFile',
        params: (req) => {
          req.addParameter('text', TYPES.VarChar, body, { length: 10000 });
          req.addParameter('file', TYPES.VarChar, 'plp.txt', { length: 30 });
        },
      });
      assert.equal(got.return, 0);
      const written = fs.readFileSync(path.join(env.VRN_WORK, 'plp.txt'));
      assert.equal(written.length, 10000);
      assert.equal(written[0], 0xe8);
    });
    await scenario(t, 'cancel during WAITFOR', async () => {
      const started = Date.now();
      const waiting = run(c, 'execSqlBatch', { text: "WAITFOR DELAY '00:00:05'", params: () => {} });
      const timer = setTimeout(() => c.cancel(), 300);
      await assert.rejects(waiting, (err) => err.code === 'ECANCEL');
      clearTimeout(timer);
      assert.ok(Date.now() - started < 4000, 'the cancel came back before the delay ended');
      const s = table.find((x) => x.name === 'eval mode 1');
      compare(s, await forms.rpc(c, s, 'cancel'), 'cancel');
    });
  } finally { c.close(); }
});
