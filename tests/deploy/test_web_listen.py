"""The recorder beyond loopback: TLS alone, with a certificate that is kept, renewed and told."""
import fcntl
import json
import os
import shutil
import signal
import socket
import ssl
import struct
import subprocess
import threading
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import pytest

from other_user import NOBODY
from places import CGI, CONSOLE, PROGRAMS, SOURCE, STATE
from processes import freeze, is_running, parent_of, processes
from second_machine import (ADDRESS, IPV6, Visit, connect, fingerprint, handshake,
                            lose_address, needs_a_network_of_its_own, run, shown)
from stand_alone_recorder import ROOT_URL, Recorder
from state_folder import StateFolder
from waiting import SECONDS, wait_until
from web_logs import log_lines

pytestmark = needs_a_network_of_its_own()

PORT = 8443
WHERE = f"{ADDRESS}:{PORT}"
URL = f"https://{WHERE}"
LISTEN = SOURCE / "deploy/recorder-listen"
RECORDERCTL = PROGRAMS / "recorderctl"
CONSOLE_URL = "/cgi-bin/console.cgi"
KEPT = STATE / "web.pem"
PLACE = "/run/recorder/listen"
ALL = {"address": f"{URL}/", "certificate": "own", "answers": "yes"}


@pytest.fixture(scope="module", name="machine", autouse=True)
def second_machine():
    connect()


@pytest.fixture(scope="module", name="recorder")
def started():
    with Recorder() as recorder:
        yield recorder


@pytest.fixture(name="told")
def listening(recorder):
    """What the command says."""
    return rows(recorder.ctl("web", "listen", WHERE))


@pytest.fixture(name="trust")
def trusted(told, tmp_path):
    """The certificate as somebody keeps it who has compared its fingerprint."""
    file = tmp_path / "recorder.crt"
    file.write_text(shown(WHERE))
    assert told["fingerprint"] == "SHA-256 " + fingerprint(file.read_text())
    return file


def rows(text):
    return dict(line.split("\t", 1) for line in text.splitlines())


def connects(host, port):
    with socket.socket() as probe:
        return probe.connect_ex((host, port)) == 0


def serves(where, pem_file):
    return fingerprint(shown(where) or "-") == fingerprint(pem_file.read_text())


# --- what is served -------------------------------------------------------------------------------

def test_the_command_tells_where_and_shows_a_fingerprint_that_is_served(recorder, told, trust):
    assert {key: told[key] for key in ALL} == ALL
    assert told["names"].split()[0] == ADDRESS and "localhost" in told["names"].split()
    shown_as_json = recorder.ctl_json("web", "show")
    assert [(one["listen"], one["urls"], one["certificate"], one["answers"])
            for one in shown_as_json] == [(WHERE, [f"{URL}/"], "own", True)]
    assert Visit(f"{URL}/", trust=trust).status == 200


def test_the_certificate_is_one_that_browsers_take(trust):
    said = run("openssl", "x509", "-in", trust, "-noout", "-text")[1]
    assert "prime256v1" in said and "CA:FALSE" in said and "TLS Web Server Auth" in said
    assert run("openssl", "x509", "-in", trust, "-noout", "-checkend", str(396 * 86400))[0] == 0
    assert run("openssl", "x509", "-in", trust, "-noout", "-checkend", str(397 * 86400))[0] == 1


def test_nobody_but_root_and_the_recorders_user_can_read_the_key(told):
    assert KEPT.stat().st_mode & 0o777 == 0o600
    assert run("setpriv", "--reuid", "www-data", "--regid", "www-data", "--clear-groups",
               "ls", PLACE)[0] != 0


def test_saying_it_again_changes_nothing(recorder, told):
    before = KEPT.stat()
    assert rows(recorder.ctl("web", "listen", WHERE)) == told
    assert KEPT.stat() == before


@pytest.mark.parametrize("version, taken", [("1", False), ("1_1", False), ("1_2", True),
                                            ("1_3", True)])
def test_old_protocols_are_refused_by_the_server(told, version, taken):
    said = handshake(WHERE, "-tls" + version, "-cipher", "ALL:@SECLEVEL=0")
    assert ("BEGIN CERTIFICATE" in said) == taken
    assert ("alert protocol version" in said) != taken, said


