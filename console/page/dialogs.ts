// Questions on top of the page: what is asked, what follows from each answer, and nothing lost.
import { words } from "./api";
import { make } from "./dom";
import { t } from "./texts";

export interface Answer<T extends string> {
  value: T;
  label: string;
  /** What follows from it; shown beside it. */
  note?: string;
  kind?: "main" | "danger";
}

/** Asks; null when the question was put away (Escape, Cancel). Who had the focus gets it back. */
export function choose<T extends string>(title: string, text: (Node | string)[],
  answers: Answer<T>[]): Promise<T | null> {
  const dialog = make("dialog", { "aria-labelledby": "question" },
    make("form", { method: "dialog" },
      make("h2", { id: "question" }, title),
      ...text.map((line) => make("p", {}, line)),
      make("div", { class: "answers" }, ...answers.map(answerButton),
        make("button", { value: "", class: "plain" }, t.cancel))));
  return new Promise((done) => {
    dialog.addEventListener("close", () => {
      dialog.remove();
      done((dialog.returnValue || null) as T | null);
    });
    document.body.append(dialog);
    dialog.showModal();
  });
}

function answerButton(answer: Answer<string>): HTMLElement {
  const button = make("button", { value: answer.value, class: answer.kind ?? "plain" },
    answer.label);
  return answer.note ? make("div", { class: "answer" }, button, make("small", {}, answer.note))
    : button;
}

/** Tells something that nobody may miss. */
export async function tellFailure(title: string, error: unknown): Promise<void> {
  const dialog = make("dialog", { role: "alertdialog", "aria-labelledby": "failure" },
    make("form", { method: "dialog" },
      make("h2", { id: "failure" }, title),
      make("p", {}, words(error)),
      make("div", { class: "answers" }, make("button", { class: "main" }, t.close))));
  document.body.append(dialog);
  dialog.showModal();
  await new Promise((done) => dialog.addEventListener("close", done));
  dialog.remove();
}

/** There before anything is said in it, or it would not be heard. */
export const voice = make("div", { role: "status", class: "unseen" });

/** Has a screen reader say it, once. */
export function announce(text: string): void {
  voice.append(make("p", {}, text));
  while (voice.childElementCount > 5) voice.firstElementChild!.remove();
}
