"use strict";

// The stage: layers of pictures at a zoom and a place that all views share, and what is drawn over
// them. Positions are CSS pixels of the stage unless a comment says otherwise.

const TILE = 512; // pixels of a layer's level on a side
const MOST_TILES = 160; // of a megabyte each
const LARGEST_PIXEL = 64; // CSS pixels that a picture's pixel has at the largest zoom
const LABEL_PIXELS = 13; // height of the labels' font
const MARK_PIXELS = 11; // radius of the focus mark
const CURSOR_PIXELS = 14;

// What is shown. A view has a name, the size of its pictures, and layers() of { key, picture,
// paint }: one, or two that are divided; `paired` if these are the pair's.
let view;
let pair; // of data.comparisons, that views of two pictures show
let divide = 50; // percent of the stage's width that shows the first of two layers
// `zoom`: 1 shows all of the picture. x, y: shares of the picture that stand in the stage's middle.
const place = { zoom: 1, x: 0.5, y: 0.5 };
// The pixel of the view's picture whose numbers are shown. `marked`: by keys or a finger, which
// need a mark.
let spot = { x: 0, y: 0, marked: false };

// --- Place and zoom ---

// Where the picture stands: its left upper corner, and the pixels that one of its pixels takes.
function frame() {
  const { clientWidth: width, clientHeight: height } = byId("stage");
  const fit = Math.min(width / view.size[0], height / view.size[1]);
  const scale = fit * place.zoom;
  return {
    width, height, fit, scale,
    left: width / 2 - place.x * view.size[0] * scale,
    top: height / 2 - place.y * view.size[1] * scale,
  };
}

const realZoom = () => 1 / (frame().fit * window.devicePixelRatio); // a pixel for a pixel

// Shows this place, or the nearest that leaves no border on one side only.
function moveTo(zoom, x, y) {
  const { width, height, fit } = frame();
  if (fit === 0) return; // the window is too small to show any of it
  place.zoom = clamp(zoom, 1, Math.max(LARGEST_PIXEL / fit, 1));
  const within = (share, side, extent) => {
    const half = Math.min(side / (2 * extent * fit * place.zoom), 0.5);
    return clamp(share, half, 1 - half);
  };
  place.x = within(x, width, view.size[0]);
  place.y = within(y, height, view.size[1]);
  // While nothing is zoomed a finger that moves up or down scrolls the page.
  byId("stage").style.touchAction = place.zoom > 1 ? "none" : "pan-y";
  draw();
}

function panBy(x, y) {
  const { scale } = frame();
  moveTo(place.zoom, place.x - x / (scale * view.size[0]), place.y - y / (scale * view.size[1]));
}

// Zooms so that what stands at x, y stays there.
function zoomAt([x, y], zoom) {
  const { width, height, fit, scale, left, top } = frame();
  const next = fit * clamp(zoom, 1, Math.max(LARGEST_PIXEL / fit, 1));
  moveTo(zoom, ((x - left) / scale - (x - width / 2) / next) / view.size[0],
    ((y - top) / scale - (y - height / 2) / next) / view.size[1]);
}

const middle = () => [byId("stage").clientWidth / 2, byId("stage").clientHeight / 2];

// Between all of the picture and its pixels as they are; a picture that has fewer pixels than the
// stage is enlarged instead.
function toggleRealPixels(point = middle()) {
  const real = realZoom();
  zoomAt(point, place.zoom > 1 ? 1 : real > 1 ? real : 4);
}

// `box`: [left, top, right, bottom] in the picture's pixels.
function showBox([left, top, right, bottom]) {
  const { width, height, fit } = frame();
  const zoom = Math.min(width / (right - left), height / (bottom - top)) / (1.25 * fit);
  moveTo(Math.min(zoom, 16 / fit), (left + right) / 2 / view.size[0], (top + bottom) / 2 / view.size[1]);
}

// The picture's pixel at a position, or null beside the picture.
function pixelAt([x, y]) {
  const { scale, left, top } = frame();
  const pixel = [Math.floor((x - left) / scale), Math.floor((y - top) / scale)];
  return pixel.every((value, i) => value >= 0 && value < view.size[i]) ? pixel : null;
}

const positionOfPixel = ({ x, y }) => {
  const { scale, left, top } = frame();
  return [left + (x + 0.5) * scale, top + (y + 0.5) * scale];
};

// --- Drawing ---

const tiles = new Map(); // canvases, the longest unused first

function tileOf({ key, picture, paint }, level, column, row) {
  const name = [key, picture.finest(), level, column, row].join();
  let tile = tiles.get(name);
  tiles.delete(name);
  if (!tile) {
    const planes = picture.level(level);
    tile = make("canvas");
    tile.width = Math.min(planes[0].width - column * TILE, TILE);
    tile.height = Math.min(planes[0].height - row * TILE, TILE);
    const image = new ImageData(tile.width, tile.height);
    paint(planes, column * TILE, row * TILE, image);
    tile.getContext("2d").putImageData(image, 0, 0);
  }
  tiles.set(name, tile);
  if (tiles.size > MOST_TILES) tiles.delete(tiles.keys().next().value);
  return tile;
}

