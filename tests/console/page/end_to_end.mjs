// What an administrator does on the page of a real recorder; test_end_to_end.py says where, and
// looks at what came of it. Each scene is run by its name; at a pause() it is the other one's turn.
import assert from "node:assert/strict";
import { once } from "node:events";
import process from "node:process";

import { Console } from "./browser.mjs";

const { url, server, port, user, password, nobody } = JSON.parse(process.env.SCENE);

/** Says what is done, and waits until it may go on. */
async function pause(what) {
  process.stdout.write(`${what}\n`);
  await once(process.stdin, "data");
}

async function signedIn(address = "") {
  const one = await Console.at(url, { timezoneId: "Asia/Tokyo" });
  await one.go(address);
  await one.signIn("password of admin");
  await one.page.getByRole("banner").waitFor();
  return one;
}

const field = (one, name) => one.page.getByLabel(name, { exact: true });

const press = (one, name) => one.page.getByRole("button", { name, exact: true }).click();

async function fillServer(one, name, secret = password) {
  await field(one, "Name of the task").fill(name);
  await field(one, "Server").fill(server);
  await field(one, "Port").fill(String(port));
  await field(one, "Account").fill(user);
  await field(one, "Password").fill(secret);
  await press(one, "Next");
}

/** All steps but the first, up to the review. */
async function fillOtherSteps(one) {
  await field(one, "Share").fill("backup");
  await field(one, "Folder").fill("recorder");
  await press(one, "Next");
  await one.page.locator("[name=camera]").first().waitFor();
  for (const box of await one.page.locator("[name=camera]").all()) await box.check();
  await press(one, "Next");
  await one.page.locator(".next li").nth(4).waitFor();
  await press(one, "Next");
  await press(one, "Next");
}

async function save(one) {
  await press(one, "Save");
  await one.page.locator("task-row").first().waitFor();
}

/** How far a row's run is; null when its bar is not shown. */
const percentOf = (row) => row.locator("progress").evaluate((bar) =>
  bar.checkVisibility() ? bar.value : null);

const state = (one, name, word) => one.row(name).locator("[data-part=word]",
  { hasText: new RegExp(`^${word}$`) }).waitFor();

