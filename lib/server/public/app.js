'use strict';
// The page of `vidora serve`: the spans of a recording on a timeline; a click (or a drag and
// release) plays from that moment through Media Source Extensions, one span at a time, and
// the next span follows when one ends. The stream's timestamps are wall clocks, so the video's
// currentTime in seconds is the moment played, in ms / 1000.
(() => {
  const $ = (id) => document.getElementById(id);
  const video = $('video');
  const timeline = $('timeline');
  // Playing state, also read by the browser test.
  const state = { errors: [], appended: 0, playing: null };
  window.vidoraPage = state;

  let recording = null;   // name
  let spans = [];         // [{ start, end }]
  let bounds = null;      // { start, end } of all spans
  let session = null;     // the stream being played: { controller }

  const api = (name, what, query) => `/api/recordings/${encodeURIComponent(name)}/${what}` +
    (query ? `?${new URLSearchParams(query)}` : '');
  const utc = (ms) => new Date(ms).toISOString().replace('T', ' ').replace('Z', ' UTC');

  function status(text, isError = false) {
    $('status').textContent = text;
    $('status').classList.toggle('error', isError);
    if (isError) state.errors.push(text);
  }

  async function getJson(url) {
    const res = await fetch(url);
    const body = await res.json();
    if (!res.ok) throw new Error(body.error ? body.error.message : res.statusText);
    return body;
  }

  // Timeline geometry: a wall clock to a share of the width and back.
  const share = (ms) => (ms - bounds.start) / Math.max(1, bounds.end - bounds.start);
  const momentAt = (clientX) => {
    const box = timeline.getBoundingClientRect();
    const x = Math.min(1, Math.max(0, (clientX - box.left) / box.width));
    return Math.round(bounds.start + x * (bounds.end - bounds.start));
  };
  const spanAt = (ms) => spans.find((s) => ms <= s.end && ms >= s.start) || spans.find((s) => s.start > ms);

  function drawSpans() {
    const box = $('spans');
    box.replaceChildren(...spans.map((s) => {
      const div = document.createElement('div');
      div.className = 'span';
      div.style.left = `${share(s.start) * 100}%`;
      div.style.width = `${(share(s.end) - share(s.start)) * 100}%`;
      div.title = `${utc(s.start)} – ${utc(s.end)}`;
      return div;
    }));
    $('scale-start').textContent = bounds ? utc(bounds.start) : '';
    $('scale-end').textContent = bounds ? utc(bounds.end) : '';
  }

  function placeCursor(ms) {
    $('cursor').hidden = !bounds;
    if (bounds) $('cursor').style.left = `${share(ms) * 100}%`;
  }

  async function loadSpans(name) {
    const body = await getJson(api(name, 'spans'));
    recording = name;
    spans = body.spans;
    bounds = spans.length ? { start: spans[0].start, end: spans[spans.length - 1].end } : null;
    drawSpans();
    placeCursor(bounds ? bounds.start : 0);
    return spans;
  }

  function setDownload(span) {
    const link = $('download');
    link.setAttribute('aria-disabled', span ? 'false' : 'true');
    link.href = span ? api(recording, 'mp4', { from: span.start, to: span.end }) : '#';
  }

  const once = (target, event) => new Promise((resolve) => target.addEventListener(event, resolve, { once: true }));
  const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

  // Appends one chunk, waiting while the buffer holds more than 30 s ahead of the playhead
  // (which holds the stream back, and so the server's operation) and dropping what lies more
  // than 30 s behind it.
  async function append(buffer, chunk, signal) {
    const ahead = () => (buffer.buffered.length ? buffer.buffered.end(buffer.buffered.length - 1) - video.currentTime : 0);
    while (ahead() > 30 && !signal.aborted) await sleep(250);
    if (buffer.buffered.length && video.currentTime - buffer.buffered.start(0) > 60) {
      buffer.remove(buffer.buffered.start(0), video.currentTime - 30);
      await once(buffer, 'updateend');
    }
    if (signal.aborted) return;
    buffer.appendBuffer(chunk);
    await once(buffer, 'updateend');
    state.appended += 1;
  }

  // Plays span `span` of the recording from the moment `from` (ms).
  async function play(span, from) {
    if (session) session.controller.abort();
    const controller = new AbortController();
    session = { controller };
    const { signal } = controller;
    state.playing = { span, from };
    setDownload(span);
    status(`Playing from ${utc(from)}`);
    const source = new MediaSource();
    video.src = URL.createObjectURL(source);
    await once(source, 'sourceopen');
    URL.revokeObjectURL(video.src);
    let res;
    try {
      res = await fetch(api(recording, 'fmp4', { from, to: span.end }), { signal });
    } catch (error) {
      if (!signal.aborted) status(`The stream failed: ${error.message}`, true);
      return;
    }
    if (!res.ok) {
      const body = await res.json().catch(() => ({}));
      status(`The server refused the stream: ${body.error ? body.error.message : res.status}`, true);
      return;
    }
    const type = `video/mp4; codecs="${res.headers.get('X-Codecs')}"`;
    if (!MediaSource.isTypeSupported(type)) {
      status(`This browser cannot play ${type}`, true);
      controller.abort();
      return;
    }
    const buffer = source.addSourceBuffer(type);
    buffer.addEventListener('error', () => status('The media buffer reported an error', true));
    const reader = res.body.getReader();
    let started = false;
    try {
      for (;;) {
        const { done, value } = await reader.read();
        if (done || signal.aborted) break;
        await append(buffer, value, signal);
        if (!started && buffer.buffered.length) {
          started = true;
          const at = Math.max(from / 1000, buffer.buffered.start(0));
          video.currentTime = at;
          video.play().catch((error) => status(`Press play to start (${error.message})`));
        }
      }
      if (!signal.aborted && source.readyState === 'open') source.endOfStream();
    } catch (error) {
      if (!signal.aborted) status(`The stream broke off: ${error.message}`, true);
    }
  }

  function playAt(ms) {
    const span = spanAt(ms);
    if (!span) return;
    play(span, Math.max(ms, span.start));
  }

  // A recording has small holes where a partition starts: its audio ahead of the first key
  // frame has no wall clock and is not served. A playhead stalled before a hole jumps to the
  // buffered range behind it, if that starts within 2 s.
  function skipHole() {
    if (video.paused || video.readyState >= HTMLMediaElement.HAVE_FUTURE_DATA) return;
    const ranges = video.buffered;
    const now = video.currentTime;
    for (let i = 0; i < ranges.length; ++i) {
      if (ranges.start(i) <= now && ranges.end(i) - now > 0.3) return;  // still loading, no hole
      const gap = ranges.start(i) - now;
      if (gap > 0 && gap < 2) {
        video.currentTime = ranges.start(i);
        return;
      }
    }
  }
  video.addEventListener('waiting', skipHole);
  setInterval(skipHole, 500);

  video.addEventListener('timeupdate', () => {
    if (!video.currentTime) return;
    const ms = video.currentTime * 1000;
    placeCursor(ms);
    if (state.playing) $('status').textContent = `Playing ${utc(ms)}`;
  });
  video.addEventListener('ended', () => {
    const next = state.playing && spans.find((s) => s.start > state.playing.span.end);
    if (next) play(next, next.start);
    else status('The end of the recording.');
  });
  video.addEventListener('error', () => status(`The video element failed: ${video.error && video.error.message}`, true));

  // Click or drag along the timeline: the hover label follows; the release plays from there.
  let dragging = false;
  timeline.addEventListener('pointerdown', (event) => {
    if (!bounds) return;
    dragging = true;
    timeline.setPointerCapture(event.pointerId);
    placeCursor(momentAt(event.clientX));
  });
  timeline.addEventListener('pointermove', (event) => {
    if (!bounds) return;
    const ms = momentAt(event.clientX);
    $('hover').hidden = false;
    $('hover').style.left = `${share(ms) * 100}%`;
    // The label stays inside the timeline at both ends.
    $('hover').style.transform = `translateX(${-Math.min(100, Math.max(0, share(ms) * 200 - 50))}%)`;
    $('hover').textContent = utc(ms);
    if (dragging) placeCursor(ms);
  });
  timeline.addEventListener('pointerleave', () => { $('hover').hidden = true; });
  timeline.addEventListener('pointerup', (event) => {
    if (!dragging) return;
    dragging = false;
    playAt(momentAt(event.clientX));
  });
  timeline.addEventListener('keydown', (event) => {
    if (!bounds || !['ArrowLeft', 'ArrowRight'].includes(event.key)) return;
    const now = video.currentTime ? video.currentTime * 1000 : bounds.start;
    playAt(now + (event.key === 'ArrowRight' ? 5000 : -5000));
  });

  $('recording').addEventListener('change', (event) => {
    loadSpans(event.target.value).catch((error) => status(error.message, true));
  });

  getJson('/api/recordings').then(async ({ recordings }) => {
    $('recording').replaceChildren(...recordings.map((r) => new Option(r.name, r.name)));
    setDownload(null);
    if (recordings.length === 0) status('No recordings (.vrx files) in the served folder.');
    else await loadSpans(recordings[0].name);
    document.body.dataset.ready = 'true';
  }).catch((error) => status(error.message, true));
})();
