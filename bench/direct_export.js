'use strict';
// The direct export over loopback HTTP against serving the same MP4 once it is a finished file,
// with the page cache warm. Not a test: it prints figures.
//
//   node bench/direct_export.js [runs]      (VIDORA_BENCH_DIR: where the files go, ~4 GB)
//
// The recording is the one-hour 1080p one of process_media.js (media_bench_files.js). The
// client is curl in a process of its own, writing to /dev/null; each figure is its time from
// the request to the last byte (and to the first byte), median of `runs`, the two servers
// taking turns:
//   direct export:  an acceptor from createTcpAcceptor hands each connection to processMedia
//                   with transportFormat "http" and outputFormat "mp4" (the range read twice:
//                   once to count, once to send)
//   finished file:  the same hour written to an MP4 file by processMedia beforehand, served by
//                   node's http with fs.createReadStream
// Once, untimed, both bodies are kept and compared byte for byte: only the creation times in the
// moov may differ.
const { execFile, spawnSync } = require('child_process');
const fs = require('fs');
const http = require('http');
const vidora = require('..');

const { T0, benchDir, median, millisSince, makeHour, warm } = require('./media_bench_files');

const runs = Number(process.argv[2]) || 3;
const { dir, file } = benchDir('vidora-bench-direct-');
const RANGE = { wallClockStart: T0, wallClockEnd: T0 + 3600000 };

function processMedia(params) {
  return new Promise((resolve, reject) => {
    vidora.processMedia(params, (error, result) => (error ? reject(error) : resolve(result)));
  });
}

// Reads the request head from a blocking descriptor before the answer goes out: a socket
// closed with unread bytes is reset, and the client may lose the end of the answer.
function readRequest(fd) {
  return new Promise((resolve) => {
    const buffer = Buffer.alloc(4096);
    let text = '';
    const more = () => fs.read(fd, buffer, 0, buffer.length, null, (error, count) => {
      text += error ? '' : buffer.toString('latin1', 0, count);
      if (error || count === 0 || text.includes('\r\n\r\n')) resolve();
      else more();
    });
    more();
  });
}

// The direct export server on 127.0.0.1; resolves with { port, close() }. A failed export
// ends the benchmark.
function directServer(source) {
  const tryPort = (resolve) => {
    const port = 20000 + Math.floor(Math.random() * 20000);
    let id;
    try {
      id = vidora.createTcpAcceptor(`127.0.0.1:${port}`, async ({ fd }) => {
        await readRequest(fd);
        vidora.processMedia({ srcFileName: source, dstTcpFd: fd, transportFormat: 'http', outputFormat: 'mp4', ...RANGE },
          (error) => {
            vidora.closeTcpConnection(fd);
            if (error) {
              console.error(`direct export: ${error.message}`);
              process.exit(1);
            }
          });
      });
    } catch (error) {
      tryPort(resolve);
      return;
    }
    resolve({ port, close: () => vidora.closeTcpAcceptor(id) });
  };
  return new Promise(tryPort);
}

// node's http serving `mp4` whole; resolves with { port, close() }.
function fileServer(mp4) {
  const size = fs.statSync(mp4).size;
  const server = http.createServer((request, response) => {
    response.writeHead(200, { 'Content-Type': 'video/mp4', 'Content-Length': size, Connection: 'close' });
    fs.createReadStream(mp4).pipe(response);
  });
  return new Promise((resolve) => server.listen(0, '127.0.0.1', () =>
    resolve({ port: server.address().port, close: () => server.close() })));
}

// One GET by curl into `output`: { status, bytes, firstMs, lastMs } as curl timed them.
function get(port, output = '/dev/null') {
  return new Promise((resolve, reject) => {
    execFile('curl', ['-s', '-S', '-o', output, '-w', '%{http_code} %{size_download} %{time_starttransfer} %{time_total}',
      `http://127.0.0.1:${port}/`], (error, stdout) => {
      if (error) {
        reject(error);
        return;
      }
      const [status, bytes, first, last] = stdout.split(' ').map(Number);
      resolve({ status, bytes, firstMs: first * 1000, lastMs: last * 1000 });
    });
  });
}

async function main() {
  console.log(`making the recording in ${dir} ...`);
  const hour = makeHour(file);
  const mp4 = file('hour.mp4');
  const start = process.hrtime.bigint();
  await processMedia({ srcFileName: hour.vrx, outputFormat: 'mp4', dstFileName: mp4, ...RANGE });
  const exportMs = millisSince(start);
  const size = fs.statSync(mp4).size;
  warm(hour.vrx);
  warm(mp4);
  const servers = { direct: await directServer(hour.vrx), file: await fileServer(mp4) };

  const bodies = { direct: file('direct.body'), file: file('file.body') };
  for (const [name, server] of Object.entries(servers)) {
    const answer = await get(server.port, bodies[name]);
    if (answer.status !== 200 || answer.bytes !== size) throw new Error(`${name}: status ${answer.status}, ${answer.bytes} bytes of ${size}`);
  }
  // They may differ only in the creation times of the moov, taken when each was written.
  const differing = spawnSync('cmp', ['-l', bodies.direct, bodies.file], { encoding: 'utf8' }).stdout.split('\n').filter(Boolean).length;
  fs.rmSync(bodies.direct);
  fs.rmSync(bodies.file);
  console.log(`hour.vrx ${(fs.statSync(hour.vrx).size / 2 ** 20).toFixed(0)} MiB, hour.mp4 ${(size / 2 ** 20).toFixed(0)} MiB ` +
    `(written by processMedia in ${exportMs.toFixed(0)} ms); the two bodies differ in ${differing} bytes`);

  const times = { direct: [], file: [] };
  for (let r = 0; r < runs; r++) {
    for (const [name, server] of Object.entries(servers)) {
      const answer = await get(server.port);
      if (answer.status !== 200 || answer.bytes !== size) throw new Error(`${name}: status ${answer.status}, ${answer.bytes} bytes`);
      times[name].push(answer);
    }
  }
  servers.direct.close();
  servers.file.close();
  const last = (name) => median(times[name].map((t) => t.lastMs));
  const first = (name) => median(times[name].map((t) => t.firstMs));
  console.log(`median of ${runs} runs, time to the first / last byte:`);
  console.log(`  direct export      ${first('direct').toFixed(0)} / ${last('direct').toFixed(0)} ms`);
  console.log(`  finished file      ${first('file').toFixed(0)} / ${last('file').toFixed(0)} ms (node http + fs.createReadStream)`);
  console.log(`  direct export takes ${(last('direct') / last('file')).toFixed(2)}x the time of serving the file (at most 1.2x)`);
}

main().catch((error) => {
  console.error(error);
  process.exit(1);
});
