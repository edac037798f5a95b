"""What a page can do to the recorder in the browser of an administrator: its own page everything,
a page of another site or port nothing, however the session's cookie is kept."""
import socket
import threading

import pytest

from other_site import REDIRECT, OtherSite
from places import LOG_EXPORT
from stand_alone_recorder import ROOT_URL
from waiting import wait_until
from web_logs import log_lines

# Chromium tells a server by this name where a request comes from (Sec-Fetch-Site) and keeps cookies
# for secure connections there; by other names it does neither over plain HTTP.
TRUSTED, PLAIN = "localhost", "recorder.example"
OTHER = "elsewhere.example"

# A body that is JSON and that a form can send; the name of its one field has all but the end.
SWITCH_OFF = '{"is_enable": false, "rest": "'

FORM = """
const [url, name] = arguments;
const form = document.createElement('form');
Object.assign(form, {method: 'POST', action: url, enctype: 'text/plain'});
const field = document.createElement('input');
Object.assign(field, {type: 'hidden', name: name, value: '"}'});
form.append(field);
"""
SUBMIT = FORM + "document.documentElement.append(form); done(); form.submit();"
# Without an origin of its own. The frame's second load is the reply's.
SUBMIT_IN_FRAME = FORM + """
const frame = document.createElement('iframe');
frame.sandbox = 'allow-forms allow-scripts';
frame.srcdoc = form.outerHTML +
    '<script>onload = () => setTimeout(() => document.forms[0].submit())</script>';
let loads = 0;
frame.onload = () => { if (++loads == 2) done(); };
document.documentElement.append(frame);
"""
POST = """
const [url, name] = arguments;
fetch(url, {method: 'POST', mode: 'no-cors', credentials: 'include', body: name + '"}'})
    .then(() => done(), () => done());
"""
GET = """
const [url, tag] = arguments;
const element = document.createElement(tag);
if (tag == 'link') element.rel = 'stylesheet';
element.onload = element.onerror = () => done();
element[tag == 'link' ? 'href' : 'src'] = url;
document.documentElement.append(element);
"""
TAGS = ("img", "script", "link")
# Rules by which the browser loads a page before anybody asks for it.
AHEAD = """
const [url, how] = arguments;
const rules = document.createElement('script');
rules.type = 'speculationrules';
rules.text = JSON.stringify({[how]: [{urls: [url], eagerness: 'immediate'}]});
document.documentElement.append(rules);
done();
"""


class Listener:
    """Counts who connects, and hangs up."""

    def __init__(self):
        self.socket = socket.create_server(("127.0.0.1", 0))
        self.port = self.socket.getsockname()[1]
        self.count = 0
        self.thread = threading.Thread(target=self.listen)

    def listen(self):
        while True:
            client, _ = self.socket.accept()
            with client:
                if client.recv(1) == b"x":
                    return
                self.count += 1  # before whoever waits for our end is told

    def __enter__(self):
        self.thread.start()
        return self

    def __exit__(self, *unused):
        with socket.create_connection(("127.0.0.1", self.port)) as last:
            last.sendall(b"x")
        self.thread.join()
        self.socket.close()


class Scene:
    """A recorder with a task, an administrator's browser with a session, and somebody's site."""

    def __init__(self, recorder, browser, site, listener, host):
        self.recorder, self.browser, self.listener = recorder, browser, listener
        self.root = f"http://{host}:{recorder.port}{ROOT_URL}"
        self.elsewhere = {"port": f"http://{host}:{site.port}",
                          "site": f"http://{OTHER}:{site.port}"}
        recorder.create_successfully()

    def log_in(self, same_site):
        self.browser.keep_cookie(self.root, "sid", self.recorder.sid, same_site)

    def traces(self):
        """Whatever a request that acts leaves behind."""
        return (self.recorder.stored_tasks(), self.recorder.events(), LOG_EXPORT.exists(),
                self.listener.count)

    def answers(self, path):
        """How many requests for this the web server has answered, whatever it said."""
        return sum(f"{ROOT_URL}/{path}" in line for line in log_lines("requests.log"))

    def refusals(self):
        """How many requests for the program the web server has refused."""
        return sum(ROOT_URL in line and '" 403 ' in line for line in log_lines("requests.log"))

    # --- what a page tries ----------------------------------------------------------------------

    def post(self, how, via=""):
        url = f"{via}{self.root}/task/1/is_enable"
        self.browser.run(how, url, SWITCH_OFF)
        if how == SUBMIT:
            wait_until(lambda: self.browser.url == f"{self.root}/task/1/is_enable", "the reply")

    def get(self, tag):
        """Has the recorder connect to somebody's server and export its log."""
        self.browser.run(GET, f"{self.root}/share?ip=127.0.0.1&port={self.listener.port}"
                              "&user=u&pwd=cA==", tag)
        self.browser.run(GET, f"{self.root}/task/log/file", tag)


