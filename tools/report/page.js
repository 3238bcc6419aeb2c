"use strict";

// The views of the stage, its controls, and the texts of the page.

const SLIDER_STEP = 2; // percent of the stage's width
const CURSOR_STEP = 10; // pixels of the picture, with shift
const ARROWS = { ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1] };
const PAN_STEP = 80; // CSS pixels
const ZOOM_STEP = 1.5;
const TAP_PIXELS = 6; // a finger that moves less has tapped
const TAP_MILLISECONDS = 350; // between the taps of a double one
const BLINK_MILLISECONDS = 700;
const GAINS = [1, 4, 16];
const PRIORITIES = ["V", "D", "I", "W", "E", "F"];
const NO_DIFFERENCE = [38, 40, 44];
const KEYS_OF_SELECT = [...Object.keys(ARROWS), "Home", "End", " ", "Enter", "Escape"];

// --- Controls ---

// `key`: shown beside the text, as the key that does the same; may be empty.
function makeButton(text, key, press) {
  const button = make("button");
  button.type = "button";
  if (key) button.append(make("kbd", key));
  button.append(text);
  button.addEventListener("click", (event) => {
    press();
    // A button that keeps the focus would also get the keys that are meant for the page.
    if (event.detail > 0) button.blur();
  });
  return button;
}

function makeToggle(text, key, pressed, press) {
  const button = makeButton(text, key, press);
  button.setAttribute("aria-pressed", pressed);
  return button;
}

// Marks the stage as busy until everything that it shows is decoded and drawn.
let unfinished = 0;
async function untilDone(work) {
  unfinished++;
  byId("stage").setAttribute("aria-busy", "true");
  try {
    await work;
  } finally {
    unfinished--;
    byId("stage").setAttribute("aria-busy", String(unfinished > 0));
  }
}

// Round numbers from low to high, about six of them.
function marksOf(low, high) {
  const rough = Math.max(high - low, 1) / 6;
  const power = 10 ** Math.floor(Math.log10(rough));
  const step = Math.max(1, [1, 2, 5, 10].map((factor) => factor * power).find((s) => s >= rough));
  const marks = [];
  for (let value = Math.ceil(low / step) * step; value <= high; value += step) marks.push(value);
  return marks;
}

// The scale under the picture: its colours from low to high, marks, and the focus plane on it.
function showScale(title, low, high, colourOf, focus) {
  byId("scale").hidden = false;
  byId("scaleTitle").textContent = title;
  const range = Math.max(high - low, 1);
  const context = byId("scaleColours").getContext("2d");
  for (let x = 0; x < 256; x++) {
    context.fillStyle = `rgb(${colourOf(low + (range * x) / 255).join()})`;
    context.fillRect(x, 0, 1, 1);
  }
  const at = (value) => `${clamp((100 * (value - low)) / range, 0, 100)}%`;
  byId("scaleMarks").replaceChildren(...marksOf(low, high).map((value) => {
    const mark = make("span", String(value));
    mark.style.left = at(value);
    return mark;
  }));
  byId("scaleBar").querySelectorAll("div").forEach((mark) => mark.remove());
  if (!focus) return;
  const mark = make("div", `focus ${focus.value}`);
  mark.id = "focusMark";
  mark.style.left = at(focus.value);
  byId("scaleBar").append(mark);
  if (focus.shown) {
    const band = make("div");
    band.id = "focusBand";
    band.style.left = at(focus.low);
    band.style.right = `calc(100% - ${at(focus.high)})`;
    byId("scaleBar").append(band);
  }
}

// A button that has the focus leaves it to the one of the same text.
function replaceButtons(id, buttons) {
  const focused = byId(id).contains(document.activeElement) && document.activeElement.textContent;
  byId(id).replaceChildren(...buttons);
  buttons.find(({ textContent }) => textContent === focused)?.focus();
}

function showOverlayButtons() {
  const names = overlaysOf(view);
  replaceButtons("overlays", names.map((name) => {
    const button = makeToggle(overlayNames[name], "", overlaysShown.has(name), () => {
      if (!overlaysShown.delete(name)) overlaysShown.add(name);
      refreshOverlays();
    });
    button.prepend(make("span", undefined, `swatch ${name}`));
    return button;
  }));
}

