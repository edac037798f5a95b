// The steps of a task's form: forward past what is well filled in, back without loss, and to where
// something is refused.
import assert from "node:assert/strict";
import { test } from "node:test";

import { Console, PASSWORD, PHONE } from "./browser.mjs";

const field = (one, name) => one.page.getByLabel(name, { exact: true });
const press = (one, name) => one.page.getByRole("button", { name, exact: true }).click();
const heading = (one, name) => one.page.getByRole("heading", { level: 2, name });
const focused = (one, locator) => locator.and(one.page.locator(":focus")).waitFor();
const current = (one) => one.page.locator("[aria-current=step]").textContent();

const STEPS = ["Server", "Share and folder", "Cameras", "Schedule", "Keeping", "Review"];

async function fillServer(one) {
  await field(one, "Name of the task").fill("Night copies");
  await field(one, "Server").fill("nas.local");
  await field(one, "Account").fill("nvr");
}

test("forward leads past what is filled in, and back loses nothing", async () => {
  const one = await Console.open({ viewport: PHONE });
  await one.goSignedIn("#/new");
  await press(one, "Next");
  await focused(one, field(one, "Name of the task"));
  assert.equal(await current(one), "1 Server");
  await fillServer(one);
  await press(one, "Next");
  await focused(one, heading(one, "Share and folder Step 2 of 6"));
  assert.equal(await current(one), "2 Share and folder");
  await field(one, "Share").fill("backup");
  await field(one, "Folder").fill("cameras");
  await press(one, "Back");
  await focused(one, heading(one, "Server"));
  assert.equal(await field(one, "Server").inputValue(), "nas.local");
  await one.page.goBack();
  await heading(one, "Share and folder").waitFor();
  assert.equal(await field(one, "Folder").inputValue(), "cameras");
  await one.page.goBack();
  await heading(one, "Server").waitFor();
  await one.page.goForward();
  await heading(one, "Share and folder").waitFor();
  await one.expectSound("on the way");
  assert.equal(await field(one, "Share").inputValue(), "backup");
  await one.close();
});

test("a jump ahead ends where something is missing", async () => {
  const one = await Console.open();
  await one.goSignedIn("#/new?step=review"); // as somebody else may have sent it
  await fillServer(one);
  await one.page.getByRole("link", { name: "Review" }).click();
  await focused(one, field(one, "Share"));
  assert.equal(await current(one), "2 Share and folder");
  await field(one, "Share").fill("backup");
  await one.page.getByRole("link", { name: "Review" }).click();
  await one.page.getByText("Choose at least one camera.").waitFor();
  assert.equal(await current(one), "3 Cameras");
  await one.page.getByRole("checkbox", { name: /Front door/ }).check();
  await one.page.getByRole("link", { name: "Review" }).click();
  await focused(one, heading(one, "Review"));
  await one.page.getByText("Every night at 02:30 copies Front door, the last 7 days, as MP4, to "
    + "//nas.local/backup. Copies are kept without end. A full share stops the run.").waitFor();
  await one.close();
});

test("a task that is there can be entered at any step, and saved from it", async () => {
  const one = await Console.open();
  await one.goSignedIn("#/edit/1?step=keeping");
  await heading(one, "Keeping").waitFor();
  for (const name of [...STEPS, "Cameras"]) {
    await one.step(name);
    await focused(one, heading(one, name));
  }
  await one.page.getByRole("checkbox", { name: /Car park/ }).uncheck();
  await press(one, "Save");
  await one.row("Front door").waitFor();
  assert.deepEqual((await one.tell()).tasks[0].settings.chIdxList, [0]);
  await one.close();
});