@pytest.mark.parametrize("cipher, taken", [
    ("ECDHE-ECDSA-AES128-GCM-SHA256", True), ("ECDHE-ECDSA-AES256-GCM-SHA384", True),
    ("ECDHE-ECDSA-CHACHA20-POLY1305", True), ("ECDHE-ECDSA-AES128-SHA", False),
    ("ECDHE-ECDSA-AES128-SHA256", False), ("ECDHE-ECDSA-AES256-SHA384", False),
    ("ECDHE-ECDSA-AES128-CCM8", False), ("AES128-GCM-SHA256", False), ("AES256-SHA", False),
    ("ECDHE-ECDSA-NULL-SHA", False), ("AECDH-AES128-SHA", False)])
def test_ciphers_that_are_not_modern_are_refused_by_the_server(told, cipher, taken):
    said = handshake(WHERE, "-tls1_2", "-cipher", cipher + ":@SECLEVEL=0")
    assert (f"Cipher is {cipher}" in said) == taken
    assert ("alert handshake failure" in said) != taken, said


def test_no_session_outlives_its_connection(told):
    for version in ("-tls1_2", "-tls1_3"):
        said = handshake(WHERE, version, "-reconnect")
        assert said.count("New, TLS") >= 2 and "Reused, TLS" not in said, said


@pytest.mark.parametrize("version, named", [("2", "HTTP/2"), ("1.1", "HTTP/1.1")])
def test_both_versions_of_http_are_spoken(trust, version, named):
    visit = Visit(f"{URL}/", trust=trust, version=version)
    assert (visit.version, visit.status) == (named, 200)
    assert "strict-transport-security" not in visit.headers


@pytest.mark.parametrize("host", [ADDRESS, f"[{IPV6}]"])
def test_plain_http_to_the_port_is_led_to_tls(recorder, host):
    recorder.ctl("web", "listen", f"{host}:{PORT}")
    visit = Visit(f"http://{host}:{PORT}/cgi-bin/console.cgi/session")
    assert (visit.status, visit.headers["location"]) == (302, f"https://{host}:{PORT}/")


def test_a_browsers_bad_request_is_not_led_in_circles(trust):
    visit = Visit(f"{URL}/", "--header", "X-Long: " + "x" * 5000, trust=trust)
    assert (visit.version, visit.status) == ("HTTP/2", 431)


def test_the_plain_port_stays_on_loopback_alone(recorder, told):
    assert recorder.request("GET", "/").status == 200
    assert not connects(ADDRESS, recorder.port)


# --- sessions and other sites ---------------------------------------------------------------------

SIGN_IN = json.dumps({"name": "admin", "password": "password of admin"})


@pytest.mark.parametrize("version", ["2", "1.1"])
def test_a_session_s_cookie_is_for_tls_alone_and_opens_both_programs(trust, version):
    visit = Visit(f"{URL}{CONSOLE_URL}/session", "--data", SIGN_IN, "--header",
                  "Content-Type: application/json", trust=trust, version=version)
    assert visit.status == 200
    cookie, *attributes = visit.headers["set-cookie"].split("; ")
    assert {"Secure", "HttpOnly", "SameSite=Strict", "Path=/cgi-bin/"} <= set(attributes)
    for path in (CONSOLE_URL + "/session", ROOT_URL + "/task"):
        assert Visit(f"{URL}{path}", "--cookie", cookie, trust=trust, version=version).status == 200
    assert Visit(f"{URL}{CONSOLE_URL}/session", trust=trust, version=version).status == 401


@pytest.mark.parametrize("version", ["2", "1.1"])
@pytest.mark.parametrize("name", ["127.0.0.1", "localhost", ADDRESS])
def test_all_names_of_the_machine_are_alike_by_tls(recorder, tmp_path, name, version):
    recorder.ctl("web", "local")
    recorder.ctl("web", "listen", f"0.0.0.0:{PORT}")
    trust = tmp_path / "recorder.crt"
    trust.write_text(shown(f"127.0.0.1:{PORT}"))
    url = f"https://{name}:{PORT}"
    sign_in = ["--data", SIGN_IN, "--header", "Content-Type: application/json"]
    # The refused one brings no body: curl 7.88 takes a reply by HTTP/2 that is there before the
    # body's end, and that the server then needs no more of (RFC 9113, 8.1), for none.
    for origin, body, status in ((url, sign_in, 200), (url.replace("https", "http"), [], 403)):
        visit = Visit(f"{url}{CONSOLE_URL}/session", *body, "--header", "Origin: " + origin,
                      "--header", "X-Forwarded-Proto: http", "--resolve",
                      f"localhost:{PORT}:{ADDRESS}", trust=trust, version=version)
        assert visit.status == status
        assert ("Secure" in visit.headers.get("set-cookie", "")) == (status == 200)
    recorder.ctl("web", "local")


