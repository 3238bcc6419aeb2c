"use strict";

// The live page: a change is a request to the server, which runs it, and the page shows the answer.

const POLL_MILLISECONDS = 2000;
const FOCUS_HELP = "A click or tap on the picture, or Enter at the cursor, is the focus point.";
const FACE_HELP = "A drag draws a face or moves one. Enter draws one at the cursor, chooses the one there, or is " +
  "done with it; page down chooses the next. Arrows move it (shift: further, ctrl: its size), delete removes it.";
const setup = data.live; // what the server was started with
let sets = setup.sets;
const given = Number(location.search.slice(1)); // by the page of many
let set = location.search && given < sets.length ? given : sets.length - 1;

// What is changed in the dumped request, a step each; null shows the set as it was dumped.
let steps = [null];
let step = 0;
let dragging = ""; // the control whose drag made the last step

let inspected; // the data of the set as it was dumped, which is asked for first; null if there is none
let last = null; // what is shown: the server's answer and the changes that were asked for
let pins = []; // outputs that are kept, to be compared: { name, entry, changes, command }
const saves = []; // requests whose outputs are still to be written
let running = false;
let stale = false; // what runs is not what is asked for any more
let number = 0; // of the request that runs

// --- The server ---

// Reads a response in pieces of known length.
function piecesOf({ body }) {
  const reader = body.getReader();
  let rest = new Uint8Array(0);
  return async (length) => {
    const piece = new Uint8Array(length);
    for (let end = 0; end < length;) {
      if (rest.length === 0) {
        const { value, done } = await reader.read();
        if (done) throw new Error("The server's answer is cut short.");
        rest = value;
      }
      const part = rest.subarray(0, length - end);
      piece.set(part, end);
      end += part.length;
      rest = rest.subarray(part.length);
    }
    return piece;
  };
}

// What the output of a run is until all of the answer is there: its key, its size, and its levels
// that have come so far.
let output = null;

function takeSamples({ key, level, size, pitch, chroma, bytes }, samples) {
  const planes = planesOf(size, pitch, samples, chroma);
  if (level === 0) decoding.set(key, planes);
  if (output?.key !== key) return;
  output.levels[level] = planes;
  showOutput();
}

// Shows what there is of the output in place of the last one.
function showOutput() {
  if (pictures.output?.size.join() !== output.size.join() || !output.levels.some(Boolean)) return;
  if (pictures.output.key !== output.key) {
    pictures.output = Object.assign(new Picture("output", output.size, mean),
      { key: output.key, loading: Promise.resolve() });
  }
  pictures.output.levels = output.levels;
  tiles.clear();
  draw();
  mark(output.levels[0] ? "pixels" : "reduced");
}

// For who measures the page.
const mark = (name) => requestAnimationFrame(() => setTimeout(() => performance.mark(name)));

// Sends a request and takes the pictures of its answer as they come. Returns the rest of it, and in
// `saved` the folder that it was written to, if any.
async function ask(request) {
  let saved;
  const response = await fetch("run", {
    method: "POST", headers: { "Content-Type": "application/json" },
    body: JSON.stringify({ ...request, have: [...decoding.keys()] }),
  });
  if (!response.ok) throw new Error(`The server refuses the request (${response.status}).`);
  const take = piecesOf(response);
  for (;;) {
    const length = new DataView((await take(4)).buffer).getUint32(0, true);
    const packet = JSON.parse(new TextDecoder().decode(await take(length)));
    if (packet.samples) {
      takeSamples(packet.samples, await take(packet.samples.bytes));
    } else if (packet.output) {
      output = { key: packet.output, size: packet.size, levels: [] };
      if (decoding.has(output.key)) output.levels[0] = await decoding.get(output.key);
      showOutput();
    } else if (packet.saved) {
      ({ saved } = packet);
    } else {
      return { saved, ...packet };
    }
  }
}

// Runs what the step asks for. One request is under way, and is cancelled by a new one: then its picture
// is shown, but not compared. The last of the new ones follows.
function run() {
  if (running && !stale) fetch("cancel", { method: "POST", body: String(number) }).catch(() => {});
  stale = true;
  work();
}

