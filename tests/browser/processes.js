// Child processes and waiting, for the browser test: the simulator and the daemon as children
// whose output is kept, the command-line client, and polling with a deadline.
'use strict';

const { spawn, execFile } = require('node:child_process');
const fs = require('node:fs');
const path = require('node:path');

// A program running until stop(); its stdout and stderr are kept in `output` and in WORK/NAME.log.
class Child {
  constructor(name, program, args, work) {
    this.name = name;
    this.output = '';
    this.log = fs.createWriteStream(path.join(work, `${name}.log`), { flags: 'a' });
    this.process = spawn(program, args, { stdio: ['ignore', 'pipe', 'pipe'] });
    const keep = (data) => {
      this.output += data;
      this.log.write(data);
    };
    this.process.stdout.on('data', keep);
    this.process.stderr.on('data', keep);
    this.exited = new Promise((resolve) => this.process.on('exit', (code, signal) => resolve({ code, signal })));
    this.running = true;
    this.exited.then(() => { this.running = false; });
  }

  async stop() {
    if (this.running) this.process.kill('SIGTERM');
    const ended = await this.exited;
    this.log.end();
    return ended;
  }
}

// Runs the command-line client; resolves with its stdout, rejects with its stderr.
function cli(program, args) {
  return new Promise((resolve, reject) => {
    execFile(program, args, { timeout: 20000 }, (error, stdout, stderr) => {
      if (error) reject(new Error(`${path.basename(program)} ${args.join(' ')}: ${stderr || error.message}`));
      else resolve(stdout);
    });
  });
}

// Calls `check` every 100 ms until it gives a value that is not null, false or undefined;
// rejects naming `what` when `timeoutMs` has passed.
async function eventually(check, what, timeoutMs = 20000) {
  const deadline = Date.now() + timeoutMs;
  for (;;) {
    const value = await check();
    if (value !== null && value !== false && value !== undefined) return value;
    if (Date.now() > deadline) throw new Error(`timed out waiting until ${what}`);
    await new Promise((resolve) => setTimeout(resolve, 100));
  }
}

module.exports = { Child, cli, eventually };
