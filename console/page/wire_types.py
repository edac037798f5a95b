#!/usr/bin/python3
"""Prints wire.ts: the types of what travels, made from docs/openapi.json.

usage: wire_types.py >wire.ts; a test says when that is due.
"""
import json
import sys
from pathlib import Path

DOCUMENT = Path(__file__).parents[2] / "docs/openapi.json"
HEAD = "// What travels between page and recorder; made by wire_types.py from docs/openapi.json.\n"
NAMES = {"Error": "WireError"}  # the language has one of its own
FEW = 5  # words that fit into a line
PLAIN = {"string": "string", "integer": "number", "number": "number", "boolean": "boolean",
         "null": "null"}


def members(schema, indent):
    required = set(schema.get("required", ()))
    inner = indent + "  "
    lines = [f"{inner}{name}{'' if name in required else '?'}: {written(member, inner)};\n"
             for name, member in schema["properties"].items()]
    return "{\n" + "".join(lines) + indent + "}"


def array(schema, indent):
    if "prefixItems" in schema:
        return f"[{', '.join(written(item, indent) for item in schema['prefixItems'])}]"
    return f"Array<{written(schema.get('items', {}), indent)}>"


def written(schema, indent=""):
    """A schema as a type."""
    if "$ref" in schema:
        name = schema["$ref"].rpartition("/")[2]
        return NAMES.get(name, name)
    if "const" in schema:
        return json.dumps(schema["const"])
    if "enum" in schema:
        words = [json.dumps(value) for value in schema["enum"]]
        return (" | " if len(words) < FEW else f"\n{indent}  | ").join(words)
    for key in ("anyOf", "oneOf"):
        if key in schema:
            return " | ".join(written(choice, indent) for choice in schema[key])
    kind = schema.get("type")
    if isinstance(kind, list):
        return " | ".join(PLAIN[name] for name in kind)
    if kind == "array":
        return array(schema, indent)
    if kind == "object" and "properties" in schema:
        return members(schema, indent)
    return PLAIN.get(kind, "unknown")


def main():
    schemas = json.loads(DOCUMENT.read_text())["components"]["schemas"]
    sys.stdout.write(HEAD)
    for name, schema in schemas.items():
        sys.stdout.write(f"\nexport type {NAMES.get(name, name)} = {written(schema)};\n")


if __name__ == "__main__":
    main()
