"""A second machine in the network of this sandbox, and what it sees of the first."""
import os
import re
import subprocess

from waiting import SECONDS

ADDRESS, IPV6 = "192.0.2.10", "2001:db8::10"  # of this machine; there is no such network
SECOND = ["ip", "netns", "exec", "second"]  # before a command, has the second machine run it


def needs_a_network_of_its_own():
    """What a test is marked with that would give the machine itself these addresses."""
    import pytest
    return pytest.mark.skipif(os.environ.get("RECORDER_IN_PLACE") == "1",
                              reason="this machine's own network would be changed")


def run(*command, given=b""):
    """Exit status and all that is said."""
    done = subprocess.run(command, input=given, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          timeout=SECONDS, check=False)
    return done.returncode, done.stdout.decode(errors="replace")


def ip(*words):
    status, said = run("ip", *words)
    assert status == 0, said


def connect():
    """Lays the line to the second machine, once, and has both know their addresses."""
    if run(*SECOND, "true")[0] != 0:
        ip("netns", "add", "second")
        ip("link", "add", "beyond", "type", "veth", "peer", "name", "back", "netns", "second")
        ip("-n", "second", "link", "set", "lo", "up")
        ip("-n", "second", "link", "set", "back", "up")
        ip("-n", "second", "address", "add", "192.0.2.20/24", "dev", "back")
        ip("-n", "second", "address", "add", "2001:db8::20/64", "dev", "back", "nodad")
    ip("link", "set", "beyond", "up")
    ip("address", "replace", f"{ADDRESS}/24", "dev", "beyond")
    ip("address", "replace", f"{IPV6}/64", "dev", "beyond", "nodad")


def lose_address():
    ip("address", "delete", f"{ADDRESS}/24", "dev", "beyond")


def on_the_right_machine(where):
    """The second one for what is beyond loopback."""
    return [] if "127." in where else SECOND


def handshake(where, *options):
    """What openssl says of a connection that it makes with these options."""
    return run(*on_the_right_machine(where), "openssl", "s_client", "-connect", where, *options)[1]


def shown(where):
    """The certificate that is shown there, as PEM; "" where none is."""
    found = re.search(r"-----BEGIN CERTIFICATE-----.*?-----END CERTIFICATE-----\n",
                      handshake(where), re.S)
    return found[0] if found else ""


def fingerprint(pem):
    """Of a certificate, as openssl tells it."""
    said = run("openssl", "x509", "-noout", "-fingerprint", "-sha256", given=pem.encode())[1]
    return said.strip().split("=")[1]


class Visit:
    """One request by curl, with what it trusts and how it speaks; `url` as it stands."""

    def __init__(self, url, *options, trust=None, version="2"):
        words = [*on_the_right_machine(url), "curl", "--silent", "--globoff", f"--http{version}",
                 "--include", *options]
        if trust:
            words += ["--cacert", str(trust)]
        self.exit, said = run(*words, url)
        head, _, self.body = said.partition("\r\n\r\n")
        first, *lines = head.split("\r\n")
        words = first.split(" ")
        self.version = words[0]
        self.status = int(words[1]) if len(words) > 1 and words[1].isdigit() else None
        self.headers = {name.lower(): value for name, _, value in
                        (line.partition(": ") for line in lines)}
