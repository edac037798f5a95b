// Alerts on the recorder's screen: the form, its refusals, the test, and what waits.
import assert from "node:assert/strict";
import { test } from "node:test";

import { Console, PHONE } from "./browser.mjs";

const MAIL = { way: "mail", recipient: "admin@example.org", arrived: true, words: "" };
const HOOK = { way: "web_hook", recipient: "", arrived: false, words: "the web hook answers 500" };
const WAITING = { id: "1", way: "mail", recipient: "admin@example.org", subject: "Yard is overdue",
  made: 1_795_350_000, attempts: 3, next_attempt: 1_795_358_000, last_failure: "no such host" };
const LOST = { way: "web_hook", recipient: "", time: 1_795_350_000, why: "refused" };

const field = (one, name) => one.page.getByLabel(name, { exact: true });
const acts = async (one) => (await one.tell()).requests;

async function opened(options, facts) {
  const one = await Console.open(options, facts);
  await one.page.clock.install();
  await one.goSignedIn("#/recorder");
  await field(one, "Mail to").waitFor();
  return one;
}

test("only what was changed is saved, and an emptied field is unset", async () => {
  const one = await opened();
  assert.equal(await field(one, "Mail to").inputValue(), "admin@example.org");
  assert.equal(await field(one, "Its password").inputValue(), "");
  await field(one, "Mail server").fill("mail.example.org:587");
  await field(one, "Mail to").fill("");
  await field(one, "Its password").fill("secret");
  await one.page.getByRole("button", { name: "Save", exact: true }).click();
  await one.page.getByText("Saved.").waitFor();
  assert.deepEqual(await acts(one), [["PATCH", "alerts",
    { mail_to: null, smtp_server: "mail.example.org:587", mail_password: "secret" }]]);
  assert.equal(await field(one, "Its password").inputValue(), "");
  await one.page.getByLabel("Remove the stored password").check();
  await one.page.getByRole("button", { name: "Save", exact: true }).press("Enter");
  await one.page.getByLabel("Remove the stored password").waitFor({ state: "hidden" });
  assert.deepEqual((await acts(one)).pop(), ["PATCH", "alerts", { mail_password: null }]);
  await one.close();
});

test("what is typed while it is saved stays, and is still to be saved", async () => {
  const one = await opened();
  await one.stopClock();
  let answer;
  const held = new Promise((done) => (answer = done));
  await one.page.route("**/alerts", async (route) => {
    await held;
    await route.continue();
  });
  await field(one, "Mail to").fill("new@example.org");
  await field(one, "Its password").fill("secret");
  const saving = one.page.waitForRequest((request) => request.method() === "PATCH");
  await one.page.getByRole("button", { name: "Save", exact: true }).click();
  await saving;
  await field(one, "Mail server").fill("mail.example.org");
  await field(one, "Its password").fill("secret too");
  answer();
  await one.page.getByText("Saved.").waitFor();
  assert.equal(await field(one, "Mail server").inputValue(), "mail.example.org");
  assert.equal(await field(one, "Mail to").inputValue(), "new@example.org");
  assert.equal(await field(one, "Its password").inputValue(), "secret too");
  await one.page.getByRole("button", { name: "Save", exact: true }).click();
  await one.page.waitForFunction(() =>
    document.querySelector("[name=mail_password]").value === "");
  assert.deepEqual((await acts(one)).map(([, , body]) => body), [
    { mail_to: "new@example.org", mail_password: "secret" },
    { smtp_server: "mail.example.org", mail_password: "secret too" }]);
  await one.close();
});

test("whoever leaves settings that are not saved is asked, and may stay", async () => {
  const one = await opened();
  const log = one.page.getByRole("navigation").first().getByRole("link", { name: "Log" });
  const dialog = one.page.getByRole("dialog");
  await field(one, "Mail server").fill("mail.example.org");
  await log.click();
  await dialog.getByText("Leave without saving?").waitFor();
  await one.page.keyboard.press("Escape");
  await one.page.waitForFunction(() => location.hash === "#/recorder");
  assert.equal(await field(one, "Mail server").inputValue(), "mail.example.org");
  await one.page.getByRole("button", { name: "Save", exact: true }).click();
  await one.page.getByText("Saved.").waitFor();
  await log.click();
  await one.page.getByRole("heading", { level: 1, name: "Log" }).waitFor();
  await one.close();
});

