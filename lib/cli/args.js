'use strict';
// Reads a command line against a command's description: its positional names and its options,
// each a flag or a value of a kind. `--` ends the options, so a file may start with a dash.
class UsageError extends Error {}

const KINDS = {
  // Wall clocks and durations in ms: whole, not negative.
  ms: (text) => (/^\d+$/.test(text) ? Number(text) : undefined),
  count: (text) => (/^\d+$/.test(text) ? Number(text) : undefined),
  positive: (text) => (/^\d+(\.\d+)?$/.test(text) && Number(text) > 0 ? Number(text) : undefined),
  size: (text) => {
    const match = /^(\d+)([KMGT]?)$/i.exec(text);
    if (!match) return undefined;
    const scale = { '': 1, K: 2 ** 10, M: 2 ** 20, G: 2 ** 30, T: 2 ** 40 }[match[2].toUpperCase()];
    return Number(match[1]) * scale;
  },
  text: (text) => text,
};

const NEEDS = {
  ms: 'a number of ms', count: 'a whole number', positive: 'a number above 0',
  size: 'a size in bytes (K, M, G, T allowed)', text: 'a value',
};

// `grammar`: { positional: ['FILE', 'SRC...'], options: { name: 'flag' | kind | [choices] } }.
// A positional name ending in "..." takes one or more values; one ending in "?" is optional.
function parse(argv, grammar) {
  const values = {};
  const positional = [];
  let optionsEnded = false;
  for (let i = 0; i < argv.length; ++i) {
    const arg = argv[i];
    if (optionsEnded || !arg.startsWith('-') || arg === '-') {
      positional.push(arg);
      continue;
    }
    if (arg === '--') {
      optionsEnded = true;
      continue;
    }
    const name = arg.replace(/^--?/, '');
    const kind = grammar.options[name];
    if (kind === undefined) throw new UsageError(`unknown option ${arg}`);
    if (kind === 'flag') {
      values[name] = true;
      continue;
    }
    const text = argv[++i];
    const value = text === undefined ? undefined : Array.isArray(kind) ? (kind.includes(text) ? text : undefined) : KINDS[kind](text);
    if (value === undefined) {
      throw new UsageError(`${arg} needs ${Array.isArray(kind) ? `one of ${kind.join(', ')}` : NEEDS[kind]}`);
    }
    values[name] = value;
  }
  return { ...values, ...placePositional(positional, grammar.positional) };
}

function placePositional(given, names) {
  const placed = {};
  let at = 0;
  names.forEach((name, index) => {
    const key = name.replace(/(\.\.\.|\?)$/, '').toLowerCase();
    if (name.endsWith('...')) {
      const rest = given.length - at - (names.length - index - 1);
      if (rest < 1) throw new UsageError(`missing ${name.replace('...', '')}`);
      placed[key] = given.slice(at, at + rest);
      at += rest;
    } else if (at < given.length) {
      placed[key] = given[at++];
    } else if (!name.endsWith('?')) {
      throw new UsageError(`missing ${name}`);
    }
  });
  if (at < given.length) throw new UsageError(`unexpected argument ${given[at]}`);
  return placed;
}

// --from and --to as one wall-clock range: 0 or absent is an open end.
function checkRange(args) {
  if (args.from > 0 && args.to > 0 && args.from > args.to) {
    throw new UsageError('--from must not be after --to');
  }
}

module.exports = { parse, checkRange, parseSize: KINDS.size, UsageError };
