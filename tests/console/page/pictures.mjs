// Takes a picture of every screen, light and dark, into the folder that is named:
// pictures.mjs FOLDER (scripts/console_screenshots says how it is run).
import { join } from "node:path";
import process from "node:process";

import { Console } from "./browser.mjs";

const [, , folder] = process.argv;

const SCREENS = {
  tasks: ["#/tasks", (page) => page.getByRole("progressbar")],
  task: ["#/task/2", (page) => page.getByText("Backup finished: 199")],
  "form-1-server": ["#/edit/1", (page) => page.getByLabel("Use the password that is stored")],
  "form-2-share": ["#/edit/1?step=share", async (page) => {
    await page.getByRole("button", { name: "List shares" }).click();
    await page.getByRole("button", { name: "Test" }).click();
    return page.getByText("It works: 5 MB");
  }],
  "form-3-cameras": ["#/edit/1?step=cameras", async (page) => {
    await page.getByText("Days", { exact: true }).first().click();
    return page.locator("td.recordings");
  }],
  "form-4-schedule": ["#/edit/1?step=schedule", (page) => page.locator(".next li")],
  "form-5-keeping": ["#/edit/1?step=keeping", (page) => page.getByText("When the share is full")],
  "form-6-review": ["#/edit/1?step=review", (page) => page.locator(".sentence")],
  log: ["#/log", (page) => page.getByText("Backup finished: 199")],
  recorder: ["#/recorder", (page) => page.getByRole("cell", { name: "//nas.local/backup" })],
};

for (const colorScheme of ["light", "dark"]) {
  const one = await Console.open({ colorScheme, viewport: { width: 960, height: 640 } });
  const take = (name) =>
    one.page.screenshot({ path: join(folder, `${name}-${colorScheme}.png`) });
  await one.go();
  await one.page.getByLabel("Password").waitFor();
  await take("sign-in");
  await one.signIn();
  await one.row("Front door").getByRole("button", { name: /Start/ }).click();
  for (const [name, [address, whole]] of Object.entries(SCREENS)) {
    await one.go(address);
    await (await whole(one.page)).first().waitFor();
    await take(name);
  }
  await one.close();
}
process.exit(0);
