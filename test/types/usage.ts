// Compiled with tsc --noEmit: every declared function used as an application would.
import * as vidora from '../..';
import type { NativeError } from '../..';

const info: vidora.VersionInfo = vidora.version();
const text: string = vidora.getErrorDescription(-2146959348);
const now: number = vidora.getTimeMillis();
vidora.setLogFile({ path: '/tmp/vidora.log', maxFileSize: 1 << 20, maxFileCount: 3, logLevel: 4 });
vidora.setLogLevel({ logLevel: 2 });
vidora.setLogLevel({});

try {
  vidora.getErrorDescription(0);
} catch (err) {
  const e = err as NativeError;
  const where: string = `${e.errors[0].fileName}:${e.errors[0].lineNumber}`;
  const extra: string | undefined = e.extraInfo?.path;
  console.log(info.buildNumber, text, now, where, extra, e.stackTrace?.length);
}

const pools: vidora.WorkersPoolStats[] = vidora.setWorkersPoolsLimits({ Append: 2, Transcode: 1 });
const serve: vidora.WorkersPoolStats | undefined = vidora.getWorkersPoolsStats().find((p) => p.name === 'Serve');
const nopCount: number | undefined = serve?.stats['nop']?.count;
const nopId: number = vidora.nop({ pool: 'Misc' }, (err, result) => {
  if (err) {
    const code: number = err.errors[0].full;
    console.log(code, err.timedOut, err.poolName);
    return;
  }
  if (result) console.log(result.id, result.callbackTime - result.apiCallTime);
});
const statId: number = vidora.statvfs('/', (err, result) => {
  if (err) return console.log(err.message, err.id);
  if (result) console.log(result.bytesFree, result.f_namemax, result.operationEndTime);
});
try {
  vidora.cancelOperation(nopId);
} catch (err) {
  console.log((err as NativeError).errors[0].code);
}
console.log(pools.length, nopCount, statId);

const infoId: number = vidora.vrxFileInfo('samples/sample.vrx', (err, result) => {
  if (err) return console.log(err.errors[0].full === (0x80000004 | 0), err.name);
  if (result) console.log(result.video.framesCount, result.audio.startMillis.wallClock, result.name);
});
vidora.vrxFileListFrames('samples/sample.vrx', (err, result) => {
  const frame: vidora.VrxFrame | undefined = result?.frames[0];
  if (frame) console.log(frame.trackId, frame.isKeyFrame, frame.timestamp.dts.value, frame.clockSync.wallClock.clockRate);
  if (err) console.log(err.message);
});
vidora.vrxFileListPartitions('samples/sample.vrx', (err, result) => {
  for (const p of result?.partitions ?? []) {
    console.log(p.fixedMetadata, p.fullBounds.length, p.seekPoints.map((s) => s.wallClockMillis), p.lastVideoWallClockMillis);
  }
  if (err) console.log(err.errors.length);
});
const fragmentsId: number = vidora.vrxFileListFragments({ fileName: 'samples/sample.vrx', wallClockStart: 1767225602000 },
  (err, result) => {
    const spans: vidora.VrxFragment[] = result?.fragments ?? [];
    console.log(spans.map((f) => f.wallClockEnd - f.wallClockStart), err?.poolName);
  });
console.log(infoId, fragmentsId);

const sendId: number = vidora.sendFile({
  srcFileName: 'samples/sample.vrx', offset: 10, length: 100, sendFileSize: true,
  dstCallback: () => {
    const chunk: Buffer = vidora.transferOperationBufferedData(sendId);
    const view: DataView = vidora.consumeOperationBufferedData(sendId, new ArrayBuffer(1024));
    console.log(chunk.length, view.byteLength);
  },
  progressCallback: ({ progress }) => console.log(progress),
  startCallback: ({ id }) => console.log(id),
}, (err, result) => {
  if (err) return console.log(err.errors[0].full, err.totalRead);
  if (result) console.log(result.canceled, result.totalWrite, result.stateFlips[0]?.state, result.poolName);
});
vidora.pauseOperation(sendId);
vidora.resumeOperation(sendId);
vidora.resumeOperation(sendId, 2000);
vidora.operationSetMaxBufferSize(sendId, 1 << 20);
vidora.cancelOperation(sendId);
vidora.sendFile({ srcFileNames: ['a.bin'], dstTcpFd: 5, paused: true }, () => {});
vidora.installCrashHandler('/var/log/vidora/service');
const acceptorId: number = vidora.createTcpAcceptor('127.0.0.1:8000', (connection) => {
  if (connection instanceof Error) return console.log(connection.errors[0].full);
  const peer: string = `${connection.ip}:${connection.port}`;
  console.log(peer);
  vidora.closeTcpConnection(connection.fd);
}, { name: 'server' });
const onConnection: vidora.TcpAcceptorCallback = () => {};
vidora.closeTcpAcceptor(vidora.createTcpAcceptor('[::1]:8001', onConnection));
vidora.closeTcpAcceptor(acceptorId);

