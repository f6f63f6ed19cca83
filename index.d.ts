// Type definitions for vidora: the native functions, and `api`, the Promise and stream layer over them.

/** One step of a failure's way up, newest first. */
export interface VidoraErrorEntry {
  /** The whole 32-bit code as a signed integer (negative for an error). */
  full: number;
  /** The module id: 0 errno, 1 abstraction, 8 addon, 11 media, 12 mediaformats, 13 avcodec. */
  module: number;
  /** The module's error number. */
  code: number;
  description: string;
  /** Source file where the failure was detected; "unknown" when not tracked. */
  fileName: string;
  lineNumber: number;
}

/** The error object of every native failure, thrown or passed to a callback. */
export interface NativeError extends Error {
  errors: VidoraErrorEntry[];
  /** Extra facts recorded with the failure, when there are any. */
  extraInfo?: Record<string, string>;
  /** Captured stack frames, when there are any. */
  stackTrace?: string[];
}

export interface VersionInfo {
  buildNumber: string;
  openSslVersion: string;
}

/** Log levels: 0 fatal, 1 error, 2 warning, 3 information, 4 debug. */
export type LogLevel = 0 | 1 | 2 | 3 | 4;

export interface LogFileOptions {
  /** The newest log file; older ones are path.001, path.002, ... */
  path: string;
  /** Bytes after which the file rolls. Default 5000000. */
  maxFileSize?: number;
  /** Files kept, at most 999. Default 5. */
  maxFileCount?: number;
  /** Default 1. The environment variable ADDON_LOG_LEVEL wins when set. */
  logLevel?: LogLevel | number;
}

export interface LogLevelOptions {
  /** Default 1. The environment variable ADDON_LOG_LEVEL wins when set. */
  logLevel?: LogLevel | number;
}

/** The build number and the OpenSSL version of this build. */
export function version(): VersionInfo;

/**
 * The text of an error code (read as a signed 32-bit integer): "OK" for 0,
 * "### UNKNOWN ERROR CODE ###" for what is no error code of vidora.
 * @throws NativeError "NodeJS function parameters are incorrect" when `code` is not a number.
 */
export function getErrorDescription(code: number): string;

/** Wall-clock time in milliseconds since the epoch. */
export function getTimeMillis(): number;

/**
 * Adds a rolling log file, written on a thread of its own, and starts logging to it.
 * @throws NativeError "NodeJS function parameters are incorrect" when `options` is not an
 *   object or `path` is missing or empty; the system error (EISDIR, EINVAL, ENOENT, EACCES)
 *   when the path is a directory or another file that is not a regular one, or cannot be
 *   written.
 */
export function setLogFile(options: LogFileOptions): void;

/**
 * Sets the level of every log file (ADDON_LOG_LEVEL, when set, wins).
 * @throws NativeError when `options` is not an object.
 */
export function setLogLevel(options: LogLevelOptions): void;

/** Fields that every task's callback receives, on the result object or on the error object. */
export interface TaskInfo {
  /** The id that the starting function returned. */
  id: number;
  /** The kind of task, e.g. "nop", "statvfs". */
  name: string;
  /** The workers pool that ran it. */
  poolName: string;
  /** True when the task's time limit passed; its late result is then dropped. */
  timedOut: boolean;
  /** Milliseconds since the epoch: when the task was handed to its pool. */
  apiCallTime: number;
  /** When its work began on a worker thread (0 if it never ran). */
  operationStartTime: number;
  /** When its work ended on the worker thread (0 if it never ran). */
  operationEndTime: number;
  /** When the callback was called. */
  callbackTime: number;
}

/** The error object of a task that failed: the error chain plus the task's fields. */
export type TaskError = NativeError & TaskInfo;

/** A node-style completion callback: `(error, null)` or `(null, result)`. */
export type TaskCallback<R> = (error: TaskError | null, result: (R & TaskInfo) | null) => void;

/** Cost of one task name in a pool, summed over its runs. */
export interface TaskTimeStats {
  /** Elapsed microseconds of the work. */
  userUs: number;
  /** CPU microseconds of the worker threads in that time. */
  cpuUs: number;
  /** Runs counted. */
  count: number;
}

/** One workers pool. A task is counted in `stats` once its callback has returned. */
export interface WorkersPoolStats {
  name: string;
  /** How many tasks may run at once. */
  maxSize: number;
  /** Tasks waiting (at most 200; a task offered beyond that is dropped without a callback). */
  pendingSize: number;
  inProgressSize: number;
  /** Every task ever offered to the pool, dropped ones included. */
  totalSeen: number;
  /** Tasks offered since the previous statistics query: reading the statistics resets it. */
  totalSeenSinceLastQuery: number;
  /** By task name. */
  stats: Record<string, TaskTimeStats>;
}

