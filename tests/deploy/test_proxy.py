"""The proxy with TLS of the operator's manual: pages of the recorder's own name work, no others."""
import http.client
import re
import ssl
import subprocess

import pytest

import loopback
from loopback import Reply
from places import SOURCE
from service_process import ended_afterwards
from stand_in_program import PROGRAM, serving
from waiting import SECONDS, wait_until

NAME = "recorder.example"
PORT = 443
MODULES = ("mpm_event", "authz_core", "ssl", "proxy", "proxy_http", "headers")


def documented_site():
    return re.search(r"```apache\n(.*?)```", (SOURCE / "docs/operations.md").read_text(), re.S)[1]


def configuration(folder):
    """The documented site, with a certificate that is in the folder."""
    site = re.sub(r"/etc/ssl/(private/)?recorder\.", f"{folder}/recorder.", documented_site())
    loads = "".join(f"LoadModule {name}_module modules/mod_{name}.so\n" for name in MODULES)
    return (f"{loads}Listen 127.0.0.1:{PORT}\nServerName {NAME}\nPidFile {folder}/pid\n"
            f"DefaultRuntimeDir {folder}\nErrorLog {folder}/errors\n{site}")


@pytest.fixture(scope="module", autouse=True, name="certificate")
def proxy(tmp_path_factory):
    folder = tmp_path_factory.mktemp("proxy")
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                    "ec_paramgen_curve:prime256v1", "-nodes", "-subj", f"/CN={NAME}",
                    "-addext", f"subjectAltName=DNS:{NAME}", "-keyout", folder / "recorder.key",
                    "-out", folder / "recorder.crt"], check=True, capture_output=True)
    (folder / "proxy.conf").write_text(configuration(folder))
    command = ["/usr/sbin/apache2", "-d", "/usr/lib/apache2", "-f", folder / "proxy.conf",
               "-D", "FOREGROUND"]
    with serving(folder), ended_afterwards(subprocess.Popen(command)):
        wait_until(lambda: loopback.listens(PORT), "the proxy")
        yield folder / "recorder.crt"


class ByName(http.client.HTTPSConnection):
    """A connection to this machine under the recorder's name."""

    def connect(self):
        self.sock = self._context.wrap_socket(
            loopback.socket.create_connection(("127.0.0.1", PORT), SECONDS), server_hostname=NAME)


def status(certificate, headers):
    connection = ByName(NAME, context=ssl.create_default_context(cafile=certificate))
    connection.request("PUT", PROGRAM + "/task", b"{}", headers)
    return Reply(connection.getresponse()).status


@pytest.mark.parametrize("headers, expected", [
    ({}, 200),
    ({"Origin": f"https://{NAME}", "Sec-Fetch-Site": "same-origin"}, 200),
    ({"Origin": f"http://{NAME}"}, 403),
    ({"Origin": f"http://{NAME}", "X-Forwarded-Proto": "http"}, 403),
    ({"Origin": f"https://{NAME}:8443"}, 403),
    ({"Origin": "https://elsewhere.example"}, 403),
    ({"Origin": f"https://{NAME}", "Sec-Fetch-Site": "cross-site"}, 403),
])
def test_only_pages_of_the_recorders_name_are_served(certificate, headers, expected):
    assert status(certificate, headers) == expected