const mediaId: number = vidora.processMedia({
  srcFileName: 'samples/sample.vrx', outputFormat: 'mp4', dstFileName: '/tmp/clip.mp4',
  wallClockStart: 1767225600000, wallClockEnd: 1767225603000, snapToIdr: 'closest',
}, (err, result) => {
  if (err) return console.log(err.errors[0].full, err.damagedFilesPaths?.length);
  if (result) console.log(result.outputFramesCount, result.timestampsInfo.video?.start.wallClockMillis, result.canceled);
});
vidora.pauseOnlyVideo(mediaId, true);
vidora.resumeOperation(mediaId, 5000);
const createId: number = vidora.vrxFileCreate('/tmp/recording.vrx', 16 << 20, (err) => {
  if (err) return console.log(err.errors[0].code === 2, err.poolName);
  vidora.vrxFileAppend({ srcFileName: 'samples/segments/segment-1.vrx', dstFileName: '/tmp/recording.vrx',
    createNewPartition: true, fixedMetadata: '000000000000000000000001', dynamicMetadata: 'camera 1' }, (e, r) => {
    const added: number | undefined = r?.totalAppended;
    console.log(added, e?.errors[0].full);
  });
});
vidora.vrxFileClear('/tmp/recording.vrx', (err) => console.log(err?.message));
vidora.vrxFileClear({ fileName: '/tmp/recording.vrx', zeroFill: true }, (err, result) => console.log(err, result?.name));
vidora.vrxFileClose('/tmp/recording.vrx', (err) => console.log(err?.poolName));
vidora.vrxFileRecover('/tmp/recording.vrx', (err, result) => {
  const last: vidora.VrxLastPartitionInfo | undefined = result?.lastPartitionInfo;
  if (last) console.log(last.bounds.offset, last.fixedMetadata, last.endMillis - last.startMillis);
  if (err) console.log(err.errors[0].full);
});
vidora.vrxFileRecover({ fileName: '/tmp/recording.vrx', check: true }, (err) => console.log(err === null));
vidora.vrxFileRecover({ fileName: '/tmp/recording.vrx', salvage: true }, (err, result) => console.log(err, result?.lastPartitionInfo));
vidora.vrxFileCopyContent({ srcFileNames: ['samples/sample.vrx'], dstFileName: '/tmp/copy.vrx',
  wallClockStart: 1767225602000, wallClockEnd: 1767225603000 }, (err, result) => console.log(err, result?.totalAppended));
vidora.vrxFileDeleteContent({ fileNames: ['/tmp/recording.vrx'], wallClockStart: 0, wallClockEnd: 1767225601000,
  fillWithZeros: false }, (err, result) => console.log(err?.errors.length, result?.callbackTime));
vidora.vrxFileEstimateSize({ srcFileNames: ['samples/sample.vrx'], wallClockStart: 1767225600000 },
  (err, result) => console.log(err, result?.estimatedSize));
vidora.vrxFileEstimateSize({ srcFileNames: ['samples/sample.vrx'], wallClockStart: 1767225600000,
  wallClockEnd: 1767225604000, getAvgKFrameSize: true }, (err, result) => console.log(err, result?.estimatedSize));
console.log(createId);

// The layer: Promises, callbacks, AbortSignal and streams.
import { api, VidoraError as LayerError, AbortError } from '../..';
import { pipeline } from 'stream/promises';
import { createServer } from 'http';

async function layer(): Promise<void> {
  const { video } = await api.vrxFileInfo('/data/camera.vrx');
  const { fragments } = await api.vrxFileListFragments({ fileName: '/data/camera.vrx' });
  const spans: number = fragments.length + video.framesCount;
  api.vrxFileEstimateSize({ srcFileNames: ['/data/camera.vrx'], wallClockStart: 0 }, (err, result) => {
    if (err instanceof LayerError) console.log(err.code, err.full, err.errors[0].description, err.taskName);
    else if (err instanceof AbortError) console.log(err.code);
    if (result) console.log(result.estimatedSize, result.poolName);
  });
  const controller = new AbortController();
  try {
    const done = await api.processMedia({ srcFileName: '/data/camera.vrx', outputFormat: 'mp4',
      dstFileName: '/tmp/clip.mp4', signal: controller.signal });
    console.log(done.totalWrite, done.canceled, spans);
  } catch (err) {
    if (err instanceof AbortError || (err instanceof LayerError && err.code === 'ENOENT')) return;
    throw err;
  }
  createServer(async (request, response) => {
    const stream = api.processMediaStream({ srcFileName: '/data/camera.vrx', outputFormat: 'fmp4' },
      { highWaterMark: 1 << 20 });
    stream.once('result', (result) => console.log(result.totalRead, result.canceled));
    await pipeline(stream, response).catch(() => {});
  });
  for await (const chunk of api.sendFileStream({ srcFileName: '/data/camera.vrx', offset: 0, length: 100 })) {
    console.log((chunk as Buffer).length);
  }
  // @ts-expect-error: a stream is the destination of its operation
  api.sendFileStream({ srcFileName: '/data/camera.vrx', dstFileName: '/tmp/copy' });
  // @ts-expect-error: a Promise form takes no callback type of the native function
  const id: number = await api.nop({ pool: 'Misc' });
  const waiting: number = api.getWorkersPoolsStats()[0].layerWaiting;
  console.log(id, waiting, api.setWorkersPoolsLimits({ Append: 3 }).length);
}
void layer;
