'use strict';
// vidora serve: the reference recording server (lib/server) on a folder of recordings, until
// SIGINT or SIGTERM. The first line of output is the address to open.
const fs = require('fs');

const { UsageError } = require('./args');
const { EXIT, CliError } = require('./failure');

async function run(vidora, args, io) {
  const port = args.port === undefined ? 8080 : args.port;
  if (port > 65535) throw new UsageError('--port needs a port number (0 to 65535)');
  const host = args.host || '127.0.0.1';
  let stat;
  try {
    stat = fs.statSync(args.dir);
  } catch (error) {
    throw new CliError(EXIT.missing, `${args.dir}: no such directory`);
  }
  if (!stat.isDirectory()) throw new CliError(EXIT.other, `${args.dir}: not a directory`);
  const { createServer } = require('../server');
  const server = createServer(args.dir, {
    api: vidora.api,
    onError: (error, req) => io.err(`vidora serve: ${req.method} ${req.url}: ${error.stack || error}`),
  });
  await new Promise((resolve, reject) => {
    server.once('error', (error) => reject(new CliError(EXIT.other, `cannot listen on ${host}:${port}: ${error.message}`)));
    server.listen(port, host, resolve);
  });
  const address = server.address();
  const shown = address.family === 'IPv6' ? `[${address.address}]` : address.address;
  io.out(`vidora serve: http://${shown}:${address.port}/ serving ${args.dir}`);
  await new Promise((resolve) => {
    const stop = () => {
      process.off('SIGINT', stop);
      process.off('SIGTERM', stop);
      server.close(resolve);
      server.closeAllConnections();
    };
    process.on('SIGINT', stop);
    process.on('SIGTERM', stop);
  });
}

module.exports = {
  serve: {
    usage: 'serve DIR [--port N] [--host ADDR]',
    summary: ['serves the recordings of DIR over HTTP: a page with their', 'timelines, MP4 downloads and fragmented MP4 streams',
      '(default 127.0.0.1:8080; --port 0 picks a free port)'],
    positional: ['DIR'],
    options: { port: 'count', host: 'text' },
    run,
  },
};
