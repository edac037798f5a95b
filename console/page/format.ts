// Numbers, amounts and times in words; every time is the recorder's, in its own zone.
import { locale } from "./texts";
import type { Day, RecorderFacts, Time } from "./wire";

const DAY = 86_400;
const UNITS = ["byte", "kilobyte", "megabyte", "gigabyte", "terabyte"];

let zone = "UTC";
let ahead = 0; // seconds between this machine's clock and the recorder's

/** A zone that this browser does not know is shown by its distance from UTC. */
function known(facts: RecorderFacts): string {
  try {
    new Intl.DateTimeFormat(locale, { timeZone: facts.zone });
    return facts.zone;
  } catch {
    const minutes = Math.abs(facts.utc_offset) / 60;
    const two = (value: number): string => String(Math.floor(value)).padStart(2, "0");
    return `${facts.utc_offset < 0 ? "-" : "+"}${two(minutes / 60)}:${two(minutes % 60)}`;
  }
}

/** What the recorder says of its clock. */
export function setClock(time: Time, facts: RecorderFacts): void {
  ahead = time - Date.now() / 1000;
  const now = known(facts);
  if (now === zone) return;
  zone = now;
  formats.clear();
}

export const now = (): Time => Math.floor(Date.now() / 1000 + ahead);
export const zoneName = (): string => zone;

/** Making a format takes longer than using it a hundred times. */
const formats = new Map<string, Intl.DateTimeFormat | Intl.NumberFormat>();

function kept<F extends Intl.DateTimeFormat | Intl.NumberFormat>(name: string, build: () => F): F {
  if (!formats.has(name)) formats.set(name, build());
  return formats.get(name) as F;
}

function written(time: Time, name: string, options: Intl.DateTimeFormatOptions): string {
  const build = (): Intl.DateTimeFormat =>
    new Intl.DateTimeFormat(locale, { timeZone: zone, ...options });
  return kept(name, build).format(time * 1000);
}

export const clock = (time: Time): string =>
  written(time, "clock", { hour: "2-digit", minute: "2-digit" });
export const dateOf = (time: Time): string => written(time, "date", { dateStyle: "medium" });
export const moment = (time: Time): string =>
  written(time, "moment", { dateStyle: "medium", timeStyle: "medium" });
/** With its zone, for where a time stands alone. */
export const exact = (time: Time): string => `${written(time, "exact",
  { weekday: "long", year: "numeric", month: "long", day: "numeric", hour: "2-digit",
    minute: "2-digit", second: "2-digit" })}, ${zone}`;

/** The recorder's local day of a moment, "2026-11-22". */
export function dayOf(time: Time): Day {
  const build = (): Intl.DateTimeFormat => new Intl.DateTimeFormat("en-CA", { timeZone: zone });
  return kept("day", build).format(time * 1000);
}

/** Today at the time of day, otherwise with the weekday or the date before it. */
export function soon(time: Time): string {
  const days = Math.round((Date.parse(dayOf(time)) - Date.parse(dayOf(now()))) / 1000 / DAY);
  if (days === 0) return clock(time);
  if (Math.abs(days) < 7) {
    return written(time, "soon", { weekday: "short", hour: "2-digit", minute: "2-digit" });
  }
  return written(time, "later",
    { day: "numeric", month: "short", year: "numeric", hour: "2-digit", minute: "2-digit" });
}

/** How far the recorder's zone is from UTC at a moment, in seconds. */
function offset(time: Time): number {
  const shown = new Intl.DateTimeFormat("sv-SE", { timeZone: zone, dateStyle: "short",
    timeStyle: "medium" }).format(time * 1000);
  return Date.parse(`${shown.replace(" ", "T")}Z`) / 1000 - time;
}

/** The moment of a time of day, in seconds, on a local day of the recorder's. */
export function momentOf(day: Day, seconds: number): Time {
  const wall = Date.parse(`${day}T00:00:00Z`) / 1000 + seconds;
  const guess = wall - offset(wall);
  return wall - offset(guess);
}

/** What is the same wherever one is, given as of UTC. */
function zoneless(milliseconds: number, name: string, options: Intl.DateTimeFormatOptions):
  string {
  const build = (): Intl.DateTimeFormat =>
    new Intl.DateTimeFormat(locale, { timeZone: "UTC", ...options });
  return kept(name, build).format(milliseconds);
}

/** A day without a moment, as people write it. */
export const dayName = (day: Day): string =>
  zoneless(Date.parse(day), "dayName", { dateStyle: "medium" });

export const monthName = (month: string): string =>
  zoneless(Date.parse(`${month}-01`), "monthName", { year: "numeric", month: "long" });

/** 1 and 7 are Monday and Sunday. */
export const weekday = (number: number, style: "long" | "short" | "narrow" = "long"): string =>
  zoneless(Date.UTC(2024, 0, number || 7), `weekday ${style}`, { weekday: style });

export const timeOfDay = (hour: number, minute: number): string =>
  zoneless(Date.UTC(2024, 0, 1, hour, minute), "timeOfDay",
    { hour: "2-digit", minute: "2-digit" });

function number(value: number, name: string, options: Intl.NumberFormatOptions): string {
  return kept(name, () => new Intl.NumberFormat(locale, options)).format(value);
}

function unit(value: number, name: string, digits: number, unitDisplay: "short" | "long"): string {
  return number(value, name + digits + unitDisplay,
    { style: "unit", unit: name, unitDisplay, maximumFractionDigits: digits });
}

export const count = (value: number): string => number(value, "count", {});
/** Rounded down: 100 % is said of nothing that is not whole. */
export const percent = (value: number): string =>
  number(Math.floor(value) / 100, "percent", { style: "percent" });

/** The value in the largest unit that leaves it 1 or more. */
function scaled(value: number): [number, string] {
  const step = Math.min(UNITS.length - 1, Math.max(0, Math.floor(Math.log10(value || 1) / 3)));
  return [value / 1000 ** step, UNITS[step]!];
}

export function bytes(value: number, per = ""): string {
  const [amount, name] = scaled(value);
  return unit(amount, name + per, amount < 10 && name !== "byte" ? 1 : 0, "short");
}

export const rate = (bytesPerSecond: number): string => bytes(bytesPerSecond, "-per-second");

const SPANS: [number, Intl.RelativeTimeFormatUnit & string][] =
  [[DAY, "day"], [3600, "hour"], [60, "minute"], [1, "second"]];

/** A length of time in its largest unit. */
export function span(seconds: number): string {
  const [length, name] = SPANS.find(([least]) => seconds >= least) ?? [1, "second"];
  return unit(Math.round(seconds / length), name, 0, "long");
}

const distances = new Intl.RelativeTimeFormat(locale, { numeric: "auto" });

/** "3 hours ago", "in 5 minutes". */
export function relative(time: Time): string {
  const seconds = time - now();
  const [length, name] = SPANS.find(([least]) => Math.abs(seconds) >= least) ?? [1, "second"];
  return distances.format(Math.trunc(seconds / length), name);
}
