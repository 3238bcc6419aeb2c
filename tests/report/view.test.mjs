// The live page of the built tool in a real browser. Environment: as report.test.mjs.

import assert from "node:assert/strict";
import { once } from "node:events";
import { spawn, spawnSync } from "node:child_process";
import { cpSync, existsSync, mkdirSync, readdirSync, readFileSync, rmSync, writeFileSync } from "node:fs";
import path from "node:path";
import { after, before, test } from "node:test";
import { setTimeout as pause } from "node:timers/promises";

import { chromium } from "playwright-core";

import { HEIGHT, Material, SQUARE, WIDTH } from "./material.mjs";

let browser;
let material;
const tools = [];

before(async () => {
  const folder = path.resolve("live");
  rmSync(folder, { recursive: true, force: true });
  material = new Material(process.env.BOKEHNODE, folder);
  material.run(0, "render", "left.png", "right.png", "-o", "scene", "--focus", "160,121", "--dump");
  browser = await chromium.launch({ executablePath: process.env.CHROMIUM, args: ["--no-sandbox"] });
});

after(async () => {
  await browser?.close();
  for (const tool of tools.filter(({ exitCode, signalCode }) => exitCode === null && signalCode === null)) {
    tool.kill();
    await once(tool, "exit");
  }
});

// The live page of the scene, with what the page shows at first; any message of the browser fails.
async function open(t, options = {}, ...words) {
  const page = await openAny(t, options, "scene", ...words);
  await shown(page, "");
  return page;
}

async function serve(words, options = {}) {
  const tool = spawn(process.env.BOKEHNODE, ["view", ...words], { cwd: material.folder, ...options });
  tools.push(tool);
  const [address] = await once(tool.stdout.setEncoding("utf8"), "data");
  return { tool, address: address.trim() };
}

async function openAny(t, options, ...words) {
  const { address } = await serve(words);
  const context = await browser.newContext({ viewport: { width: 1280, height: 1000 }, ...options });
  const page = await context.newPage();
  const trouble = [];
  page.on("console", (message) => trouble.push(message.text()));
  page.on("pageerror", (error) => trouble.push(error.message));
  await page.goto(address);
  t.after(async () => {
    await page.screenshot({ path: `screenshots/${t.name.replaceAll(/\W+/g, "-")}.png` });
    await context.close();
    assert.deepEqual(trouble, []);
  });
  return page;
}

// Waits until the page shows the run of these options, and returns a checksum of its output.
async function shown(page, options) {
  await page.waitForFunction((ending) => !document.querySelector("#live[aria-busy]") &&
    document.getElementById("line").textContent.match(/^bokehnode replay \S+(.*)$/)?.[1] === ending,
  options && ` ${options}`);
  return page.evaluate(async () => {
    await pictures.output.ready();
    return pictures.output.levels[0][0].values.reduce((sum, value) => (31 * sum + value) >>> 0, 7);
  });
}

const ENGINE = path.join(path.dirname(process.env.BOKEHNODE), "../lib/libtessola_dualcam_refocus_image.so");
const NEAR = [160, 121];
const FAR = [30, 200];

async function clickAt(page, [x, y]) {
  const box = await page.locator("#stage").boundingBox();
  await page.mouse.click(box.x + ((x + 0.5) * box.width) / WIDTH, box.y + ((y + 0.5) * box.height) / HEIGHT);
}

test("a click is the focus, a slider the blur, and both can be undone", async (t) => {
  const page = await open(t);
  const dumped = await shown(page, "");
  assert.ok(NEAR[0] > SQUARE.left && FAR[0] < SQUARE.left);
  await clickAt(page, FAR);
  const far = await shown(page, `--focus=${FAR}`);
  assert.notEqual(far, dumped, "the picture follows");
  assert.equal(await page.locator("#overlay .focus text").textContent(), `focus ${FAR}`);
  assert.match(await page.locator("#verdict").textContent(), /^differs from the dump/);

  const slider = page.getByRole("slider", { name: "Blur" });
  assert.equal(await slider.inputValue(), "100");
  await slider.fill("40");
  const soft = await shown(page, `--focus=${FAR} --blur=40`);
  assert.notEqual(soft, far);
  await page.locator("#pin").click();
  await page.locator("#undo").click();
  assert.equal(await shown(page, `--focus=${FAR}`), far);
  assert.equal(await slider.inputValue(), "100");
  // What was pinned is compared with what is shown.
  await page.getByRole("button", { name: "Difference" }).click();
  await page.getByLabel("Compare").selectOption({ label: `A: focus ${FAR}, blur 40 | output` });
  await page.locator("#scaleTitle", { hasText: /A: .* largest difference \d+/ }).waitFor();
  await page.locator("#asDumped").click();
  assert.equal(await shown(page, ""), dumped);

  // A click there cuts what followed off, but not what was pinned.
  await page.evaluate(() => scrollTo(0, 0));
  await page.mouse.dblclick(...place(await page.locator("#stage").boundingBox(), [20, 30]));
  await shown(page, "--focus=20,30");
  assert.equal(await page.evaluate(() => place.zoom), 1, "a double click is two clicks");
  assert.match(await page.locator("#pins code").textContent(), new RegExp(` --focus=${FAR} --blur=40$`));
  await page.locator("#pins button").click();
  assert.equal(await shown(page, `--focus=${FAR} --blur=40`), soft);
});

