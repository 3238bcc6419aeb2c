// The README's picture of the live page. Environment: as view.test.mjs. Arguments: the two photos and
// the JPEG file to write.

import { spawn } from "node:child_process";
import { once } from "node:events";

import { chromium } from "playwright-core";

const [left, right, file] = process.argv.slice(2);
const tool = spawn(process.env.BOKEHNODE, ["view", left, right]);
const [address] = await once(tool.stdout.setEncoding("utf8"), "data");
const browser = await chromium.launch({ executablePath: process.env.CHROMIUM, args: ["--no-sandbox"] });
const page = await browser.newPage({ viewport: { width: 1000, height: 1020 } });
await page.goto(address.trim());
await page.locator("#views button").first().waitFor();
const stage = await page.locator("#stage").boundingBox();
await page.mouse.click(stage.x + stage.width * 0.24, stage.y + stage.height * 0.15); // the wall
await page.locator("#line", { hasText: "--focus" }).waitFor();
await page.waitForFunction(() => !document.querySelector("[aria-busy=true]"));
await page.screenshot({ path: file, type: "jpeg", quality: 80 });
await browser.close();
tool.kill();