const scenes = {
  /** A browser that does not know the recorder's certificate does not go on by itself. */
  async doubtfulCertificate() {
    const one = await Console.at(url);
    await assert.rejects(one.go(), /ERR_CERT_AUTHORITY_INVALID/);
  },

  /** From an empty recorder to a copy, with nothing but what the page says. */
  async firstBackup() {
    const one = await signedIn();
    await one.page.getByText("No recording is copied yet").waitFor();
    await one.page.getByRole("main").getByRole("link", { name: "New task" }).first().click();
    await fillServer(one, "Night copies");
    await fillOtherSteps(one);
    await one.page.getByText(/^Every night at 02:30 copies Camera 0 and Camera 1, the last 7 days/)
      .waitFor();
    await one.page.getByLabel("Start it right after saving").check();
    await save(one);
    await state(one, "Night copies", "Succeeded");
    await one.page.getByText("The one task is safe").waitFor();
    await one.expectSound("tasks of a real recorder");
    for (const [address, screen, text] of [["task/1", "task-screen", "by hand"],
      ["log", "log-screen", "Night copies"], ["recorder", "recorder-screen", "Camera 0"]]) {
      await one.go(`#/${address}`);
      await one.page.locator(screen).getByRole("cell", { name: text }).first().waitFor();
      await one.expectSound(address);
    }
    await one.go("#/edit/1?step=cameras");
    await one.page.getByText("Days", { exact: true }).first().click();
    await one.page.getByText(/: recordings.*copied/).first().waitFor({ state: "attached" });
  },

  /** A failure says why; what helps is done here, too. */
  async failureAndRecovery() {
    const one = await signedIn("#/new");
    await fillServer(one, "Night copies", "wrong");
    await fillOtherSteps(one);
    await one.page.getByLabel("Start it right after saving").check();
    await save(one);
    await state(one, "Night copies", "Failed");
    await one.page.getByText(/^1 needs you: Night copies: /).waitFor();
    await one.page.getByText(/smbclient -U user .*correct the task/).waitFor();
    await one.row("Night copies").getByRole("link", { name: /Edit/ }).click();
    await one.page.getByLabel("Use the password that is stored").uncheck();
    await field(one, "Password").fill(password);
    await save(one);
    await one.row("Night copies").getByRole("button", { name: /Start/ }).click();
    await state(one, "Night copies", "Succeeded");
  },

  /** Right and wrong of all that a server is reached by. */
  async serverTried() {
    const one = await signedIn("#/new");
    const attempt = async (button, words) => {
      await press(one, button);
      await one.page.getByText(words).filter({ visible: true }).first().waitFor();
    };
    const refused = async (name) =>
      assert.equal(await field(one, name).getAttribute("aria-invalid"), "true", name);
    await fillServer(one, "Night copies", "wrong");
    await press(one, "Back");
    await field(one, "Port").fill(String(nobody));
    await attempt("Try to sign in", "No file server answers at this address.");
    await refused("Server");
    await field(one, "Port").fill(String(port));
    await attempt("Try to sign in", "does not take this account with this password");
    await refused("Account");
    await field(one, "Password").fill(password);
    await attempt("Try to sign in", "It works: this account sees 1 share.");
    await press(one, "Next");
    await press(one, "backup");
    assert.equal(await field(one, "Share").inputValue(), "backup");
    await field(one, "Folder").fill("recorder/night");
    await attempt("Test", /It works: 5 MB were written at .*\/s\./);
    await field(one, "Share").fill("nowhere");
    await attempt("Test", "The share cannot be connected. Check its name");
    await refused("Share");
    await field(one, "Share").fill("backup");
    await one.step("Server");
    await field(one, "Password").fill("wrong");
    await one.step("Share and folder");
    await attempt("Test", "The server refuses the account or the password. Check both");
    await refused("Account");
    await field(one, "Password").fill(password);
    await field(one, "Port").fill(String(nobody));
    await one.step("Share and folder");
    await attempt("Test", "The server cannot be reached. Check address and port");
    await refused("Server");
    await field(one, "Port").fill(String(port));
    await one.step("Share and folder");
    await attempt("List shares", "It works: this account sees 1 share.");
    await attempt("Test", /It works: 5 MB were written/);
    await one.expectSound("server tried");
  },

  /** A recorder that goes and comes back under an open page. */
  async restart() {
    const one = await signedIn();
    await one.row("Night copies").waitFor();
    const row = await one.row("Night copies").elementHandle();
    await pause("open");
    await one.page.getByText("reconnecting since").waitFor();
    await pause("lost");
    await one.page.getByText("reconnecting since").waitFor({ state: "hidden" });
    assert.equal(await row.evaluate((node) => node.isConnected), true);
    await one.row("Night copies").getByRole("button", { name: /Start/ }).click();
    await state(one, "Night copies", "Succeeded");
  },

  /** The backup service alone goes and comes back. */
  async daemonRestart() {
    const one = await signedIn();
    const trouble = one.page.getByText("the backup daemon does not answer");
    await one.row("Night copies").waitFor();
    const row = await one.row("Night copies").elementHandle();
    await pause("open");
    while (!(await trouble.count())) await one.poll();
    await one.expectSound("without the backup service");
    await one.row("Night copies").getByRole("button", { name: /Start/ }).click();
    await one.page.getByRole("alertdialog").getByText(/The backup service.*untouched\./).waitFor();
    await press(one, "Close");
    await pause("down");
    while (await trouble.count()) await one.poll();
    assert.equal(await row.evaluate((node) => node.isConnected), true);
    await one.idle(one.row("Night copies").getByRole("button", { name: /Start/ })).click();
    await state(one, "Night copies", "Succeeded");
  },

  /** Whoever saves later is told of the other's change, and decides. */
  async twoAdministrators() {
    const mine = await signedIn("#/edit/1?step=schedule");
    const theirs = await signedIn("#/edit/1");
    const time = field(mine, "Time of the recorder");
    await time.fill("04:45");
    await field(theirs, "Name of the task").fill("Theirs");
    await save(theirs);
    await theirs.row("Theirs").waitFor();
    await press(mine, "Save");
    const dialog = mine.page.getByRole("dialog");
    await dialog.getByText("Somebody else has changed this task").waitFor();
    await mine.expectSound("changed elsewhere");
    await pause("asked");
    await dialog.getByRole("button", { name: "Show the new settings" }).click();
    await mine.page.waitForFunction(() =>
      document.querySelector("input[name=name]").value === "Theirs");
    await mine.step("Schedule");
    await time.fill("04:45");
    await save(mine);
    await theirs.row("Theirs").getByText(/Every night at 04:45/).waitFor();
  },

  /** A new task whose answer is lost on the way is known again in what the recorder tells. */
  async lostAnswer() {
    const one = await signedIn("#/new");
    await fillServer(one, "Night copies");
    await fillOtherSteps(one);
    await one.step("Cameras");
    await one.page.getByLabel("Days to copy").selectOption("BackupByTimeRange");
    await field(one, "From").fill("2026-11-01");
    await field(one, "To").fill("2026-11-02");
    await one.step("Review");
    let lost = false;
    await one.page.route("**/task", async (route) => {
      if (lost) return route.fallback();
      lost = true;
      await route.fetch();
      return route.abort();
    });
    await press(one, "Save");
    await one.page.getByText("Save again: it is not made twice.").waitFor();
    await save(one);
    await one.row("Night copies").waitFor();
  },

  /** Two tasks over a slow line: beside each other, in turn, stopped, switched, deleted. */
  async manyHands() {
    const one = await signedIn();
    const press = (name, button) =>
      one.idle(one.row(name).getByRole("button", { name: button })).click();
    const dialog = one.page.getByRole("dialog");
    await press("First", /Start/);
    await state(one, "First", "Running");
    await press("Second", /Start/);
    await dialog.getByRole("button", { name: "Queue", exact: true }).click();
    await state(one, "Second", "Waiting.*");
    await press("First", /Stop/);
    await dialog.getByRole("button", { name: "Stop", exact: true }).click();
    await state(one, "Second", "Running");
    await press("First", /Start/);
    await dialog.getByRole("button", { name: "Start in its place", exact: true }).click();
    await state(one, "First", "Running");
    await state(one, "Second", "Stopped");
    await one.row("Second").getByRole("switch").click();
    await state(one, "Second", "Switched off");
    await press("First", /Delete/);
    await dialog.getByRole("button", { name: "Delete", exact: true }).click();
    await one.row("First").waitFor({ state: "detached" });
  },

  /** What is said of the time left, ten seconds after the copy has begun. */
  async timeLeft() {
    const one = await signedIn();
    const row = one.row("First");
    await row.getByRole("button", { name: /Start/ }).click();
    await row.getByRole("progressbar").waitFor();
    const percents = [];
    /** Gives how far it is, null when it is over. */
    const look = async () => {
      await one.poll();
      const percent = await percentOf(row);
      if (percent !== null) percents.push(percent);
      return percent;
    };
    while (await look() === 0);
    const begun = Date.now();
    while (Date.now() - begun < 10_000) await look();
    const [, count, unit] = /(\d+) (second|minute)s? left/.exec(
      await row.locator("[data-part=figures]").textContent());
    const told = Number(count) * { second: 1, minute: 60 }[unit];
    const asked = Date.now();
    while (await look() !== null);
    const took = (Date.now() - asked) / 1000;
    console.error(`# told ${told} s left, took ${took} s`);
    assert.ok(told < took * 2 && took < told * 2, `told ${told} s, took ${took} s`);
    assert.deepEqual(percents, [...percents].sort((a, b) => a - b));
    await state(one, "First", "Succeeded");
  },

  /** A copy over a slow line: its percent only rises. */
  async slowCopy() {
    const one = await signedIn();
    const row = one.row("First");
    await row.getByRole("button", { name: /Start/ }).click();
    const seen = [];
    await row.getByRole("progressbar").waitFor();
    while (new Set(seen).size < 4) {
      seen.push(await percentOf(row));
      await one.poll();
    }
    assert.deepEqual(seen, [...seen].sort((a, b) => a - b));
    await pause("seen");
    await state(one, "First", "Succeeded");
  },
};

await scenes[process.argv[2]]();
process.exit(0);