function refreshOverlays() {
  showOverlayButtons();
  drawOverlays();
}

function toggleAllOverlays() {
  const names = overlaysOf(view);
  const anyShown = names.some((name) => overlaysShown.has(name));
  for (const name of names) anyShown ? overlaysShown.delete(name) : overlaysShown.add(name);
  refreshOverlays();
}

// --- Views ---

let blinked = false;
let blinkTimer = 0;
let gain = 4;
let planeShown = false;
let depth = null; // of field
let views = [];
let onTap = null; // if set, gets the pixel of a tap, which then does nothing else

const layerOf = (name) => ({ key: name, picture: pictures[name], paint: paintPicture });

function showNames(before, after) {
  for (const [id, name] of [["beforeName", before], ["afterName", after]]) {
    byId(id).hidden = !name;
    byId(id).textContent = name ?? "";
  }
}

function describe(text) {
  byId("picture").setAttribute("aria-label", text);
}

function setDivide(percent) {
  divide = clamp(percent, 0, 100);
  byId("divide").style.left = `${divide}%`;
  byId("divide").setAttribute("aria-valuenow", Math.round(divide));
  draw();
}

function setBlinked(second) {
  blinked = second;
  showNames(blinked ? null : pair.before, blinked ? pair.after : null);
  describe(blinked ? pair.after : pair.before);
  draw();
}

function stopBlinking() {
  clearInterval(blinkTimer);
  blinkTimer = 0;
}

function showChoices(...buttons) {
  replaceButtons("choices", buttons);
}

function showSlider() {
  showNames(pair.before, pair.after);
  describe(`${pair.before}, and right of the divide ${pair.after}`);
  setDivide(divide);
}

function showBlink() {
  setBlinked(blinked);
  const swap = makeButton("Swap", "space", () => setBlinked(!blinked));
  const auto = makeToggle("By itself", "", blinkTimer !== 0, () => {
    if (blinkTimer) stopBlinking();
    else blinkTimer = setInterval(() => setBlinked(!blinked), BLINK_MILLISECONDS);
    showBlink();
  });
  showChoices(swap, auto);
}

// Empty if all differences have a frame.
const framedOf = ({ regions, count }) => (count > regions?.length
  ? `the ${regions.length} largest of ${count} differences` : "");

const differenceColour = (value) => (value < 1 ? NO_DIFFERENCE : colourAt((value * gain) / 255));

function showDifference() {
  showChoices(...GAINS.map((factor) => makeToggle(`×${factor}`, "", gain === factor, () => {
    gain = factor;
    showDifference();
    draw();
  })));
  const { levels, size } = pair.difference;
  if (!levels[0]) return; // shown again when it is computed
  const [{ values }] = pair.difference.level(Math.ceil(Math.log2(Math.max(...size))));
  const text = `${pair.before} against ${pair.after}, ×${gain}: ` +
    (values[0] === 0 ? "no difference at all" : `largest difference ${values[0]} of 255`) +
    (framedOf(pair) && `; framed are ${framedOf(pair)}`);
  showScale(text, 0, Math.round(255 / gain), differenceColour);
  describe(text);
}

function disparityColour(value) {
  const { low, high } = data.disparity;
  const share = (value - low) / Math.max(high - low, 1);
  return !planeShown || (value >= depth.low && value <= depth.high) ? colourAt(share)
    : new Array(3).fill(Math.round(40 + 80 * share)); // far dark, near lighter
}

function showDisparity() {
  const { low, high } = data.disparity;
  const focus = data.focusDisparity;
  showScale("disparity, larger is nearer", low, high,
    (value) => colourAt((value - low) / Math.max(high - low, 1)),
    focus === null ? null : { value: focus, ...depth, shown: planeShown });
  if (depth) showChoices(makeToggle(`In focus: ${depth.low} to ${depth.high}`, "p", planeShown, togglePlane));
  describe(`Disparity map from ${low} to ${high}` + (focus === null ? "" : `, focus at ${focus}`));
}

function togglePlane() {
  planeShown = !planeShown;
  showDisparity();
  draw();
}