// The server writes what comes out of the step. What happens meanwhile follows.
function save() {
  saves.push({ set, changes: asked(), save: true });
  work();
}

function nextRequest() {
  if (saves.length > 0) return saves.shift();
  const first = inspected === undefined;
  stale = first && steps[step] !== null;
  return { set, changes: first ? null : steps[step] };
}

async function work() {
  if (running) return;
  running = true;
  byId("live").setAttribute("aria-busy", "true");
  let saved = "";
  while (stale || saves.length > 0) {
    number = Math.floor(Math.random() * 2 ** 53); // unlike those of other pages
    const request = nextRequest();
    const start = performance.now();
    try {
      const answer = await ask({ ...request, number });
      if (answer.dropped && request.save) saves.unshift(request);
      else if (answer.dropped && !stale) throw new Error("A request of another page took its place.");
      else if (request.save) saved += answer.saved ? `saved in ${answer.saved}; ` : "nothing could be saved; ";
      if (answer.dropped || request.set !== set) continue;
      if (request.changes === null) inspected = answer.data ?? null;
      if (answer.error) throw new Error(answer.error);
      last = { ...answer, changes: request.changes };
      show();
      mark("answer");
      say(`${saved}${faceText()}shown after ${((performance.now() - start) / 1000).toFixed(2)} s`);
    } catch (error) {
      const key = last?.data.pictures.output?.parts[0];
      if (key && output && output.key !== key) show(); // without the picture of a run that came no further
      say(`${saved}${error.message}${/[.)]$/.test(error.message) ? "" : "."} Nothing new is shown.`, true);
    }
  }
  running = false;
  byId("live").removeAttribute("aria-busy");
}

function say(text, wrong = false) {
  byId("said").textContent = text;
  byId("said").className = wrong ? "wrong" : "note";
}

// --- What is shown ---

// Each pinned output can be compared with the new one and with those before it.
function addPins({ pictures: shown, comparisons }) {
  const others = ["output"];
  for (const { name, entry } of pins) {
    const alike = others.filter((other) => shown[other]?.size.join() === entry.size.join());
    comparisons.push(...alike.map((other) => ({ before: name, after: other, framed: true })));
    shown[name] = entry;
    others.push(name);
  }
}

function show() {
  const { data: next, changes, command } = last;
  byId("line").textContent = command;
  byId("pins").replaceChildren(...pins.map((each) =>
    bar(makeButton(each.name, "", () => addStep(each.changes)), make("code", each.command))));
  const shown = { ...next, pictures: { ...next.pictures }, comparisons: [...next.comparisons],
    findings: [...next.findings, ...(changes ? inspected?.findings ?? [] : [])] }; // the set's stay true
  addPins(shown);
  for (const each of shown.comparisons) each.lazy = true; // the next click must not wait for them
  const first = !view;
  showData(shown);
  if (output && shown.pictures.output?.parts[0] === output.key) { // with the level that came first
    Object.assign(pictures.output, { levels: output.levels, loading: Promise.resolve() });
  }
  const used = [...Object.values(shown.pictures), shown.disparity].map((entry) => entry?.parts[0]);
  for (const key of [...decoding.keys()]) if (!used.includes(key)) decoding.delete(key);
  if (first && pair) { // the output alone; space shows what it is compared with
    blinked = true;
    showView(views.find(({ name }) => name === "Blink"));
  }
  markChosen();
  showControls();
}

// --- Steps ---

const asked = () => steps[step] ?? {};

// Adds a step with this change; values that are undefined stay as dumped. A drag makes one step.
function change(values, drag = "") {
  const next = JSON.parse(JSON.stringify({ ...asked(), ...values }));
  if (JSON.stringify(next) === JSON.stringify(steps[step])) return;
  if (drag && drag === dragging) step--;
  addStep(next);
  dragging = drag;
}

function addStep(changes) {
  steps = [...steps.slice(0, step + 1), changes];
  goTo(steps.length - 1);
}

function goTo(next) {
  if (next < 0 || next >= steps.length) return;
  step = next;
  dragging = "";
  showControls();
  run();
}

function showSet(index) {
  set = index;
  inspected = undefined;
  steps = [null];
  pins = [];
  goTo(0);
}

