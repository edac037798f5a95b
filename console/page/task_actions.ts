// What can be done with a task, with the questions that come before it.
import { act, words } from "./api";
import { announce, choose, tellFailure } from "./dialogs";
import { refresh } from "./state";
import { isActive } from "./task_words";
import { t } from "./texts";
import type { Task } from "./wire";

interface Started { has_running_task: boolean; isFUSE: boolean; taskID: string; taskName: string }

const HOW = {
  queue: { is_force_running: false, is_parallel_running: false },
  beside: { is_force_running: false, is_parallel_running: true },
  instead: { is_force_running: true, is_parallel_running: false },
};

/** What runs already is asked about: the recorder knows best whether anything does. */
async function start(task: Task): Promise<string> {
  const reply = await act<Started>("POST", `task/${task.id}/active`, { is_active: true });
  if (!reply.isFUSE) throw new Error(t.explorerOff);
  if (!reply.has_running_task) return t.startSent(task.name);
  if (reply.taskID === task.id) return t.runsAlready(task.name);
  const how = await choose<keyof typeof HOW>(t.startQuestion(task.name),
    [t.runsNow(reply.taskName)], [
      { value: "queue", label: t.startQueue, note: t.startQueueNote, kind: "main" },
      { value: "beside", label: t.startBeside, note: t.startBesideNote },
      { value: "instead", label: t.startInstead, note: t.startInsteadNote(reply.taskName),
        kind: "danger" }]);
  if (how === null) return "";
  await act("POST", `task/${task.id}/active/enforcement`, HOW[how]);
  return t.startSent(task.name);
}

async function stop(task: Task): Promise<string> {
  const sure = !isActive(task) || await choose(t.stopQuestion(task.name),
    [t.stopLoses, t.stopKeeps], [{ value: "stop", label: t.stop, kind: "danger" }]);
  if (!sure) return "";
  await act("POST", `task/${task.id}/active`, { is_active: false });
  return t.stopSent(task.name);
}

async function remove(task: Task): Promise<string> {
  const text = [t.deleteLoses, t.deleteKeeps, ...(isActive(task) ? [t.deleteStops] : [])];
  const sure = await choose(t.deleteQuestion(task.name), text,
    [{ value: "delete", label: t.delete, kind: "danger" }]);
  if (!sure) return "";
  // Asked to stop by a delete, the recorder would stop whatever else runs, too.
  if (isActive(task)) await act("POST", `task/${task.id}/active`, { is_active: false });
  await act("DELETE", `task/${task.id}?isStop=0`);
  return t.deleted(task.name);
}

async function enable(task: Task): Promise<string> {
  await act("POST", `task/${task.id}/is_enable`, { is_enable: !task.enabled });
  return task.enabled ? t.nowOff(task.name) : t.nowOn(task.name);
}

const ACTIONS = { start, stop, remove, enable };
export type Action = keyof typeof ACTIONS;

/** Does it, shows what came of it, and tells when nothing did. True when it was done; a question
 *  that was put away has changed nothing. */
export async function perform(name: Action, task: Task, button: Element): Promise<boolean> {
  if (button.getAttribute("aria-busy") === "true") return false;
  button.setAttribute("aria-busy", "true");
  try {
    const said = await ACTIONS[name](task);
    if (said === "") return false;
    announce(said);
    await refresh();
    return true;
  } catch (error) {
    await tellFailure(t.failedTo[name](task.name), new Error(`${words(error)} ${t.nothingLost}`));
    await refresh();
    return false;
  } finally {
    button.removeAttribute("aria-busy");
  }
}