/** Concurrency limits by pool name. */
export type WorkersPoolsLimits = Record<string, number>;

export interface NopParams {
  /** The workers pool to run on. */
  pool: string;
}

/** The fields of statvfs(2) for a path. */
export interface StatvfsResult {
  f_bsize: number;
  f_frsize: number;
  f_blocks: number;
  f_bfree: number;
  f_bavail: number;
  f_files: number;
  f_ffree: number;
  f_favail: number;
  /** The file-system id; above 2^53 it loses its low bits. */
  f_fsid: number;
  f_flag: number;
  f_namemax: number;
  /** f_frsize * f_bfree. */
  bytesFree: number;
}

/**
 * Sets the concurrency limits of workers pools and creates the pools not yet known. A pool is
 * created with the limit as given; an existing pool gets at least 2. Only keys whose value is
 * a number whose 32-bit integer part is above 0 are applied; the others are skipped.
 * Raising a limit starts no waiting task by itself: queued tasks move as running ones end.
 * The pools "Serve" (90), "Write" (5), "Read" (4) and "Misc" (1) exist from the start;
 * any other pool, "Append" and "Transcode" included, exists only once named here.
 * @returns the statistics of every pool, as getWorkersPoolsStats.
 * @throws NativeError "NodeJS function parameters are incorrect" when `limits` is not an object.
 */
export function setWorkersPoolsLimits(limits: WorkersPoolsLimits): WorkersPoolStats[];

/** The statistics of every workers pool, in name order. Resets totalSeenSinceLastQuery. */
export function getWorkersPoolsStats(): WorkersPoolStats[];

/** A change of an operation's state: `paused` by pauseOperation (or made paused), `resumed`. */
export interface StateFlip {
  timestamp: number;
  state: 'paused' | 'resumed';
}

/**
 * What every operation's callback gets beside the task fields: times in ms since the epoch
 * (-1 until reached) and byte counts. Bytes taken with consumeOperationBufferedData are not
 * counted in totalWrite.
 */
export interface OperationInfo {
  initCompletedTime: number;
  firstReadTime: number;
  firstSendTime: number;
  totalRead: number;
  totalWrite: number;
  stateFlips: StateFlip[];
}

/** The result of an operation that ended without error; `canceled` after cancelOperation. */
export interface OperationResult extends OperationInfo {
  canceled: boolean;
}

/** The completion callback of an operation. */
export type OperationCallback<R = {}> = (error: (TaskError & OperationInfo & Partial<R>) | null,
  result: (R & OperationResult & TaskInfo) | null) => void;

/** The destination and callbacks every operation takes. Exactly one destination. */
export interface OperationDestination {
  /** A file, created or truncated (mode 0640) when the operation starts. */
  dstFileName?: string;
  /** A connected socket; the operation sends on a duplicate, so the caller keeps its own. */
  dstTcpFd?: number;
  /**
   * Called (with no arguments) when bytes wait in the operation's buffer: take them with
   * consumeOperationBufferedData or transferOperationBufferedData. The worker waits while
   * the buffer holds its limit (4 MiB for sendFile) or more.
   */
  dstCallback?: () => void;
  /** Start paused; resumeOperation starts the flow. */
  paused?: boolean;
  /** Called once when the operation starts, with its id. */
  startCallback?: (info: { id: number }) => void;
  /** Called when the progress changes (0 to 100), and with 100 at a successful end. */
  progressCallback?: (info: { id: number; progress: number }) => void;
}

export interface SendFileParams extends OperationDestination {
  /** The one file to send (or srcFileNames with exactly one name). */
  srcFileName?: string;
  srcFileNames?: string[];
  /** First byte to send. Default 0. */
  offset?: number;
  /** Bytes to send; -1 or absent: to the end of the file as it is when the operation starts. */
  length?: number;
  /** Send the length first, as 4 bytes big-endian. */
  sendFileSize?: boolean;
  /** Marks the destination as a network one (a socket destination always is). */
  networkDestination?: boolean;
}

/**
 * Streams a byte range of a file to a file, a socket or a JavaScript drain, on the "Serve"
 * pool. The source is read a piece at a time under shared locks, so a file that another
 * process appends to can be sent: the range is what the file held when the operation started.
 * A range outside the file ends with "NodeJS invalid file offset and length" (0x80080008).
 * @returns the operation id, for the operation functions.
 * @throws NativeError "NodeJS function parameters are incorrect" without exactly one source
 *   and exactly one destination, or when the destination file is the source; the system error
 *   of a dstTcpFd that is not open.
 */
export function sendFile(params: SendFileParams, callback: OperationCallback): number;