// Draws the visible tiles of a layer. `left`, `top`, `scale`: as in frame(), in the canvas' pixels.
function drawLayer(context, layer, { left, top, scale }) {
  const { width, height } = context.canvas;
  // Of a level that is reduced by less than 2, so that no pixel is left out.
  const level = Math.max(layer.picture.finest(), Math.floor(Math.log2(1 / scale)));
  const side = (TILE << level) * scale;
  const [right, bottom] = [layer.picture.size[0] * scale, layer.picture.size[1] * scale];
  context.imageSmoothingEnabled = scale < 1;
  for (let row = Math.max(0, Math.floor(-top / side)); row * side < Math.min(bottom, height - top); row++) {
    for (let column = Math.max(0, Math.floor(-left / side));
      column * side < Math.min(right, width - left); column++) {
      const x = Math.round(left + column * side);
      const y = Math.round(top + row * side);
      context.drawImage(tileOf(layer, level, column, row), x, y,
        Math.round(left + Math.min((column + 1) * side, right)) - x,
        Math.round(top + Math.min((row + 1) * side, bottom)) - y);
    }
  }
}

function draw() {
  const canvas = byId("picture");
  const ratio = window.devicePixelRatio;
  const { width, height, scale, left, top } = frame();
  const [columns, rows] = [Math.round(width * ratio), Math.round(height * ratio)];
  if (canvas.width !== columns || canvas.height !== rows) {
    [canvas.width, canvas.height] = [columns, rows];
    canvas.style.width = `${columns / ratio}px`;
    canvas.style.height = `${rows / ratio}px`;
  }
  const context = canvas.getContext("2d");
  context.clearRect(0, 0, columns, rows);
  for (const [i, layer] of view.layers().entries()) {
    if (layer.picture.finest() < 0) continue; // drawn as soon as it is there
    context.save();
    if (i === 1) {
      context.beginPath();
      context.rect((divide * columns) / 100, 0, columns, rows);
      context.clip();
    }
    drawLayer(context, layer, { left: left * ratio, top: top * ratio, scale: scale * ratio });
    context.restore();
  }
  drawOverlays();
}

// --- What is drawn over the picture, in its pixels ---

const overlayNames = {
  regions: "Differences", focus: "Focus", afRegion: "AF region", faces: "Faces", crop: "Crop",
};
const overlaysShown = new Set(Object.keys(overlayNames));

function makeSvg(name, attributes) {
  const element = document.createElementNS(byId("overlay").namespaceURI, name);
  for (const [key, value] of Object.entries(attributes)) element.setAttribute(key, value);
  return element;
}

// A shape drawn twice, with a dark outline under a coloured one, to be visible on any picture.
function shape(group, name, attributes, className = "") {
  for (const layer of ["under", `over ${className}`]) {
    group.append(makeSvg(name, { ...attributes, class: layer }));
  }
}

function label(group, x, y, text, unit, size) {
  const element = makeSvg("text", {
    x, y, "font-size": LABEL_PIXELS * unit, "stroke-width": 3 * unit,
  });
  element.textContent = text;
  group.append(element);
  // Moved into the picture where it would stick out.
  const width = element.getComputedTextLength();
  element.setAttribute("x", clamp(x, 4 * unit, Math.max(size[0] - width - 4 * unit, 4 * unit)));
  element.setAttribute("y", clamp(y, (LABEL_PIXELS + 2) * unit, size[1] - 5 * unit));
}

const sizeText = ([width, height]) => `${width}×${height}`;

const box = ([x, y, right, bottom]) => ({ x, y, width: right - x, height: bottom - y });

// A cross with a gap in its middle, around a pixel's middle.
function cross([x, y], inner, outer) {
  const [cx, cy] = [x + 0.5, y + 0.5];
  return [[-1, 0], [1, 0], [0, -1], [0, 1]].map(([dx, dy]) =>
    `M${cx + dx * outer} ${cy + dy * outer}L${cx + dx * inner} ${cy + dy * inner}`).join("");
}

