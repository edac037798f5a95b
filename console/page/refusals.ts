// Which field of the form a refusal of the recorder's is about.
import { Refusal } from "./api";

/** By the codes of the prescribed routes and of the console's. */
const FIELDS: Record<string, string> = {
  3: "name", 4: "name", // a text that the store does not keep
  [0xffffffff]: "folder",
  [0x950a000a]: "user",
  [0x950a000b]: "server",
  [0x950a000c]: "share",
  [0x950a0011]: "server",
  wrong_account: "user",
};

/** Its name in the form, or "". */
export function fieldOf(error: unknown): string {
  return error instanceof Refusal ? error.field || (FIELDS[error.code] ?? "") : "";
}