/** Parameters of processMedia: a source, one destination, and what to serve of it. */
export interface ProcessMediaParams extends OperationDestination {
  /** Recordings: ".vrx" files (several are read as one), or one MP4 file (any other name). */
  srcFileName?: string;
  srcFileNames?: string[];
  /** "vrx" (default), "mp4" (needs dstFileName), "fmp4", "annexb", "avcc"; case does not matter. */
  outputFormat?: string;
  /** Range start, ms since the epoch. Negative or absent: from the beginning. */
  wallClockStart?: number;
  /**
   * Range end, ms since the epoch. Negative or absent: open: a recording that grows is followed,
   * and the read ends 30 s (ten waits of 3 s) after the last frame that came.
   */
  wallClockEnd?: number;
  /** Where the start lands: the key frame "before" it (default), "after" it, or the "closest" (within 5 s before). */
  snapToIdr?: string;
  /** -N: every Nth key frame; T > 0: key frames at least T ms apart. Either drops audio and non-key frames. */
  idrFrequency?: number;
  skipAudio?: boolean;
  skipVideo?: boolean;
  /** "gop": groups of pictures from the last to the first, each in order; "idr": key frames alone, backwards. */
  serveInReverse?: string;
  /** Fragmented MP4: fragment length in ms (default 1000), cut on key frames (default true). */
  fragmentDurationMillis?: number;
  fragmentOnKf?: boolean;
  /** Fragmented MP4: base decode times from the wall clock (default true). */
  useWallClockForFMP4?: boolean;
  /** MP4 tracks' timelines start at 0. */
  zeroBase?: boolean;
  /** VRX to a socket: end with an empty skip packet. */
  sendEod?: boolean;
  extendedVideoMetadata?: boolean;
  /** Divide timestamps by this (drops audio); not with forceFps or serveInReverse. */
  speedupFactor?: number;
  /** Rewrite video timestamps for this frame rate (drops audio); not with speedupFactor or serveInReverse. */
  forceFps?: number;
  /** Caller's marks, shown in the log. */
  actionStart?: number;
  actionId?: number;
  /** Serve all key frames of the range first, then the rest. */
  enableKeyFrameFirst?: boolean;
  /** Drop video frames that are not key frames. */
  onlyKeyFrames?: boolean;
  /** With onlyKeyFrames: keep one video frame in N. */
  onlyNthFrame?: number;
  seekDistanceMaxMs?: number;
  /** "", "binme" or "http": a socket destination then gets a framed or HTTP head before the body. */
  transportFormat?: string;
  /** Pause by itself after this much media time (resumeOperation(id, ms) arms it again). */
  pauseAfterMs?: number;
  offset?: number;
  length?: number;
}

/** The first and last timestamps a track was served with. */
export interface ServedTimestamps {
  start: { dts: number; cts: number; clockRate: number; wallClockMillis: number };
  end: { dts: number; cts: number; clockRate: number; wallClockMillis: number };
}

/** What processMedia adds to the operation's result (and error) object. */
export interface ProcessMediaInfo {
  inputFramesCount: number;
  outputFramesCount: number;
  /** `audio` and `video`, each present when that track served a frame. */
  timestampsInfo: { audio?: ServedTimestamps; video?: ServedTimestamps };
  fileChecksDurationMillis: number;
  /** On the error object only. */
  damagedFilesPaths?: string[];
}

/**
 * Serves a wall-clock range of recordings as VRX, MP4, fragmented MP4 or raw H.264 to a file,
 * a socket or a JavaScript drain, forward or backward, on "Serve" (socket destinations) or
 * "Write". A fragmented MP4 to a socket comes as units of a 1-byte type and a 24-bit length
 * (0xFA the initialisation segment, 0xF9 a fragment's start, 0xFB moof pieces, 0xFE the mdat
 * header, 0xFC/0xFD video/audio samples, 0xFF its end); to a file or a drain, as plain fMP4.
 * @returns the operation id, for the operation functions.
 * @throws NativeError "NodeJS function parameters are incorrect" for a parameter object that
 *   breaks a rule (no source, not exactly one destination, a transport other than "", "binme",
 *   "http", forceFps with speedupFactor, reverse with either, no audio and no video, a start
 *   after the end); the system error of a dstTcpFd that is not open.
 */
export function processMedia(params: ProcessMediaParams,
  callback: OperationCallback<ProcessMediaInfo>): number;

/**
 * Pauses (true) or resumes (false) the video of a media operation alone: the audio goes on,
 * and the video comes back at its next key frame. A resume counts only once a video frame was
 * held back.
 * @throws NativeError "NodeJS function parameters are incorrect" unless (number, boolean);
 *   "NodeJS sending operation not found".
 */
export function pauseOnlyVideo(id: number, pause: boolean): void;

