"use strict";

// What the tool knows of the run. All of it is put in as text, never as markup.
const data = JSON.parse(document.getElementById("data").textContent);

const byId = (id) => document.getElementById(id);

const LABEL_PIXELS = 13; // height of the labels' font
const MARK_PIXELS = 11; // radius of the focus mark
const SLIDER_STEP = 2; // percent of the picture's width
const BLINK_MILLISECONDS = 700;
const GAINS = [1, 4, 16];
const PRIORITIES = ["V", "D", "I", "W", "E", "F"];
const NO_DIFFERENCE = [38, 40, 44];

function make(name, text, className) {
  const element = document.createElement(name);
  if (text !== undefined) element.textContent = text;
  if (className) element.className = className;
  return element;
}

function makeSvg(name, attributes) {
  const element = document.createElementNS(byId("overlay").namespaceURI, name);
  for (const [key, value] of Object.entries(attributes)) element.setAttribute(key, value);
  return element;
}

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

const sizeText = ([width, height]) => `${width}×${height}`;

// --- Numbers as colours ---

function colourAt(share) {
  const place = Math.min(Math.max(share, 0), 1) * (data.colours.length - 1);
  const step = Math.min(Math.floor(place), data.colours.length - 2);
  const [from, to] = [data.colours[step], data.colours[step + 1]];
  return from.map((value, i) => Math.round(value + (to[i] - value) * (place - step)));
}

// The numbers of a map, which its picture holds as shades of grey.
async function numbersOf(map) {
  if (!map.numbers) {
    const image = new Image();
    image.src = map.uri;
    await image.decode();
    const canvas = make("canvas");
    canvas.width = image.naturalWidth;
    canvas.height = image.naturalHeight;
    const context = canvas.getContext("2d", { willReadFrequently: true });
    context.drawImage(image, 0, 0);
    const pixels = context.getImageData(0, 0, canvas.width, canvas.height).data;
    const values = new Uint8Array(canvas.width * canvas.height);
    for (let i = 0; i < values.length; i++) values[i] = pixels[4 * i];
    map.numbers = { width: canvas.width, height: canvas.height, values };
  }
  return map.numbers;
}

// Draws a map with a colour for each of the 256 numbers.
async function drawMap(map, colourOf) {
  const numbers = await numbersOf(map);
  const table = Array.from({ length: 256 }, (_, value) => colourOf(value));
  const canvas = byId("map");
  canvas.width = numbers.width;
  canvas.height = numbers.height;
  const picture = new ImageData(numbers.width, numbers.height);
  for (let i = 0; i < numbers.values.length; i++) {
    const [red, green, blue] = table[numbers.values[i]];
    picture.data[4 * i] = red;
    picture.data[4 * i + 1] = green;
    picture.data[4 * i + 2] = blue;
    picture.data[4 * i + 3] = 255;
  }
  canvas.getContext("2d").putImageData(picture, 0, 0);
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
  const place = (value) => `${Math.min(Math.max((100 * (value - low)) / range, 0), 100)}%`;
  byId("scaleMarks").replaceChildren(...marksOf(low, high).map((value) => {
    const mark = make("span", String(value));
    mark.style.left = place(value);
    return mark;
  }));
  byId("scaleBar").querySelectorAll("div").forEach((mark) => mark.remove());
  if (!focus) return;
  const mark = make("div", `focus ${focus.value}`);
  mark.id = "focusMark";
  mark.style.left = place(focus.value);
  byId("scaleBar").append(mark);
  if (focus.shown) {
    const band = make("div");
    band.id = "focusBand";
    band.style.left = place(focus.value - focus.reach);
    band.style.right = `calc(100% - ${place(focus.value + focus.reach)})`;
    byId("scaleBar").append(band);
  }
}

// --- What is drawn over the picture, in its pixels ---

const overlayNames = { focus: "Focus", afRegion: "AF region", faces: "Faces", crop: "Crop" };
const overlaysShown = new Set(Object.keys(overlayNames));

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
  element.setAttribute("x", Math.max(Math.min(x, size[0] - width - 4 * unit), 4 * unit));
  element.setAttribute("y", Math.max(Math.min(y, size[1] - 5 * unit), (LABEL_PIXELS + 2) * unit));
}

