"""docs/openapi.json, as the measure of real replies."""
import json
import re
from functools import lru_cache

import jsonschema

from places import SOURCE

FILE = SOURCE / "docs/openapi.json"


@lru_cache
def document():
    return json.loads(FILE.read_text())


@lru_cache
def templates():
    """Each path of the document as a pattern, the longest first."""
    paths = sorted(document()["paths"], key=len, reverse=True)
    return [(re.compile(re.sub(r"\\{\w+\\}", "[^/]+", re.escape(path)) + r"\Z"), path)
            for path in paths]


def operation(method, address):
    """What the document has of a request; None when it is not in it."""
    path = address.split("?")[0].rstrip("/")
    # The web server makes another address of dots; methods that are not all capitals are others.
    if "/%2e" in path.lower() or not method.isupper():
        return None
    for pattern, template in templates():
        found = document()["paths"][template].get(method.lower())
        if found and pattern.match(path):
            return found
    return None


def validate(value, schema):
    resolver = jsonschema.RefResolver.from_schema(document())
    jsonschema.Draft202012Validator(schema, resolver=resolver).validate(value)


def check_reply(method, address, status, content_type, body):
    """Fails when a reply is none that the document has for such a request. What the document does
    not know is not looked at, nor is what the web server says instead of a program."""
    known = operation(method, address)
    kind = (content_type or "").split(";")[0]
    if known is None or kind == "text/html":
        return
    place = f"{method} {address.split('?')[0]}: {status}"
    assert str(status) in known["responses"], f"{place} is not in {FILE.name}"
    response = known["responses"][str(status)]
    assert bool(body) == ("content" in response), f"{place} has a body, or none"
    if not body:
        return
    assert kind in response["content"], f"{place}: {kind} is not in {FILE.name}"
    if kind == "application/json":
        validate(json.loads(body), response["content"][kind]["schema"])