def test_on_loopback_the_cookie_is_as_it_was(recorder, told):
    reply = recorder.request("POST", CONSOLE_URL + "/session", SIGN_IN,
                             {"Content-Type": "application/json"})
    assert "Secure" not in reply.headers["Set-Cookie"]


@pytest.mark.parametrize("version", ["2", "1.1"])
@pytest.mark.parametrize("headers, status", [
    ([], 200),
    ([f"Origin: {URL}", "Sec-Fetch-Site: same-origin"], 200),
    ([f"Origin: {URL}", "X-Forwarded-Proto: http"], 200),
    ([f"Origin: http://{WHERE}"], 403),
    ([f"Origin: http://{WHERE}", "X-Forwarded-Proto: http"], 403),
    ([f"Origin: https://{ADDRESS}"], 403),
    (["Origin: https://elsewhere.example"], 403),
    (["Sec-Fetch-Site: cross-site"], 403),
    (["Sec-Purpose: prefetch"], 403)])
def test_only_pages_of_its_own_are_served(recorder, trust, version, headers, status):
    options = [word for header in headers for word in ("--header", header)]
    for path in (ROOT_URL + "/task", CONSOLE_URL + "/session"):
        visit = Visit(f"{URL}{path}", "--cookie", "sid=" + recorder.sid, *options, trust=trust,
                      version=version)
        assert visit.status == status


# --- certificates ---------------------------------------------------------------------------------

def made(folder, name, days=30, key="ec", issuer=None, hash_name="sha256", names=None):
    """Certificate and key, as somebody else makes them."""
    kinds = {"ec": ["ec", "-pkeyopt", "ec_paramgen_curve:P-256"], "rsa": ["rsa:2048"],
             "weak": ["rsa:1024"]}
    files = folder / f"{name}.crt", folder / f"{name}.key"
    signed = ["-CA", issuer[0], "-CAkey", issuer[1]] if issuer else []
    subprocess.run(["openssl", "req", "-x509", "-newkey", *kinds[key], "-nodes", "-days", str(days),
                    f"-{hash_name}", "-subj", f"/CN={name}",
                    "-addext", f"subjectAltName={names or f'DNS:{name},IP:{ADDRESS}'}", *signed,
                    "-keyout", files[1], "-out", files[0]], check=True, capture_output=True)
    return files


def order(files):
    return ["web", "listen", WHERE, "--certificate", files[0], "--key", files[1]]


@pytest.mark.parametrize("key", ["ec", "rsa"])
def test_a_given_certificate_is_served_with_those_that_vouch_for_it(recorder, tmp_path, key):
    authority = made(tmp_path, "authority")
    files = made(tmp_path, "recorder.example", 90, key, authority)
    files[0].write_text(files[0].read_text() + authority[0].read_text())
    told = rows(recorder.ctl(*order(files)))
    assert (told["certificate"], told["names"]) == ("given", f"recorder.example {ADDRESS}")
    assert serves(WHERE, files[0])
    assert "1 s:CN = authority" in handshake(WHERE, "-showcerts")
    assert Visit(f"{URL}/", trust=authority[0]).status == 200
    assert Visit(f"http://{WHERE}/").headers["location"] == f"https://recorder.example:{PORT}/"


def ended(folder):
    """A certificate that ended yesterday, and its key."""
    files = made(folder, "ended")
    subprocess.run(["openssl", "x509", "-in", files[0], "-signkey", files[1], "-days", "-1",
                    "-out", files[0]], check=True, capture_output=True)
    return files


def behind(folder, name, authority):
    """A good certificate, with one that vouches for it behind it, and its key."""
    files = made(folder, name, issuer=authority)
    files[0].write_text(files[0].read_text() + authority[0].read_text())
    return files