/**
 * Kept for callers that know it: it reads its id and its parameters from the same argument,
 * so every call throws "NodeJS function parameters are incorrect".
 */
export function changeVideoSendingStyle(id: number, params?: { onlyKeyFrames?: boolean; onlyNthFrame?: number }): never;

/**
 * Pauses an operation: its worker stops producing at the next round. An operation that
 * produces nothing for 60 s, paused or not, ends itself.
 * @throws NativeError "NodeJS function parameters are incorrect" when `id` is not a number;
 *   "NodeJS sending operation not found" when no running or queued operation has that id.
 */
export function pauseOperation(id: number): void;

/**
 * With one argument, resumes a paused operation. With two (whatever the second is), asks a
 * media operation to resume and pause again after `ms` of media; a sendFile ignores it.
 * @throws NativeError as pauseOperation.
 */
export function resumeOperation(id: number, ms?: unknown): void;

/**
 * Cancels a running or queued operation: it ends cleanly, its result has `canceled` true.
 * @throws NativeError as pauseOperation (a plain task such as nop is not an operation).
 */
export function cancelOperation(id: number): void;

/**
 * Copies buffered bytes of an operation into `buffer` and consumes them.
 * @returns a view of the bytes copied, from offset 0 (of length 0 when none waited).
 * @throws NativeError as pauseOperation; "NodeJS function parameters are incorrect" when
 *   `buffer` is not an ArrayBuffer.
 */
export function consumeOperationBufferedData(id: number, buffer: ArrayBuffer): DataView;

/**
 * Takes every buffered byte of an operation, without copying it: the Buffer owns the bytes.
 * @throws NativeError as pauseOperation.
 */
export function transferOperationBufferedData(id: number): Buffer;

/**
 * Sets the byte limit of an operation's buffer, from its next round on. 0 or below changes
 * nothing.
 * @throws NativeError as pauseOperation; "NodeJS function parameters are incorrect" when
 *   `size` is not a number.
 */
export function operationSetMaxBufferSize(id: number, size: number): void;

/**
 * Runs a task that does nothing on the given pool, to tell that the pool is alive.
 * A pool that does not exist drops the task: the callback is never called.
 * @returns the task id.
 * @throws Error "<-# FAILED! callback_nop Invalid parameters" when `params.pool` is not a
 *   string or `callback` is not a function.
 */
export function nop(params: NopParams, callback: TaskCallback<{}>): number;

/**
 * statvfs(2) of `path` on the "Misc" pool. A failure calls back with the system error
 * (module 0, the errno as code).
 * @returns the task id.
 * @throws Error "<-# FAILED! callback_statvfs Invalid parameters" when `path` is not a string
 *   or `callback` is not a function.
 */
export function statvfs(path: string, callback: TaskCallback<StatvfsResult>): number;

/** A time in ticks of a clock; value -1 and clockRate 0 mean none. */
export interface VrxTimestamp {
  value: number;
  clockRate: number;
}

/** A frame's clock sync: the stream clock at an instant and the wall clock then (in the stream clock's rate). */
export interface VrxClockSync {
  streamClock: VrxTimestamp;
  wallClock: VrxTimestamp;
}

/** One frame of a .vrx file. */
export interface VrxFrame {
  /** 7 H.264, 1003 H.265, 1004 AV1, 1000 AAC, 1002 Opus, 19056 JPEG. */
  trackId: number;
  /** Always true for audio. */
  isKeyFrame: boolean;
  /** The sync node in force; all -1/0 before the first one of a partition. */
  clockSync: VrxClockSync;
  /** DTS and the composition offset CTS (PTS = DTS + CTS), both in `clockRate`. */
  timestamp: { dts: VrxTimestamp; cts: VrxTimestamp; clockRate: number };
  /** Byte offset of the payload in the file. */
  offset: number;
  /** Payload size in bytes. */
  length: number;
}

/** A byte range of a .vrx file. */
export interface VrxBounds {
  offset: number;
  length: number;
}

/** One partition of a .vrx file. */
export interface VrxPartition {
  /** Header through footer. */
  fullBounds: VrxBounds;
  /** The 12 bytes of fixed metadata as 24 lowercase hex digits. */
  fixedMetadata: string;
  dynamicMetadataBounds: VrxBounds;
  /** Between the header and the footer. */
  contentsBounds: VrxBounds;
  /** Wall clock (ms) of the last video or image frame from the last seek point on; -1 if none. */
  lastVideoWallClockMillis: number;
  /** Entry points: a sync node or key frame, and its wall clock in ms. */
  seekPoints: { offset: number; wallClockMillis: number }[];
}

/** A span of continuous recording, wall clocks in ms since the epoch, both ends included. */
export interface VrxFragment {
  wallClockStart: number;
  wallClockEnd: number;
}

