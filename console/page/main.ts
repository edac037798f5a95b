// Where the page begins: texts, a session, and then the screen that the address names.
import { onNoSession, words } from "./api";
import { choose } from "./dialogs";
import { make } from "./dom";
import { applyTheme, openShell, preferences, showScreen } from "./shell";
import { resume, signInAgain, signInForm } from "./sign_in";
import { startPolling } from "./state";
import { TasksScreen } from "./tasks_screen";
import { loadTexts, t } from "./texts";

/** A screen, made for the rest of its address; those that few look at are loaded when they do. */
type Build = (argument: string, query: URLSearchParams) => Promise<[string, HTMLElement]>;

const form = async (mode: "create" | "edit" | "duplicate", id: string, query: URLSearchParams):
  Promise<HTMLElement> => new (await import("./task_form")).TaskForm(mode, id, query);

const screens: Record<string, Build> = {
  tasks: async () => [t.tasks, new TasksScreen()],
  task: async (id) => [t.task, new (await import("./task_screen")).TaskScreen(id)],
  new: async (_, query) => [t.newTask, await form("create", "", query)],
  edit: async (id, query) => [t.editTask, await form("edit", id, query)],
  duplicate: async (id, query) => [t.duplicateTask, await form("duplicate", id, query)],
  log: async (_, query) => [t.log, new (await import("./log_screen")).LogScreen(query)],
  recorder: async () => [t.recorder, new (await import("./recorder_screen")).RecorderScreen()],
};

/** What a screen may have besides: something to lose, and steps of its own in the address. */
interface Screen extends HTMLElement {
  unsaved?: boolean;
  follow?(query: URLSearchParams): void;
}

let shown: Screen | undefined;
let place = ""; // where it is, without its query
let turn = 0;

async function sureToLeave(): Promise<boolean> {
  return await choose(t.leaveQuestion, [t.leaveLoses],
    [{ value: "leave", label: t.leaveAnyway, kind: "danger" }]) !== null;
}

async function route(before?: string): Promise<void> {
  const [path = "", search] = location.hash.replace(/^#\/?/, "").split("?");
  const query = new URLSearchParams(search);
  const mine = ++turn;
  if (path === place && shown?.follow) {
    shown.follow(query);
    return;
  }
  if (before && shown?.unsaved && !(await sureToLeave())) {
    history.pushState(null, "", before);
    return;
  }
  const [name = "", argument = ""] = path.split("/");
  const screen = name in screens ? name : "tasks";
  const [title, node] = await screens[screen]!(argument, query);
  if (mine !== turn) return; // somebody has gone on meanwhile
  const first = !shown;
  [shown, place] = [node, path];
  showScreen(screen, title, node, first);
}

function open(): void {
  onNoSession(signInAgain);
  openShell();
  addEventListener("beforeunload", (event) => {
    if (shown?.unsaved) event.preventDefault();
  });
  addEventListener("hashchange", (event) => void route(event.oldURL));
  void route();
  void startPolling();
}

function askForSignIn(): void {
  document.title = `${t.signIn} – ${t.title}`;
  document.body.replaceChildren(make("main", { class: "alone" },
    make("p", { class: "name" }, t.title), signInForm(t.signInHint, open), preferences()));
  document.querySelector<HTMLInputElement>("[name=username]")!.focus();
}

async function begin(): Promise<void> {
  applyTheme();
  await loadTexts();
  for (;;) {
    try {
      if (await resume()) open();
      else askForSignIn();
      return;
    } catch (error) {
      document.body.replaceChildren(make("main", { class: "alone" },
        make("h1", {}, t.title), make("p", { role: "status" }, words(error), " ", t.tryingAgain)));
      await new Promise((done) => setTimeout(done, 3000));
    }
  }
}

void begin();