function pin() {
  const entry = data.pictures.output;
  if (!entry) return;
  const { changes, command } = last;
  const words = Object.entries(changes ?? {}).map(([key, value]) => `${key} ${value}`).join(", ");
  const name = `${String.fromCharCode(65 + pins.length)}: ${byId("pinName").value.trim() || words || "as dumped"}`;
  byId("pinName").value = "";
  pins.push({ name, entry, changes, command });
  show();
}

const copyCommand = () => navigator.clipboard.writeText(last.command).then(() => say("copied"),
  () => say("The browser does not let the page copy; the command stands below.", true));

function tapped([x, y]) {
  if (view.picture === "aux" || !data.pictures.main) return;
  change({ focus: scaled({ x, y }, data.pictures.main.size) });
}

// --- Faces ---

// Those of the request: [left, top, width, height] in the main image's pixels.
const faces = () => (asked()["no-faces"] ? [] : asked().face ?? (inspected?.overlays.faces ?? []).map(
  ({ edges: [left, top, right, bottom] }) => [left, top, right - left + 1, bottom - top + 1]));

let drawing = false; // a drag on the picture draws a face or moves one, and keys do
let chosen = -1; // which of the faces the keys move
let drawn = null; // by a drag: { from, at, all }

const faceText = () => {
  const [left, top, width, height] = (drawing && faces()[chosen]) || [];
  return left === undefined ? "" : `face ${chosen} at ${left},${top}, ${width}×${height}: `;
};

function markChosen() {
  data.overlays.faces.forEach((face, i) => { face.chosen = drawing && i === chosen; });
  if (view) drawOverlays();
}

function choose(which) {
  chosen = which;
  dragging = "";
  markChosen();
  say(faceText() ? `${faceText()}chosen` : drawing ? "no face is chosen" : "");
}

function toggleDrawing() {
  drawing = !drawing;
  byId("drawFaces").ariaPressed = drawing;
  for (const element of [byId("picture"), byId("overlay")]) element.style.touchAction = drawing ? "none" : "";
  choose(faces().length - 1);
  byId("clicks").textContent = drawing ? FACE_HELP : FOCUS_HELP;
  if (drawing) byId("picture").focus();
}

// Shows faces before the server does.
function drawFaces(all) {
  const { overlays } = data;
  overlays.faces = all.map(([left, top, width, height], i) =>
    ({ edges: [left, top, left + width - 1, top + height - 1], turn: overlays.faces[i]?.turn ?? 0 }));
  overlaysShown.add("faces");
  markChosen();
}

function setFaces(all, drag = "") {
  drawFaces(all);
  change(all.length ? { face: all, "no-faces": undefined } : { face: undefined, "no-faces": true }, drag);
}

// Within the picture, by so many pixels.
const moved = (face, by) => [0, 1].map((i) => clamp(face[i] + by[i], 0, view.size[i] - face[i + 2]))
  .concat(face.slice(2));
const resized = (face, by) => face.slice(0, 2).concat(
  [0, 1].map((i) => clamp(face[i + 2] + by[i], 1, view.size[i] - face[i])));

const faceAround = (all, [x, y]) => all.findLastIndex(([left, top, width, height]) =>
  x >= left && x < left + width && y >= top && y < top + height);

function pressFace(event) {
  const from = drawing && view.picture !== "aux" && event.button === 0 && pixelAt(positionOf(event));
  if (!from) return;
  event.stopPropagation();
  byId("stage").setPointerCapture(event.pointerId);
  const all = [...faces()];
  const which = faceAround(all, from);
  choose(which < 0 ? all.length : which);
  drawn = { from, all, at: all[which] };
}

function dragFace(event) {
  if (!drawn) return;
  event.stopPropagation();
  const { scale, left, top } = frame();
  const [x, y] = positionOf(event);
  const to = [(x - left) / scale, (y - top) / scale].map((value, i) => clamp(Math.floor(value), 0, view.size[i] - 1));
  const { from, at, all } = drawn;
  drawn.moved = true;
  all[chosen] = at ? moved(at, [to[0] - from[0], to[1] - from[1]])
    : [0, 1].map((i) => Math.min(from[i], to[i])).concat([0, 1].map((i) => Math.abs(from[i] - to[i]) + 1));
  drawFaces(all);
}

