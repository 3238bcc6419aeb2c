// Pictures of known content, and the tool that makes reports of them.

import { spawnSync } from "node:child_process";
import { mkdirSync, writeFileSync } from "node:fs";
import path from "node:path";
import zlib from "node:zlib";

export const WIDTH = 320;
export const HEIGHT = 240;

// A near square before a far wall: its edges, and the disparities of both.
export const SQUARE = { left: 110, top: 70, right: 210, bottom: 170 };
const NEAR = 16;
const FAR = 4;

function chunk(type, body) {
  const typed = Buffer.concat([Buffer.from(type), body]);
  const framed = Buffer.alloc(typed.length + 8);
  framed.writeUInt32BE(body.length, 0);
  typed.copy(framed, 4);
  framed.writeUInt32BE(crc32(typed), framed.length - 4);
  return framed;
}

function crc32(bytes) {
  let crc = 0xffffffff;
  for (const byte of bytes) {
    crc ^= byte;
    for (let bit = 0; bit < 8; bit++) crc = (crc >>> 1) ^ (crc & 1 ? 0xedb88320 : 0);
  }
  return ~crc >>> 0;
}

// A PNG picture by the colour of each pixel.
function png(colourAt) {
  const rows = Buffer.alloc(HEIGHT * (1 + 3 * WIDTH));
  for (let y = 0, at = 0; y < HEIGHT; y++) {
    at++; // no filter
    for (let x = 0; x < WIDTH; x++) for (const value of colourAt(x, y)) rows[at++] = value;
  }
  const head = Buffer.alloc(13);
  head.writeUInt32BE(WIDTH, 0);
  head.writeUInt32BE(HEIGHT, 4);
  head.set([8, 2], 8); // eight bits, red green blue
  return Buffer.concat([Buffer.from("\x89PNG\r\n\x1a\n", "latin1"), chunk("IHDR", head),
    chunk("IDAT", zlib.deflateSync(rows)), chunk("IEND", Buffer.alloc(0))]);
}

// Without repetition, so that each place has one match only.
function texture(x, y) {
  let hash = Math.imul(x >> 1, 2654435761) ^ Math.imul(y >> 1, 2246822519);
  hash = Math.imul(hash ^ (hash >>> 15), 3266489917);
  const grey = 40 + ((hash >>> 8) % 176);
  return [grey, grey, grey];
}

function scene(shiftOfSquare, shiftOfWall) {
  return png((x, y) => {
    const inSquare = x + shiftOfSquare >= SQUARE.left && x + shiftOfSquare < SQUARE.right &&
      y >= SQUARE.top && y < SQUARE.bottom;
    return inSquare ? texture(x + shiftOfSquare + 3000, y) : texture(x + shiftOfWall + 1000, y + 500);
  });
}

export const RED = [200, 40, 40];
export const BLUE = [40, 60, 200];
// A file's name is text, whatever it spells.
export const HOSTILE = "<img src=x onerror=document.title='taken'>.png";

export class Material {
  constructor(tool, folder) {
    this.tool = tool;
    this.folder = folder;
    mkdirSync(folder, { recursive: true });
    const pictures = {
      "left.png": scene(0, 0), "right.png": scene(NEAR, FAR), "red.png": png(() => RED),
      "blue.png": png(() => BLUE), [HOSTILE]: png(() => RED),
    };
    for (const [name, bytes] of Object.entries(pictures)) {
      writeFileSync(path.join(folder, name), bytes);
    }
  }

  // Runs the tool in the folder; `expected`: its exit code.
  run(expected, ...options) {
    const { status, stderr } = spawnSync(this.tool, options, { cwd: this.folder, encoding: "utf8" });
    if (status !== expected) throw new Error(`${options.join(" ")}: ${status}\n${stderr}`);
  }

  // The page of a report, made by these options.
  report(name, expected, ...options) {
    this.run(expected, ...options, "--report", `${name}.html`);
    return path.join(this.folder, `${name}.html`);
  }
}