def spoilt(folder):
    """Orders that are refused, and a part of why."""
    good, other = made(folder, "good"), made(folder, "other")
    locked = folder / "locked.key"
    subprocess.run(["openssl", "pkey", "-in", good[1], "-aes128", "-passout", "pass:secret",
                    "-out", locked], check=True)
    return [((good[0], other[1]), "not that of the first certificate"),
            (ended(folder), "has ended"),
            ((good[0], locked), "has a passphrase"),
            (made(folder, "weak", key="weak"), "too small"),
            (behind(folder, "weakly-signed", made(folder, "weak", key="weak")),
             "behind the first cannot be served: ca key too small"),
            (behind(folder, "of-an-old-hash", made(folder, "old", issuer=other, hash_name="sha1")),
             "behind the first cannot be served: ca md too weak"),
            ((good[1], good[1]), "no certificate"),
            ((good[0], good[0]), "no private key"),
            ((folder / "none", good[1]), "cannot read"),
            (("/dev/zero", good[1]), "cannot read")]


def test_a_certificate_that_could_not_be_served_changes_nothing(recorder, told, tmp_path):
    before = KEPT.read_bytes()
    for files, why in spoilt(tmp_path):
        assert why in recorder.refusal("recorderctl", *order(files))
    assert KEPT.read_bytes() == before and serves(WHERE, KEPT)


def keep(files, maker="own"):
    """As if it had been made, or given, a long time ago; while the web server runs."""
    new = KEPT.with_name("web.pem.new")
    new.write_text(f"Listen: {WHERE}\nCertificate: {maker}\n{files[1].read_text()}"
                   f"{files[0].read_text()}")
    new.chmod(0o600)
    new.rename(KEPT)


def test_a_certificate_that_ends_soon_is_replaced_and_the_new_fingerprint_told(
        recorder, told, tmp_path):
    old = made(tmp_path, "camera.example", days=29)
    keep(old)
    done = recorder.run("recorderctl", "web", "renew")
    assert (done.returncode, done.stdout) == (0, "")
    assert fingerprint(KEPT.read_text()) in done.stderr and "is replaced" in done.stderr
    wait_until(lambda: serves(WHERE, KEPT), "the new certificate")
    assert not serves(WHERE, old[0])
    now = rows(recorder.ctl("web", "show"))
    assert now["names"] == f"camera.example {ADDRESS}"
    assert recorder.ctl("web", "renew") == ""


def test_a_start_replaces_it_too(recorder, told, tmp_path):
    keep(made(tmp_path, "camera.example", days=1))
    recorder.restart()
    wait_until(lambda: serves(WHERE, KEPT), "the new certificate")
    assert rows(recorder.ctl("web", "show"))["answers"] == "yes"
    assert run("openssl", "x509", "-in", KEPT, "-noout", "-checkend", str(300 * 86400))[0] == 0


def test_a_given_certificate_that_ends_soon_is_complained_of_and_stays(recorder, told, tmp_path):
    files = made(tmp_path, "camera.example", days=29)
    keep(files, "given")
    done = recorder.run("recorderctl", "web", "renew")
    assert done.returncode == 0 and "give it the next one" in done.stderr
    assert fingerprint(KEPT.read_text()) == fingerprint(files[0].read_text())


def test_a_name_that_is_no_address_at_all_is_passed_over(recorder, tmp_path):
    five_bytes_then_a_name = "DER:3019" + "8705c000020a01" + "8210" + b"recorder.example".hex()
    files = made(tmp_path, "odd", names=five_bytes_then_a_name)
    assert rows(recorder.ctl(*order(files)))["names"] == "recorder.example"


def test_what_is_kept_is_served_also_where_it_cannot_be_renewed(tmp_path):
    state = StateFolder(tmp_path / "state").init()
    where = f"{ADDRESS}:9443"
    state.ctl("web", "listen", "--later", where)
    files = made(tmp_path, "camera.example", days=1)
    (state.path / "web.pem").write_text(f"Listen: {where}\nCertificate: own\n"
                                        f"{files[1].read_text()}{files[0].read_text()}")
    folder = os.open(state.path, os.O_RDONLY)
    fcntl.flock(folder, fcntl.LOCK_EX)
    done = state.run("recorderctl", "web", "prepare", "8080")
    assert (done.returncode, done.stdout) == (0, f"tls\t{where}\t{ADDRESS}\n")
    assert "another recorderctl is at work" in done.stderr
    assert "another recorderctl is at work" in state.refusal("recorderctl", "web", "renew")
    os.close(folder)


# --- where ----------------------------------------------------------------------------------------

