// Benchmark implementation: answers file and path workloads with Node's built-in modules.
// Requests and answers are lines on standard input and output.

import { isUtf8 } from 'node:buffer';
import fs from 'node:fs';
import { posix as path } from 'node:path';
import { createInterface } from 'node:readline';

const cache = new Map(); // files loaded before the clock starts, by name

function load(file) {
  if (!cache.has(file)) cache.set(file, fs.readFileSync(file));
  return cache.get(file);
}

// Runs `step` `count` times; the checksum is the sum of what it returns.
function timed(count, step) {
  let checksum = 0;
  const start = process.hrtime.bigint();
  for (let n = 0; n < count; n++) checksum += step(n);
  return { nanoseconds: process.hrtime.bigint() - start, checksum };
}

function timedPaths(count, file, operation) {
  const lines = load(file).toString().replace(/\n$/, '').split('\n');
  return timed(count, () => {
    let length = 0;
    for (const line of lines) length += operation(line).length;
    return length;
  });
}

// Decoding would replace malformed sequences instead of reporting them.
function text(bytes) {
  if (!isUtf8(bytes)) throw new Error('invalid UTF-8');
  return bytes.toString('utf8');
}

function read(file, buffer, position) {
  const handle = fs.openSync(file);
  try {
    const size = fs.readSync(handle, buffer, 0, buffer.length, position);
    if (size < buffer.length) throw new Error('unexpected end of file');
  } finally {
    fs.closeSync(handle);
  }
  return buffer;
}

// The synchronous file functions do not buffer: each text is one system call.
function writeUnbuffered(file, content, times) {
  const handle = fs.openSync(file, 'w');
  try {
    let size = 0;
    for (let n = 0; n < times; n++) size += fs.writeSync(handle, content);
    return size;
  } finally {
    fs.closeSync(handle);
  }
}

function publish(file, content, n) {
  const temporary = `${file}.tmp-${n}`;
  fs.writeFileSync(temporary, content);
  fs.renameSync(temporary, file);
  return content.length;
}

function list(folder) {
  let found = 0;
  for (const name of fs.readdirSync(folder)) {
    const stats = fs.statSync(`${folder}/${name}`, { throwIfNoEntry: false });
    if (stats?.isFile() || stats?.isDirectory()) found++;
  }
  return found;
}

function createTree(folder, files) {
  const folders = Math.max(1, Math.floor(files / 200));
  fs.mkdirSync(folder);
  for (let n = 0; n < folders; n++) fs.mkdirSync(`${folder}/${n}`);
  for (let n = 0; n < files; n++) fs.writeFileSync(`${folder}/${n % folders}/${n}`, '');
}

function removeTrees(count, folder, files) {
  let nanoseconds = 0n;
  for (let n = 0; n < count; n++) {
    createTree(folder, files);
    const start = process.hrtime.bigint();
    fs.rmSync(folder, { recursive: true });
    nanoseconds += process.hrtime.bigint() - start;
  }
  return { nanoseconds, checksum: count * files };
}

function walk(folder) {
  let valid = 0;
  for (const name of fs.readdirSync(folder)) {
    const entry = `${folder}/${name}`;
    const stats = fs.lstatSync(entry);
    if (stats.isDirectory()) valid += walk(entry);
    else if (stats.isFile() && isUtf8(fs.readFileSync(entry))) valid++;
  }
  return valid;
}

const workloads = {
  utf8(count, file) {
    const data = load(file);
    return timed(count, () => Number(isUtf8(data)));
  },
  // Lengths of text are in UTF-16 units.
  read_text: (count, file) => timed(count, () => text(fs.readFileSync(file)).length),
  prefix: (count, file, size) =>
    timed(count, () => {
      const bytes = read(file, Buffer.allocUnsafe(size), 0);
      text(bytes);
      return bytes.length;
    }),
  range(count, file, position, size) {
    const buffer = Buffer.alloc(size);
    return timed(count, () => read(file, buffer, position).length);
  },
  normalize: (count, file) => timedPaths(count, file, path.normalize),
  parent: (count, file) => timedPaths(count, file, path.dirname),
  resolve: (count, file) =>
    timedPaths(count, file, (line) => path.join(line, '../sibling/name.txt')),
  name: (count, file) => timedPaths(count, file, (line) => path.basename(line)),
  extension: (count, file) => timedPaths(count, file, path.extname), // with its dot
  write(count, file, size, threads) {
    if (threads > 1) throw new Error('no threads that share the work of one program');
    const content = 'x'.repeat(size);
    return timed(1, () => writeUnbuffered(`${file}.0`, content, count));
  },
  publish(count, file, size) {
    const content = 'x'.repeat(size);
    return timed(count, (n) => publish(file, content, n));
  },
  list: (count, folder) => timed(count, () => list(folder)),
  remove_tree: removeTrees,
  walk: (count, folder) => timed(count, () => walk(folder)),
};

function number(field) {
  if (!/^\d+$/.test(field)) throw new Error(`not a number: ${field}`);
  return Number(field);
}

function answer(request) {
  const [workload, count, file, ...rest] = request.split('\t');
  if (file === undefined) throw new Error('too few fields');
  if (!Object.hasOwn(workloads, workload)) throw new Error('nothing of the kind');
  const run = workloads[workload];
  if (rest.length < run.length - 2) throw new Error('too few arguments');
  const { nanoseconds, checksum } = run(number(count), file, ...rest.map(number));
  return `${nanoseconds}\t${checksum}`;
}

for await (const request of createInterface({ input: process.stdin })) {
  let line;
  try {
    line = answer(request);
  } catch (error) {
    line = `skip\t${error.message.replace(/\s/g, ' ')}`;
  }
  process.stdout.write(`${line}\n`);
}