function releaseFace(event) {
  if (!drawn) return;
  event.stopPropagation();
  const { all, moved: changed } = drawn;
  drawn = null;
  if (changed && event.type === "pointerup") setFaces(all);
}

// Chooses the face at the cursor, or draws one around it.
function takeFace(all) {
  const which = faceAround(all, [spot.x, spot.y]);
  const side = Math.ceil(Math.min(...view.size) / 6);
  if (which < 0) setFaces([...all, moved([spot.x, spot.y, side, side], [-side >> 1, -side >> 1])]);
  choose(which < 0 ? all.length : which);
}

function pressFaceKey(event) {
  if (!drawing || !view || view.picture === "aux" || event.altKey) return;
  if (event.target.closest("select, input, button, a, #divide, #log")) return;
  const all = faces();
  const face = all[chosen];
  const { key } = event;
  if (key === "PageDown" && all.length) choose((chosen + 1) % all.length);
  else if (face && ["Enter", "Escape"].includes(key)) choose(-1);
  else if (key === "Enter" && spot.marked) takeFace(all);
  else if (face && key === "Delete") setFaces(all.filter((each) => each !== face));
  else if (face && ARROWS[key]) {
    const by = ARROWS[key].map((pixels) => pixels * (event.shiftKey ? CURSOR_STEP : 1));
    setFaces(all.with(chosen, (event.ctrlKey || event.metaKey ? resized : moved)(face, by)), "face");
    say(faceText());
  } else return;
  event.preventDefault();
  event.stopPropagation();
}

// --- Controls ---

const controls = []; // functions that show the step's values

const makeWith = (name, properties) => Object.assign(make(name), properties);

function addControl(name, element, showValue) {
  const label = make("label", `${name} `);
  label.append(element);
  controls.push(showValue);
  return label;
}

// `choices`: pairs of a text and a value; undefined is "as dumped".
function select(name, key, choices) {
  const element = make("select");
  element.append(...choices.map(([text], i) => new Option(text, i)));
  element.addEventListener("change", () => change({ [key]: choices[Number(element.value)][1] }));
  return addControl(name, element, () => {
    element.value = Math.max(0, choices.findIndex(([, value]) => value === asked()[key]));
  });
}

function checkbox(name, checked, changes) {
  const element = makeWith("input", { type: "checkbox" });
  element.addEventListener("change", () => change(changes(element.checked)));
  return addControl(name, element, () => { element.checked = checked(); });
}

function blurSlider() {
  const element = makeWith("input", { type: "range", min: 0, max: 100 });
  const level = make("output");
  element.addEventListener("input", () => {
    level.textContent = element.value;
    change({ blur: Number(element.value) }, "blur");
  });
  element.addEventListener("change", () => { dragging = ""; });
  const label = addControl("Blur", element, () => {
    element.value = asked().blur ?? inspected?.sections.find(({ title }) => title === "Parameters")?.values.blur ?? 100;
    level.textContent = element.value;
  });
  label.append(level);
  return label;
}

// Words of numbers in this form, such as "WxH". `take` gets a list of numbers for each word.
function textInput(name, size, form, take, showValue) {
  const element = makeWith("input", { type: "text", size, placeholder: form });
  const wanted = new RegExp(`^${form.replaceAll(/[A-Z]/g, "\\d+")}$`);
  element.addEventListener("change", () => {
    const words = element.value.trim().split(/\s+/).filter(Boolean);
    if (words.every((word) => wanted.test(word))) take(words.map((word) => word.match(/\d+/g).map(Number)));
    else say(`${name}: expected ${form}`, true);
  });
  return addControl(name, element, () => { element.value = showValue(); });
}

// The part of its sensor that an image shows.
const cropInput = (name, key) => textInput(name, 9, "WxH", ([sides]) => change({ [key]: sides }),
  () => asked()[key]?.join("x") ?? "");

