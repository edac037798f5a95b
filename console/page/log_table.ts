// Tables, and events as one: on the log's own screen, and on a task's.
import { list, make, say } from "./dom";
import { exact, moment } from "./format";
import { t } from "./texts";
import type { LogEvent } from "./wire";

/** Wide tables scroll by themselves, by keyboard, too; the page does not. */
export function scrolling(name: string, table: HTMLElement): HTMLElement {
  return make("div", { class: "scrolling", role: "region", "aria-label": name, tabindex: "0" },
    table);
}

export function headRow(...titles: string[]): HTMLElement {
  return make("thead", {}, make("tr", {},
    ...titles.map((title) => make("th", { scope: "col" }, title))));
}

/** Rows of texts that stay the nodes they are while what they say changes. */
export function fillRows<T>(body: HTMLElement, items: T[], key: (item: T) => string,
  texts: (item: T) => string[]): void {
  list(body, items, key,
    (item) => make("tr", {}, ...texts(item).map(() => make("td", { dir: "auto" }))),
    (row, item) => texts(item).forEach((text, at) => say(row.children[at]!, text)));
}

export function logRow(event: LogEvent): HTMLElement {
  return make("tr", {},
    make("td", { class: "when", title: exact(event.time) }, moment(event.time)),
    make("td", { dir: "auto", class: "text" }, event.text),
    make("td", { dir: "auto" }, event.task),
    make("td", { dir: "auto" }, event.user),
    make("td", {}, event.address));
}

export function logTable(body: HTMLElement): HTMLElement {
  return scrolling(t.log, make("table", {}, headRow(t.time, t.event, t.task, t.user,
    t.address), body));
}