test("by keyboard alone from the sign-in over a new task to its running backup", async () => {
  const one = await Console.open({}, { tasks: [] });
  await one.go();
  const { keyboard } = one.page;
  const until = async (wanted) => {
    await wanted.first().waitFor();
    for (let step = 0; step < 60; ++step) {
      if (await wanted.and(one.page.locator(":focus")).count()) return;
      await keyboard.press("Tab");
    }
    assert.fail(String(wanted));
  };
  const type = async (name, text) => {
    await until(field(one, name));
    await keyboard.type(text);
  };
  const enter = async (name) => {
    await keyboard.press("Enter");
    await focused(one, heading(one, name));
  };
  await field(one, "Name").waitFor();
  await keyboard.type("admin");
  await type("Password", PASSWORD);
  await keyboard.press("Enter");
  await one.page.getByRole("link", { name: "New task" }).first().waitFor();
  await until(one.page.getByRole("link", { name: "New task" }).first());
  await keyboard.press("Enter");
  await heading(one, "Server").waitFor();
  await type("Name of the task", "Night copies");
  await type("Server", "nas.local");
  await type("Account", "nvr");
  await enter("Share and folder");
  await until(one.page.getByRole("button", { name: "List shares" }));
  await keyboard.press("Enter");
  await one.page.getByRole("button", { name: "media" }).waitFor();
  await until(one.page.getByRole("button", { name: "media" }));
  await keyboard.press("Space");
  await until(field(one, "Share"));
  await enter("Cameras");
  await until(one.page.getByRole("checkbox", { name: /Front door/ }));
  await keyboard.press("Space");
  await enter("Schedule");
  await until(field(one, "Time of the recorder"));
  await enter("Keeping");
  await until(one.page.getByRole("checkbox"));
  await enter("Review");
  await until(field(one, "Start it right after saving"));
  await keyboard.press("Space");
  await keyboard.press("Enter");
  await one.row("Night copies").getByRole("progressbar").waitFor();
  await one.close();
});

test("a server is tried out: what is tried, and a refusal at the field that it is about",
  async () => {
    const one = await Console.open();
    await one.goSignedIn("#/edit/1?step=share");
    for (const [code, step, name, words] of [
      [2500460554, "Server", "Account", "The server refuses the account or the password."],
      [2500460555, "Server", "Server", "The server cannot be reached. Check address and port"],
      [2500460556, "Share and folder", "Share", "The share cannot be connected."],
      [-1794506735, "Server", "Server", "The server is down, or does not speak SMB."],
      [-1, "Share and folder", "Folder", "The folder cannot be made"]]) {
      await one.tell({ test_code: code });
      await press(one, "Test");
      await focused(one, field(one, name));
      await heading(one, step).waitFor();
      await one.page.locator(".field .trouble").filter({ hasText: words }).waitFor();
      await one.expectSound(words);
      await one.step("Share and folder"); // the same may work now
      await one.page.locator(".outcome").filter({ hasText: words }).waitFor();
    }
    await one.tell({ test_code: 0 });
    await press(one, "Test");
    await one.page.getByText("It works: 5 MB were written at 52 MB/s.").waitFor();
    assert.equal(await one.page.locator("[aria-invalid=true]").count(), 0);
    await one.tell({ transfer_rate: "-2147483648" });
    await press(one, "Test");
    await one.page.getByText("It works: 5 MB were written at more than 2.1 GB/s.").waitFor();
    const [, path, body] = (await one.tell()).requests.pop();
    assert.deepEqual([path, body.password, body.destPath],
      ["server/testing", "stored", "/backup/cameras"]);
    await one.close();
  });

test("what is being tried is said while it is", async () => {
  const one = await Console.open();
  await one.goSignedIn("#/edit/1?step=share");
  let answer;
  const held = new Promise((done) => (answer = done));
  await one.page.route("**/server/testing", async (route) => {
    await held;
    await route.continue();
  });
  await press(one, "Test");
  await one.page.getByText("Connecting //nas.local/backup/cameras, making the folder, writing 5 MB")
    .waitFor();
  answer();
  await one.page.getByText("It works: 5 MB were written at 52 MB/s.").waitFor();
  await one.close();
});