function makeViews() {
  const views = [];
  if (pair) {
    const { size } = pictures[pair.before];
    const both = () => [layerOf(pair.before), layerOf(pair.after)];
    const difference = () => [{ key: `${pair.before} ${pair.after} ${gain}`,
      picture: pair.difference, paint: paintMap(differenceColour) }];
    views.push({ name: "Slider", size, layers: both, show: showSlider },
      { name: "Blink", size, layers: () => [both()[blinked ? 1 : 0]], show: showBlink },
      { name: "Difference", size, layers: difference, show: showDifference });
    for (const each of views) each.paired = true;
  }
  const paired = new Set(data.comparisons.flatMap(({ before, after }) => [before, after]));
  for (const [name, { size }] of Object.entries(pictures)) {
    if (paired.has(name)) continue;
    const show = () => {
      showNames(name);
      describe(name);
    };
    views.push({ name: name[0].toUpperCase() + name.slice(1), picture: name, size,
      layers: () => [layerOf(name)], show });
  }
  if (disparity) {
    views.push({ name: "Disparity", size: disparity.size, show: showDisparity,
      layers: () => [{ key: `disparity ${planeShown}`, picture: disparity, paint: paintMap(disparityColour) }] });
  }
  return views;
}

// The stage is as wide as the page, but leaves room in height for its buttons; in full screen it
// takes all that these leave by the style sheet.
function fitStage() {
  const stage = byId("stage");
  const full = byId("viewer").classList.contains("full");
  const highest = Math.max(window.innerHeight * 0.66, 240);
  const width = Math.min(byId("viewer").clientWidth, (highest * view.size[0]) / view.size[1]);
  stage.style.width = full ? "" : `${Math.floor(width)}px`;
  stage.style.height = full ? "" : `${Math.floor((width * view.size[1]) / view.size[0])}px`;
  moveTo(place.zoom, place.x, place.y);
}

function toggleFull(full = !byId("viewer").classList.contains("full")) {
  byId("viewer").classList.toggle("full", full);
  byId("fullButton")?.setAttribute("aria-pressed", full);
  // Where the browser has no full screen for pages, the window alone is filled.
  if (full) document.documentElement.requestFullscreen?.().catch(() => {});
  else if (document.fullscreenElement) document.exitFullscreen();
  fitStage();
}

function showHelp() {
  if (matchMedia("(pointer: coarse)").matches) {
    const touches = { Slider: "Drag moves the slider.", Blink: "Tap swaps." };
    byId("help").textContent =
      `${(!onTap && touches[view.name]) || ""} Touch reads the numbers; pinch${onTap ? "" : " or tap twice"} to zoom.`;
    return;
  }
  const arrows = spot.marked ? "move the cursor (shift: further), esc puts it away"
    : view.name === "Slider" && place.zoom === 1 ? "move the slider (shift: further)" : "pan";
  const keys = [`← → ↑ ↓ ${arrows}`, "c cursor", "+ − zoom", "0 all", "z real pixels",
    "f full screen", `1–${Math.min(views.length, 9)} view`, "o overlays"];
  if (pair) keys.push("space blinks");
  if (pair?.regions?.length) keys.push(framedOf(pair) ? `d next of ${framedOf(pair)}` : "d next difference");
  if (view.name === "Disparity" && depth) keys.push("p what is in focus");
  byId("help").textContent = `Keys: ${keys.join(" · ")}. The wheel zooms${onTap ? "" : ", a double click shows real pixels"}.`;
}

// Everything of the view but its place.
function refreshView() {
  view.show();
  showOverlayButtons();
  showHelp();
  draw();
}

const lastSpots = new Map(); // in the aux image or not, and the size of the view's picture

