'use strict';
// vidora's command line: one table of commands, each built on the package's public functions.
const path = require('path');

const { parse, checkRange, UsageError } = require('./args');
const { EXIT, CliError } = require('./failure');

const COMMANDS = {
  ...require('./listing'),
  ...require('./export'),
  ...require('./maintenance'),
  ...require('./serve'),
};

const GLOBAL_OPTIONS = { json: 'flag', help: 'flag', h: 'flag' };

function usage() {
  const lines = ['usage: vidora <command> FILE [options]', '', 'commands:'];
  for (const command of Object.values(COMMANDS)) {
    const [first, ...rest] = command.summary;
    if (command.usage.length < 35) {
      lines.push(`  ${command.usage.padEnd(35)}${first}`);
    } else {
      lines.push(`  ${command.usage}`, `${' '.repeat(37)}${first}`);
    }
    for (const line of rest) lines.push(`${' '.repeat(37)}${line}`);
  }
  lines.push('', 'options:',
    '  --json     the result as JSON',
    '  --human    (frames) the wall clock as UTC text',
    '  -o OUT     (export) the file to write',
    '  --         ends the options: what follows is a file name, even if it starts with -',
    '  --help     this text',
    '',
    'exit status: 0 done, 2 bad command line, 3 no such file, 4 not a VRX file or damaged,',
    '5 locked by another process, 6 the VRX file is full, 1 anything else');
  return lines.join('\n');
}

function loadAddon() {
  try {
    return require(path.join(__dirname, '..', '..'));
  } catch (err) {
    throw new CliError(EXIT.other, err.message);
  }
}

// Runs one command line; resolves with its exit status. `io.out` takes the output text,
// `io.err` the messages.
async function main(argv, io) {
  const [name, ...rest] = argv;
  if (name === undefined || name === '--help' || name === '-h') {
    if (name === undefined) {
      io.err(usage());
      return EXIT.usage;
    }
    io.out(usage());
    return EXIT.done;
  }
  const command = COMMANDS[name];
  try {
    if (command === undefined) throw new UsageError(`unknown command ${name}`);
    const args = parse(rest, { positional: command.positional, options: { ...GLOBAL_OPTIONS, ...command.options } });
    if (args.help || args.h) {
      io.out(usage());
      return EXIT.done;
    }
    if (command.range) checkRange(args);
    await command.run(loadAddon(), args, io);
    return EXIT.done;
  } catch (err) {
    if (err instanceof UsageError) {
      io.err(`vidora: ${err.message}\n${usage()}`);
      return EXIT.usage;
    }
    if (err instanceof CliError) {
      io.err(`vidora: ${err.message}`);
      return err.status;
    }
    throw err;
  }
}

module.exports = { main, COMMANDS };
