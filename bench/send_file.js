'use strict';
// sendFile against what an application would use instead, on one file with a warm page cache.
// Not a test: it prints figures.
//
//   node bench/send_file.js [sizeMiB] [repeats]    (VIDORA_BENCH_DIR: where the file goes)
//
// Three pairs, each run `repeats` times alternating; the median of each counts:
//   to a file:        sendFile with dstFileName  vs  cp (and read() of the bytes, the limit)
//   to a socket:      sendFile with dstTcpFd     vs  stream.pipeline(fs.createReadStream, socket)
//   to JavaScript:    sendFile + transferOperationBufferedData  vs  fs.createReadStream
// The socket's far end is another process that reads and discards; both senders feed it alike.
// Before each run of the file pair, the target of the one before is removed and dirty pages are
// written back (untimed), so that no run pays for the truncation and write-back of another.
const { execFileSync, spawn } = require('child_process');
const fs = require('fs');
const net = require('net');
const os = require('os');
const path = require('path');
const { pipeline } = require('stream/promises');
const vidora = require('..');

const sizeMiB = Number(process.argv[2]) || 1024;
const repeats = Number(process.argv[3]) || 5;
const dir = fs.mkdtempSync(path.join(process.env.VIDORA_BENCH_DIR || os.tmpdir(), 'vidora-bench-send-'));
const source = path.join(dir, 'source.bin');
const target = path.join(dir, 'target.bin');

const seconds = (start) => Number(process.hrtime.bigint() - start) / 1e9;
const median = (values) => [...values].sort((a, b) => a - b)[Math.floor(values.length / 2)];

function sendFile(params) {
  return new Promise((resolve, reject) => {
    const id = vidora.sendFile({ srcFileName: source, ...params(() => id) },
      (error, result) => (error ? reject(error) : resolve(result)));
  });
}

// The receiving process: counts bytes per connection and answers one byte once it has `size`.
function startReceiver(size) {
  const code = `
    const net = require('net');
    const server = net.createServer((socket) => {
      let got = 0;
      socket.on('data', (chunk) => { got += chunk.length; if (got === ${size}) socket.write('k'); });
      socket.on('end', () => socket.end());
      socket.on('error', () => {});
    });
    server.listen(0, '127.0.0.1', () => console.log(server.address().port));`;
  const child = spawn(process.execPath, ['-e', code], { stdio: ['ignore', 'pipe', 'inherit'] });
  return new Promise((resolve) => child.stdout.once('data', (port) => resolve({ child, port: Number(port) })));
}

// Connects to the receiver; resolves with the socket and a promise of the answer byte.
function connect(port) {
  return new Promise((resolve) => {
    const socket = net.connect(port, '127.0.0.1', () => {
      const answered = new Promise((done) => socket.once('data', done));
      resolve({ socket, answered });
    });
  });
}

const pairs = {
  'to a file': {
    vidora: async () => { await sendFile(() => ({ dstFileName: target })); },
    baseline: ['cp', async () => { execFileSync('cp', [source, target]); }],
    limit: ['read()', async () => {
      const fd = fs.openSync(source, 'r');
      const block = Buffer.allocUnsafe(1 << 20);
      while (fs.readSync(fd, block, 0, block.length, null) > 0);
      fs.closeSync(fd);
    }],
  },
  'to a socket': {
    vidora: async (port) => {
      const { socket, answered } = await connect(port);
      await sendFile(() => ({ dstTcpFd: socket._handle.fd }));
      await answered;
      socket.destroy();
    },
    baseline: ['pipeline(createReadStream, socket)', async (port) => {
      const { socket, answered } = await connect(port);
      await pipeline(fs.createReadStream(source), socket);
      await answered;
      socket.destroy();
    }],
  },
  'to JavaScript': {
    vidora: async () => {
      let bytes = 0;
      await sendFile((id) => ({ dstCallback: () => { bytes += vidora.transferOperationBufferedData(id()).length; } }));
      if (bytes !== sizeMiB << 20) throw new Error(`sent ${bytes}`);
    },
    baseline: ['fs.createReadStream', async () => {
      let bytes = 0;
      for await (const chunk of fs.createReadStream(source)) bytes += chunk.length;
      if (bytes !== sizeMiB << 20) throw new Error(`read ${bytes}`);
    }],
  },
};

async function main() {
  execFileSync('dd', ['if=/dev/urandom', `of=${source}`, 'bs=1M', `count=${sizeMiB}`, 'status=none']);
  fs.readFileSync(source).length;  // warm the page cache
  const { child, port } = await startReceiver(sizeMiB << 20);
  console.log(`${sizeMiB} MiB, median of ${repeats} runs, throughput in MiB/s (ratio: vidora over the other)`);
  for (const [name, pair] of Object.entries(pairs)) {
    const runs = { vidora: [], baseline: [], limit: [] };
    for (let r = 0; r < repeats; r++) {
      for (const kind of ['vidora', 'baseline', 'limit']) {
        const fn = kind === 'vidora' ? pair.vidora : pair[kind] && pair[kind][1];
        if (!fn) continue;
        if (name === 'to a file') {
          fs.rmSync(target, { force: true });
          execFileSync('sync');
        }
        const start = process.hrtime.bigint();
        await fn(port);
        runs[kind].push(sizeMiB / seconds(start));
      }
    }
    const ours = median(runs.vidora);
    const theirs = median(runs.baseline);
    let line = `${name.padEnd(14)} sendFile ${ours.toFixed(0)}  ${pair.baseline[0]} ${theirs.toFixed(0)}  ratio ${(ours / theirs).toFixed(2)}`;
    if (pair.limit) line += `  (${pair.limit[0]} ${median(runs.limit).toFixed(0)}, ratio ${(ours / median(runs.limit)).toFixed(2)})`;
    console.log(line);
  }
  child.kill();
  fs.rmSync(dir, { recursive: true, force: true });
}

main().catch((err) => {
  console.error(err);
  fs.rmSync(dir, { recursive: true, force: true });
  process.exit(1);
});
