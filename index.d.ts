// Type definitions for vidora's native functions.

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
export interface VidoraError extends Error {
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
 * @throws VidoraError "NodeJS function parameters are incorrect" when `code` is not a number.
 */
export function getErrorDescription(code: number): string;

/** Wall-clock time in milliseconds since the epoch. */
export function getTimeMillis(): number;

/**
 * Adds a rolling log file, written on a thread of its own, and starts logging to it.
 * @throws VidoraError when `options` is not an object or `path` is missing or empty.
 */
export function setLogFile(options: LogFileOptions): void;

/**
 * Sets the level of every log file (ADDON_LOG_LEVEL, when set, wins).
 * @throws VidoraError when `options` is not an object.
 */
export function setLogLevel(options: LogLevelOptions): void;