function showView(next) {
  const aux = next.picture === "aux";
  if (view) lastSpots.set(view.picture === "aux", { ...spot, size: view.size });
  // The main and the aux image may show different parts of the scene, as their sides tell.
  const sameScene = view && ((view.picture === "aux") === aux ||
    view.size[0] * next.size[1] === view.size[1] * next.size[0]);
  const from = sameScene ? { ...spot, size: view.size } : lastSpots.get(aux);
  const focus = aux ? null : data.overlays.focus;
  const [x, y] = from ? scaled(from, next.size, from.size) : focus ?? next.size.map((side) => side >> 1);
  view = next;
  spot = { x: clamp(x, 0, view.size[0] - 1), y: clamp(y, 0, view.size[1] - 1), marked: spot.marked };
  stopBlinking();
  for (const [i, button] of [...byId("views").children].entries()) {
    button.setAttribute("aria-pressed", views[i] === view);
  }
  showNames();
  showChoices();
  byId("scale").hidden = true;
  byId("divide").hidden = view.name !== "Slider";
  byId("pairLabel").hidden = data.comparisons.length < 2 || !view.paired;
  fitStage();
  refreshView();
  showValues();
  const layers = view.layers().map(({ picture }) => picture);
  const redraw = () => { if (view === next) refreshView(); };
  untilDone(Promise.all(layers.map((picture) => picture.readyReduced())).then(redraw).then(
    () => Promise.all(layers.map((picture) => picture.ready()))).then(redraw, (error) => { byId("help").textContent = `The pictures cannot be shown: ${error.message}`; }));
}

// --- Numbers of a pixel ---

// The same place in a picture of another size.
const scaled = ({ x, y }, size, from = view.size) => [Math.floor((x * size[0]) / from[0]),
  Math.floor((y * size[1]) / from[1])];

function valueRows(shown) {
  const rows = shown.filter(({ levels }) => levels[0]).map((picture) => {
    const numbers = picture.at(...scaled(spot, picture.size));
    return [picture.name, ...numbers, ...rgbOf(numbers)];
  });
  return rows.length ? [["", "Y", "U", "V", "R", "G", "B"], ...rows] : [];
}

function showValues() {
  const table = byId("values");
  table.replaceChildren();
  const aux = view.picture === "aux";
  const alone = !data.comparisons.length && view.picture; // others may show something else
  const shown = Object.values(pictures).filter(
    ({ name }) => (alone ? name === view.picture : (name === "aux") === aux));
  for (const [i, cells] of valueRows(shown).entries()) {
    table.insertRow().append(...cells.map((cell, column) => make(i && column ? "td" : "th", String(cell))));
  }
  const texts = [];
  if (!aux && disparity?.levels[0]) {
    const [value] = disparity.at(...scaled(spot, disparity.size));
    texts.push(`disparity ${value}`);
    if (depth) texts.push(`radius ${Math.abs(depth.radius[value]).toFixed(1)} pixels by the stand-in's formula`);
  }
  if (view.paired && pair.difference.levels[0]) texts.push(`difference ${pair.difference.at(spot.x, spot.y)[0]}`);
  byId("readout").textContent = [`${spot.x},${spot.y}`, texts.join(", ")].filter(Boolean).join(": ");
}

function setSpot(pixel, marked) {
  if (!pixel) return;
  const before = spot.marked;
  spot = { x: clamp(pixel[0], 0, view.size[0] - 1), y: clamp(pixel[1], 0, view.size[1] - 1), marked };
  if (marked || before) drawOverlays();
  showValues();
}

// The cursor that keys move; it takes the picture along where it leaves the stage.
function moveCursor(x, y) {
  setSpot([spot.x + x, spot.y + y], true);
  const { width, height } = frame();
  const [left, top] = positionOfPixel(spot);
  if (left < 0 || top < 0 || left > width || top > height) {
    moveTo(place.zoom, spot.x / view.size[0], spot.y / view.size[1]);
  }
}

function toggleCursor() {
  const [left, top] = positionOfPixel(spot);
  const { width, height } = frame();
  const visible = left >= 0 && top >= 0 && left < width && top < height;
  setSpot(visible ? [spot.x, spot.y] : pixelAt(middle()), !spot.marked);
}

// --- Pointer, wheel and keys ---

function positionOf(event) {
  const bounds = byId("stage").getBoundingClientRect();
  return [event.clientX - bounds.left, event.clientY - bounds.top];
}

// Fingers and pressed mouse buttons on the stage, by their ids: where each is now.
const pressed = new Map();
let drag = null; // what one of them moves: "divide" or "picture"
let travelled = 0; // CSS pixels since the first was pressed
let lastTap = { time: 0, point: [0, 0] };

const apart = ([x, y], [u, v]) => Math.hypot(x - u, y - v);

