// A task in words: its state, place, schedule and progress, and what helps when it has failed.
import * as format from "./format";
import type { Icon } from "./icons";
import { t, translated } from "./texts";
import type { Attempt, Progress, Schedule, Task, Tasks } from "./wire";

export type Tone = "good" | "bad" | "busy" | "calm";
export interface State { icon: Icon; word: string; tone: Tone }

export const isActive = (task: Task): boolean =>
  ["running", "prepare_start", "prepare_stop"].includes(task.status);
export const canStop = (task: Task): boolean => isActive(task) || task.status === "wait";
export const needsYou = (task: Task): boolean => task.problems.length > 0;
/** No success of it counts for what it is to keep safe now. */
export const isMissing = (task: Task): boolean => task.missing !== null;
const isSafe = (task: Task): boolean =>
  task.last_success !== null && !isMissing(task) && !needsYou(task);

export function stateOf(task: Task): State {
  const word = t.status[task.status] ?? task.status;
  switch (task.status) {
    case "running": case "prepare_start": case "prepare_stop":
      return { icon: "run", word, tone: "busy" };
    case "wait":
      return { icon: "wait", tone: "busy",
        word: task.queue_place === null ? word : t.waitsAt(task.queue_place + 1) };
    case "failed":
      return { icon: "bad", word, tone: "bad" };
  }
  if (!task.enabled) return { icon: "off", word: t.switchedOff, tone: "calm" };
  if (task.status === "success") {
    return isSafe(task) ? { icon: "ok", word, tone: "good" } : { icon: "wait", word, tone: "calm" };
  }
  return { icon: task.status === "cancel" ? "stop" : "fresh", word, tone: "calm" };
}

/** "//server/share/folder", with the port where it is not the usual one. */
export function placeOf(settings: { serverIP: string; port: number; destPath: string }): string {
  const port = settings.port === 445 ? "" : `:${settings.port}`;
  return `//${settings.serverIP}${port}/${settings.destPath.replace(/^[\\/]+/, "")}`;
}

const isNight = (hour: number): boolean => hour < 6 || hour >= 22;

export function scheduleWords(schedule: Schedule): string {
  const time = format.timeOfDay(schedule.scheduleHour, schedule.scheduleMin);
  if (schedule.scheduleType === "hour") return t.everyHours(schedule.scheduleEveryHours);
  if (schedule.scheduleType === "daily") {
    return isNight(schedule.scheduleHour) ? t.everyNight(time) : t.everyDay(time);
  }
  return t.everyWeek(format.weekday(schedule.scheduleWeekly), time);
}

export function progressWords(progress: Progress): string {
  const left = progress.seconds_left;
  const files = progress.files_done + progress.files_left;
  return [
    format.percent(progress.percent),
    progress.rate > 0 ? format.rate(progress.rate) : "",
    left === null ? t.timeLeftUnknown : t.timeLeft(format.span(Math.max(left, 1))),
    t.filesOf(format.count(progress.files_done), format.count(files)),
    t.bytesOf(format.bytes(progress.bytes_done),
      format.bytes(progress.bytes_done + progress.bytes_left)),
    progress.message,
  ].filter(Boolean).join(" · ");
}

/** As the recorder says it: what to do about what is wrong, or about an attempt that failed. */
export function remedyOf(task: Task): string {
  const remedies = needsYou(task) ? task.remedies : [task.last_attempt?.remedy ?? ""];
  const text = remedies.filter(Boolean).map(translated).join("; ");
  return text && t.whatToDo(text);
}

export function attemptWords(attempt: Attempt): string {
  const outcome = attempt.outcome === null ? t.stillRunning : t.outcomes[attempt.outcome];
  const when = format.soon(attempt.ended ?? attempt.started);
  return attempt.reason ? `${when}, ${outcome}: ${attempt.reason}` : `${when}, ${outcome}`;
}

const SHOWN = 3; // lines of a kind under the headline

export interface Headline { text: string; tone: Tone; details: string[] }

function few(lines: string[]): string[] {
  const rest = lines.length - SHOWN;
  return rest > 0 ? [...lines.slice(0, SHOWN), t.andMore(rest)] : lines;
}

/** What is wrong, in one line where it fits. */
function alarm({ tasks, problems, notes }: Tasks): Headline {
  const all = [...problems.map(translated),
    ...tasks.filter(needsYou).map((task) => `${task.name}: ${translated(task.problems[0]!)}`)];
  if (all.length === 1) return { text: t.oneNeedsYou(all[0]!), tone: "bad", details: few(notes) };
  return { text: t.needYou(all.length), tone: "bad", details: [...few(all), ...few(notes)] };
}

function notYetSafe(waiting: Task[], on: number, notes: string[]): Headline {
  const lines = waiting.map((task) => `${task.name} ${task.missing}`);
  if (lines.length === 1) {
    return { text: t.notYetSafe(lines[0]!), tone: "calm", details: few(notes) };
  }
  return { text: t.notYetSafe(t.tasksOf(lines.length, on)), tone: "calm",
    details: [...few(lines), ...few(notes)] };
}

/** The one thing that matters. Whether all is safe the recorder says, and nobody else. */
export function headline(told: Tasks): Headline {
  const { tasks, problems, notes, services, verdict } = told;
  if (tasks.length === 0) {
    return { text: t.noTasks, tone: "calm",
      details: services.backup ? [] : problems.map(translated) };
  }
  if (verdict === "attention") return alarm(told);
  const on = tasks.filter((task) => task.enabled).length;
  if (verdict === "not_yet_safe") return notYetSafe(tasks.filter(isMissing), on, notes);
  return { text: on === tasks.length ? t.allSafe(on) : t.someSafe(on), tone: "good",
    details: few(notes) };
}
