// What the page knows of the recorder, asked for again and again while somebody looks.
import { askAgain } from "./api";
import { now, setClock } from "./format";
import type { Tasks, Time } from "./wire";

const BUSY = 2_000;
const QUIET = 15_000;

/** The last tasks that the recorder told; null before the first. */
export let known: Tasks | null = null;
/** Since when the recorder does not answer; null when it does. */
export let lostSince: Time | null = null;

const changed = new EventTarget();
let tag = "";
let timer = 0;
let failures = 0;
let active = true;
let asking: Promise<void> | null = null;
let stopped = true;

/** Calls back at every change until the signal ends that. */
export function onChange(callback: () => void, signal?: AbortSignal): void {
  changed.addEventListener("change", callback, { signal });
}

function tell(): void {
  changed.dispatchEvent(new Event("change"));
}

const MOVING = ["running", "prepare_start", "prepare_stop", "wait"];
const busy = (): boolean => known?.tasks.some((task) => MOVING.includes(task.status)) ?? false;

function pause(): number {
  const usual = busy() ? BUSY : QUIET;
  return failures ? Math.min(BUSY * 2 ** (failures - 1), 60_000) : usual;
}

async function look(): Promise<void> {
  const poll = active ? "" : "?poll=1"; // keeps no session open for whoever has gone
  active = false;
  try {
    const answer = await askAgain<Tasks>(`tasks${poll}`, tag);
    const back = failures > 0;
    failures = 0;
    lostSince = null;
    if (answer.value) {
      known = answer.value;
      setClock(known.time, known.recorder);
    }
    if (known) tag = answer.tag; // polling that was stopped meanwhile begins with nothing
    if (answer.value || back) tell();
  } catch {
    failures += 1;
    lostSince ??= now();
    tell();
  }
}

function plan(): void {
  clearTimeout(timer);
  if (!stopped && !document.hidden) timer = window.setTimeout(refresh, pause());
}

/** Asks now; over when the answer is shown. An answer that is on its way may be older than now. */
export function refresh(): Promise<void> {
  clearTimeout(timer);
  if (asking) return asking.then(refresh);
  asking = look().finally(() => {
    asking = null;
    plan();
  });
  return asking;
}

export function startPolling(): Promise<void> {
  stopped = false;
  return refresh();
}

export function stopPolling(): void {
  stopped = true;
  clearTimeout(timer);
  known = null;
  tag = "";
}

for (const event of ["pointerdown", "keydown"]) {
  addEventListener(event, () => (active = true), { capture: true, passive: true });
}
document.addEventListener("visibilitychange", () => {
  clearTimeout(timer);
  if (!document.hidden && !stopped) void refresh();
});