// Before the page has got an answer to the first of these changes. Values of selects and inputs by their
// selectors; null presses a button.
const hurry = (page, ...changes) => page.evaluate((all) => {
  for (const [selector, value] of all) {
    const element = document.querySelector(selector);
    if (value !== null) element.value = value;
    if (value !== null) element.dispatchEvent(new Event(element.tagName === "SELECT" ? "change" : "input"));
    else element.click();
  }
}, changes);

test("what is clicked during a run belongs to its set, and what is to be saved is saved", async (t) => {
  for (const [set, ...words] of [["a"], ["b", "--face", "20,30,40,50"]]) {
    material.run(0, "render", "left.png", "right.png", "-o", `two/${set}`, "--focus", "160,121", "--dump", ...words);
  }
  const page = await openAny(t, {}, "two", "-o", "kept");
  await page.goto(`${page.url()}live?0`);
  await shown(page, "");
  await page.locator("#sets option").nth(1).waitFor({ state: "attached" });
  const blur = "#live input[type=range]";
  await hurry(page, [blur, 30], ["#sets", 1], [blur, 60]);
  await shown(page, "--blur=60");
  await page.locator("#line", { hasText: "/two/b/" }).waitFor();
  assert.equal(await page.getByLabel("Faces at").inputValue(), "20,30,40,50");

  await hurry(page, [blur, 50], ["#save", null], [blur, 70]);
  await shown(page, "--blur=70");
  await page.locator("#said", { hasText: /^saved in .*kept.*; / }).waitFor();
  const [folder, ...others] = readdirSync(path.join(material.folder, "kept"));
  assert.deepEqual(others, []);
  const kept = path.join(material.folder, "kept", folder);
  const text = readdirSync(kept).find((name) => name.endsWith("_metadata.txt"));
  assert.match(readFileSync(path.join(kept, text), "utf8"), /blur\D*50\b/i);
});

test("a browser that is killed during a run leaves nothing", async () => {
  const source = path.join(material.folder, "hang.c");
  writeFileSync(source, `#include <fcntl.h>
    #include <unistd.h>
    __attribute__((constructor)) static void hang(void) { creat("begun", 0666); for (;;) pause(); }\n`);
  assert.equal(spawnSync("cc", ["-shared", "-o", "hang.so", source], { cwd: material.folder }).status, 0);
  const temporary = path.join(material.folder, "temporary");
  mkdirSync(temporary);
  const { tool, address } = await serve(["scene", "--engine", ENGINE, "--engine", "hang.so", "--timeout", "3"],
    { detached: true, env: { ...process.env, TMPDIR: temporary } }); // with a process group of its own

  const server = await chromium.launchServer({ executablePath: process.env.CHROMIUM, args: ["--no-sandbox"] });
  const killed = await (await chromium.connect(server.wsEndpoint())).newPage();
  await killed.goto(address);
  await shown(killed, "");
  await killed.getByLabel("engine").selectOption("hang.so");
  while (!existsSync(path.join(material.folder, "begun"))) await pause(10);
  server.process().kill("SIGKILL");
  await once(server, "close");

  const page = await browser.newPage();
  await page.goto(address);
  await page.locator("#line", { hasText: "replay" }).waitFor();
  await clickAt(page, FAR);
  await page.locator("#line", { hasText: `--focus=${FAR}` }).waitFor();
  await page.close();
  tool.kill();
  await once(tool, "exit");
  assert.equal(spawnSync("pgrep", ["-r", "D,R,S,T", "-g", String(tool.pid)]).status, 1, "no process is left");
  assert.deepEqual(readdirSync(temporary), []);
});

