"use strict";

// The live page: a change is a request to the server, which runs it, and the page shows the answer.

const POLL_MILLISECONDS = 2000;
const setup = data.live; // what the server was started with
let sets = setup.sets;
let set = sets.length - 1;

// What is changed in the dumped request, a step each; null shows the set as it was dumped.
let steps = [null];
let step = 0;
let dragging = ""; // the control whose drag made the last step

let inspected = null; // the data of the set as it was dumped
let last = null; // what is shown
let pins = []; // outputs that are kept, to be compared: { name, entry }
let running = false;
let stale = false; // what runs is not what is asked for any more

// --- The server ---

// Data of a picture goes straight to where decoded pictures are kept.
function takeAnswer(buffer) {
  const length = new DataView(buffer).getUint32(0, true);
  const answer = JSON.parse(new TextDecoder().decode(new Uint8Array(buffer, 4, length)));
  let at = 4 + length;
  for (const { key, size, pitch, bytes } of answer.blobs ?? []) {
    decoding.set(key, planesOf(size, pitch, new Uint8Array(buffer, at, bytes)));
    at += bytes;
  }
  return answer;
}

async function ask(request) {
  const response = await fetch("run", {
    method: "POST", headers: { "Content-Type": "application/json" },
    body: JSON.stringify({ ...request, have: [...decoding.keys()] }),
  });
  if (response.status === 409) return null; // another page's request took its place
  if (!response.ok) throw new Error(`The server refuses the request (${response.status}).`);
  return takeAnswer(await response.arrayBuffer());
}

