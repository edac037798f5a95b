// The frame around every screen: where one is, where one can go, and whether the recorder answers.
import { voice } from "./dialogs";
import { make, mark, say, show } from "./dom";
import { clock, now, zoneName } from "./format";
import { session, signOut } from "./sign_in";
import { known, lostSince, onChange, stopPolling } from "./state";
import { chooseLanguage, LANGUAGE_NAMES, t } from "./texts";

export const main = make("main", { id: "main", tabindex: "-1" });
const links = new Map<string, HTMLAnchorElement>();
const lost = make("p", { class: "lost", role: "status" });
const time = make("span", { class: "time" });

function link(screen: string, text: string): HTMLElement {
  const anchor = make("a", { href: `#/${screen}` }, text);
  links.set(screen, anchor);
  return make("li", {}, anchor);
}

function select(label: string, options: [string, string][], value: string,
  change: (value: string) => void): HTMLElement {
  const field: HTMLSelectElement = make("select", { change: () => change(field.value) },
    ...options.map(([key, text]) => make("option", { value: key, selected: key === value }, text)));
  return make("label", {}, label, field);
}

/** As the system has it when there is no choice. */
export function applyTheme(): void {
  mark(document.documentElement, "data-theme", localStorage.getItem("theme"));
}

function chooseTheme(theme: string): void {
  if (theme) localStorage.setItem("theme", theme);
  else localStorage.removeItem("theme");
  applyTheme();
}

/** What each browser keeps for itself. */
export function preferences(): HTMLElement {
  return make("div", { class: "preferences" },
    select(t.theme, [["", t.themeSystem], ["light", t.themeLight], ["dark", t.themeDark]],
      localStorage.getItem("theme") ?? "", chooseTheme),
    select(t.language, [["", t.languageBrowser], ...LANGUAGE_NAMES],
      localStorage.getItem("language") ?? "", chooseLanguage));
}

async function leave(): Promise<void> {
  stopPolling();
  await signOut().catch(() => undefined); // whoever cannot reach the recorder leaves all the same
  location.hash = "";
  location.reload();
}

function tick(): void {
  say(time, known ? t.recorderTime(clock(now()), zoneName()) : "");
}

function update(): void {
  show(lost, lostSince !== null);
  say(lost, lostSince === null ? "" : t.reconnecting(clock(lostSince)));
  document.body.classList.toggle("stale", lostSince !== null);
  tick();
}

/** Puts the frame into the page. */
export function openShell(): void {
  document.body.replaceChildren(
    make("a", { class: "skip", href: "#main", click: skip }, t.skip),
    make("header", {},
      make("strong", { class: "name" }, t.title),
      make("nav", { "aria-label": t.navigation }, make("ul", {},
        link("tasks", t.tasks), link("log", t.log), link("recorder", t.recorder))),
      time,
      make("details", { class: "menu" }, make("summary", {}, session!.user),
        make("div", {}, preferences(),
          make("button", { class: "plain", click: () => void leave() }, t.signOut)))),
    lost, main, voice);
  onChange(update);
  setInterval(tick, 10_000);
  update();
}

function skip(event: Event): void {
  event.preventDefault();
  main.focus();
}

/** Shows a screen, names it, and has the keyboard go on from there. */
export function showScreen(name: string, title: string, screen: HTMLElement, first: boolean): void {
  const place = links.has(name) ? name : "tasks";
  for (const [key, anchor] of links) mark(anchor, "aria-current", key === place ? "page" : null);
  document.title = `${title} – ${t.title}`;
  main.replaceChildren(screen);
  if (!first) main.focus({ preventScroll: true });
  scrollTo(0, 0);
}