test("what is wrong is told where it stands, by the page or by the recorder", async () => {
  const one = await opened({ viewport: PHONE });
  for (const [name, value, trouble] of [["Mail to", "a b", /Write addresses/],
    ["Mail server", "a b", /Write a name or an address/],
    ["Address", "ftp://x/", /begins with https/]]) {
    const before = await field(one, name).inputValue();
    await field(one, name).fill(value);
    await one.page.getByRole("button", { name: "Save", exact: true }).click();
    await one.page.getByText(trouble).waitFor();
    assert.equal(await field(one, name).getAttribute("aria-invalid"), "true");
    await field(one, name).and(one.page.locator(":focus")).waitFor();
    await field(one, name).fill(before);
  }
  assert.deepEqual(await acts(one), []);
  await field(one, "Account at the mail server").fill("refused");
  await one.page.getByRole("button", { name: "Save", exact: true }).click();
  await one.page.locator("small.trouble", { hasText: "something else" }).waitFor();
  await field(one, "Account at the mail server").and(one.page.locator(":focus")).waitFor();
  await one.expectSound("a refused setting");
  await one.close();
});

test("a test saves what stands there, says what it tries, and what came of it", async () => {
  const one = await opened({}, { tested: [MAIL, HOOK] });
  await field(one, "Address").fill("https://chat.example.org/hook");
  const button = one.page.getByRole("button", { name: "Save and send a test" });
  let answer;
  const held = new Promise((done) => (answer = done));
  await one.page.route("**/alerts/test", async (route) => {
    await held;
    await route.continue();
  });
  await button.click();
  await one.page.getByText("Sending a test to admin@example.org, web hook …").waitFor();
  assert.equal(await button.getAttribute("aria-busy"), "true");
  answer();
  await one.page.getByText("The test has not arrived at 1 of 2.").waitFor();
  await one.page.getByText("admin@example.org: arrived").waitFor();
  await one.page.getByText("web hook: the web hook answers 500").waitFor();
  assert.deepEqual((await acts(one)).map(([method]) => method), ["PATCH", "POST"]);
  await one.expectSound("a test that failed");
  await one.tell({ tested: [] });
  await button.click();
  await one.page.getByText("Alerts go nowhere.").waitFor();
  await one.tell({ tested: [MAIL] });
  await button.click();
  await one.page.getByText("The test has arrived.").waitFor();
  await one.close();
});

test("what waits is shown as it is, and keeps nobody from writing", async () => {
  const one = await opened();
  await one.page.getByText("None waits.").waitFor();
  await field(one, "Sender").fill("half");
  await one.tell({ waiting: [WAITING], given_up: [LOST], problems: ["something new"] });
  await one.poll();
  await one.page.getByRole("cell", { name: "no such host" }).waitFor();
  await one.page.getByRole("cell", { name: "Yard is overdue" }).waitFor();
  await one.page.getByText(/An alert for web hook was given up .*: refused/).waitFor();
  await field(one, "Sender").and(one.page.locator(":focus")).waitFor();
  assert.equal(await field(one, "Sender").inputValue(), "half");
  await one.expectSound("alerts that wait");
  await one.close();
});

test("files and programs of the machine are shown, and not to be changed", async () => {
  const one = await opened();
  await one.page.getByText("Files and programs").click();
  await one.page.getByText("/usr/sbin/sendmail").waitFor();
  assert.equal(await one.page.locator("[name=sendmail]").count(), 0);
  await one.expectSound("files and programs");
  await one.close();
});

test("alerts speak German, too", async () => {
  const one = await Console.open({ locale: "de-DE", viewport: PHONE }, { waiting: [WAITING] });
  await one.go("#/recorder");
  await one.page.getByLabel("Name").fill("admin");
  await one.page.getByLabel("Passwort").fill("right");
  await one.page.keyboard.press("Enter");
  await field(one, "E-Mail an").waitFor();
  await one.page.getByText("Der letzte Lauf von „Car park“ ist gescheitert").waitFor();
  await one.expectSound("German alerts");
  await one.close();
});