function pressStage(event) {
  if (event.button !== 0) return;
  const point = positionOf(event);
  pressed.set(event.pointerId, point);
  byId("stage").setPointerCapture(event.pointerId);
  if (pressed.size > 1) {
    drag = null;
    return;
  }
  travelled = 0;
  const slides = view.name === "Slider" &&
    ((place.zoom === 1 && !onTap) || event.target.id === "divide");
  drag = slides ? "divide" : "picture";
  if (slides) setDivide((100 * point[0]) / byId("stage").clientWidth);
  setSpot(pixelAt(point), event.pointerType !== "mouse");
}

// Two fingers: what was between them stays there.
function pinch(id, point) {
  const [other] = [...pressed].filter(([key]) => key !== id).map(([, at]) => at);
  const before = pressed.get(id);
  const between = ([x, y]) => [(x + other[0]) / 2, (y + other[1]) / 2];
  zoomAt(between(before), (place.zoom * apart(point, other)) / Math.max(apart(before, other), 1));
  panBy(between(point)[0] - between(before)[0], between(point)[1] - between(before)[1]);
}

function moveOnStage(event) {
  const point = positionOf(event);
  const before = pressed.get(event.pointerId);
  if (!before) {
    setSpot(pixelAt(point), false);
    return;
  }
  travelled += apart(point, before);
  if (pressed.size === 2) pinch(event.pointerId, point);
  else if (drag === "divide") setDivide((100 * point[0]) / byId("stage").clientWidth);
  else if (drag === "picture" && place.zoom > 1) panBy(point[0] - before[0], point[1] - before[1]);
  pressed.set(event.pointerId, point);
  if (pressed.size === 1) setSpot(pixelAt(point), event.pointerType !== "mouse");
}

function releaseStage(event) {
  if (!pressed.delete(event.pointerId)) return;
  const divided = drag === "divide";
  drag = "picture"; // by the finger that stays after a pinch
  if (event.type === "pointercancel") return;
  if (travelled > TAP_PIXELS || pressed.size > 0) return;
  const point = positionOf(event);
  const twice = event.timeStamp - lastTap.time < TAP_MILLISECONDS && apart(point, lastTap.point) < 24;
  lastTap = { time: twice ? 0 : event.timeStamp, point };
  if (twice && !onTap) {
    toggleRealPixels(point);
    showHelp();
  }
  if (onTap) {
    if (!divided && pixelAt(point)) onTap(pixelAt(point));
  } else if (view.name === "Blink") {
    setBlinked(!blinked);
  }
}

// The wheel zooms; what it cannot make smaller it scrolls.
function turnWheel(event) {
  if (event.deltaY > 0 && place.zoom === 1) return;
  event.preventDefault();
  const turned = event.deltaMode === 0 ? event.deltaY / 100 : Math.sign(event.deltaY);
  zoomAt(positionOf(event), place.zoom * ZOOM_STEP ** -clamp(event.ctrlKey ? 5 * turned : turned, -2, 2));
  setSpot(pixelAt(positionOf(event)), false);
  showHelp();
}

function watchStage() {
  const stage = byId("stage");
  stage.addEventListener("pointerdown", pressStage);
  stage.addEventListener("pointermove", moveOnStage);
  stage.addEventListener("pointerup", releaseStage);
  stage.addEventListener("pointercancel", releaseStage);
  stage.addEventListener("wheel", turnWheel, { passive: false });
  stage.addEventListener("dragstart", (event) => event.preventDefault());
}

let region = -1; // the difference that was jumped to last

function nextDifference() {
  const { regions } = pair;
  region = (region + 1) % regions.length;
  if (!view.paired) showView(views[0]);
  showBox(regions[region]);
  setSpot(largestIn(pair.difference, regions[region]), true);
}

function pressArrow(key, far, onDivide) {
  const [x, y] = ARROWS[key];
  const slides = view.name === "Slider" && (onDivide || (place.zoom === 1 && !spot.marked));
  if (slides && x !== 0) setDivide(divide + x * SLIDER_STEP * (far ? 5 : 1));
  else if (spot.marked && !onDivide) moveCursor(x * (far ? CURSOR_STEP : 1), y * (far ? CURSOR_STEP : 1));
  else if (place.zoom > 1) panBy(-x * PAN_STEP, -y * PAN_STEP);
  else return false; // scrolls the page
  return true;
}

