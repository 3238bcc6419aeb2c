"use strict";

// Where the data comes from: the page holds it. A server's page gets more of it later. Reduced
// pictures stand before the scripts, all others behind them: they are read while those are seen.

const pageRead = new Promise((done) => { document.addEventListener("DOMContentLoaded", done); });

// The bytes of a part of a picture, by the name that the data has for it.
async function bytesOf(part) {
  const base64 = byId(part).textContent;
  if (Uint8Array.fromBase64) return Uint8Array.fromBase64(base64);
  const text = atob(base64); // in a browser before 2025
  const bytes = new Uint8Array(text.length);
  for (let i = 0; i < bytes.length; i++) bytes[i] = text.charCodeAt(i);
  return bytes;
}

const clamp = (value, low, high) => Math.min(Math.max(value, low), high);

// --- Numbers: planes of { width, height, values } ---

// The numbers of a part, a PNG file in grey, exactly as they were written.
async function decodePart(part) {
  const file = new Blob([await bytesOf(part)], { type: "image/png" });
  const bitmap = await createImageBitmap(file, { colorSpaceConversion: "none" });
  const canvas = make("canvas");
  [canvas.width, canvas.height] = [bitmap.width, bitmap.height];
  const context = canvas.getContext("2d", { willReadFrequently: true });
  context.drawImage(bitmap, 0, 0);
  bitmap.close();
  const pixels = context.getImageData(0, 0, canvas.width, canvas.height).data;
  // Only the lowest byte of a pixel, red, fits.
  return { width: canvas.width, values: new Uint8Array(new Uint32Array(pixels.buffer)) };
}

// The planes of a picture, whose parts stand one below the other.
async function decodePlanes({ size, parts }) {
  const strips = await Promise.all(parts.map(decodePart));
  const all = new Uint8Array(strips.reduce((sum, { values }) => sum + values.length, 0));
  let end = 0;
  for (const { values } of strips) {
    all.set(values, end);
    end += values.length;
  }
  return planesOf(size, strips[0].width, all, false);
}

// The planes in rows of `pitch` numbers: luma, or the one plane of a map; and below luma U on the
// left and V on the right, or, if `interleaved`, the two in turn.
function planesOf([width, height], pitch, all, interleaved) {
  const cut = (left, top, columns, rows, step = 1) => {
    if (columns === pitch) {
      return { width: columns, height: rows, values: all.subarray(top * pitch, (top + rows) * pitch) };
    }
    const values = new Uint8Array(columns * rows);
    for (let y = 0, to = 0; y < rows; y++) {
      const from = (top + y) * pitch + left;
      if (step === 1) values.set(all.subarray(from, from + columns), y * columns);
      else for (let x = 0, at = from; x < columns; x++, at += step) values[to++] = all[at];
    }
    return { width: columns, height: rows, values };
  };
  const rowsBelow = all.length / pitch - height;
  const planes = [cut(0, 0, width, height)];
  if (rowsBelow > 0 && interleaved) {
    const pairs = (width + 1) >> 1;
    planes.push(cut(0, height, pairs, rowsBelow, 2), cut(1, height, pairs, rowsBelow, 2));
  } else if (rowsBelow > 0) {
    planes.push(cut(0, height, pitch / 2, rowsBelow), cut(pitch / 2, height, pitch / 2, rowsBelow));
  }
  return planes;
}

// What four numbers become in a plane of half the size.
const mean = (a, b, c, d) => (a + b + c + d + 2) >> 2;
const largest = (a, b, c, d) => Math.max(a, b, c, d); // no difference may vanish
const sampled = (a) => a; // a mean of disparities would be the disparity of nothing

// At an odd edge the last numbers count twice.
function halved({ width, height, values }, combine) {
  const half = { width: (width + 1) >> 1, height: (height + 1) >> 1 };
  half.values = new Uint8Array(half.width * half.height);
  for (let y = 0, to = 0; y < half.height; y++) {
    const upper = 2 * y * width;
    const lower = Math.min(2 * y + 1, height - 1) * width;
    for (let x = 0; x < half.width; x++) {
      const left = 2 * x;
      const right = Math.min(left + 1, width - 1);
      half.values[to++] = combine(values[upper + left], values[upper + right],
        values[lower + left], values[lower + right]);
    }
  }
  return half;
}