const drawers = {
  focus(group, unit, size) {
    const [x, y] = data.overlays.focus;
    const reach = MARK_PIXELS * unit;
    const [cx, cy] = [x + 0.5, y + 0.5]; // the middle of that pixel
    shape(group, "circle", { cx, cy, r: reach });
    const arm = (x1, y1, x2, y2) =>
      `M${cx + x1 * reach} ${cy + y1 * reach}L${cx + x2 * reach} ${cy + y2 * reach}`;
    shape(group, "path", {
      d: arm(-1.6, 0, -0.4, 0) + arm(0.4, 0, 1.6, 0) + arm(0, -1.6, 0, -0.4) + arm(0, 0.4, 0, 1.6),
    });
    const above = Math.min(cy - 1.6 * reach, data.overlays.afRegion?.[1] ?? size[1]);
    label(group, cx - 1.6 * reach, above - 6 * unit, `focus ${x},${y}`, unit, size);
  },

  afRegion(group, unit, size) {
    const [left, top, right, bottom] = data.overlays.afRegion;
    shape(group, "rect",
      { x: left, y: top, width: right - left + 1, height: bottom - top + 1 }, "dashed");
    label(group, left, bottom + 1 + (LABEL_PIXELS + 4) * unit, "AF region", unit, size);
  },

  faces(group, unit, size) {
    data.overlays.faces.forEach(({ edges: [left, top, right, bottom], turn }, index) => {
      const face = makeSvg("g", {});
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
  crop(group, unit, size, crop) {
    const sensor = crop.sensor ?? crop.part;
    const longest = Math.min(96 * unit, size[0] / 7);
    const scale = longest / Math.max(...sensor);
    const [width, height] = sensor.map((side) => side * scale);
    const [left, top] = [size[0] - width - 10 * unit, size[1] - height - 10 * unit];
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
    label(group, size[0], top - 6 * unit, text, unit, size);
  },
};

function cropOf(view) {
  return view.picture === "aux" ? data.overlays.auxCrop : data.overlays.mainCrop;
}

// Names of the overlays that the view can show.
function overlaysOf(view) {
  const known = {
    focus: data.overlays.focus, afRegion: data.overlays.afRegion,
    faces: data.overlays.faces.length > 0, crop: cropOf(view),
  };
  return Object.keys(overlayNames).filter(
    (name) => known[name] && (view.picture !== "aux" || name === "crop"));
}

function drawOverlays() {
  const overlay = byId("overlay");
  const size = view.size;
  overlay.replaceChildren();
  overlay.setAttribute("viewBox", `0 0 ${size[0]} ${size[1]}`);
  const unit = size[0] / byId("stage").clientWidth; // picture pixels in one of the page's
  for (const name of overlaysOf(view)) {
    if (!overlaysShown.has(name)) continue;
    const group = makeSvg("g", { class: name });
    overlay.append(group);
    drawers[name](group, unit, size, cropOf(view));
  }
}

function showOverlayButtons() {
  const names = overlaysOf(view);
  byId("overlays").replaceChildren(...names.map((name) => {
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

let pair = data.comparisons[0];
let divide = 50; // percent of the picture's width that shows the first of the pair
let blinked = false;
let blinkTimer = 0;
let gain = 4;
let planeShown = false;
let view;

const focusReach = data.disparity
  ? Math.max(1, Math.round((data.disparity.high - data.disparity.low) * 0.03)) : 0;

function showPictures(before, after) {
  for (const [id, name] of [["before", before], ["after", after]]) {
    const image = byId(id);
    image.hidden = !name;
    if (name && image.dataset.name !== name) {
      image.dataset.name = name;
      image.src = data.pictures[name].uri;
      untilDone(image.decode().catch(() => {})); // rejected if another view is chosen meanwhile
      image.alt = `${name} picture`;
    }
    byId(`${id}Name`).hidden = !name;
    byId(`${id}Name`).textContent = name ?? "";
  }
  byId("after").style.clipPath = "";
}

function setDivide(percent) {
  divide = Math.min(Math.max(percent, 0), 100);
  byId("divide").style.left = `${divide}%`;
  byId("divide").setAttribute("aria-valuenow", Math.round(divide));
  byId("after").style.clipPath = `inset(0 0 0 ${divide}%)`;
}

function setBlinked(second) {
  blinked = second;
  showPictures(blinked ? null : pair.before, blinked ? pair.after : null);
}

function stopBlinking() {
  clearInterval(blinkTimer);
  blinkTimer = 0;
}

function showChoices(...buttons) {
  byId("choices").replaceChildren(...buttons);
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

async function showDifference() {
  const top = 255 / gain;
  const colourOf = (value) => (value < 1 ? NO_DIFFERENCE : colourAt(value / top));
  const { high } = pair.difference;
  const largest = high === 0 ? "no difference at all" : `largest difference ${high}`;
  showScale(`${pair.before} against ${pair.after}, ×${gain}: ${largest} of 255`, 0,
    Math.round(top), colourOf);
  showChoices(...GAINS.map((factor) => makeToggle(`×${factor}`, "", gain === factor, () => {
    gain = factor;
    showDifference();
  })));
  await untilDone(drawMap(pair.difference, colourOf));
}

async function showDisparity() {
  const { low, high } = data.disparity;
  const range = Math.max(high - low, 1);
  const focus = data.focusDisparity;
  const inPlane = (value) => focus === null || Math.abs(value - focus) <= focusReach;
  const colourOf = (value) => {
    const share = (value - low) / range;
    return !planeShown || inPlane(value) ? colourAt(share)
      : new Array(3).fill(Math.round(40 + 80 * share)); // far dark, near lighter
  };
  showScale("disparity, larger is nearer", low, high, (value) => colourAt((value - low) / range),
    focus === null ? null : { value: focus, reach: focusReach, shown: planeShown });
  if (focus === null) {
    showChoices();
  } else {
    showChoices(makeToggle(`Focus plane ${focus} ± ${focusReach}`, "p", planeShown, togglePlane));
  }
  await untilDone(drawMap(data.disparity, colourOf));
}

function togglePlane() {
  planeShown = !planeShown;
  showDisparity();
}

function makeViews() {
  const views = [];
  if (pair) {
    const size = data.pictures[pair.before].size;
    views.push(
      { name: "Slider", size, show() { showPictures(pair.before, pair.after); setDivide(divide); } },
      { name: "Blink", size, show: showBlink },
      { name: "Difference", size, map: () => pair.difference, show: showDifference });
  }
  const paired = new Set(data.comparisons.flatMap(({ before, after }) => [before, after]));
  for (const [name, { size }] of Object.entries(data.pictures)) {
    if (!paired.has(name)) {
      const title = name[0].toUpperCase() + name.slice(1);
      views.push({ name: title, picture: name, size, show() { showPictures(name, null); } });
    }
  }
  if (data.disparity) {
    views.push({
      name: "Disparity", size: data.disparity.size, map: () => data.disparity, show: showDisparity,
    });
  }
  return views;
}

const views = makeViews();

// The stage is as wide as the page, but leaves room in height for its buttons.
function fitStage() {
  const stage = byId("stage");
  const room = byId("viewer").clientWidth;
  const highest = Math.max(window.innerHeight * 0.66, 240);
  const width = Math.min(room, (highest * view.size[0]) / view.size[1]);
  stage.style.width = `${width}px`;
  stage.style.height = `${(width * view.size[1]) / view.size[0]}px`;
  drawOverlays();
}

function showHelp() {
  if (matchMedia("(pointer: coarse)").matches) {
    const touches = { Slider: "Drag across the picture to move the slider.",
      Blink: "Tap the picture to swap.", Difference: "Touch a place to read its number.",
      Disparity: "Touch a place to read its number." };
    byId("help").textContent = touches[view.name] ?? "";
    return;
  }
  const keys = [`1–${views.length} view`, "o overlays"];
  if (view.name === "Slider") keys.unshift("← → move the slider (shift: further)");
  if (pair) keys.push("space blinks");
  if (view.name === "Disparity" && data.focusDisparity !== null) keys.push("p focus plane");
  byId("help").textContent = `Keys: ${keys.join(" · ")}`;
}

function showView(next) {
  view = next;
  stopBlinking();
  for (const [i, button] of [...byId("views").children].entries()) {
    button.setAttribute("aria-pressed", views[i] === view);
  }
  showPictures(null, null);
  showChoices();
  byId("map").hidden = !view.map;
  byId("scale").hidden = true;
  byId("divide").hidden = view.name !== "Slider";
  byId("pairLabel").hidden = data.comparisons.length < 2 || !["Slider", "Blink", "Difference"].includes(view.name);
  byId("readout").hidden = !view.map;
  byId("readout").textContent = "";
  view.show();
  showHelp();
  showOverlayButtons();
  fitStage();
}

// --- Pointer and keys ---

function placeInStage(event) {
  const box = byId("stage").getBoundingClientRect();
  return [(event.clientX - box.left) / box.width, (event.clientY - box.top) / box.height];
}

// The number under the pointer.
async function readOut(event) {
  if (!view.map) return;
  const map = view.map();
  const { width, height, values } = await numbersOf(map);
  const [x, y] = placeInStage(event);
  if (x < 0 || y < 0 || x >= 1 || y >= 1) return;
  const value = values[Math.floor(y * height) * width + Math.floor(x * width)];
  const place = `${Math.floor(x * map.size[0])},${Math.floor(y * map.size[1])}`;
  byId("readout").textContent = `${place}: ${view.name.toLowerCase()} ${value}`;
}

function watchStage() {
  const stage = byId("stage");
  let dragging = false;
  stage.addEventListener("pointerdown", (event) => {
    readOut(event);
    if (view.name === "Slider") {
      dragging = true;
      stage.setPointerCapture(event.pointerId);
      setDivide(100 * placeInStage(event)[0]);
    }
  });
  stage.addEventListener("pointermove", (event) => {
    if (dragging) setDivide(100 * placeInStage(event)[0]);
    else readOut(event);
  });
  for (const end of ["pointerup", "pointercancel"]) {
    stage.addEventListener(end, () => { dragging = false; });
  }
  stage.addEventListener("click", () => {
    if (view.name === "Blink") setBlinked(!blinked);
  });
  stage.addEventListener("dragstart", (event) => event.preventDefault());
}

function pressKey(event) {
  if (event.ctrlKey || event.altKey || event.metaKey || event.target.tagName === "SELECT") return;
  const step = event.shiftKey ? 5 * SLIDER_STEP : SLIDER_STEP;
  const moves = {
    ArrowLeft: () => setDivide(divide - step), ArrowRight: () => setDivide(divide + step),
    Home: () => setDivide(0), End: () => setDivide(100),
  };
  if (view.name === "Slider" && moves[event.key]) {
    moves[event.key]();
  } else if (views[Number(event.key) - 1]) {
    showView(views[Number(event.key) - 1]);
  } else if (event.key === "o") {
    toggleAllOverlays();
  } else if (event.key === "p" && view.name === "Disparity" && data.focusDisparity !== null) {
    togglePlane();
  } else if (event.key === " " && pair && event.target.tagName !== "BUTTON") {
    if (view.name === "Blink") setBlinked(!blinked);
    else showView(views[1]);
  } else {
    return;
  }
  event.preventDefault();
}

function startViewer() {
  if (views.length === 0) return;
  byId("viewer").hidden = false;
  byId("views").replaceChildren(
    ...views.map((each, i) => makeButton(each.name, String(i + 1), () => showView(each))));
  for (const [i, { before, after }] of data.comparisons.entries()) {
    byId("pair").append(new Option(`${before} | ${after}`, i));
  }
  byId("pair").addEventListener("change", () => {
    pair = data.comparisons[Number(byId("pair").value)];
    showView(view);
  });
  watchStage();
  document.addEventListener("keydown", pressKey);
  window.addEventListener("resize", fitStage);
  showView(views[0]);
}

// --- Texts ---

function showFindings() {
  byId("command").textContent = `bokehnode ${data.command}`;
  byId("title").textContent = data.title;
  document.title = `${data.title} – ${data.command}`;
  const wrong = data.findings.filter(({ kind }) => kind === "wrong");
  const rest = data.findings.filter(({ kind }) => kind !== "wrong");
  byId("findings").append(...[...wrong, ...rest].map(({ kind, name, text }) => {
    const item = make("li", undefined, kind);
    if (kind === "wrong") item.append(make("b", "WRONG "));
    if (name) item.append(make("b", `${name}: `));
    item.append(text.trimEnd());
    return item;
  }));
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
    row.append(make("th", name), make("td"));
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
  for (const { priority, tag, seconds, text } of data.log) {
    log.append(make("div",
      `${seconds.toFixed(3).padStart(7)} ${priority}/${tag}: ${text.trimEnd()}`, priority));
  }
  const section = addSection("Log", "wide");
  const priorities = PRIORITIES.filter((letter) => data.log.some((line) => line.priority === letter));
  if (priorities.length > 1) {
    const least = make("select");
    least.setAttribute("aria-label", "Lowest priority shown");
    for (const letter of priorities) least.append(new Option(`from ${letter}`, letter));
    least.addEventListener("change", () => {
      for (const line of log.children) {
        line.hidden = PRIORITIES.indexOf(line.className) < PRIORITIES.indexOf(least.value);
      }
    });
    section.firstChild.append(least);
  }
  section.append(log);
}

showFindings();
showSections();
showLog();
startViewer();