/** Totals of one medium; clocks in ms, -1 until known. */
export interface VrxTrackInfo {
  framesCount: number;
  keyFramesCount: number;
  /** Stream clock of the first frame; wall clock of the first frame that has a clock sync. */
  startMillis: { streamClock: number; wallClock: number };
  /** Of the last frame (the wall clock of the last one that has a clock sync). */
  endMillis: { streamClock: number; wallClock: number };
}

export interface VrxFileListFragmentsParams {
  fileName: string;
  /** Start of the range in ms; 0 or absent: from the beginning. */
  wallClockStart?: number;
  /** End of the range in ms; 0 or absent: to the end. */
  wallClockEnd?: number;
}

/**
 * Per-medium totals of a .vrx file, on the "Read" pool, under shared locks: another process
 * holding the file exclusively for more than 1.5 s gives error 0x80000004 (-2147483644); a
 * missing file 0x80000002.
 * @returns the task id.
 * @throws Error "<-# FAILED! callback_vrxFileInfo Invalid parameters" for other arguments.
 */
export function vrxFileInfo(fileName: string,
  callback: TaskCallback<{ audio: VrxTrackInfo; video: VrxTrackInfo }>): number;

/**
 * Every frame of a .vrx file, in file order, held in memory until the callback. A read error
 * gives the error alone; a file that ends inside a packet lists the frames before it.
 * @returns the task id.
 * @throws Error "<-# FAILED! callback_vrxFileListFrames Invalid parameters" for other arguments.
 */
export function vrxFileListFrames(fileName: string, callback: TaskCallback<{ frames: VrxFrame[] }>): number;

/**
 * Every partition of a .vrx file; reads headers, footers and seek tables, not frame data.
 * A file without partitions (or a new managed file) gives an empty array.
 * @returns the task id.
 * @throws Error "<-# FAILED! callback_vrxFileListPartitions Invalid parameters" for other arguments.
 */
export function vrxFileListPartitions(fileName: string,
  callback: TaskCallback<{ partitions: VrxPartition[] }>): number;

/**
 * Spans of continuous recording within a wall-clock range: from the seek tables (a gap of more
 * than 20 s splits, no span crosses partitions), or frame by frame in a file without partitions
 * (a gap of 2,001 ms or more splits).
 * @returns the task id.
 * @throws Error "<-# FAILED! callback_vrxFileListFragments Invalid parameters" when `params` is
 *   not an object with a string `fileName` or `callback` is not a function.
 */
export function vrxFileListFragments(params: VrxFileListFragmentsParams,
  callback: TaskCallback<{ fragments: VrxFragment[] }>): number;

/** Options of vrxFileClear. */
export interface VrxFileClearOptions {
  fileName: string;
  /** Ask the file system to zero the bytes as well (where it cannot, they stay). Default false. */
  zeroFill?: boolean;
}

/**
 * Options of vrxFileRecover, beyond the plain repair that the file name alone asks for.
 */
export interface VrxFileRecoverOptions {
  fileName: string;
  /**
   * Beyond the standard repair: also keep the whole frames of a tail partition that a crash
   * tore (its header intact), with a fresh footer, where the repair drops it. Default false.
   */
  salvage?: boolean;
  /**
   * Beyond the standard repair: only walk the partitions, change nothing; the callback gets
   * the error the walk stops with when the file needs recover, else a result without
   * `lastPartitionInfo`. Default false.
   */
  check?: boolean;
}

/** What recover kept last. */
export interface VrxLastPartitionInfo {
  bounds: VrxBounds;
  /** The 12 bytes of fixed metadata as 24 lowercase hex digits. */
  fixedMetadata: string;
  /** Wall clock (ms) of its first seek point. */
  startMillis: number;
  /** Wall clock (ms) of its last frame. */
  endMillis: number;
}

export interface VrxFileAppendParams {
  /** A finished .vrx file, as a recorder leaves it (or any file of partitions). */
  srcFileName: string;
  /** A managed file (see vrxFileCreate). */
  dstFileName: string;
  /** Start a new partition rather than grow the last one. Default false; a file without partitions always gets one. */
  createNewPartition?: boolean;
  /** 12 bytes for a new partition's header as 24 hex digits; absent: zeros. */
  fixedMetadata?: string;
  /** Stored in a new partition's header as its UTF-8 bytes. */
  dynamicMetadata?: string;
}

export interface VrxFileCopyContentParams {
  /** Read as one, in order. */
  srcFileNames: string[];
  /** A managed file. */
  dstFileName: string;
  /** Wall clock in ms, 0 or more. */
  wallClockStart: number;
  /** Wall clock in ms, not before wallClockStart. */
  wallClockEnd: number;
}