// `unit`: picture pixels in one of the stage's. `corner`: the visible part's right lower one.
const drawers = {
  regions(group, unit, size) {
    for (const [i, region] of pair.regions.entries()) {
      shape(group, "rect", box(region));
      label(group, region[0] + 6 * unit, region[3] - 6 * unit, `difference ${i + 1}`, unit, size);
    }
  },

  focus(group, unit, size) {
    const [x, y] = data.overlays.focus;
    const reach = MARK_PIXELS * unit;
    shape(group, "circle", { cx: x + 0.5, cy: y + 0.5, r: reach });
    shape(group, "path", { d: cross([x, y], 0.4 * reach, 1.6 * reach) });
    const above = Math.min(y + 0.5 - 1.6 * reach, data.overlays.afRegion?.[1] ?? size[1]);
    label(group, x + 0.5 - 1.6 * reach, above - 6 * unit, `focus ${x},${y}`, unit, size);
  },

  afRegion(group, unit, size) {
    const [left, top, right, bottom] = data.overlays.afRegion;
    shape(group, "rect",
      { x: left, y: top, width: right - left + 1, height: bottom - top + 1 }, "dashed");
    label(group, left, bottom + 1 + (LABEL_PIXELS + 4) * unit, "AF region", unit, size);
  },

  faces(group, unit, size) {
    data.overlays.faces.forEach(({ edges: [left, top, right, bottom], turn, chosen }, index) => {
      const face = makeSvg("g", { class: chosen ? "chosen" : "" });
      group.append(face);
      const [width, height] = [Math.max(right - left + 1, 0), Math.max(bottom - top + 1, 0)];
      shape(face, "rect", { x: left, y: top, width, height });
      // An arrow points out of the face at its forehead.
      const [cx, cy] = [left + width / 2, top + height / 2];
      const half = (turn % 180 === 0 ? height : width) / 2;
      const head = 7 * unit;
      const tip = half + 20 * unit;
      shape(face, "path", {
        d: `M0 ${-half}V${-tip}M${-head} ${-tip + head}L0 ${-tip}L${head} ${-tip + head}`,
        transform: `translate(${cx} ${cy}) rotate(${turn})`,
      }, "up");
      const turned = turn === 0 ? "upright" : `turned ${turn}°`;
      label(face, left, bottom + 1 + (LABEL_PIXELS + 4) * unit, `face ${index}, ${turned}`, unit,
        size);
    });
  },

  // The sensor in miniature and on it the part that the picture shows, or that part alone if the
  // sensor's size is not known.
  crop(group, unit, size, corner) {
    const crop = cropOf(view);
    const sensor = crop.sensor ?? crop.part;
    const longest = Math.min(96 * unit, size[0] / 7);
    const scale = longest / Math.max(...sensor);
    const [width, height] = sensor.map((side) => side * scale);
    const [left, top] = [corner[0] - width - 10 * unit, corner[1] - height - 10 * unit];
    const [partWidth, partHeight] = crop.part.map((side) => side * scale);
    if (crop.sensor) shape(group, "rect", { x: left, y: top, width, height }, "dashed");
    shape(group, "rect", {
      x: left + (width - partWidth) / 2, y: top + (height - partHeight) / 2,
      width: partWidth, height: partHeight,
    }, "filled");
    const whole = sizeText(crop.part) === sizeText(sensor);
    const text = !crop.sensor ? `crop ${sizeText(crop.part)}`
      : whole ? `whole sensor ${sizeText(sensor)}`
      : `crop ${sizeText(crop.part)} of ${sizeText(sensor)}`;
    label(group, corner[0] - 4 * unit, top - 6 * unit, text, unit, corner);
  },
};

function cropOf({ picture }) {
  return picture === "aux" ? data.overlays.auxCrop : data.overlays.mainCrop;
}

// Names of the overlays that the view can show.
function overlaysOf(shown) {
  const known = {
    regions: shown.paired && pair.regions?.length > 0, focus: data.overlays.focus,
    afRegion: data.overlays.afRegion, faces: data.overlays.faces.length > 0, crop: cropOf(shown),
  };
  return Object.keys(overlayNames).filter(
    (name) => known[name] && (shown.picture !== "aux" || name === "crop"));
}

function drawOverlays() {
  const overlay = byId("overlay");
  const { width, height, scale, left, top } = frame();
  const unit = 1 / scale;
  const [x, y] = [-left * unit, -top * unit];
  const corner = view.size.map((side, i) => Math.min(side, i === 0 ? x + width * unit : y + height * unit));
  overlay.replaceChildren();
  overlay.setAttribute("viewBox", `${x} ${y} ${width * unit} ${height * unit}`);
  for (const name of overlaysOf(view)) {
    if (!overlaysShown.has(name)) continue;
    const group = makeSvg("g", { class: name });
    overlay.append(group);
    drawers[name](group, unit, view.size, corner);
  }
  if (spot.marked) {
    const group = makeSvg("g", { class: "cursor" });
    overlay.append(group);
    const gap = 0.5 + 2 * unit; // the pixel stays visible
    shape(group, "path", { d: cross([spot.x, spot.y], gap, gap + CURSOR_PIXELS * unit) });
    if (scale >= 4) shape(group, "rect", { x: spot.x, y: spot.y, width: 1, height: 1 });
  }
}