for (const width of [360, 1280]) {
  test(`all of it by keys at ${width} pixels`, async (t) => {
    const page = await open(t, { viewport: { width, height: 900 } });
    const press = async (...keys) => {
      for (const key of keys) await page.keyboard.press(key);
    };
    const walkTo = async (selector, key = "Tab") => {
      const there = () => page.evaluate((each) => document.activeElement.matches(each), selector);
      for (let i = 0; !await there(); i++) {
        assert.ok(i < 60, `${selector} is in the tab order`);
        await press(key);
      }
    };
    const dumped = await shown(page, "");
    await walkTo("#picture");
    await press("Shift+ArrowLeft", "Enter");
    let options = `--focus=${NEAR[0] - 10},${NEAR[1]}`;
    await shown(page, options);
    await walkTo("input[type=range]");
    await press("ArrowLeft", "ArrowLeft");
    options += " --blur=98";
    await shown(page, options);

    await walkTo("#drawFaces");
    await press(" ");
    await page.locator("#picture:focus").waitFor();
    await press("ArrowLeft", "Enter"); // 40 pixels around the cursor
    await shown(page, `${options} --face=129,101,40,40`);
    await press("Shift+ArrowRight", "ArrowDown", "Control+ArrowRight");
    await shown(page, `${options} --face=139,102,41,40`);
    await page.getByRole("status").filter({ hasText: /^face 0 at 139,102, 41×40: shown after/ }).waitFor();
    assert.equal(await page.locator("#overlay .faces .chosen").count(), 1);
    await page.screenshot({ path: `screenshots/keys-face-${width}.png`, fullPage: true });
    await press("Enter", "Shift+ArrowRight", "Shift+ArrowDown", "Shift+ArrowDown", "Shift+ArrowDown", "Enter"); // outside
    await shown(page, `${options} --face=139,102,41,40 --face=139,131,40,40`);
    await press("Delete", "PageDown", "ArrowLeft");
    await shown(page, `${options} --face=138,102,41,40`);
    await walkTo("input[type=checkbox]");
    await press(" ");
    await shown(page, `${options} --no-faces`);

    await walkTo("#undo");
    await press("Enter", "Enter", "Enter");
    await shown(page, `${options} --face=139,102,41,40 --face=139,131,40,40`);
    await press("Enter", "Enter", "Enter");
    const near = await shown(page, options);
    await walkTo("#pinName");
    await page.keyboard.type("near");
    await walkTo("#pin");
    await press(" ");
    await walkTo("#asDumped", "Shift+Tab");
    await press("Enter");
    assert.notEqual(await shown(page, ""), near);
    assert.equal(await shown(page, ""), dumped);
    await walkTo("#pair", "Shift+Tab");
    await press("ArrowDown");
    await walkTo("#views button:nth-child(3)", "Shift+Tab");
    await press("Enter");
    await page.locator("#scaleTitle", { hasText: /A: near against output.* largest difference \d+/ }).waitFor();
    await page.locator("#views button:nth-child(3):focus").waitFor();
    await page.screenshot({ path: `screenshots/keys-compared-${width}.png`, fullPage: true });
    assert.equal(await page.evaluate(() => document.documentElement.scrollWidth), width);
  });
}

test("a drag leaves the last value, and a wrong one is said", async (t) => {
  const page = await open(t);
  const first = page.waitForRequest(/run$/);
  const cancel = page.waitForRequest(/cancel$/);
  await page.getByRole("slider", { name: "Blur" }).evaluate((slider) => {
    for (let value = 90; value >= 20; value--) {
      slider.value = value;
      slider.dispatchEvent(new Event("input"));
    }
    slider.dispatchEvent(new Event("change"));
  });
  await shown(page, "--blur=20");
  assert.equal((await cancel).postData(), String((await first).postDataJSON().number));
  await page.locator("#undo").click();
  await shown(page, "");
  await page.getByLabel("Main crop").fill("9999999x9999999");
  await page.getByLabel("Main crop").press("Enter");
  await page.locator("#said.wrong", { hasText: "--main-crop: expected" }).waitFor();
  await page.locator("#undo").click();
  await clickAt(page, FAR);
  await shown(page, `--focus=${FAR}`);
});

const place = (box, [x, y]) => [box.x + ((x + 0.5) * box.width) / WIDTH, box.y + ((y + 0.5) * box.height) / HEIGHT];

async function dragOver(page, from, to) {
  const box = await page.locator("#stage").boundingBox();
  await page.mouse.move(...place(box, from));
  await page.mouse.down();
  await page.mouse.move(...place(box, to), { steps: 4 });
  await page.mouse.up();
}