const keys = {
  "+": () => zoomAt(middle(), place.zoom * ZOOM_STEP),
  "-": () => zoomAt(middle(), place.zoom / ZOOM_STEP),
  0: () => moveTo(1, 0.5, 0.5),
  z: () => toggleRealPixels(spot.marked ? positionOfPixel(spot) : middle()),
  f: () => toggleFull(),
  c: toggleCursor,
  o: toggleAllOverlays,
  p: () => view.name === "Disparity" && depth && togglePlane(),
  d: () => pair?.regions?.length && nextDifference(),
  Home: () => view.name === "Slider" && setDivide(0),
  End: () => view.name === "Slider" && setDivide(100),
  Escape: () => (spot.marked ? toggleCursor() : toggleFull(false)),
};
keys["="] = keys["+"];

function pressKey(event) {
  if (event.ctrlKey || event.altKey || event.metaKey) return;
  const { tagName } = event.target;
  if (tagName === "INPUT" || (tagName === "SELECT" && KEYS_OF_SELECT.includes(event.key))) return;
  if (event.target.closest("button, a") && [" ", "Enter"].includes(event.key)) return; // presses it
  const onDivide = event.target.id === "divide";
  if (event.target.id === "log") return;
  if (ARROWS[event.key]) {
    if (!pressArrow(event.key, event.shiftKey, onDivide)) return;
  } else if (views[Number(event.key) - 1]) {
    showView(views[Number(event.key) - 1]);
  } else if (event.key === " " && pair) {
    if (view.name === "Blink") setBlinked(!blinked);
    else showView(views[1]);
  } else if (keys[event.key]) {
    keys[event.key]();
    showHelp();
  } else {
    return;
  }
  event.preventDefault();
}

// What the first view does not need comes after it: numbers of the other pictures, and differences.
async function loadRest() {
  await Promise.all(view.layers().map(({ picture }) => picture.ready()));
  await new Promise((painted) => { requestAnimationFrame(() => setTimeout(painted)); });
  for (const each of [...Object.values(pictures), disparity].filter(Boolean)) await each.ready();
  for (const each of data.comparisons.filter(({ lazy }) => !lazy)) {
    await each.difference.ready();
    if (each.framed) Object.assign(each, regionsOf(each.difference));
  }
  refreshView();
  showValues();
}

function startViewer() {
  byId("viewer").hidden = false;
  byId("pair").addEventListener("change", () => {
    pair = data.comparisons[Number(byId("pair").value)];
    region = -1;
    showView(view);
  });
  const zoom = [["−", "-", ""], ["+", "+", ""], ["All", "0", "0"], ["1:1", "z", "z"]].map(
    ([text, key, shown]) => makeButton(text, shown, () => { keys[key](); showHelp(); }));
  const full = makeToggle("Full screen", "f", false, () => toggleFull());
  full.id = "fullButton";
  byId("zoom").append(...zoom, full);
  watchStage();
  document.addEventListener("keydown", pressKey);
  document.addEventListener("fullscreenchange", () => {
    if (!document.fullscreenElement) toggleFull(false);
  });
  window.addEventListener("resize", fitStage);
  new ResizeObserver(() => moveTo(place.zoom, place.x, place.y)).observe(byId("stage"));
}

// The views of the data; of the kind and the pair that were shown before, if there are such.
function showViewer() {
  tiles.clear();
  const samePair = ({ before, after }) => before === pair?.before && after === pair.after;
  pair = data.comparisons.find(samePair) ?? data.comparisons[0];
  depth = data.depthOfField;
  region = -1;
  views = makeViews();
  if (views.length === 0) return;
  replaceButtons("views", views.map((each, i) => makeButton(each.name, i < 9 ? String(i + 1) : "", () => showView(each))));
  byId("pair").replaceChildren(...data.comparisons.map(
    (each, i) => new Option(`${each.before} | ${each.after}`, i, each === pair, each === pair)));
  if (!view) startViewer();
  showView(views.find(({ name }) => name === view?.name) ?? views[0]);
  untilDone(loadRest().catch(() => {})); // showView() tells what cannot be shown
}