export interface VrxFileDeleteContentParams {
  /** Managed files, each cut in turn; none is fine. */
  fileNames: string[];
  /** Wall clock in ms, 0 or more. */
  wallClockStart: number;
  /** Wall clock in ms, not before wallClockStart; both ends are included. */
  wallClockEnd: number;
  /** Zero the freed bytes (a wish: where the file system cannot, they stay). Default false. */
  fillWithZeros?: boolean;
}

export interface VrxFileEstimateSizeParams {
  /** One or several files read as one stream. */
  srcFileNames: string[];
  /** Wall clock in ms. */
  wallClockStart: number;
  /** Wall clock in ms; below 1: to the end of the data. */
  wallClockEnd?: number;
  /** The average size of the key frames at or before ten points of the range instead. */
  getAvgKFrameSize?: boolean;
}

/**
 * Makes `fileName` a managed .vrx file of `size` bytes (at least 1,048,576 and a multiple of
 * 4,096), all free space, reserved with fallocate where the file system has it; an existing
 * file is refilled. On the "Write" pool, without locks. A wrong size calls back with
 * 0x800C0002 ("The specified file size is too small or is not a multiple of 4096").
 * @returns the task id.
 * @throws Error "<-# FAILED! callback_vrxFileCreate Invalid parameters" for other arguments.
 */
export function vrxFileCreate(fileName: string, size: number, callback: TaskCallback<{}>): number;

/**
 * Turns a managed file back into free space, on the "Write" pool, under exclusive locks.
 * @returns the task id.
 * @throws Error "<-# FAILED! callback_vrxFileClear No parameters", "... First parameter type is
 *   not string or object", "... Options do not contain fileName parameter", "... Second
 *   parameter type is not function".
 */
export function vrxFileClear(fileName: string | VrxFileClearOptions, callback: TaskCallback<{}>): number;

/**
 * Drops this process's cached appender of the file (its descriptors close), on the "Write"
 * pool, under exclusive locks. A file without one is fine.
 * @returns the task id.
 * @throws Error "<-# FAILED! callback_vrxFileClose Invalid parameters" for other arguments.
 */
export function vrxFileClose(fileName: string, callback: TaskCallback<{}>): number;

/**
 * Repairs a managed file after a crash, on the "Write" pool, under exclusive locks: seek
 * tables rebuilt from the frames, everything up to the last sound frame of the last readable
 * partition kept, the rest given back to free space. A file without partitions calls back
 * with 0x800C001D and stays as it is. The options form adds `salvage` and `check`, beyond the
 * standard behaviour.
 * @returns the task id.
 * @throws Error "<-# FAILED! callback_vrxFileRecover Invalid parameters" for other arguments.
 */
export function vrxFileRecover(options: VrxFileRecoverOptions & { check: true }, callback: TaskCallback<{}>): number;
export function vrxFileRecover(fileName: string | VrxFileRecoverOptions,
  callback: TaskCallback<{ lastPartitionInfo: VrxLastPartitionInfo }>): number;

/**
 * Appends all of a finished file to a managed file, on the "Append" pool, which exists only
 * once setWorkersPoolsLimits has named it (until then the task is dropped and never calls
 * back). The source is locked shared within this process and exclusively against others, the
 * destination exclusively. A source is appended once: the same path again within an hour,
 * while it exists, calls back with 0x800C001E ("Double VRX file append detected"); a full
 * file with 0x800C0006 ("Not enough space to store the contents"), a source without a clock
 * sync node with 0x800C000E; neither touches the destination.
 * @returns the task id.
 * @throws Error "<-# FAILED! callback_vrxFileAppend Invalid parameters" without the two names,
 *   with fixed metadata that is not 12 bytes of hex, or for other arguments.
 */
export function vrxFileAppend(params: VrxFileAppendParams,
  callback: TaskCallback<{ totalAppended: number }>): number;

/**
 * Copies a wall-clock range of the sources (cut on seek points: from the key frame at or
 * before the start to the first key frame after the end) into one new partition of a managed
 * file, on the "Write" pool. `totalAppended` is the space it took, 0 when nothing matched.
 * @returns the task id.
 * @throws Error "<-# FAILED! callback_vrxFileCopyContent Invalid parameters" for a missing
 *   field, a negative or reversed range, or other arguments.
 */
export function vrxFileCopyContent(params: VrxFileCopyContentParams,
  callback: TaskCallback<{ totalAppended: number }>): number;

/**
 * Deletes a wall-clock range from managed files in place, on the "Write" pool, each file
 * under exclusive locks in turn; nothing moves and the file keeps its size. Whole partitions
 * become free space; the head of a partition is cut on a seek point (a GOP whose key frame is
 * at or after wallClockEnd stays), its tail on a frame (the first video frame at or after
 * wallClockStart goes, with all after it).
 * @returns the task id.
 * @throws Error "<-# FAILED! callback_vrxFileDeleteContent Invalid parameters" for a missing
 *   field, a negative or reversed range, or other arguments.
 */