def test_all_addresses_at_once_and_none_again(recorder):
    recorder.ctl("web", "local")
    told = recorder.ctl("web", "listen", f"[::]:{PORT}")
    assert f"address\t{URL}/\naddress\thttps://[{IPV6}]:{PORT}/\n" in told
    for host in (ADDRESS, f"[{IPV6}]", "127.0.0.1"):
        assert serves(f"{host}:{PORT}", KEPT)
        assert Visit(f"http://{host}:{PORT}/").headers["location"] == f"https://{host}:{PORT}/"
    assert recorder.ctl("web", "local") == "address\t127.0.0.1 alone\n"
    assert shown(WHERE) == "" and not KEPT.exists()
    assert recorder.request("GET", "/").status == 200


def test_loopback_addresses_speak_plain_http(recorder):
    assert recorder.ctl("web", "listen", "127.0.0.2:8081") == (
        "address\thttp://127.0.0.2:8081/\nanswers\tyes\n")
    assert Visit("http://127.0.0.2:8081/").status == 200
    assert shown("127.0.0.2:8081") == ""


@pytest.mark.parametrize("where, why", [
    ("recorder.example:8443", "names are not taken"), ("192.0.2.99:8443", "has no address"),
    (f"{ADDRESS}:65536", "not a port number"), (IPV6 + ":8443", "no address of a machine")])
def test_what_cannot_be_listened_on_changes_nothing(recorder, told, where, why):
    before = KEPT.read_bytes()
    assert why in recorder.refusal("recorderctl", "web", "listen", where)
    assert KEPT.read_bytes() == before and serves(WHERE, KEPT)


def test_a_port_that_is_taken_is_refused(recorder, told):
    with socket.create_server((ADDRESS, 0)) as other:
        where = f"{ADDRESS}:{other.getsockname()[1]}"
        assert "is taken" in recorder.refusal("recorderctl", "web", "listen", where)
    assert "is taken" in recorder.refusal("recorderctl", "web", "listen",
                                          f"0.0.0.0:{recorder.port}")
    assert "is taken" in recorder.refusal("recorderctl", "web", "listen", f"[::]:{PORT}")


def test_a_port_that_somebody_has_taken_leaves_the_recorder_on_loopback(recorder, told):
    recorder.stop()
    with socket.create_server((ADDRESS, PORT)):
        recorder.serve()
        assert recorder.request("GET", "/").status == 200
        assert rows(recorder.ctl("web", "show"))["answers"] == "no"
    recorder.restart()
    assert rows(recorder.ctl("web", "show"))["answers"] == "yes"


def test_a_low_port_of_one_address_is_in_the_way_of_all(recorder, tmp_path):
    """The web server's own, too: it opens new ports before it closes old ones."""
    state = StateFolder(tmp_path / "state").init()
    open_to_all(tmp_path)
    for path in (state.path, *state.path.iterdir()):
        shutil.chown(path, NOBODY, NOBODY)
    order_all = ("recorderctl", "web", "listen", "--later", "0.0.0.0:443")
    with socket.create_server((ADDRESS, 443)):
        assert "is taken" in state.refusal(*order_all)
        assert "is taken" in state.run("/usr/bin/setpriv", "--reuid", str(NOBODY), "--regid",
                                       str(NOBODY), "--clear-groups", RECORDERCTL,
                                       *order_all[1:]).stderr
    recorder.ctl("web", "listen", f"{ADDRESS}:443")
    assert "is taken" in recorder.refusal("recorderctl", "web", "listen", "0.0.0.0:443")
    assert rows(recorder.ctl("web", "show"))["answers"] == "yes"


def test_an_address_that_is_gone_leaves_the_recorder_on_loopback(recorder, told):
    lose_address()
    try:
        recorder.restart()
        assert recorder.request("GET", "/").status == 200
        assert rows(recorder.ctl("web", "show"))["answers"] == "no"
    finally:
        connect()
    recorder.restart()
    assert rows(recorder.ctl("web", "show"))["answers"] == "yes"


def test_requests_by_tls_are_in_the_log_and_what_clients_get_wrong_is_not_in_the_other(told, trust):
    Visit(f"{URL}/cgi-bin/nothing-here", trust=trust)
    wait_until(lambda: any("/cgi-bin/nothing-here" in line for line in log_lines("requests.log")),
               "the request")
    handshake(WHERE, "-tls1", "-cipher", "ALL:@SECLEVEL=0")
    Visit(f"http://{WHERE}/")
    Visit(f"{URL}/")  # does not trust it
    with socket.create_connection((ADDRESS, PORT)) as client:
        client.sendall(b"\0" * 100)
    assert not [line for line in log_lines("apache.log") if "client" in line]


