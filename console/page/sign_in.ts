// Who is there: signing in and out, also on top of a page whose session has ended.
import { askOnce, Refusal, words } from "./api";
import { make, say, show } from "./dom";
import { span } from "./format";
import { t } from "./texts";
import type { Session } from "./wire";

export let session: Session | null = null;

/** Takes up the session that the browser still has, if any. */
export async function resume(): Promise<boolean> {
  try {
    session = await askOnce<Session>("GET", "session");
    return true;
  } catch (error) {
    if (error instanceof Refusal && [401, 403].includes(error.status)) return false;
    throw error;
  }
}

export async function signOut(): Promise<void> {
  await askOnce("DELETE", "session");
  session = null;
}

/** A form that calls back once somebody has signed in. */
export function signInForm(text: string, done: () => void): HTMLFormElement {
  const name = make("input", { name: "username", autocomplete: "username", required: true,
    autocapitalize: "none", spellcheck: "false", autofocus: true, value: session?.user ?? "" });
  const password = make("input", { name: "password", type: "password", required: true,
    autocomplete: "current-password" });
  const trouble = make("p", { role: "alert", class: "trouble", hidden: true });
  const button = make("button", { class: "main" }, t.signIn);
  const form = make("form", { class: "sign-in", submit },
    make("h1", {}, t.signIn), make("p", {}, text),
    make("label", {}, t.userName, name), make("label", {}, t.password, password),
    trouble, button);

  async function submit(event: Event): Promise<void> {
    event.preventDefault();
    if (button.disabled) return;
    button.disabled = true;
    show(trouble, false);
    try {
      session = await askOnce<Session>("POST", "session",
        { name: name.value, password: password.value });
      done();
    } catch (error) {
      refuse(error);
    }
  }

  function refuse(error: unknown): void {
    show(trouble, true);
    password.value = "";
    const code = error instanceof Refusal ? error.code : "";
    const known: Record<string, string> = t.signInRefusals;
    const reason = known[code] ?? words(error);
    const until = Date.now() + (error instanceof Refusal ? error.retryAfter : 0) * 1000;
    const count = (): void => {
      const left = Math.ceil((until - Date.now()) / 1000);
      if (left <= 0) {
        say(trouble, reason);
        say(button, t.signIn);
        button.disabled = false;
        password.focus();
        return;
      }
      say(button, t.signInAfter(span(left)));
      setTimeout(count, 1000);
    };
    if (until > Date.now()) say(trouble, `${reason} ${t.waitAfterFailures}`);
    count();
  }
  return form;
}

let asked: Promise<void> | null = null;

/** Asks on top of whatever is there, which stays as it is; once for all who need it. */
export function signInAgain(): Promise<void> {
  asked ??= new Promise<void>((done) => {
    const dialog = make("dialog", { "aria-label": t.signIn },
      signInForm(t.sessionEnded, () => {
        dialog.remove();
        asked = null;
        done();
      }));
    dialog.addEventListener("cancel", (event) => event.preventDefault());
    document.body.append(dialog);
    dialog.showModal();
  });
  return asked;
}
