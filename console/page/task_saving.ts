// A form's task on its way to the recorder, which may have done what it gave no answer to.
import { act, Lost, words } from "./api";
import { dayOf } from "./format";
import { known, lostSince, refresh } from "./state";
import { t } from "./texts";
import type { Task, TaskBody, TaskSettings, Time } from "./wire";

const NOT_TOLD = ["password", "backupImmediately"];

const day = (moment?: Time): string => (moment === undefined ? "" : dayOf(moment));

/** Whether the task is as it was sent, as far as the recorder tells. */
function isAsSent({ settings }: Task, body: TaskBody): boolean {
  const told = { ...body, remoteKeepRec: Number(body.remoteKeepRec),
    backupStartDay: day(body.backupStartDay), backupEndDay: day(body.backupEndDay) };
  return Object.entries(told).every(([key, value]) =>
    NOT_TOLD.includes(key) || String(value) === String(settings[key as keyof TaskSettings]));
}

export class TaskSaving {
  private readonly sent: TaskBody[] = [];
  /** What was there before a new task was sent for the first time. */
  private others: Set<string> | null = null;
  /** Any change switches a task on; this one was off when the form was filled. */
  readonly staysOff: boolean;

  /** `task` is changed, and is as it was when the form was filled; null for a new one. */
  constructor(private readonly task: Task | null) {
    this.staysOff = task?.enabled === false;
  }

  /** Whether somebody else has changed it. */
  isForeign(task: Task): boolean {
    return task.revision !== this.task?.revision && !this.wasSent(task);
  }

  /** What there is now of the task; nothing of a new one that has not arrived. */
  async stored(): Promise<Task | undefined> {
    await refresh();
    if (!known || lostSince !== null) throw new Lost(t.lostText);
    this.others ??= new Set(known.tasks.map(({ id }) => id));
    const found = this.find();
    if (this.task && !found) throw new Error(t.taskGone);
    return found;
  }

  private find(): Task | undefined {
    const is = ({ id }: Task): boolean => id === this.task?.id;
    const isMade = (task: Task): boolean => !this.others?.has(task.id) && this.wasSent(task);
    return known?.tasks.find(this.task ? is : isMade);
  }

  private wasSent(task: Task): boolean {
    return this.sent.some((body) => isAsSent(task, body));
  }

  /** `id` is of what there is of it; "" has it made. */
  async send(body: TaskBody, id: string): Promise<void> {
    this.sent.push({ ...body, password: "" }); // that is kept nowhere
    try {
      await act(id ? "POST" : "PUT", id ? `task/${id}` : "task", body);
    } catch (error) {
      if (error instanceof Lost) throw new Error(`${words(error)} ${this.doubt}`);
      if (this.staysOff && await this.isOn()) await this.switchOff(); // stored before it failed
      throw error;
    }
    if (this.staysOff) await this.switchOff();
  }

  private get doubt(): string {
    if (!this.task) return t.mayBeMade;
    return this.staysOff ? t.mayBeSavedAndOn : t.mayBeSaved;
  }

  private async isOn(): Promise<boolean> {
    await refresh();
    return this.find()?.enabled ?? false;
  }

  private async switchOff(): Promise<void> {
    try {
      await act("POST", `task/${this.task!.id}/is_enable`, { is_enable: false });
    } catch (error) {
      throw new Error(t.savedButOn(words(error)));
    }
  }
}