# --- without a web server that takes it up --------------------------------------------------------

def test_what_is_not_taken_up_is_not_kept(tmp_path):
    state = StateFolder(tmp_path / "state").init()
    why = state.refusal("recorderctl", "web", "listen", f"{ADDRESS}:9443")
    assert "has not taken it up" in why and not (state.path / "web.pem").exists()
    told = rows(state.ctl("web", "listen", "--later", f"{ADDRESS}:9443"))
    assert told["answers"] == "no" and (state.path / "web.pem").exists()


@pytest.mark.parametrize("former", [None, b"of some later version\n"])
@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_who_is_interrupted_leaves_what_was_kept(tmp_path, former, number):
    state = StateFolder(tmp_path / "state").init()
    kept = state.path / "web.pem"
    if former:
        kept.write_bytes(former)
    order_it = ["web", "listen", f"{ADDRESS}:9443"]
    with subprocess.Popen([RECORDERCTL, *order_it], env=state.environment,
                          stderr=subprocess.PIPE) as command:
        wait_until(lambda: kept.exists() and kept.read_bytes() != former, "the new setting")
        why = state.refusal("recorderctl", *order_it)
        assert "another recorderctl is at work" in why
        command.send_signal(number)
        assert b"interrupted, so all is as it was" in command.communicate(timeout=SECONDS)[1]
    assert command.returncode == 1
    assert (kept.read_bytes() if former else kept.exists()) == (former or False)


def stand_in(folder, line):
    """In recorderctl's place; says this, whoever asks."""
    program = folder / "recorderctl"
    program.write_text(f"#!/bin/sh\nprintf '{line}\\n'\n")
    program.chmod(0o755)
    open_to_all(folder)
    return program


def open_to_all(folder):
    for above in (folder, *folder.parents):
        above.chmod(above.stat().st_mode | 0o111)


def may_be_at_a_change(server):
    """A copy of the script that has started nothing may still become what takes up a change."""
    commands = dict(processes())
    busy = {parent_of(pid) for pid in commands}
    return any(b"recorder-listen" in command or (
        command == commands[server] and pid != server and pid not in busy)
               for pid, command in commands.items())


@pytest.fixture(name="taken")
def definitions_that_are_there(recorder, told):
    """What Apache includes, while nobody but the test has it changed."""
    freeze(recorder.server.pid)
    wait_until(lambda: not may_be_at_a_change(recorder.server.pid),
               "the end of a change that is being taken up")
    yield run("cat", PLACE + "/listen.conf", PLACE + "/web.pem")
    run(LISTEN, "reload", RECORDERCTL, "8080", "true")  # no change of the test's is left to take up
    recorder.server.send_signal(signal.SIGCONT)


@pytest.fixture(name="written")
def definitions_for_the_next_start(recorder, told):
    """Nothing runs that would have the port, or change them, but the test."""
    recorder.stop()
    yield run("cat", PLACE + "/listen.conf", PLACE + "/web.pem")
    recorder.serve()


@pytest.mark.parametrize("line", [
    r"tls\t192.0.2.10:1\n User root\tx", r"tls\t192.0.2.10:1\tx y", r"tls\t\${ENV}:1\tx",
    r"tls\tname:1\tx", r"plain\t127.0.0.1:1", r"LoadModule\t127.0.0.1:1\tx"])
def test_nothing_but_an_address_and_a_name_becomes_configuration(taken, tmp_path, line):
    status, said = run(LISTEN, "reload", stand_in(tmp_path, line), "8080", "true")
    assert status == 1 and "is not understood" in said
    assert run("cat", PLACE + "/listen.conf", PLACE + "/web.pem") == taken


def test_what_fails_the_web_servers_own_test_changes_nothing(taken, tmp_path):
    program = stand_in(tmp_path, rf"tls\t{WHERE}\t-")
    assert run(LISTEN, "reload", program, "8080", "false")[0] == 1
    assert run("cat", PLACE + "/listen.conf", PLACE + "/web.pem") == taken


RELOADS = f"{LISTEN} reload {RECORDERCTL} 8080 true; echo reloaded"


def taken_up_by(command):
    status, said = run(LISTEN, "take-up", "sh", "-c", command)
    assert status == 0
    return said