export function vrxFileDeleteContent(params: VrxFileDeleteContentParams, callback: TaskCallback<{}>): number;

/**
 * The bytes of a wall-clock range of the sources read as one (from the key frame at or before
 * the start to the one at or after the end), or the average key-frame size, on the "Serve"
 * pool under shared locks. It calls back with "NodeJS function parameters are incorrect"
 * whenever it cannot estimate (no sources, a start beyond the data, an empty range).
 * @returns the task id.
 * @throws Error "<-# FAILED! callback_vrxFileEstimateSize Invalid parameters" without
 *   `srcFileNames` or `wallClockStart`, or for other arguments.
 */
export function vrxFileEstimateSize(params: VrxFileEstimateSizeParams,
  callback: TaskCallback<{ estimatedSize: number }>): number;

/**
 * Installs the crash log. When this process then dies by SIGSEGV, SIGABRT, SIGFPE, SIGILL or
 * SIGBUS, `<path>.crash.log` gets the signal and the stack as raw addresses after the process
 * id, start time, version and memory map written now, and the process ends by SIGKILL. Each
 * start rolls the logs before to `.1` ... `.9`. The host's own handlers for these signals are
 * replaced, except that a WebAssembly memory access out of bounds stays the engine's
 * `RuntimeError`.
 * A second call does nothing.
 * @throws NativeError "NodeJS function parameters are incorrect" when `path` is not a non-empty
 *   string; the system error (module 0, e.g. "No such file or directory") when the log cannot
 *   be made.
 */
export function installCrashHandler(path: string): void;

/** A connection accepted by a TCP acceptor. */
export interface TcpConnection {
  /** The accepted socket (blocking, close-on-exec): the callback owns it, see closeTcpConnection. */
  fd: number;
  /** The peer's address, e.g. "127.0.0.1" or "::1". */
  ip: string;
  port: number;
}

/** Called for each accepted connection, or with the error when polling the socket fails. */
export type TcpAcceptorCallback = (connection: TcpConnection | NativeError) => void;

/**
 * Listens on `address` and hands each accepted connection to `callback`, on the main thread's
 * event loop, until closeTcpAcceptor; an open acceptor keeps the process alive. `address` is
 * "host:port" (split at the last colon) or "[ipv6 host]:port"; an empty host is every address,
 * a host name is resolved at once. `this` in the callback is `receiver`, or the module.
 * @returns the acceptor's id.
 * @throws NativeError "NodeJS function parameters are incorrect" for arguments of the wrong type
 *   or an address that is not IPv4 or IPv6 host:port; "Address already in use" (0x80000062)
 *   when another acceptor or another program has the address; other system errors of socket,
 *   bind and listen (module 0); "NodeJS invalid internal state" when called on a worker thread.
 */
export function createTcpAcceptor(address: string, callback: TcpAcceptorCallback, receiver?: object): number;

/** Stops listening; an id that is not open (or not a number) does nothing. */
export function closeTcpAcceptor(id: number): void;

/** Closes a descriptor that a TCP acceptor handed over; a negative number or another type does nothing. */
export function closeTcpConnection(fd: number): void;

// ---------------------------------------------------------------------------------------------
// `api`: the same task functions as Promises or callbacks, AbortSignal, streams, pool queues.

import type { Readable } from 'stream';

/**
 * Every failure of a call through `api`: the native error object's message, `errors` chain and
 * fields, with a stable string `code`: "ERR_<MODULE>_<WHAT>" for vidora's own codes (the names
 * of lib/error_codes.json), the errno name ("ENOENT") for a system error, "ERR_LOCK_TIMEOUT" for
 * a file lock not taken in time, "ERR_INVALID_ARG" for an argument a native function refused at
 * once (its error is the `cause`), "ERR_POOL_NOT_FOUND", "ERR_MP4_NEEDS_FILE",
 * "ERR_OPERATION_IDLE"; "ERR_UNKNOWN" otherwise.
 */
export class VidoraError extends Error implements NativeError {
  constructor(native: NativeError);
  code: string;
  /** The newest code of the chain as a signed 32-bit integer; 0 for the layer's own errors. */
  full: number;
  errors: VidoraErrorEntry[];
  extraInfo?: Record<string, string>;
  stackTrace?: string[];
  /** The native task's name ("vrxFileInfo"), for a failure of a task. */
  taskName?: string;
  poolName?: string;
  timedOut?: boolean;
  static of(code: string, message: string): VidoraError;
  static from(error: unknown): VidoraError;
}