test("two photos: faces are drawn, moved and typed, and the step is saved", async (t) => {
  const page = await openAny(t, {}, "left.png", "right.png", "-o", "saved");
  await shown(page, "");
  await page.keyboard.press("n");
  await dragOver(page, [120, 80], [179, 139]);
  await shown(page, "--face=120,80,60,60");
  assert.equal(await page.locator("#overlay .faces text").textContent(), "face 0, upright");
  await dragOver(page, [130, 90], [10, 70]); // against the picture's edge
  await shown(page, "--face=0,60,60,60");
  await page.keyboard.press("n");
  const typed = page.getByLabel("Faces at");
  assert.equal(await typed.inputValue(), "0,60,60,60");
  await typed.fill("10,20,30,40 200,100,50,60");
  await typed.press("Enter");
  await shown(page, "--face=10,20,30,40 --face=200,100,50,60");
  await page.locator("#save").click();
  await page.locator("#said", { hasText: "saved in " }).waitFor();
  const folder = readdirSync(path.join(material.folder, "saved")).find((name) => name.startsWith("IMG_"));
  material.run(0, "inspect", path.join("saved", folder));
  await page.getByLabel("Faces", { exact: true }).uncheck();
  await shown(page, "--no-faces");
});

test("an engine that crashes is a message, and the next run works", async (t) => {
  const source = path.join(material.folder, "crash.c");
  writeFileSync(source, "__attribute__((constructor)) static void crash(void) { __builtin_trap(); }\n");
  assert.equal(spawnSync("cc", ["-shared", "-o", "crash.so", source], { cwd: material.folder }).status, 0);
  const page = await openAny(t, {}, "scene", "--engine", ENGINE, "--engine", "crash.so");
  await page.locator("#views button").first().waitFor();
  await page.getByLabel("engine").selectOption("crash.so");
  await page.locator("#said.wrong", { hasText: /^crashed: signal \d+/ }).waitFor();
  await page.locator("#undo").click();
  await clickAt(page, FAR);
  await page.locator("#line", { hasText: `--focus=${FAR}` }).waitFor();
  assert.match(await page.locator("#verdict").textContent(), /^differs from the dump/);
  await page.getByLabel("engine").selectOption("default"); // a given one can be compared with it
  await page.locator("#line", { hasText: new RegExp(`replay \\S+ --focus=${FAR}$`) }).waitFor();
});

test("a set without pictures has a page too", async (t) => {
  const folder = path.join(material.folder, "text alone");
  mkdirSync(folder);
  const [text] = readdirSync(path.join(material.folder, "scene")).filter((name) => name.endsWith("_metadata.txt"));
  cpSync(path.join(material.folder, "scene", text), path.join(folder, text));
  const page = await openAny(t, {}, "text alone");
  await page.locator("#said", { hasText: "shown after" }).waitFor();
  await page.keyboard.press("n");
  await page.getByLabel("Faces at").fill("1,2,3,4");
  await page.getByLabel("Faces at").press("Enter");
  await page.locator("#said.wrong", { hasText: /main file: expected|Nothing new is shown/ }).waitFor();
  await page.locator("#undo").click();
  await page.locator("#said", { hasText: "shown after" }).waitFor();
});

test("sets that appear show up, in the page of one and in the page of many", async (t) => {
  const folder = path.join(material.folder, "growing");
  const addSet = (stem) => {
    mkdirSync(folder, { recursive: true });
    for (const name of readdirSync(path.join(material.folder, "scene"))) {
      if (name.startsWith("IMG_")) {
        cpSync(path.join(material.folder, "scene", name), path.join(folder, name.replace(/^IMG_\d+_\d+/, stem)));
      }
    }
  };
  addSet("IMG_20240101_000001");
  const page = await openAny(t, {}, "growing");
  await shown(page, "");
  addSet("IMG_20240101_000002");
  await page.locator("#said", { hasText: "new: " }).waitFor();
  await page.locator("#sets").selectOption({ index: 1 });
  await page.locator("#title", { hasText: "IMG_20240101_000002" }).waitFor();

  await page.reload(); // there are many now
  await page.locator("#tiles .tile").nth(1).waitFor();
  addSet("IMG_20240101_000003");
  await page.locator("#tiles .tile", { hasText: "000003" }).click();
  await page.locator("#title", { hasText: "IMG_20240101_000003" }).waitFor();
  await clickAt(page, FAR);
  await shown(page, `--focus=${FAR}`);
  await page.locator("#all").click();
  await page.locator("#tiles .tile").nth(2).waitFor();
});