test("a refusal to save is shown at the step and field that it is about", async () => {
  const one = await Console.open({}, { save_code: 3 });
  await one.goSignedIn("#/edit/1?step=review");
  await press(one, "Save");
  await focused(one, field(one, "Name of the task"));
  await one.page.locator(".field .trouble").filter({ hasText: "Leave out quotation marks." })
    .waitFor();
  await one.tell({ save_code: 2 });
  await press(one, "Save");
  await one.page.getByText("The recorder’s settings are busy. Try again. Whatever you have filled"
    + " in is still here.").waitFor();
  await one.tell({ save_code: 0 });
  await press(one, "Save");
  await one.row("Front door").waitFor();
  await one.close();
});

test("a session that ends asks again on top of a later step, which stays", async () => {
  const one = await Console.open();
  await one.goSignedIn("#/edit/1?step=share");
  await field(one, "Folder").fill("elsewhere");
  await one.page.route(/\/task\/1$/, async (saving) => { // not before: a poll would notice
    await one.tell({ signed_in: false });
    await saving.continue();
  }, { times: 1 });
  await press(one, "Save");
  const dialog = one.page.getByRole("dialog");
  await dialog.getByLabel("Password").fill(PASSWORD);
  await one.page.keyboard.press("Enter");
  await one.row("Front door").waitFor();
  assert.equal((await one.tell()).tasks[0].settings.destPath, "/backup/elsewhere");
  await one.close();
});

test("whoever leaves a half-filled form is asked, and may stay", async () => {
  const one = await Console.open();
  await one.goSignedIn("#/edit/1?step=share");
  await field(one, "Folder").fill("elsewhere");
  const dialog = one.page.getByRole("dialog");
  await one.page.getByRole("link", { name: "Log" }).click();
  await dialog.getByText("Leave without saving?").waitFor();
  await one.expectSound("leaving");
  await one.page.keyboard.press("Escape");
  await one.page.waitForFunction(() => location.hash === "#/edit/1?step=share");
  assert.equal(await field(one, "Folder").inputValue(), "elsewhere");
  await one.page.getByRole("link", { name: "Log" }).click();
  await dialog.getByRole("button", { name: "Leave", exact: true }).click();
  await one.page.getByRole("heading", { level: 1, name: "Log" }).waitFor();
  await one.go("#/edit/1");
  await field(one, "Name of the task").fill("Other");
  await one.page.getByRole("link", { name: "Cancel" }).click();
  await one.row("Front door").waitFor();
  await one.close();
});

test("what others change meanwhile is told before anything is saved", async () => {
  const one = await Console.open();
  await one.goSignedIn("#/edit/1?step=schedule");
  const time = field(one, "Time of the recorder");
  await time.focus();
  await one.change("1", { revision: "2" });
  await one.poll();
  await one.page.getByText("the task was changed, here or elsewhere").waitFor();
  await focused(one, time);
  await one.tell({ tasks: [] });
  await one.poll();
  await one.page.getByText("This task does not exist any more").waitFor();
  await focused(one, time);
  await one.close();
});

test("the steps fit a phone in German, too", async () => {
  const one = await Console.open({ viewport: PHONE, locale: "de-DE" });
  await one.go("#/edit/1");
  await one.page.getByLabel("Name").fill("admin");
  await one.page.getByLabel("Passwort").fill(PASSWORD);
  await one.page.keyboard.press("Enter");
  const steps = one.page.getByRole("navigation", { name: "Schritte" }).getByRole("link");
  await steps.first().waitFor();
  for (const step of await steps.all()) {
    await step.click();
    await one.expectSound(await step.textContent());
  }
  await one.page.getByText("Jede Nacht um 02:30: kopiert Front door und Car park, die letzten 7"
    + " Tage, als MP4, nach //nas.local/backup/cameras.").waitFor();
  await one.close();
});