// --- Texts ---

function findingsOf(kinds) {
  const list = make("ul", undefined, "findings");
  list.append(...data.findings.filter(({ kind }) => kinds.includes(kind)).map(({ kind, name, text }) => {
    const item = make("li", undefined, kind);
    if (kind === "wrong") item.append(make("b", "WRONG "));
    if (name) item.append(make("b", `${name}: `));
    item.append(text.trimEnd());
    return item;
  }));
  return list;
}

function showFindings() {
  showTitle();
  byId("verdict").textContent = data.verdict.text;
  byId("verdict").className = data.verdict.kind;
  document.querySelector("header .findings")?.remove();
  byId("verdict").after(findingsOf(["wrong"]));
  byId("sections").replaceChildren();
  const rest = findingsOf(["good", "note"]);
  if (rest.children.length) addSection("Notes").append(rest);
}

const isObject = (value) => value !== null && typeof value === "object";

// A value as one line: "4000, 3000", "left 10, top 20".
function lineOf(value) {
  if (!isObject(value)) return value === null ? "none" : String(value);
  const words = Array.isArray(value)
    ? value.map(lineOf) : Object.entries(value).map(([key, item]) => `${key} ${lineOf(item)}`);
  return words.join(", ") || "none";
}

// Rows of names and values. The members of an object get rows of their own, named "main.width" and
// so on, and so do the items of a list of lists or objects.
function rowsOf(values, above = "") {
  return Object.entries(values).flatMap(([key, value]) => {
    const name = above + key;
    if (Array.isArray(value) && value.some(isObject)) {
      return value.map((item, i) => [`${name} ${i}`, lineOf(item)]);
    }
    const nested = isObject(value) && !Array.isArray(value) && Object.keys(value).length > 0;
    return nested ? rowsOf(value, `${name}.`) : [[name, lineOf(value)]];
  });
}

function addSection(title, className) {
  const section = make("section", undefined, className);
  section.append(make("h2", title));
  byId("sections").append(section);
  return section;
}

// `rows`: pairs of a name and a text or an element.
function addTable(title, rows) {
  const table = make("table");
  for (const [name, value] of rows) {
    const row = table.insertRow();
    row.append(make("th"), make("td"));
    // A long name may break before its words.
    row.firstChild.append(...name.split(/(?<=\.)|(?=[A-Z])/).flatMap((part) => [part, make("wbr")]));
    row.firstChild.scope = "row";
    row.lastChild.append(value);
  }
  addSection(title).append(table);
  return table;
}

function showSections() {
  for (const { title, values } of data.sections) addTable(title, rowsOf(values));
  if (!data.links.length) return;
  addTable("Originals", data.links.map(({ name, file, target }) => {
    const link = make("a", file);
    link.href = target;
    return [name, link];
  })).id = "links";
}

function showLog() {
  if (!data.log.length) return;
  const log = make("div");
  log.id = "log";
  log.tabIndex = 0; // it scrolls, so the keys must reach it
  for (const { priority, tag, seconds, text, success } of data.log) {
    const line = make("div",
      `${seconds.toFixed(3).padStart(7)} ${priority}/${tag}: ${text.trimEnd()}`, priority);
    if (success) {
      line.classList.add("success");
      line.append(make("i", " (a success, logged as an error so that it always shows)"));
    }
    log.append(line);
  }
  const section = addSection("Log", "wide");
  const priorities = PRIORITIES.filter((letter) => data.log.some((line) => line.priority === letter));
  if (priorities.length > 1) {
    const least = make("select");
    least.setAttribute("aria-label", "Lowest priority shown");
    for (const letter of priorities) least.append(new Option(`from ${letter}`, letter));
    least.addEventListener("change", () => {
      for (const line of log.children) {
        line.hidden = PRIORITIES.indexOf(line.classList[0]) < PRIORITIES.indexOf(least.value);
      }
    });
    section.firstChild.append(least);
  }
  section.append(log);
}

function showData(next) {
  takeData(next);
  showFindings();
  showSections();
  showLog();
  showViewer();
}

showData(data);
