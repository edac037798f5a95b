// Requests to the recorder: each ends in time, asks for a sign-in where one is missing, and fails
// in words that people can read.
import { t } from "./texts";
import type { WireError } from "./wire";

const CONSOLE = "/cgi-bin/console.cgi/";
const PRESCRIBED = "/cgi-bin/recording_backup.cgi/";
const PATIENCE = 20_000;
/** A mount attempt against a dead server takes minutes. */
export const LONG_PATIENCE = 310_000;

/** The recorder has answered, and said no. */
export class Refusal extends Error {
  constructor(text: string, readonly status: number, readonly code = "",
    readonly field = "", readonly retryAfter = 0) {
    super(text);
  }
}

/** The recorder has not answered. */
export class Lost extends Error {}

/** What to do when there is no session; over when there is one again. */
let signIn: () => Promise<void> = () => Promise.reject(new Refusal("", 401));
export function onNoSession(ask: () => Promise<void>): void {
  signIn = ask;
}

interface Options { body?: unknown; patience?: number; headers?: Record<string, string> }

interface Answer { status: number; ok: boolean; headers: Headers; text: string }

async function send(method: string, url: string, options: Options): Promise<Answer> {
  const cut = new AbortController();
  const timer = setTimeout(() => cut.abort(), options.patience ?? PATIENCE);
  try {
    const response = await fetch(url, {
      method, signal: cut.signal, cache: "no-store", credentials: "same-origin",
      headers: { ...options.headers,
        ...(options.body === undefined ? {} : { "Content-Type": "application/json" }) },
      body: options.body === undefined ? null : JSON.stringify(options.body),
    });
    const { status, ok, headers } = response;
    return { status, ok, headers, text: await response.text() }; // one that breaks off is none
  } catch {
    throw new Lost(t.lostText);
  } finally {
    clearTimeout(timer);
  }
}

/** Nothing where there is no JSON. */
function parsed<T>({ text }: Answer): T | null {
  try {
    return JSON.parse(text) as T;
  } catch {
    return null;
  }
}

function refusal(answer: Answer): Refusal {
  const error = parsed<Partial<WireError>>(answer)?.error;
  return new Refusal(error?.text ?? t.strangeAnswer(answer.status), answer.status,
    error?.code, error?.field, error?.retry_after);
}

/** A web server without its program is as if nobody had answered. */
const fromNobody = (answer: Answer): boolean =>
  [502, 503, 504].includes(answer.status) && parsed(answer) === null;

/** Asks until there is a session. */
async function answered(method: string, url: string, options: Options): Promise<Answer> {
  for (;;) {
    const answer = await send(method, url, options);
    if (fromNobody(answer)) throw new Lost(t.lostText);
    if (answer.status !== 401) return answer;
    await signIn();
  }
}

/** What a good answer says. */
function value<T>(answer: Answer): T {
  if (!answer.ok) throw refusal(answer);
  if (answer.status === 204) return undefined as unknown as T;
  const said = parsed<T>(answer);
  if (said === null) throw new Refusal(t.strangeAnswer(answer.status), answer.status);
  return said;
}

/** One of the console's routes. */
export async function ask<T>(method: string, path: string, options: Options = {}): Promise<T> {
  return value<T>(await answered(method, CONSOLE + path, options));
}

/** The same without asking for a session. */
export async function askOnce<T>(method: string, path: string, body?: unknown): Promise<T> {
  return value<T>(await send(method, CONSOLE + path, { body }));
}

/**
 * The reply's value, null while it is still the one with this tag; and the tag to ask with next: a
 * 304 has one, too, with which the recorder need not read again what it has just read.
 */
export async function askAgain<T>(path: string, tag: string):
  Promise<{ tag: string; value: T | null }> {
  const headers: Record<string, string> = tag ? { "If-None-Match": tag } : {};
  const answer = await answered("GET", CONSOLE + path, { headers });
  const same = answer.status === 304;
  return { tag: answer.headers.get("ETag") ?? (same ? tag : ""),
    value: same ? null : value<T>(answer) };
}

interface Coded { ret_code?: number | string; mesg?: string }

/** One of the prescribed program's routes; its codes become words. */
export async function act<T = object>(method: string, path: string, body?: unknown,
  patience?: number): Promise<T> {
  const answer = await answered(method, PRESCRIBED + path, { body, patience });
  const reply = parsed<T & Coded>(answer);
  if (!reply || reply.ret_code === undefined) {
    throw new Refusal(t.strangeAnswer(answer.status), answer.status);
  }
  const code = Number(reply.ret_code) >>> 0; // the same code travels with and without a sign
  if (code !== 0) throw new Refusal(t.results[code] ?? t.unknownResult(code), 200, String(code));
  return reply;
}

export const consoleAddress = (path: string): string => CONSOLE + path;

/** Any failure in words. */
export function words(error: unknown): string {
  return error instanceof Error && error.message ? error.message : String(error);
}
