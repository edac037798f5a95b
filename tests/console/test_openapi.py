"""The document of both programs' routes: sound, whole, and able to find a wrong reply."""
import re

import jsonschema
import pytest

import openapi
from places import SOURCE


def test_each_schema_is_a_schema():
    for schema in openapi.document()["components"]["schemas"].values():
        jsonschema.Draft202012Validator.check_schema(schema)


def test_each_reference_leads_somewhere():
    text = openapi.FILE.read_text()
    names = set(re.findall(r'"#/components/schemas/(\w+)"', text))
    assert names <= set(openapi.document()["components"]["schemas"])


def routes_in(path, table):
    """Method and address of each route in a program's table."""
    source = (SOURCE / path).read_text()
    return {tuple(row) for row in re.findall(table, source)}


def console_routes(any_segment):
    """Of each the method and the path, with what is given wherever any segment may stand."""
    rows = routes_in("console/routes.cpp", r'\{"(\w+)", \{([^}]*)\}, For::')
    return sorted((method, "/".join(word or any_segment for word, _ in
                                    re.findall(r'"([^"]*)"|(ANY)', segments)))
                  for method, segments in rows)


@pytest.mark.parametrize("method, path", console_routes("1"))
@pytest.mark.parametrize("status, query, body, length", [
    (413, "", b"x" * 20000, 20000), (400, "&x" * 300, b"", None), (400, "", b"{}", 40)],
    ids=["long body", "long query", "cut body"])
def test_each_route_refuses_what_no_route_takes_as_the_document_has_it(console, method, path,
                                                                       status, query, body, length):
    # The look into the document is the call's own.
    assert console.call(method, "/" + path, body, query=query, length=length).status == status


def test_the_document_has_each_route_of_the_console_and_no_other():
    routes = {(method.lower(), path) for method, path in console_routes("{}")}
    prefix = "/cgi-bin/console.cgi/"
    told = {(method, re.sub(r"\{\w+\}", "{}", path.removeprefix(prefix)))
            for path, methods in openapi.document()["paths"].items() if path.startswith(prefix)
            for method in methods}
    assert routes == told and len(told) > 10


def test_the_document_has_each_prescribed_route():
    table = re.search(r"\| method \| path \| does \|\n\|.*\n((?:\|.*\n)+)",
                      (SOURCE / "docs/api.md").read_text())[1]
    told = {(method.lower(), "/cgi-bin/recording_backup.cgi/" + path.replace("`<id>`", "{id}"))
            for method, path in re.findall(r"\| (\w+) \| (\S+) \|", table)}
    known = {(method, path) for path, methods in openapi.document()["paths"].items()
             for method in methods if "recording_backup" in path}
    assert told == known


SESSION = '{"user": "admin", "level": 11, "expires": 1, "ends": 2}'


@pytest.mark.parametrize("status, kind, body", [
    (200, "application/json", SESSION.replace("11", '"11"')),
    (200, "application/json", SESSION.replace("}", ', "more": 1}')),
    (200, "application/json", '{"user": "admin", "level": 11, "expires": 1}'),
    (200, "text/plain", SESSION), (200, None, ""), (302, "application/json", SESSION),
    (401, "application/json", SESSION)])
def test_a_reply_that_the_document_does_not_have_is_found(status, kind, body):
    with pytest.raises((AssertionError, jsonschema.ValidationError)):
        openapi.check_reply("GET", "/cgi-bin/console.cgi/session", status, kind, body)


def test_a_reply_that_it_has_is_accepted():
    openapi.check_reply("GET", "/cgi-bin/console.cgi/session?poll=1", 200, "application/json",
                        SESSION)
    openapi.check_reply("GET", "/cgi-bin/console.cgi/session", 403, "text/html; charset=x", "<p>")
    openapi.check_reply("DELETE", "/cgi-bin/console.cgi/session", 204, None, "")