@pytest.fixture(name="scene_at")
def build_scene(recorder, browser):
    with OtherSite() as site, Listener() as listener:
        yield lambda host: Scene(recorder, browser, site, listener, host)


CASES = [(TRUSTED, "None"), (TRUSTED, "Lax"), (TRUSTED, "Strict"), (PLAIN, "Lax"),
         (PLAIN, "Strict")]


@pytest.mark.parametrize("host, same_site", CASES)
def test_the_recorders_own_page_can_do_it(scene_at, host, same_site):
    scene = scene_at(host)
    scene.log_in(same_site)
    for how in (SUBMIT, POST):
        scene.recorder.call("POST", "task/1/is_enable", {"is_enable": True})
        scene.browser.open(f"{scene.root}/fuse")
        scene.post(how)
        assert scene.recorder.stored_tasks()[0]["enable"] is False
    for tag in TAGS:
        LOG_EXPORT.unlink(missing_ok=True)
        before = scene.listener.count
        scene.browser.open(f"{scene.root}/fuse")
        scene.get(tag)
        assert LOG_EXPORT.exists() and scene.listener.count > before, tag
    assert scene.refusals() == 0


@pytest.mark.parametrize("page", ["port", "site"])
@pytest.mark.parametrize("host, same_site", CASES)
def test_a_page_from_elsewhere_changes_nothing(scene_at, host, same_site, page):
    scene = scene_at(host)
    scene.log_in(same_site)
    before = scene.traces()
    elsewhere = scene.elsewhere[page]
    tries = [(SUBMIT, ""), (SUBMIT, elsewhere + REDIRECT), (SUBMIT_IN_FRAME, ""), (POST, ""),
             (POST, elsewhere + REDIRECT)]
    for how, via in tries:
        scene.browser.open(elsewhere)
        scene.post(how, via)
        assert scene.traces() == before, (how, via)
    wait_until(lambda: scene.refusals() == len(tries), "every request to be refused")


@pytest.mark.parametrize("page", ["port", "site"])
@pytest.mark.parametrize("same_site", ["None", "Lax", "Strict"])
def test_a_page_from_elsewhere_has_nothing_done_by_embedding_it(scene_at, same_site, page):
    scene = scene_at(TRUSTED)
    scene.log_in(same_site)
    before = scene.traces()
    for tag in TAGS:
        scene.browser.open(scene.elsewhere[page])
        scene.get(tag)
        assert scene.traces() == before, tag
    wait_until(lambda: scene.refusals() == 2 * len(TAGS), "every request to be refused")


@pytest.mark.parametrize("same_site", ["None", "Lax", "Strict"])
def test_a_page_of_another_port_has_nothing_done_ahead_of_time(scene_at, same_site):
    scene = scene_at(TRUSTED)
    scene.log_in(same_site)
    before = scene.traces()
    for count, how in enumerate(("prefetch", "prerender"), 1):
        scene.browser.open(scene.elsewhere["port"])
        scene.browser.run(AHEAD, f"{scene.root}/task/log/file", how)
        wait_until(lambda n=count: scene.answers("task/log/file") == n, "an answer")
        assert scene.traces() == before, how
        assert scene.refusals() == count, how


def test_a_page_from_elsewhere_cannot_lead_the_browser_there(scene_at):
    scene = scene_at(TRUSTED)
    scene.log_in("Lax")
    before = scene.traces()
    scene.browser.open(scene.elsewhere["site"])
    scene.browser.run("done(); location = arguments[0];", f"{scene.root}/task/log/file")
    wait_until(lambda: scene.refusals() == 1, "the request to be refused")
    assert scene.traces() == before