def test_what_has_been_taken_up_is_not_taken_up_again(taken):
    """A reload may hang up on whoever has just connected."""
    assert taken_up_by(RELOADS) == ""
    os.utime(KEPT)
    assert taken_up_by(RELOADS) == "reloaded\n"
    assert taken_up_by(RELOADS) == ""


def test_without_a_web_server_to_reload_it_is_tried_once(taken):
    os.utime(KEPT)
    assert taken_up_by("echo tried") == "tried\n"


def test_what_changes_while_the_web_server_reloads_is_taken_up_too(taken, tmp_path):
    once = f"mkdir {tmp_path}/changed 2>/dev/null && touch {KEPT}"
    os.utime(KEPT)
    assert taken_up_by(f"{RELOADS}; {once}; true") == "reloaded\n" * 2


def test_what_changes_while_it_is_read_is_read_again(taken, tmp_path):
    """So that no address comes with another one's certificate."""
    program = stand_in(tmp_path, rf"tls\t{WHERE}\t-")
    before = KEPT.read_bytes()
    with program.open("a") as script:
        script.write(f"mkdir {tmp_path}/changed 2>/dev/null && echo later >>{KEPT}; true\n")
    try:
        assert run(LISTEN, "reload", program, "8080", "true") == (0, "")
        assert run("tail", "-n", "1", PLACE + "/web.pem") == (0, "later\n")
        assert taken_up_by(RELOADS) == ""
    finally:
        KEPT.write_bytes(before)


def test_an_apache_that_ends_over_what_it_was_told_goes_on_without(
        recorder, taken, tmp_path):
    """A chain that Apache does not take stands for all that no check beforehand sees."""
    keep(behind(tmp_path, "weakly-signed", made(tmp_path, "weak", key="weak")), "given")
    assert run(LISTEN, "reload", stand_in(tmp_path, rf"tls\t{WHERE}\t-"), "8080", "true") == (0, "")
    apache = recorder.service("apache2")
    os.kill(apache, signal.SIGUSR1)
    wait_until(lambda: not is_running(apache), "Apache's end")
    recorder.server.send_signal(signal.SIGCONT)
    # What the first has left, which may still listen for a moment, is gone before there is another.
    wait_until(lambda: recorder.services("apache2"), "another Apache")
    wait_until(lambda: connects("127.0.0.1", recorder.port), "a web server")
    assert recorder.request("GET", "/").status == 200
    assert shown(WHERE) == ""
    assert rows(recorder.ctl("web", "listen", WHERE))["answers"] == "yes"


@pytest.mark.parametrize("result, blamed", [("exit-code", True), ("success", False),
                                            ("signal", False), ("oom-kill", False)])
def test_one_start_is_without_what_apache_has_failed_with(written, result, blamed):
    assert run("env", "SERVICE_RESULT=" + result, LISTEN, "ended", RECORDERCTL, "8080") == (0, "")
    if blamed:
        status, said = run(LISTEN, "start", RECORDERCTL, "8080")
        assert status == 0 and "Apache has failed" in said
        assert run("cat", PLACE + "/listen.conf") == (0, "")
    assert run(LISTEN, "start", RECORDERCTL, "8080") == (0, "")
    assert run("cat", PLACE + "/listen.conf", PLACE + "/web.pem") == written


def test_what_is_kept_is_not_blamed_for_somebody_on_the_web_servers_own_port(written):
    with socket.create_server(("127.0.0.1", 0)) as other:
        assert run("env", "SERVICE_RESULT=exit-code", LISTEN, "ended", RECORDERCTL,
                   str(other.getsockname()[1])) == (0, "")
    assert run(LISTEN, "start", RECORDERCTL, "8080") == (0, "")
    assert run("cat", PLACE + "/listen.conf", PLACE + "/web.pem") == written


@pytest.mark.parametrize("port, taken_up", [(PORT, True), (PORT + 1, False)])
def test_a_reload_keeps_its_own_port_and_takes_up_nobody_elses(taken, port, taken_up):
    kept, changed = KEPT.read_bytes(), KEPT.stat()
    KEPT.write_bytes(kept.replace(f":{PORT}\n".encode(), f":{port}\n".encode()))
    with socket.create_server((ADDRESS, PORT + 1)):
        status, said = run(LISTEN, "reload", RECORDERCTL, "8080", "true")
    KEPT.write_bytes(kept)
    os.utime(KEPT, ns=(changed.st_atime_ns, changed.st_mtime_ns))  # nobody is to take it up
    assert (status == 0, "is taken" in said) == (taken_up, not taken_up)
    assert run("cat", PLACE + "/listen.conf", PLACE + "/web.pem") == taken