function setSelect() {
  const element = makeWith("select", { id: "sets" });
  element.addEventListener("change", () => showSet(Number(element.value)));
  return addControl("Set", element, () => {
    if (element.length !== sets.length) element.replaceChildren(...sets.map((name, i) => new Option(name, i)));
    element.value = set;
    element.parentElement.hidden = sets.length < 2;
  });
}

function showControls() {
  for (const showValue of controls) showValue();
  byId("undo").disabled = step === 0;
  byId("redo").disabled = step === steps.length - 1;
}

function button(id, text, key, press) {
  if (key) keys[key] = press;
  return Object.assign(makeButton(text, key, press), { id });
}

function bar(...elements) {
  const element = make("div", undefined, "bar");
  element.append(...elements);
  return element;
}

function makeControls() {
  const section = makeWith("section", { id: "live", ariaLabel: "Request" });
  const turns = [0, 90, 180, 270].map((degrees) => [`${degrees}°`, degrees]);
  const libraries = Object.entries(setup.files).filter(([, names]) => names.length > 0)
    .map(([key, names]) => select(key, key, [...names, "default"].map((name, i) => [name, i || undefined])));
  section.append(
    bar(setSelect(), blurSlider(),
      checkbox("Faces", () => faces().length > 0,
        (checked) => ({ face: undefined, "no-faces": checked ? undefined : true })),
      textInput("Faces at", 16, "L,T,W,H", (all) => setFaces(all), () => faces().join(" ")),
      select("Faces turned", "face-rotation", [["as dumped", undefined], ...turns]),
      select("Rotation", "rotation", [["as dumped", undefined], ...turns]),
      select("Debug view", "debug-view", [["none", undefined], ["main", 1], ["aux", 2], ["both", 3]]),
      select("Log", "log", [["errors", undefined], ["node", 2], ["all", 6]]),
      checkbox("Skip rendering", () => Boolean(asked()["skip-bokeh"]),
        (checked) => ({ "skip-bokeh": checked || undefined })),
      cropInput("Main crop", "main-crop"), cropInput("Aux crop", "aux-crop"), ...libraries),
    bar(button("undo", "Undo", "u", () => goTo(step - 1)),
      button("redo", "Redo", "r", () => goTo(step + 1)),
      button("asDumped", "As dumped", "", () => goTo(0)),
      makeWith("input", { id: "pinName", type: "text", size: 12, placeholder: "name", ariaLabel: "Name of the pin" }),
      button("pin", "Pin", "", pin),
      button("copy", "Copy command", "", copyCommand),
      ...(location.search ? [button("all", "All sets", "", () => { location.href = "./"; })] : []),
      ...(setup.saves ? [button("save", "Save", "s", save)] : []),
      Object.assign(button("drawFaces", "Draw faces", "n", toggleDrawing), { ariaPressed: false })),
    makeWith("p", { id: "clicks", textContent: FOCUS_HELP }), makeWith("code", { id: "line" }), makeWith("div", { id: "pins" }));
  byId("viewer").after(section);
  // A screen reader leaves an application's keys to the page.
  const picture = Object.assign(byId("picture"), { tabIndex: 0, role: "application" });
  picture.addEventListener("focus", () => picture.matches(":focus-visible") && !spot.marked && toggleCursor());
  document.querySelector("header").append(makeWith("p", { id: "said", role: "status" }));
}

// New sets show up by themselves. The server ends when no page has asked for long.
async function poll() {
  try {
    const response = await fetch("sets");
    if (!response.ok) throw new Error();
    const now = await response.json();
    if (now.length !== sets.length) {
      sets = now;
      showControls();
      say(`new: ${sets.at(-1)}`);
    }
  } catch {
    say("The server has ended.", true);
  }
}

makeControls();
for (const [type, handle] of Object.entries({ pointerdown: pressFace, pointermove: dragFace,
  pointerup: releaseFace, pointercancel: releaseFace })) {
  byId("stage").addEventListener(type, handle, { capture: true }); // before the page's own
}
keys.Enter = () => spot.marked && tapped([spot.x, spot.y]);
document.addEventListener("keydown", pressFaceKey, { capture: true });
onTap = tapped;
setInterval(poll, POLL_MILLISECONDS);
run();