// Runs what the step asks for. One request is under way; of those meanwhile the last one follows.
async function run() {
  stale = true;
  if (running) return;
  running = true;
  byId("live").setAttribute("aria-busy", "true");
  while (stale) {
    stale = false;
    const request = { set, changes: steps[step] };
    const start = performance.now();
    try {
      const answer = await ask(request);
      if (!answer || request.set !== set) continue;
      if (answer.error) throw new Error(answer.error);
      if (request.changes === null) inspected = answer.data;
      last = { ...answer, replayed: request.changes !== null };
      show();
      say(`shown after ${((performance.now() - start) / 1000).toFixed(2)} s`);
    } catch (error) {
      say(`${error.message}${/[.)]$/.test(error.message) ? "" : "."} Nothing new is shown.`, true);
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

const sameSize = (a, b) => a.size.join() === b.size.join();

function addPins(next) {
  for (const [i, { name, entry }] of pins.entries()) {
    next.pictures[name] = entry;
    const others = [["output", next.pictures.output], ...pins.slice(0, i).map((pin) => [pin.name, pin.entry])];
    for (const [other, picture] of others) {
      if (picture && sameSize(picture, entry)) next.comparisons.push({ before: name, after: other, framed: true });
    }
  }
}

function show() {
  const { data: next, replayed } = last;
  byId("line").textContent = last.command;
  const shown = { ...next, pictures: { ...next.pictures }, comparisons: [...next.comparisons],
    findings: [...next.findings, ...(replayed ? inspected?.findings ?? [] : [])] }; // the set's stay true
  addPins(shown);
  const first = !view;
  showData(shown);
  const used = [...Object.values(shown.pictures), shown.disparity].map((entry) => entry?.parts[0]);
  for (const key of [...decoding.keys()]) if (!used.includes(key)) decoding.delete(key);
  if (first && pair) { // the output alone; space shows what it is compared with
    blinked = true;
    showView(views.find(({ name }) => name === "Blink"));
  }
  showControls();
}

// --- Steps ---

const asked = () => steps[step] ?? {};

// Adds a step with this change; values that are undefined stay as dumped. A drag makes one step.
function change(values, drag = "") {
  const next = JSON.parse(JSON.stringify({ ...asked(), ...values }));
  if (JSON.stringify(next) === JSON.stringify(steps[step])) return;
  if (drag && drag === dragging) step--;
  dragging = drag;
  steps = [...steps.slice(0, step + 1), next];
  step = steps.length - 1;
  showControls();
  run();
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
  steps = [null];
  step = 0;
  pins = [];
  run();
}

function pin() {
  const entry = data.pictures.output;
  if (!entry) return;
  const words = Object.entries(asked()).map(([key, value]) => `${key} ${value}`).join(", ");
  const name = `${String.fromCharCode(65 + pins.length)}: ${byId("pinName").value.trim() || words || "as dumped"}`;
  byId("pinName").value = "";
  pins.push({ name, entry });
  show();
}

async function copyCommand() {
  try {
    await navigator.clipboard.writeText(last.command);
    say("copied");
  } catch {
    say("The browser does not let the page copy; the command stands below.", true);
  }
}

function tapped([x, y]) {
  if (view.picture === "aux" || !data.pictures.main) return;
  change({ focus: scaled({ x, y }, data.pictures.main.size) });
}

// --- Controls ---

const controls = []; // functions that show the step's values

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
  const element = make("input");
  element.type = "checkbox";
  element.addEventListener("change", () => change(changes(element.checked)));
  return addControl(name, element, () => { element.checked = checked(); });
}

function blurSlider() {
  const element = make("input");
  const number = make("output");
  Object.assign(element, { type: "range", min: 0, max: 100 });
  element.addEventListener("input", () => {
    number.textContent = element.value;
    change({ blur: Number(element.value) }, "blur");
  });
  element.addEventListener("change", () => { dragging = ""; });
  const label = addControl("Blur", element, () => {
    element.value = asked().blur ?? inspected?.sections.find(({ title }) => title === "Parameters")?.values.blur ?? 100;
    number.textContent = element.value;
  });
  label.append(number);
  return label;
}

// The part of its sensor that an image shows, as text: "4000x3000".
function cropInput(name, key) {
  const element = make("input");
  Object.assign(element, { type: "text", size: 9, placeholder: "as dumped", pattern: "\\d+x\\d+" });
  element.addEventListener("change", () => {
    const sides = /^\s*(\d+)\s*[x×]\s*(\d+)\s*$/.exec(element.value);
    if (sides || !element.value.trim()) change({ [key]: sides ? sides.slice(1).map(Number) : undefined });
    else say(`${name}: expected WIDTHxHEIGHT`, true);
  });
  return addControl(name, element, () => { element.value = asked()[key]?.join("x") ?? ""; });
}

const fileChoices = (names) => names.map((name, i) => [name, i || undefined]);

function setSelect() {
  const element = make("select");
  element.id = "sets";
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
  const element = makeButton(text, key, press);
  element.id = id;
  return element;
}

function bar(...elements) {
  const element = make("div", undefined, "bar");
  element.append(...elements);
  return element;
}

function makeControls() {
  const section = make("section");
  section.id = "live";
  section.setAttribute("aria-label", "Request");
  const turns = [0, 90, 180, 270].map((degrees) => [`${degrees}°`, degrees]);
  const pinName = make("input");
  Object.assign(pinName, { id: "pinName", type: "text", size: 12, placeholder: "name" });
  pinName.setAttribute("aria-label", "Name of what is pinned");
  const libraries = Object.entries(setup.files).filter(([, names]) => names.length > 1)
    .map(([key, names]) => select(key, key, fileChoices(names)));
  section.append(
    bar(setSelect(), blurSlider(),
      checkbox("Faces", () => !asked().noFaces && inspected?.overlays.faces.length > 0,
        (checked) => ({ noFaces: checked ? undefined : true })),
      select("Rotation", "rotation", [["as dumped", undefined], ...turns]),
      select("Debug view", "debugView", [["none", undefined], ["main", 1], ["aux", 2], ["both", 3]]),
      select("Log", "log", [["errors", undefined], ["node", 2], ["all", 6]]),
      checkbox("Skip rendering", () => Boolean(asked().skipBokeh),
        (checked) => ({ skipBokeh: checked || undefined })),
      cropInput("Main crop", "mainCrop"), cropInput("Aux crop", "auxCrop"), ...libraries),
    bar(button("undo", "Undo", "u", () => goTo(step - 1)),
      button("redo", "Redo", "r", () => goTo(step + 1)),
      button("asDumped", "As dumped", "", () => goTo(0)),
      pinName, button("pin", "Pin", "", pin),
      button("copy", "Copy command", "", copyCommand)),
    make("p", "A click or tap on the picture, or Enter at the cursor, is the focus point."),
    Object.assign(make("code"), { id: "line" }));
  byId("viewer").after(section);
  document.querySelector("header").append(Object.assign(make("p"), { id: "said", role: "status" }));
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
keys.Enter = () => spot.marked && tapped([spot.x, spot.y]);
keys.u = () => goTo(step - 1);
keys.r = () => goTo(step + 1);
onTap = tapped;
setInterval(poll, POLL_MILLISECONDS);
run();
