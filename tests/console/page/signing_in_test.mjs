// Who gets in: a wrong password and its wait, a session that ends under a half-filled form.
import assert from "node:assert/strict";
import { test } from "node:test";

import { Console, PASSWORD } from "./browser.mjs";

test("a wrong password is told, and the wait after failures shown until it is over", async () => {
  const one = await Console.open();
  await one.page.clock.install();
  await one.go();
  await one.signIn("wrong");
  await one.page.getByText("Name or password is wrong.").waitFor();
  await one.tell({ retry_after: 3600 });
  await one.signIn();
  await one.page.getByRole("button", { name: /Sign in \(in \d+ (hour|minutes?)\)/ }).waitFor();
  await one.expectSound("while it waits");
  await one.page.clock.fastForward("01:00:00");
  const button = one.page.getByRole("button", { name: "Sign in", exact: true });
  await button.waitFor();
  assert.equal(await one.page.getByLabel("Password").inputValue(), "");
  await one.signIn();
  await one.row("Front door").waitFor();
  await one.close();
});

test("the form is one that password managers know", async () => {
  const one = await Console.open();
  await one.go();
  await one.page.getByLabel("Password").waitFor();
  const hints = await one.page.locator("form input").evaluateAll((fields) =>
    fields.map((field) => [field.type, field.autocomplete]));
  assert.deepEqual(hints, [["text", "username"], ["password", "current-password"]]);
  await one.close();
});

test("a session that ends asks again on top of a half-filled form, which stays", async () => {
  const one = await Console.open();
  await one.goSignedIn("#/new");
  await one.page.getByLabel("Name of the task").fill("Night copies");
  await one.page.getByLabel("Server").fill("nas.local");
  await one.tell({ signed_in: false });
  await one.look();
  const dialog = one.page.getByRole("dialog");
  await dialog.getByText("Your session has ended.").waitFor();
  await one.expectSound("sign-in on top");
  await one.page.keyboard.press("Escape"); // there is nothing to go back to
  await dialog.getByLabel("Password").fill(PASSWORD);
  await one.page.keyboard.press("Enter");
  await dialog.waitFor({ state: "detached" });
  assert.equal(await one.page.getByLabel("Name of the task").inputValue(), "Night copies");
  assert.equal(await one.page.getByLabel("Server").inputValue(), "nas.local");
  await one.close();
});

test("signing out ends the session", async () => {
  const one = await Console.open();
  await one.goSignedIn();
  await one.page.getByText("admin").click();
  await one.page.getByRole("button", { name: "Sign out" }).click();
  await one.page.getByLabel("Password").waitFor();
  assert.equal((await one.tell()).signed_in, false);
  await one.close();
});
