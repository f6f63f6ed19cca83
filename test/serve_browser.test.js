'use strict';
// The page of `vidora serve` in headless Chromium (Debian's chromium, driven by playwright-core):
// a click on the timeline plays the recording through Media Source Extensions, over more than
// two fragments, without a media error; a drag to the other span plays from there. A
// screenshot of the playing page is written to $VIDORA_SCREENSHOT_DIR/vidora_serve_page.png
// (default: the system's temporary folder), and named in the test's output.
const test = require('node:test');
const assert = require('assert');
const fs = require('fs');
const os = require('os');
const path = require('path');

const { tempDir } = require('./helpers');
const { T0 } = require('./recordings');
const { spawnServe } = require('./serve_process');
const { childEnv } = require('../tools/vrx_tools');

const CHROMIUM = process.env.VIDORA_CHROMIUM || '/usr/bin/chromium';

function playwright() {
  try {
    return require('playwright-core');
  } catch (error) {
    return null;
  }
}

const missing = !fs.existsSync(CHROMIUM) ? `${CHROMIUM} is not installed (Debian package chromium: ` +
  '"apt-get install chromium", which scripts/test_deps.sh does when run as root)'
  : !playwright() ? 'playwright-core is not installed (npm ci)' : null;

const options = { timeout: 60000, ...(missing ? { skip: missing } : {}) };

test('the page plays a recording from a moment clicked on its timeline, and from where a drag ends', options, async (t) => {
  const dir = tempDir('vidora-browser-');
  const served = path.join(dir, 'served');
  fs.mkdirSync(served);
  // 6 s of 320x240 H.264 and AAC in three partitions; the third 30 s after the second.
  fs.copyFileSync(path.join(__dirname, '..', 'samples', 'sample.vrx'), path.join(served, 'sample.vrx'));
  const server = await spawnServe(served);
  t.after(async () => {
    const { status, signal } = await server.stop();
    assert.ok(status === 0 || signal === 'SIGTERM', 'vidora serve ends cleanly on SIGTERM');
  });
  // The browser runs without the sanitizer runtimes that a sanitized run preloads into node.
  // A browser that does not start or close in time must not keep the test's process alive.
  const browser = await playwright().chromium.launch({ executablePath: CHROMIUM, env: childEnv(), timeout: 20000,
    args: ['--autoplay-policy=no-user-gesture-required'] });
  t.after(() => Promise.race([browser.close(), new Promise((resolve) => setTimeout(resolve, 10000).unref())]));
  const page = await browser.newPage({ viewport: { width: 1000, height: 760 } });
  const problems = [];
  page.on('pageerror', (error) => problems.push(`page error: ${error.message}`));
  page.on('console', (message) => { if (message.type() === 'error') problems.push(`console: ${message.text()}`); });
  await page.goto(`${server.url}/`);
  assert.strictEqual(await page.evaluate(() => MediaSource.isTypeSupported('video/mp4; codecs="avc1.42E01E,mp4a.40.2"')), true,
    'this Chromium plays H.264 and AAC through Media Source Extensions');
  await page.waitForSelector('body[data-ready="true"]');
  assert.strictEqual(await page.locator('#spans .span').count(), 2);

  // The timeline spans the first frame to the last, 35.96 s; the page's layout does not move
  // when the video starts.
  const timeline = await page.locator('#timeline').boundingBox();
  const atMoment = (ms) => timeline.x + (timeline.width * (ms - T0)) / 35960;
  const y = timeline.y + timeline.height / 2;
  const playing = () => page.evaluate(() => ({
    time: document.getElementById('video').currentTime,
    error: document.getElementById('video').error && document.getElementById('video').error.message,
    errors: window.vidoraPage.errors,
    appended: window.vidoraPage.appended,
  }));
  // Plays on for at least `seconds` of media from `from` (ms), checking for errors on the way.
  const playsFrom = async (from, seconds, label) => {
    const deadline = Date.now() + 15000;
    let state = await playing();
    while (state.time < from / 1000 + seconds && Date.now() < deadline && state.errors.length === 0 && !state.error) {
      await page.waitForTimeout(100);
      state = await playing();
    }
    assert.strictEqual(state.error, null, `${label}: the video element has no error`);
    assert.deepStrictEqual(state.errors, [], `${label}: no stream or media buffer error`);
    assert.ok(state.time >= from / 1000 + seconds, `${label}: played from ${from / 1000} to ${state.time}`);
    return state;
  };

  // A click 0.7 s into the first span: the first span holds four fragments of a second.
  await page.mouse.click(atMoment(T0 + 700), y);
  const clicked = await page.evaluate(() => window.vidoraPage.playing.from);
  assert.ok(Math.abs(clicked - (T0 + 700)) < 100, `the click chose ${clicked}`);
  await playsFrom(clicked, 2.5, 'after a click');
  const screenshot = path.join(process.env.VIDORA_SCREENSHOT_DIR || os.tmpdir(), 'vidora_serve_page.png');
  await page.screenshot({ path: screenshot });
  t.diagnostic(`screenshot of the playing page: ${screenshot}`);

  assert.deepStrictEqual(await page.locator('#timeline').boundingBox(), timeline);
  // A drag from the first span into the second, 0.3 s after its start.
  await page.mouse.move(atMoment(T0 + 1000), y);
  await page.mouse.down();
  await page.mouse.move(atMoment(T0 + 20000), y, { steps: 5 });
  await page.mouse.move(atMoment(T0 + 34300), y, { steps: 5 });
  await page.mouse.up();
  const dragged = await page.evaluate(() => window.vidoraPage.playing.from);
  assert.ok(Math.abs(dragged - (T0 + 34300)) < 100, `the drag chose ${dragged}`);
  await playsFrom(dragged, 1.2, 'after a drag');
  assert.deepStrictEqual(problems, []);
});
