'use strict';
// Round trips of `nop` from JavaScript, against the same count of fs.stat calls through
// libuv's own thread pool measured in the same run. Not a test: it prints figures.
//
//   node bench/nop_roundtrip.js [roundTrips] [repeats]
//
// For each concurrency (1 and 64 calls in flight) both kinds run `repeats` times,
// alternating; the best run of each counts. The ratio is nop's rate over fs.stat's.
const fs = require('fs');
const vidora = require('..');

const roundTrips = Number(process.argv[2]) || 20000;
const repeats = Number(process.argv[3]) || 5;

// Keeps `inFlight` calls outstanding until `total` have called back; resolves with calls/s.
function measure(start, inFlight, total) {
  return new Promise((resolve, reject) => {
    let issued = 0;
    let finished = 0;
    const begin = process.hrtime.bigint();
    const done = (err) => {
      if (err) return reject(err);
      finished++;
      if (issued < total) {
        issued++;
        start(done);
      } else if (finished === total) {
        const seconds = Number(process.hrtime.bigint() - begin) / 1e9;
        resolve(total / seconds);
      }
      return undefined;
    };
    for (; issued < Math.min(inFlight, total); issued++) start(done);
  });
}

const kinds = {
  nop: (done) => vidora.nop({ pool: 'Serve' }, done),
  'fs.stat': (done) => fs.stat(__filename, done),
};

async function main() {
  await measure(kinds.nop, 64, 2000);
  await measure(kinds['fs.stat'], 64, 2000);
  console.log(`round trips per run: ${roundTrips}, best of ${repeats}; libuv pool size ${process.env.UV_THREADPOOL_SIZE || 4}`);
  for (const inFlight of [1, 64]) {
    const best = { nop: 0, 'fs.stat': 0 };
    for (let r = 0; r < repeats; r++) {
      for (const [name, start] of Object.entries(kinds)) {
        best[name] = Math.max(best[name], await measure(start, inFlight, roundTrips));
      }
    }
    console.log(`${String(inFlight).padStart(2)} in flight: nop ${Math.round(best.nop)}/s, ` +
      `fs.stat ${Math.round(best['fs.stat'])}/s, ratio ${(best.nop / best['fs.stat']).toFixed(2)}`);
  }
}

main().catch((err) => {
  console.error(err);
  process.exit(1);
});