// A picture of known size. Its planes are decoded or computed when they are first needed, and so
// are the smaller ones of which level n is reduced by 2 to the power of n.
class Picture {
  // `reduced`: { size, parts, level } of a picture to show until ready(), if there is one.
  constructor(name, size, combine, load, reduced) {
    Object.assign(this, { name, size, combine, load, reduced, levels: [] });
  }

  ready() {
    this.loading ??= this.load().then((planes) => { this.levels = [planes]; });
    return this.loading;
  }

  // Something can be drawn after this, if there is a reduced picture.
  async readyReduced() {
    if (!this.reduced || this.levels.length > 0) return;
    const planes = await decodePlanes(this.reduced);
    if (this.levels.length === 0) this.levels[this.reduced.level] = planes;
  }

  // The level with most pixels that is there, -1 if none is.
  finest() {
    return this.levels.findIndex(Boolean);
  }

  // Not below finest().
  level(n) {
    this.levels[n] ??= this.level(n - 1).map((plane) => halved(plane, this.combine));
    return this.levels[n];
  }

  // The numbers at a pixel, one a plane; only after ready().
  at(x, y) {
    return this.levels[0].map(({ width, height, values }, i) => i === 0
      ? values[y * width + x] : values[Math.min(y >> 1, height - 1) * width + (x >> 1)]);
  }
}

// The largest difference of any plane at each pixel of two pictures' planes.
function differenceOf(before, after) {
  const differences = before.map(({ values }, plane) => {
    const others = after[plane].values;
    return values.map((value, i) => Math.abs(value - others[i]));
  });
  const [luma, u, v] = differences;
  const { width, height } = before[0];
  const chroma = before[1];
  for (let y = 0; y < height; y++) {
    const row = Math.min(y >> 1, chroma.height - 1) * chroma.width;
    for (let x = 0, at = y * width; x < width; x++, at++) {
      const below = row + (x >> 1);
      luma[at] = Math.max(luma[at], u[below], v[below]);
    }
  }
  return [{ width, height, values: luma }];
}

const decoding = new Map(); // planes by the names of their parts, which pictures may share

function makePicture(name, entry, combine) {
  return new Picture(name, entry.size, combine, async () => {
    const key = entry.parts.join();
    if (!decoding.has(key)) decoding.set(key, pageRead.then(() => decodePlanes(entry)));
    return decoding.get(key);
  }, entry.reduced);
}

let pictures = {};
let disparity = null;

function takeData(next) {
  data = next;
  pictures = Object.fromEntries(Object.entries(data.pictures).map(
    ([name, entry]) => [name, makePicture(name, entry, mean)]));
  disparity = data.disparity && makePicture("disparity", data.disparity, sampled);
  for (const each of data.comparisons) {
    const [before, after] = [pictures[each.before], pictures[each.after]];
    each.difference = new Picture("difference", before.size, largest, async () => {
      await Promise.all([before.ready(), after.ready()]);
      return differenceOf(before.levels[0], after.levels[0]);
    });
  }
}

// --- Where a difference is ---

const GRID_LEVEL = 5; // cells of 32×32 pixels
const MOST_REGIONS = 9;

// The smallest rectangle around what differs between these edges, in pixels: [left, top, right,
// bottom], the last two excluded.
function trimmed({ width, values }, [left, top, right, bottom]) {
  const box = [right, bottom, left, top];
  for (let y = top; y < bottom; y++) {
    for (let x = left; x < right; x++) {
      if (values[y * width + x] === 0) continue;
      box[0] = Math.min(box[0], x);
      box[1] = Math.min(box[1], y);
      box[2] = Math.max(box[2], x + 1);
      box[3] = y + 1;
    }
  }
  return box;
}

