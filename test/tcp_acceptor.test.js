'use strict';
// The TCP acceptor as an application uses it: real loopback connections from another process,
// each sending a token that is read back from the descriptor handed to JavaScript.
const test = require('node:test');
const assert = require('assert');
const fs = require('fs');
const net = require('net');
const { vidora, REQUIRE_VIDORA, INVALID_PARAMETERS, assertThrowsCode, runNode, waitFor, freePort,
  WRONG_VALUES } = require('./helpers');

// A client process that opens `count` connections at once; each sends "<i>:<its local port>\n"
// and waits for the server to close it. Resolves with how many connected and how many failed.
async function runClients(host, port, count) {
  const child = await runNode(`
    const result = { connected: 0, failed: 0 };
    let ended = 0;
    for (let i = 0; i < ${count}; i++) {
      const socket = require('net').connect({ host: ${JSON.stringify(host)}, port: ${port} });
      socket.on('connect', () => { result.connected++; socket.end(i + ':' + socket.localPort + '\\n'); });
      socket.on('error', () => { result.failed++; });
      socket.on('close', () => { if (++ended === ${count}) console.log(JSON.stringify(result)); });
      socket.resume();
    }
  `);
  assert.strictEqual(child.status, 0, child.stderr);
  return JSON.parse(child.stdout);
}

// Reads one line from a blocking descriptor (the client writes it right after connecting).
function readLine(fd) {
  const buffer = Buffer.alloc(64);
  let text = '';
  for (let count = 1; count > 0 && !text.includes('\n');) {
    count = fs.readSync(fd, buffer, 0, buffer.length, null);
    text += buffer.toString('utf8', 0, count);
  }
  return text.trim();
}

test('bursts of connections: each descriptor reaches JavaScript once, with its peer', async (t) => {
  for (const [host, text, count] of [['127.0.0.1', '127.0.0.1', 200], ['::1', '[::1]', 20]]) {
    const port = await freePort(host);
    if (port === null) {
      t.diagnostic(`skipped ${host}: this machine has no such loopback address`);
      continue;
    }
    const tokens = [];
    const id = vidora.createTcpAcceptor(`${text}:${port}`, (connection) => {
      assert.deepStrictEqual(Object.keys(connection), ['fd', 'ip', 'port']);
      assert.ok(Number.isInteger(connection.fd) && connection.fd > 2);
      assert.strictEqual(connection.ip, host);
      const [token, clientPort] = readLine(connection.fd).split(':');
      assert.strictEqual(clientPort, String(connection.port), 'the peer port is the client\'s');
      tokens.push(Number(token));
      vidora.closeTcpConnection(connection.fd);
    });
    assert.ok(Number.isInteger(id) && id > 0);
    try {
      assert.deepStrictEqual(await runClients(host, port, count), { connected: count, failed: 0 });
      assert.deepStrictEqual(tokens.sort((a, b) => a - b), [...Array(count).keys()], host);
    } finally {
      vidora.closeTcpAcceptor(id);
    }
  }
});

test('closing while connections arrive: no callback after the close, and the process ends by itself', async () => {
  // The server runs in a process of its own, so that its end is its own doing.
  const port = await freePort();
  let clients;
  const server = await runNode(`
    const vidora = ${REQUIRE_VIDORA};
    let accepted = 0;
    let closed = false;
    const id = vidora.createTcpAcceptor('127.0.0.1:${port}', (connection) => {
      if (closed) throw new Error('a callback after closeTcpAcceptor');
      require('fs').readSync(connection.fd, Buffer.alloc(64));
      vidora.closeTcpConnection(connection.fd);
      if (++accepted === 50) {
        vidora.closeTcpAcceptor(id);
        closed = true;
      }
    });
    process.on('exit', () => console.log('accepted ' + accepted));
    console.log('ready');
  `, { onLine: (line) => { if (line === 'ready') clients = runClients('127.0.0.1', port, 400); } });
  assert.strictEqual(server.stderr, '');
  assert.strictEqual(server.status, 0);
  assert.strictEqual(server.stdout, 'ready\naccepted 50\n');
  // Those not accepted were refused or reset: none was left hanging.
  const result = await clients;
  assert.ok(result.connected >= 50 && result.connected + result.failed >= 400, JSON.stringify(result));
});

test('out of descriptors, the acceptor rests instead of spinning, and accepts once one frees', async () => {
  // The server lowers its own descriptor limit and fills it; a client's connection then waits
  // in the backlog, keeping the socket ready, until the server lets ten descriptors go.
  const port = await freePort();
  let client;
  const server = await runNode(`
    const vidora = ${REQUIRE_VIDORA};
    const fs = require('fs');
    require('child_process').execFileSync('prlimit', ['--pid', String(process.pid), '--nofile=256:256']);
    const id = vidora.createTcpAcceptor('127.0.0.1:${port}', (connection) => {
      vidora.closeTcpConnection(connection.fd);
      vidora.closeTcpAcceptor(id);
      console.log(JSON.stringify({ busyMs, accepted: true }));
    });
    const held = [];
    try { for (;;) held.push(fs.openSync('/dev/null', 'r')); } catch (err) { if (err.code !== 'EMFILE') throw err; }
    let busyMs = null;
    console.log('full');
    setTimeout(() => {
      const before = process.cpuUsage();
      setTimeout(() => {
        const used = process.cpuUsage(before);
        busyMs = Math.round((used.user + used.system) / 1000);
        held.splice(0, 10).forEach((fd) => fs.closeSync(fd));
      }, 500);
    }, 300);
  `, { onLine: (line) => { if (line === 'full') client = net.connect(port, '127.0.0.1').on('error', () => {}); } });
  client.destroy();
  assert.strictEqual(server.status, 0, server.stderr);
  const { busyMs, accepted } = JSON.parse(server.stdout.split('\n')[1]);
  assert.ok(accepted);
  assert.ok(busyMs < 100, `${busyMs} ms of processor time in 500 ms of waiting`);
});

