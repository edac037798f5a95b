// The page once more in Debian's Firefox, smoke only: it comes up, shows its screens, and nothing
// in it complains.
import assert from "node:assert/strict";
import { createRequire } from "node:module";
import { join } from "node:path";
import { test } from "node:test";

import { PASSWORD, SECONDS, startRecorder } from "./browser.mjs";

const require = createRequire(join(process.env.RECORDER_BUILD, "console_tests", "package.json"));
const { default: puppeteer } = await import(require.resolve("puppeteer-core"));

const SCREENS = {
  "#/edit/1": "input[name=server]",
  "#/edit/1?step=cameras": ".camera",
  "#/edit/1?step=schedule": ".next li",
  "#/task/2": "task-row",
  "#/log": "tbody tr",
  "#/recorder": "tbody tr",
};

test("sign-in, tasks and the other screens in Firefox, without a complaint", async () => {
  const url = await startRecorder();
  const browser = await puppeteer.launch({ browser: "firefox", timeout: SECONDS,
    executablePath: "/usr/bin/firefox-esr", protocolTimeout: SECONDS });
  try {
    assert.match(await browser.version(), /^firefox/);
    const page = await browser.newPage();
    page.setDefaultTimeout(SECONDS);
    const complaints = [];
    page.on("pageerror", (error) => complaints.push(String(error)));
    page.on("console", (message) => {
      if (message.type() === "error") complaints.push(message.text());
    });
    page.on("requestfailed", (request) => complaints.push(request.url()));
    await page.goto(url);
    const shown = (selector) => page.waitForSelector(selector, { visible: true });
    await shown("[name=username]");
    await page.type("[name=username]", "admin");
    await page.type("[name=password]", PASSWORD);
    await page.keyboard.press("Enter");
    await shown("task-row");
    assert.deepEqual(await page.$$eval("task-row h2 a", (links) =>
      links.map((link) => link.textContent).sort()), ["Car park", "Front door", "Gate", "Yard"]);
    for (const [address, whole] of Object.entries(SCREENS)) {
      await page.goto(`${url}/${address}`);
      await shown(whole);
    }
    assert.deepEqual(complaints, []);
  } finally {
    await browser.close();
  }
});