/** The rejection of a call ended through its AbortSignal; `cause` is the signal's reason. */
export class AbortError extends Error {
  constructor(reason?: unknown);
  code: 'ABORT_ERR';
}

/** A callback of `api`: (error, result), with the error as VidoraError or AbortError. */
export type ApiCallback<R> = (error: VidoraError | AbortError | null, result: (R & TaskInfo) | null) => void;

/** A task function of `api`: its result as a Promise without a callback, the callback's form with one. */
export interface ApiTask<A extends unknown[], R> {
  (...args: A): Promise<R & TaskInfo>;
  (...args: [...A, ApiCallback<R>]): void;
}

/** The AbortSignal an operation of `api` takes among its parameters. */
export interface Abortable {
  signal?: AbortSignal;
}

/** Options of the streaming forms. */
export interface OperationStreamOptions {
  /** Aborts the operation: the stream is destroyed with an AbortError. */
  signal?: AbortSignal;
  /** Bytes the stream holds before it pauses the operation (node's default otherwise). */
  highWaterMark?: number;
}

/** An operation as a Readable: `result` and the 'result' event once the operation has ended. */
export interface OperationStream<R> extends Readable {
  result?: R & OperationResult & TaskInfo;
  on(event: 'result', listener: (result: R & OperationResult & TaskInfo) => void): this;
  on(event: string | symbol, listener: (...args: any[]) => void): this;
  once(event: 'result', listener: (result: R & OperationResult & TaskInfo) => void): this;
  once(event: string | symbol, listener: (...args: any[]) => void): this;
}

/** The parameters of an operation whose destination is the stream. */
export type StreamParams<P> = Omit<P, keyof OperationDestination>;

/** A pool's statistics seen through `api`: with the calls waiting in the layer's own queue. */
export interface ApiPoolStats extends WorkersPoolStats {
  layerWaiting: number;
}

/**
 * The layer over the native functions. Each call waits its turn in the layer's queue of its
 * pool, so no native waiting queue overflows and nothing is dropped; the pools "Append" (2) and
 * "Transcode" (4) are made with those limits on first use unless the application set them.
 */
export interface Api {
  nop: ApiTask<[NopParams], {}>;
  statvfs: ApiTask<[string], StatvfsResult>;
  vrxFileInfo: ApiTask<[string], { audio: VrxTrackInfo; video: VrxTrackInfo }>;
  vrxFileListFrames: ApiTask<[string], { frames: VrxFrame[] }>;
  vrxFileListPartitions: ApiTask<[string], { partitions: VrxPartition[] }>;
  vrxFileListFragments: ApiTask<[VrxFileListFragmentsParams], { fragments: VrxFragment[] }>;
  vrxFileCreate: ApiTask<[string, number], {}>;
  vrxFileClear: ApiTask<[string | VrxFileClearOptions], {}>;
  vrxFileClose: ApiTask<[string], {}>;
  vrxFileRecover: ApiTask<[string | VrxFileRecoverOptions], { lastPartitionInfo?: VrxLastPartitionInfo }>;
  vrxFileAppend: ApiTask<[VrxFileAppendParams], { totalAppended: number }>;
  vrxFileCopyContent: ApiTask<[VrxFileCopyContentParams], { totalAppended: number }>;
  vrxFileDeleteContent: ApiTask<[VrxFileDeleteContentParams], {}>;
  vrxFileEstimateSize: ApiTask<[VrxFileEstimateSizeParams], { estimatedSize: number }>;
  /** sendFile; the Promise rejects with AbortError when `signal` aborts it. */
  sendFile: ApiTask<[SendFileParams & Abortable], OperationResult>;
  /** processMedia; the Promise rejects with AbortError when `signal` aborts it. */
  processMedia: ApiTask<[ProcessMediaParams & Abortable], OperationResult & ProcessMediaInfo>;
  /** sendFile's bytes as a Readable whose backpressure pauses and resumes the operation. */
  sendFileStream(params: StreamParams<SendFileParams>, options?: OperationStreamOptions): OperationStream<{}>;
  /**
   * processMedia's bytes as a Readable. Not for "mp4", which needs a file to go back into
   * (throws ERR_MP4_NEEDS_FILE): stream "fmp4", "vrx", "annexb" or "avcc".
   */
  processMediaStream(params: StreamParams<ProcessMediaParams>,
    options?: OperationStreamOptions): OperationStream<ProcessMediaInfo>;
  /** setWorkersPoolsLimits, and the layer's queues follow the new limits. */
  setWorkersPoolsLimits(limits: WorkersPoolsLimits): WorkersPoolStats[];
  getWorkersPoolsStats(): ApiPoolStats[];
}

export const api: Api;