def test_root_follows_no_link_of_the_recorders_user(taken, tmp_path):
    secret = tmp_path / "secret"
    secret.write_text("of root")
    secret.chmod(0o600)
    shutil.chown(STATE, NOBODY, NOBODY)
    kept = KEPT.read_bytes()
    KEPT.unlink()
    KEPT.symlink_to(secret)
    try:
        status, _ = run(LISTEN, "reload", stand_in(tmp_path, rf"tls\t{WHERE}\t-"), "8080", "true")
    finally:
        shutil.chown(STATE, 0, 0)
        KEPT.unlink()
        KEPT.write_bytes(kept)
    assert status == 1
    assert run("cat", PLACE + "/listen.conf", PLACE + "/web.pem") == taken


# --- requests that never end ----------------------------------------------------------------------

def frame(kind, flags, stream, content=b""):
    return struct.pack(">I", len(content))[1:] + struct.pack(">BBI", kind, flags, stream) + content


def text(value):
    return bytes([len(value)]) + value.encode()


# The indices are those of the header fields in RFC 7541.
def beginning(path):
    """The header of a POST with a thousand bytes of body."""
    return (b"\x83\x87" + b"\x04" + text(path) + b"\x01" + text(WHERE) + b"\x0f\x0d" +
            text("1000"))


DATA, HEADERS, SETTINGS = 0, 1, 4
END_OF_HEADERS = 4


def connection_of_unfinished_requests(streams, header=beginning(CONSOLE_URL + "/session")):
    """By HTTP/2; nothing of a body is sent."""
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
    context.check_hostname, context.verify_mode = False, ssl.CERT_NONE
    context.set_alpn_protocols(["h2"])
    client = context.wrap_socket(socket.create_connection((ADDRESS, PORT)))
    client.sendall(b"PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n" + frame(SETTINGS, 0, 0) + b"".join(
        frame(HEADERS, END_OF_HEADERS, 2 * number + 1, header) for number in range(streams)))
    return client


def programs():
    """Those that are at a request."""
    names = {str(program).encode() for program in (CONSOLE, CGI)}
    return sum(command in names for _, command in processes())


def threads():
    """Of the web server's processes."""
    return sum(len(list(Path(f"/proc/{pid}/task").glob("*"))) for pid, command in processes()
               if command.startswith(b"/usr/sbin/apache2"))


def test_strangers_by_http_2_get_no_more_threads_and_programs_than_there_is_room_for(
        recorder, told):
    recorder.restart()  # so that nothing is left that ends after a reload
    clients = [connection_of_unfinished_requests(8) for _ in range(48)]

    def as_many_as_there_may_be():
        """The first ones may have been ended before the last ones came: others come for them."""
        if programs() < 256:
            clients.append(connection_of_unfinished_requests(8))
            return False
        return True

    try:
        wait_until(as_many_as_there_may_be, "as many programs as there may be")
        while programs() > 200:  # until those that nothing more is heard of are ended
            assert programs() < 256 + 32  # some of those that are ending among them
            assert 512 < threads() < 512 + 256 + 32
            assert recorder.request("GET", "/").status == 200
    finally:
        for client in clients:
            client.close()


def frames(client):
    """Type, stream and content of each that comes."""
    with client.makefile("rb") as stream:
        while head := stream.read(9):
            yield head[3], int.from_bytes(head[5:9], "big"), stream.read(
                int.from_bytes(head[:3], "big"))


@pytest.mark.parametrize("path", [CONSOLE_URL + "/session", ROOT_URL + "/task"])
def test_a_body_that_drips_does_not_keep_a_program(told, path):
    with connection_of_unfinished_requests(1, beginning(path)) as client:
        wait_until(programs, "the program")
        done = threading.Event()

        def drip():
            while not done.wait(0.2):
                client.sendall(frame(DATA, 0, 1, b" "))

        with ThreadPoolExecutor(1) as dripping:
            drips = dripping.submit(drip)
            replied = next(content for kind, _, content in frames(client) if kind == DATA)
            done.set()
            drips.result()
    assert b"The request was ended because its header, or its body, took longer" in replied
    wait_until(lambda: not programs(), "the program's end")
