// Measures the live page: what it adds to the engine's time between a click and the picture.
// Environment: as view.test.mjs. Arguments: a label, a folder with one dump set, the number of
// clicks, and the targets in seconds for the first picture and for its pixels.

import { spawn } from "node:child_process";
import { once } from "node:events";

import { chromium } from "playwright-core";

const [label, folder, clicks, ...targets] = process.argv.slice(2);

const tool = spawn(process.env.BOKEHNODE, ["view", folder]);
const [address] = await once(tool.stdout.setEncoding("utf8"), "data");
const browser = await chromium.launch({ executablePath: process.env.CHROMIUM, args: ["--no-sandbox"] });
const page = await browser.newPage({ viewport: { width: 1280, height: 1000 } });
await page.goto(address.trim());
const idle = () => page.waitForFunction(() => !document.querySelector("[aria-busy=true]"));
await page.waitForFunction(() => document.querySelector("#views button"));
await idle();

// Seconds from the click to each mark, without the engine's.
async function click(i) {
  const stage = await page.locator("#stage").boundingBox();
  await page.evaluate(() => {
    performance.clearMarks();
    byId("stage").addEventListener("pointerup", ({ timeStamp }) => { window.clicked = timeStamp; }, { once: true });
  });
  // Far apart, so that each one has another focus.
  await page.mouse.click(stage.x + stage.width * (0.1 + 0.8 * ((i * 0.382) % 1)),
    stage.y + stage.height * (0.1 + 0.8 * ((i * 0.618) % 1)));
  await page.waitForFunction(() => performance.getEntriesByName("answer").length > 0);
  const result = await page.evaluate(() => {
    const times = data.sections.find(({ title }) => title === "Time and memory").values.milliseconds;
    const engine = Object.entries(times).reduce((sum, [name, time]) => sum + (name.startsWith("TSL_") ? time : 0), 0);
    const after = (name) => (performance.getEntriesByName(name)[0].startTime - window.clicked - engine) / 1000;
    const reduced = performance.getEntriesByName("reduced").length > 0;
    return { engine: engine / 1000, first: after(reduced ? "reduced" : "pixels"), pixels: after("pixels"), answer: after("answer") };
  });
  await idle();
  return result;
}

await click(0); // loads the node
const results = [];
for (let i = 1; i <= Number(clicks); i++) results.push(await click(i));
const median = (name) => results.map((each) => each[name]).sort((a, b) => a - b)[results.length >> 1].toFixed(2);
console.log(`${label}: engine ${median("engine")} s; beyond it first picture ${median("first")} s (target ${targets[0]}), ` +
  `pixels ${median("pixels")} s (target ${targets[1]}), all of the page ${median("answer")} s`);
await browser.close();
tool.kill();
