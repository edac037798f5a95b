// The document of both programs' routes is what OpenAPI's own schemas say such a document is:
// openapi_test.mjs FOLDER-OF-TOOLS DOCUMENT
import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { createRequire } from "node:module";
import { join } from "node:path";
import process from "node:process";
import { test } from "node:test";

const [, , tools, file] = process.argv;
const require = createRequire(join(tools, "package.json"));
const { Validator } = await import(require.resolve("@seriousme/openapi-schema-validator"));

/** What is wrong with the document; [] when nothing is. */
async function complaints(change = () => undefined) {
  const document = JSON.parse(readFileSync(file, "utf8"));
  change(document);
  const validator = new Validator();
  const { valid, errors } = await validator.validate(document);
  assert.equal(validator.version, "3.1");
  return valid ? [] : errors;
}

test("the document is sound OpenAPI 3.1", async () => {
  assert.deepEqual(await complaints(), []);
});

for (const [what, change] of Object.entries({
  "a reply without a description": ({ paths }) => {
    const [methods] = Object.values(paths);
    delete Object.values(Object.values(methods)[0].responses)[0].description;
  },
  "a parameter that stands nowhere": ({ paths }) => {
    Object.values(paths)[0].parameters = [{ name: "id" }];
  },
  "a document without a version": ({ info }) => delete info.version,
})) {
  test(`${what} is found`, async () => {
    assert.notDeepEqual(await complaints(change), []);
  });
}
