'use strict';
// processMedia on a recording that another writer extends while it is served: the reader reads
// ahead under the file locks, and must see the new bytes each time it takes the locks again.
const test = require('node:test');
const assert = require('assert');
const fs = require('fs');
const path = require('path');

const { vidora, tempDir } = require('./helpers');
const { T0 } = require('./recordings');
const { writeVrx } = require('../tools/vrx_tools');

const dir = tempDir('vidora-growth-');

// One partition of 30 video frames, a key frame with its sync node every 10.
function partition(file, index) {
  const lines = [`partition ${index.toString(16).padStart(24, '0')}`];
  for (let f = index * 30; f < index * 30 + 30; ++f) {
    if (f % 10 === 0) lines.push(`sync ${f * 3000} 90000 ${T0 + f * 33}`);
    lines.push(`video ${f * 3000} 90000 0 ${f % 10 === 0 ? 1 : 0} pattern:${f % 10 === 0 ? 40000 : 3000}:${f}`);
  }
  lines.push('end');
  writeVrx(file, lines);
}

test('an open-ended range serves the partition appended while it waits for more data', async () => {
  const source = path.join(dir, 'growing.vrx');
  const more = path.join(dir, 'more.vrx');
  partition(source, 0);
  partition(more, 1);
  const done = new Promise((resolve) => {
    const id = vidora.processMedia({ srcFileName: source, dstFileName: path.join(dir, 'out.vrx'),
      outputFormat: 'VRX', wallClockEnd: -1 }, (error, result) => resolve({ error, result }));
    // The first round ends at the first footer and waits 3 s before it reads on.
    setTimeout(() => fs.appendFileSync(source, fs.readFileSync(more)), 500);
    setTimeout(() => vidora.cancelOperation(id), 5000);
  });
  const { error, result } = await done;
  assert.strictEqual(error, null);
  assert.strictEqual(result.inputFramesCount, 60);
  assert.strictEqual(result.outputFramesCount, 60);
});