// The pixel in these edges that differs most.
function largestIn(difference, [left, top, right, bottom]) {
  const [{ width, values }] = difference.level(0);
  let largest = top * width + left;
  for (let y = top; y < bottom; y++) {
    for (let at = y * width + left; at < y * width + right; at++) {
      if (values[at] > values[largest]) largest = at;
    }
  }
  return [largest % width, Math.floor(largest / width)];
}

// Rectangles around what differs, the largest sum of differences first, and the count of all of
// them. Cells of a coarse grid that touch, and in which something differs, belong to one region.
function regionsOf(difference) {
  const [{ width, height, values }] = difference.level(GRID_LEVEL);
  const seen = new Uint8Array(values.length);
  const regions = [];
  for (let start = 0; start < values.length; start++) {
    if (values[start] === 0 || seen[start]) continue;
    const region = { cells: [width, height, 0, 0], sum: 0 };
    const open = [start];
    seen[start] = 1;
    while (open.length > 0) {
      const cell = open.pop();
      const [x, y] = [cell % width, Math.floor(cell / width)];
      const [left, top, right, bottom] = region.cells;
      region.cells = [Math.min(left, x), Math.min(top, y), Math.max(right, x + 1), Math.max(bottom, y + 1)];
      region.sum += values[cell];
      for (let ny = Math.max(y - 1, 0); ny <= Math.min(y + 1, height - 1); ny++) {
        for (let nx = Math.max(x - 1, 0); nx <= Math.min(x + 1, width - 1); nx++) {
          const next = ny * width + nx;
          if (values[next] > 0 && !seen[next]) {
            seen[next] = 1;
            open.push(next);
          }
        }
      }
    }
    regions.push(region);
  }
  regions.sort((a, b) => b.sum - a.sum);
  const limits = [...difference.size, ...difference.size];
  return { count: regions.length, regions: regions.slice(0, MOST_REGIONS).map(({ cells }) =>
    trimmed(difference.level(0)[0], cells.map((edge, i) => Math.min(edge << GRID_LEVEL, limits[i])))) };
}

// --- Numbers as colours ---

function colourAt(share) {
  const place = clamp(share, 0, 1) * (data.colours.length - 1);
  const step = Math.min(Math.floor(place), data.colours.length - 2);
  const [from, to] = [data.colours[step], data.colours[step + 1]];
  return from.map((value, i) => Math.round(value + (to[i] - value) * (place - step)));
}

// Red, green and blue of a full-range BT.601 sample, as JPEG's, into three places of a clamped array.
function putColour(out, to, y, u, v) {
  const [blue, red] = [u - 128, v - 128];
  out[to] = y + 1.402 * red;
  out[to + 1] = y - 0.344136 * blue - 0.714136 * red;
  out[to + 2] = y + 1.772 * blue;
}

function rgbOf([y, u, v]) {
  const rgb = new Uint8ClampedArray(3);
  putColour(rgb, 0, y, u, v);
  return [...rgb];
}

// Painters fill an ImageData with the part of the planes that begins at left, top.
function paintPicture([luma, u, v], left, top, image) {
  const out = image.data; // rounds and clamps
  for (let y = 0, to = 0; y < image.height; y++) {
    const from = (top + y) * luma.width + left;
    const row = Math.min((top + y) >> 1, u.height - 1) * u.width;
    for (let x = 0; x < image.width; x++, to += 4) {
      const below = row + ((left + x) >> 1);
      putColour(out, to, luma.values[from + x], u.values[below], v.values[below]);
      out[to + 3] = 255;
    }
  }
}

// A painter with a colour for each of the 256 numbers.
function paintMap(colourOf) {
  const table = Uint32Array.from({ length: 256 }, (_, value) => {
    const [red, green, blue] = colourOf(value);
    return (255 << 24) | (blue << 16) | (green << 8) | red;
  });
  return ([{ width, values }], left, top, image) => {
    const out = new Uint32Array(image.data.buffer);
    for (let y = 0, to = 0; y < image.height; y++) {
      const from = (top + y) * width + left;
      for (let x = 0; x < image.width; x++) out[to++] = table[values[from + x]];
    }
  };
}
