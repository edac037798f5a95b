// What the page's tests share: a browser, a fake recorder of each test's own, and what every page
// has to hold to.
import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import { once } from "node:events";
import { readFileSync } from "node:fs";
import { createRequire } from "node:module";
import { join } from "node:path";
import { after } from "node:test";

export const PAGE = join(process.env.RECORDER_BUILD, "console/page/bundle");
const require = createRequire(join(process.env.RECORDER_BUILD, "console_tests", "package.json"));
const { chromium } = require("playwright-core");
const AXE = readFileSync(require.resolve("axe-core/axe.min.js"), "utf8");
const HERE = import.meta.dirname;

export const SECONDS = Number(process.env.PATIENCE ?? 900_000); // reached only by what hangs
export const PASSWORD = "right";
export const DESKTOP = { width: 1280, height: 900 };
export const PHONE = { width: 360, height: 740 };

let browser;
const servers = [];

after(async () => {
  await browser?.close();
  for (const server of servers) server.kill();
});

/** The address of a fake recorder that nobody else has. */
export async function startRecorder() {
  const server = spawn("/usr/bin/python3", ["-B", join(HERE, "fake_console.py"), PAGE],
    { stdio: ["pipe", "pipe", "inherit"] }); // it ends with us, however we end
  servers.push(server);
  const [line] = await once(server.stdout, "data");
  return String(line).trim();
}

/** A page of the recorder's in a browser that nobody else has. */
export class Console {
  /** `options` are Playwright's for a context; `facts` are members of the fake recorder's state. */
  static async open(options = {}, facts = {}) {
    const one = await Console.at(await startRecorder(), options);
    await one.tell({ reset: true, ...facts });
    return one;
  }

  /** The page of whatever recorder is there. */
  static async at(url, options = {}) {
    browser ??= await chromium.launch({ executablePath: "/usr/bin/chromium", timeout: SECONDS,
      args: ["--no-sandbox", "--disable-dev-shm-usage"] });
    const one = new Console();
    one.url = url;
    one.context = await browser.newContext({ viewport: DESKTOP, locale: "en-GB",
      reducedMotion: "reduce", ...options });
    one.context.setDefaultTimeout(SECONDS);
    one.page = await one.context.newPage();
    one.complaints = [];
    // The browser notes every refusal of the recorder's as an error; those are meant.
    one.meant = /status of 4\d\d/;
    one.page.on("pageerror", (error) => one.complaints.push(String(error)));
    one.page.on("console", (message) => {
      const isMeant = one.meant.test(message.text());
      if (message.type() === "error" && !isMeant) one.complaints.push(message.text());
    });
    one.page.on("request", (request) => {
      if (!request.url().startsWith(one.url)) one.complaints.push(`asked ${request.url()}`);
    });
    return one;
  }

  /** Changes the recorder's state, and tells what it is. */
  async tell(facts = {}) {
    const reply = await fetch(`${this.url}/_fake`,
      { method: "POST", body: JSON.stringify(facts) });
    return reply.json();
  }

  /** Changes members of one task. */
  async change(id, changes) {
    const { tasks } = await this.tell();
    await this.tell({ tasks: tasks.map((task) =>
      task.id === id ? { ...task, ...changes } : task) });
  }

  async go(address = "") {
    await this.page.goto(`${this.url}/${address}`);
  }

  async signIn(password = PASSWORD) {
    await this.page.getByLabel("Name").fill("admin");
    await this.page.getByLabel(/^Passwor[dt]$/).fill(password);
    await this.page.keyboard.press("Enter");
  }

  /** Opens a screen with a session, up to when it has its heading. */
  async goSignedIn(address = "") {
    await this.go(address);
    await this.signIn();
    await this.page.getByRole("banner").waitFor();
  }

  /** Has the page ask the recorder, as when somebody comes back to it. */
  async look() {
    await this.page.evaluate(() => document.dispatchEvent(new Event("visibilitychange")));
  }

  /** What somebody who leaves the page alone for a while gets: a poll that begins now, up to when
   *  what it brings is shown. One that is on its way may bring what was before. */
  async poll() {
    await this.page.evaluate(() => {
      globalThis.isPolled = false;
      const { fetch } = globalThis;
      globalThis.fetch = async (...request) => {
        if (!String(request[0]).includes("console.cgi/tasks")) return fetch(...request);
        globalThis.fetch = fetch;
        try {
          const reply = await fetch(...request);
          const text = await reply.text();
          reply.text = async () => text;
          return reply;
        } finally {
          globalThis.isPolled = true; // seen when the page has done its work with it
        }
      };
    });
    await this.look();
    await this.page.waitForFunction(() => globalThis.isPolled);
  }

  /** Has the page's time stand still, which clock.install() has taken over before the page came: no
   *  request takes too long, and none is made by itself. */
  async stopClock() {
    await this.page.clock.pauseAt(Date.now() + 60_000);
  }

  /** A button while it takes a press: one that is at work takes none. */
  idle(button) {
    return button.and(this.page.locator(":not([aria-busy=true])"));
  }

  /** Goes to a step of the form. */
  async step(name) {
    await this.page.getByRole("navigation", { name: "Steps" }).getByRole("link", { name }).click();
    await this.page.getByRole("heading", { name }).waitFor();
  }

  row(name) {
    return this.page.locator("task-row").filter({ has: this.page.getByRole("link", { name,
      exact: true }) });
  }

  /** No rule of accessibility is broken, nothing scrolls sideways, nothing complained. */
  async expectSound(what) {
    await this.page.evaluate(AXE);
    const { violations } = await this.page.evaluate(() => globalThis.axe.run({
      runOnly: ["wcag2a", "wcag2aa", "wcag21a", "wcag21aa", "wcag22aa", "best-practice"] }));
    assert.deepEqual(violations.map(({ id, nodes }) =>
      [id, nodes.map(({ html, failureSummary }) => `${html} ${failureSummary}`)]), [], what);
    const [inside, outside] = await this.page.evaluate(() =>
      [document.documentElement.scrollWidth, document.documentElement.clientWidth]);
    assert.ok(inside <= outside, `${what}: scrolls sideways, ${inside} of ${outside}`);
    assert.deepEqual(this.complaints, [], what);
  }

  async close() {
    await this.context.close();
  }
}
