// A month of a camera: which days have recordings and alarms, and which of them are copied.
import { ask, words } from "./api";
import { make, say } from "./dom";
import { dayName, dayOf, monthName, now, weekday } from "./format";
import { t } from "./texts";
import type { Day, Days } from "./wire";

type DayFacts = Days["days"][number];

function neighbour(month: string, step: number): string {
  const [year, number] = month.split("-").map(Number) as [number, number];
  return new Date(Date.UTC(year, number - 1 + step)).toISOString().slice(0, 7);
}

function cell(day: Day, facts: DayFacts | undefined): HTMLElement {
  const words = [facts?.recordings ? t.hasRecordings : "", facts?.alarms ? t.hasAlarms : "",
    facts?.copied_by.length ? t.isCopied : ""].filter(Boolean).join(", ");
  const node = make("td", {}, make("span", { "aria-hidden": "true" }, String(Number(day.slice(8)))),
    make("span", { class: "unseen" }, `${dayName(day)}${words ? `: ${words}` : ""}`));
  node.classList.toggle("recordings", Boolean(facts?.recordings));
  node.classList.toggle("alarms", Boolean(facts?.alarms));
  node.classList.toggle("copied", Boolean(facts?.copied_by.length));
  if (words) node.title = words;
  return node;
}

/** Weeks from Monday to Sunday. */
function weeks(month: string, days: DayFacts[]): HTMLElement[] {
  const known = new Map(days.map((facts) => [facts.day, facts]));
  const last = new Date(Date.parse(`${neighbour(month, 1)}-01`) - 1).getUTCDate();
  const empty = (new Date(`${month}-01`).getUTCDay() + 6) % 7;
  const cells: HTMLElement[] = Array.from({ length: empty }, () => make("td"));
  for (let number = 1; number <= last; ++number) {
    const day = `${month}-${String(number).padStart(2, "0")}`;
    cells.push(cell(day, known.get(day)));
  }
  return Array.from({ length: Math.ceil(cells.length / 7) }, (_, week) =>
    make("tr", {}, ...cells.slice(week * 7, week * 7 + 7)));
}

/** The month of the newest day that may have anything, with a way to earlier ones. */
export function calendar(guid: string, camera: string): HTMLElement {
  let month = dayOf(now()).slice(0, 7);
  const title = make("caption", { "aria-live": "polite" });
  const body = make("tbody");
  const trouble = make("p", { role: "status" });
  const days = Array.from({ length: 7 }, (_, day) => make("th", { scope: "col" },
    make("abbr", { title: weekday(day + 1) }, weekday(day + 1, "short"))));

  async function turn(step: number): Promise<void> {
    month = neighbour(month, step);
    const mine = month;
    say(title, `${camera}, ${monthName(month)}`);
    say(trouble, t.loading);
    body.replaceChildren(...weeks(month, []));
    body.classList.add("unknown");
    try {
      const path = `channel/${encodeURIComponent(guid)}/days?month=${month}`;
      const reply = await ask<Days>("GET", path);
      if (mine !== month) return;
      say(trouble, reply.days.length ? "" : t.nothingInMonth);
      body.replaceChildren(...weeks(month, reply.days));
      body.classList.remove("unknown");
    } catch (error) {
      if (mine === month) say(trouble, words(error));
    }
  }
  void turn(0);

  const button = (text: string, step: number): HTMLElement => make("button", { type: "button",
    class: "plain", click: () => void turn(step) }, text);
  return make("div", { class: "calendar" },
    make("table", {}, title, make("thead", {}, make("tr", {}, ...days)), body), trouble,
    make("p", { class: "legend" }, t.calendarLegend),
    make("div", { class: "actions" }, button(t.monthBefore, -1), button(t.monthAfter, 1)));
}
