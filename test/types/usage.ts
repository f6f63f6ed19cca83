// Compiled with tsc --noEmit: every declared function used as an application would.
import * as vidora from '../..';
import type { VidoraError } from '../..';

const info: vidora.VersionInfo = vidora.version();
const text: string = vidora.getErrorDescription(-2146959348);
const now: number = vidora.getTimeMillis();
vidora.setLogFile({ path: '/tmp/vidora.log', maxFileSize: 1 << 20, maxFileCount: 3, logLevel: 4 });
vidora.setLogLevel({ logLevel: 2 });
vidora.setLogLevel({});

try {
  vidora.getErrorDescription(0);
} catch (err) {
  const e = err as VidoraError;
  const where: string = `${e.errors[0].fileName}:${e.errors[0].lineNumber}`;
  const extra: string | undefined = e.extraInfo?.path;
  console.log(info.buildNumber, text, now, where, extra, e.stackTrace?.length);
}