test('an exception thrown by the callback is the process\'s uncaught exception', async () => {
  const port = await freePort();
  const ended = await runNode(`
    const vidora = ${REQUIRE_VIDORA};
    const id = vidora.createTcpAcceptor('127.0.0.1:${port}', (connection) => {
      vidora.closeTcpConnection(connection.fd);
      throw new Error('thrown by the acceptor callback');
    });
    process.on('uncaughtException', (err) => {
      console.log('caught ' + err.message);
      vidora.closeTcpAcceptor(id);
    });
    require('net').connect(${port}, '127.0.0.1').on('error', () => {});
  `);
  assert.strictEqual(ended.status, 0, ended.stderr);
  assert.strictEqual(ended.stdout, 'caught thrown by the acceptor callback\n');
});

test('the callback\'s this is the receiver (by default the module), and its promises move on at once', async () => {
  const receiver = { name: 'receiver' };
  for (const [given, expected] of [[receiver, receiver], [undefined, vidora]]) {
    const port = await freePort();
    const seen = [];
    const id = vidora.createTcpAcceptor(`127.0.0.1:${port}`, function (connection) {
      vidora.closeTcpConnection(connection.fd);
      seen.push(this);
      Promise.resolve().then(() => seen.push('microtask'));
      setImmediate(() => seen.push('immediate'));
    }, given);
    try {
      net.connect(port, '127.0.0.1').on('error', () => {});
      await waitFor(() => seen.length === 3);
      assert.strictEqual(seen[0], expected);
      assert.deepStrictEqual(seen.slice(1), ['microtask', 'immediate']);
    } finally {
      vidora.closeTcpAcceptor(id);
    }
  }
});

test('an address in use, by another acceptor or another program, and other bind failures', async () => {
  const port = await freePort();
  const server = net.createServer();
  const serverPort = await new Promise((resolve) => server.listen(0, '127.0.0.1', () => resolve(server.address().port)));
  const first = vidora.createTcpAcceptor(`127.0.0.1:${port}`, () => {});
  try {
    for (const [address, code] of [
      [`127.0.0.1:${port}`, 0x80000062], // EADDRINUSE: another acceptor has it
      [`127.0.0.1:${serverPort}`, 0x80000062], // EADDRINUSE: another program has it
      ['192.0.2.1:8000', 0x80000063], // EADDRNOTAVAIL: a documentation address, on no interface
    ]) {
      assertThrowsCode(() => vidora.closeTcpAcceptor(vidora.createTcpAcceptor(address, () => {})), code | 0, address);
    }
  } finally {
    vidora.closeTcpAcceptor(first);
    server.close();
  }
  // The address is free again at once.
  vidora.closeTcpAcceptor(vidora.createTcpAcceptor(`127.0.0.1:${port}`, () => {}));
});

test('wrong arguments and address texts that are not IPv4 or IPv6 host:port throw the parameters error', () => {
  // (Which texts are refused is the C++ socket address test's.)
  const texts = ['', '127.0.0.1:65536', '[::1]80'];
  const calls = [
    ...texts.map((text) => [text, () => {}]),
    ...WRONG_VALUES.filter((v) => typeof v !== 'string').map((value) => [value, () => {}]),
    ...WRONG_VALUES.filter((v) => typeof v !== 'function').map((value) => ['127.0.0.1:0', value]),
    [], ['127.0.0.1:0'],
  ];
  for (const args of calls) {
    // Closed at once should it open after all, so that a failure does not keep the runner alive.
    assertThrowsCode(() => vidora.closeTcpAcceptor(vidora.createTcpAcceptor(...args)), INVALID_PARAMETERS, String(args[0]));
  }
});

test('closing what is not open does nothing; closeTcpConnection closes a descriptor', () => {
  for (const value of [...WRONG_VALUES, -1, 1e9, 2 ** 53, undefined]) {
    assert.strictEqual(vidora.closeTcpAcceptor(value), undefined);
  }
  for (const value of [...WRONG_VALUES.filter((v) => typeof v !== 'number'), -1, -(2 ** 40)]) {
    assert.strictEqual(vidora.closeTcpConnection(value), undefined);
  }
  const fd = fs.openSync(__filename, 'r');
  assert.strictEqual(vidora.closeTcpConnection(fd), undefined);
  assert.throws(() => fs.fstatSync(fd), { code: 'EBADF' });
});
