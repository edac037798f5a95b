// When a task runs, with the next times as the recorder reckons them.
import { ask, words } from "./api";
import { make, say, show } from "./dom";
import { field, number, select } from "./fields";
import { soon, weekday, zoneName } from "./format";
import { scheduleWords } from "./task_words";
import { t } from "./texts";
import type { Preview, Schedule, ScheduleType, TaskSettings } from "./wire";

const PAUSE = 300; // while somebody types

const two = (value: number): string => String(value).padStart(2, "0");

export class SchedulePart {
  private readonly type: HTMLSelectElement;
  private readonly day: HTMLSelectElement;
  private readonly time: HTMLInputElement;
  private readonly hours: HTMLInputElement;
  private readonly fields: Record<"day" | "time" | "hours", HTMLElement>;
  private readonly next = make("ol", { class: "next" });
  private readonly note = make("p", {}, t.nextTimes(zoneName()));
  private timer = 0;
  private turn = 0;
  readonly content: HTMLElement[];

  constructor(settings: TaskSettings | null) {
    const days = Object.fromEntries([1, 2, 3, 4, 5, 6, 7].map((day) => [day, weekday(day)]));
    this.type = select("schedule", t.scheduleTypes, settings?.scheduleType ?? "daily");
    this.day = select("weekday", days, String(settings?.scheduleWeekly || 7));
    this.time = make("input", { name: "time", type: "time", required: true,
      value: `${two(settings?.scheduleHour ?? 2)}:${two(settings?.scheduleMin ?? 30)}` });
    const byHours = settings?.scheduleType === "hour";
    this.hours = number("hours", byHours ? settings.scheduleEveryHours : 6, 1, 8760);
    this.fields = { day: field(t.dayOfWeek, this.day), time: field(t.timeOfDay, this.time),
      hours: field(t.hoursBetween, this.hours) };
    const fields = make("div", { input: () => this.update() }, field(t.runs, this.type),
      make("div", { class: "pair" }, ...Object.values(this.fields)));
    this.content = [fields, this.note, this.next];
    this.update();
  }

  private update(): void {
    const type = this.type.value;
    show(this.fields.day, type === "weekly");
    show(this.fields.time, type !== "hour");
    show(this.fields.hours, type === "hour");
    this.time.disabled = type === "hour";
    this.hours.disabled = type !== "hour";
    clearTimeout(this.timer);
    this.timer = window.setTimeout(() => void this.preview(), PAUSE);
  }

  private async preview(): Promise<void> {
    if (!this.time.validity.valid || !this.hours.validity.valid) return;
    const mine = ++this.turn;
    try {
      const { times } = await ask<Preview>("POST", "schedule/preview", { body: this.values() });
      if (mine !== this.turn) return;
      say(this.note, t.nextTimes(zoneName()));
      this.next.replaceChildren(...times.map((time) => make("li", {}, soon(time))));
    } catch (error) {
      if (mine !== this.turn) return;
      say(this.note, words(error));
      this.next.replaceChildren();
    }
  }

  values(): Schedule {
    const [hour = 0, minute = 0] = this.time.value.split(":").map(Number);
    return { scheduleType: this.type.value as ScheduleType, scheduleWeekly: Number(this.day.value),
      scheduleHour: hour, scheduleMin: minute,
      scheduleEveryHours: this.hours.valueAsNumber || 0 };
  }

  get words(): string {
    return scheduleWords(this.values());
  }
}
