// Every screen, wide and narrow, light and dark: accessible, no wider than the window, no errors.
import { test } from "node:test";

import { Console, DESKTOP, PHONE } from "./browser.mjs";

/** What a screen has when it is whole. */
const SCREENS = {
  "#/tasks": (page) => page.getByRole("link", { name: "Car park", exact: true }),
  "#/task/2": (page) => page.getByText("Backup finished: 199"),
  "#/new": (page) => page.getByRole("heading", { name: "Server" }),
  "#/edit/2": (page) => page.getByLabel("Use the password that is stored"),
  "#/edit/2?step=share": (page) => page.getByLabel("Folder"),
  "#/edit/2?step=cameras": (page) => page.getByText("recordings since"),
  "#/edit/2?step=schedule": (page) => page.locator(".next li"),
  "#/edit/2?step=keeping": (page) => page.getByLabel("When the share is full"),
  "#/edit/2?step=review": (page) => page.getByText("Every night at 02:30 copies Front door"),
  "#/log": (page) => page.getByText("Backup finished: 199"),
  "#/recorder": (page) => page.getByRole("cell", { name: "//nas.local/backup" }),
};

for (const [size, viewport] of Object.entries({ desktop: DESKTOP, phone: PHONE })) {
  for (const colorScheme of ["light", "dark"]) {
    test(`screens, ${size}, ${colorScheme}`, async () => {
      const one = await Console.open({ viewport, colorScheme });
      await one.go();
      await one.page.getByLabel("Password").waitFor();
      await one.expectSound("sign-in");
      await one.signIn();
      for (const [address, whole] of Object.entries(SCREENS)) {
        await one.go(address);
        await whole(one.page).first().waitFor();
        await one.expectSound(address);
        if (process.env.PICTURES) {
          const name = `${size}-${colorScheme}-${address.slice(2).replace(/\W/g, "-")}.png`;
          await one.page.screenshot({ path: `${process.env.PICTURES}/${name}` });
        }
      }
      await one.close();
    });
  }
}
