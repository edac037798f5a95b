"""The examples for monitoring systems fit what the daemon really tells, and a real one's taste."""
import json
import re
import shutil
import subprocess

import pytest

from backup_house import MIB, RUNNING, House, noise
from fault_proxy import CRAWL, FaultProxy
from loopback import free_port, listens, request, request_json
from metrics import promtool, scrape
from places import SOURCE
from service_process import ended_afterwards
from waiting import wait_until

EXAMPLES = SOURCE / "deploy/prometheus"
FIGURE = re.compile(r"\brecorder_backup_\w+")
AGENT = "prometheus"


@pytest.fixture(scope="module", name="told")
def all_figures(tmp_path_factory):
    """What is told in the middle of a task's second run, by name."""
    with House(tmp_path_factory.mktemp("house")) as house, FaultProxy(house.samba.port) as proxy:
        house.record(0, 0, "01-00-00.mp4", b"content")
        task_id = house.create(port=proxy.port)
        house.run(task_id)
        house.change_database("INSERT OR REPLACE INTO share_room (destination, free, total, time) "
                              f"VALUES ('//127.0.0.1:{proxy.port}/backup', 1, 2, 3)")
        proxy.rate = CRAWL
        house.record(0, 0, "02-00-00.mp4", noise(20 * MIB, "long"))
        house.force(task_id)
        house.wait_for(task_id, RUNNING)
        wait_until(lambda: scrape().get("run_bytes_per_second"), "the run")
        text = scrape().text
        proxy.rate = None
        house.wait_for_end(task_id)
    return text


def names_of(text):
    return set(re.findall(r"^# TYPE (\S+)", text, re.MULTILINE))


def dashboard():
    return json.loads((EXAMPLES / "dashboard.json").read_text())


def expressions():
    """Those of the dashboard, with Grafana's own words replaced by what it puts there."""
    for panel in dashboard()["panels"]:
        for target in panel["targets"]:
            yield target["expr"].replace("$__rate_interval", "5m").replace("$instance", ".*")


def test_all_figures_are_told_and_named_by_the_rules(told):
    assert len(names_of(told)) == 23
    promtool("check", "metrics", given=told)


def test_configurations_and_rules_are_right():
    promtool("check", "config", "--agent", str(EXAMPLES / "agent.yml"))
    promtool("check", "config", str(EXAMPLES / "scrape.yml"))
    promtool("check", "rules", str(EXAMPLES / "rules.yml"))


@pytest.mark.parametrize("file", ["rules_test.yml", "rules_days_test.yml"])
def test_rules_wake_somebody_up_when_they_have_to_and_not_before(file):
    promtool("test", "rules", str(EXAMPLES / file))


def test_every_rule_is_tested():
    alerts = re.findall(r"alert: (\w+)", (EXAMPLES / "rules.yml").read_text())
    tests = "".join(path.read_text() for path in EXAMPLES.glob("*_test.yml"))
    assert len(alerts) == len(set(alerts)) == 12
    for alert in alerts:
        found = re.findall(rf"alertname: {alert}\n +exp_alerts:(.*)", tests)
        assert {one.strip() for one in found} == {"[]", ""}, f"{alert}: not both ways"


@pytest.mark.parametrize("file", ["rules.yml", "dashboard.json", "rules_test.yml"])
def test_an_example_names_only_what_the_daemon_tells(told, file):
    named = set(FIGURE.findall((EXAMPLES / file).read_text()))
    assert named and named <= names_of(told)


def test_the_dashboard_shows_all_but_what_the_rules_tell(told):
    shown = set(FIGURE.findall((EXAMPLES / "dashboard.json").read_text()))
    assert shown | set(FIGURE.findall((EXAMPLES / "rules.yml").read_text())) == names_of(told)


def test_the_dashboards_queries_can_be_asked(tmp_path):
    groups = {"groups": [{"name": "dashboard", "rules": [
        {"record": f"panel:{number}", "expr": one} for number, one in enumerate(expressions())]}]}
    (tmp_path / "rules.yml").write_text(json.dumps(groups))
    promtool("check", "rules", str(tmp_path / "rules.yml"))
    assert len(groups["groups"][0]["rules"]) >= 18


def test_the_dashboard_counts_recorders_that_are_down_or_silent(tmp_path):
    values = {"a": "1x60", "b": "1x10 0x50", "c": "1x10 stale"}
    (tmp_path / "test.yml").write_text(json.dumps({"tests": [{
        "interval": "1m",
        "input_series": [{"series": f'up{{job="recorder",instance="{name}"}}', "values": one}
                         for name, one in values.items()],
        "promql_expr_test": [
            {"expr": next(expressions()), "eval_time": time,
             "exp_samples": [{"labels": "{}", "value": value}]}
            for time, value in (("5m", 0), ("30m", 2))]}]}))
    assert dashboard()["panels"][0]["title"] == "Recorders that do not answer"
    promtool("test", "rules", str(tmp_path / "test.yml"))


def test_the_dashboards_panels_are_whole_and_do_not_overlap():
    panels = dashboard()["panels"]
    assert len({panel["id"] for panel in panels}) == len(panels)
    places = [(x, y) for panel in panels for place in [panel["gridPos"]]
              for x in range(place["x"], place["x"] + place["w"])
              for y in range(place["y"], place["y"] + place["h"])]
    assert len(places) == len(set(places)) and max(x for x, _ in places) < 24
    assert all(panel["title"] and panel["targets"] for panel in panels)


def test_the_manual_names_each_figure(told):
    table = re.search(r"<!-- metrics -->\n(.*?)<!-- /metrics -->",
                      (SOURCE / "docs/operations.md").read_text(), re.DOTALL)[1]
    assert set(re.findall(r"`(recorder_backup_\w+)", table)) == names_of(told)


# --- a real monitoring system --------------------------------------------------------------------


class Server:
    """A real one, as the user of Debian's package."""

    def __init__(self, folder, configuration):
        self.folder, self.port = folder / "monitoring", free_port()
        self.folder.mkdir()
        (self.folder / "prometheus.yml").write_text(configuration)
        shutil.copy(EXAMPLES / "rules.yml", self.folder)
        for path in (self.folder, *list(self.folder.parents)[:-2]):
            path.chmod(0o755)
        shutil.chown(self.folder, AGENT)

    def start(self):
        return subprocess.Popen(
            ["/usr/bin/prometheus", f"--config.file={self.folder}/prometheus.yml",
             f"--storage.tsdb.path={self.folder}/data",
             f"--web.listen-address=127.0.0.1:{self.port}"],
            user=AGENT, group=AGENT, extra_groups=[], stderr=subprocess.DEVNULL)

    def is_ready(self):
        return listens(self.port) and request(self.port, "GET", "/-/ready").status == 200

    def ask(self, query):
        status, reply = request_json(self.port, "GET", "/api/v1/query", query=query)
        assert (status, reply["status"]) == (200, "success"), reply
        return reply["data"]["result"]

    def alerts(self):
        _, reply = request_json(self.port, "GET", "/api/v1/alerts")
        return {(one["labels"]["alertname"], one["state"]) for one in reply["data"]["alerts"]}


def quick(file):
    """The example, asking each second and sending nothing anywhere."""
    text = (EXAMPLES / file).read_text().replace("interval: 30s", "interval: 1s")
    return text.split("\nremote_write:")[0]


def test_a_real_server_reads_the_figures_and_rings_for_a_failed_run(house, tmp_path):
    task_id = house.create(serverIP="")
    house.recorder.ctl("task", "set", task_id, 'taskName=Doors "2"')
    text = quick("agent.yml").replace("global:", "global:\n  evaluation_interval: 1s")
    server = Server(tmp_path, text + "\nrule_files: [rules.yml]\n")
    with ended_afterwards(server.start()):
        wait_until(server.is_ready, "the server")
        wait_until(lambda: server.ask("recorder_backup_task_enabled == 1"), "the first figures")
        # To its rules nobody was there before; that is pending then, and nobody is woken up by it.
        assert not {name for name, state in server.alerts() if state == "firing"}
        wait_until(lambda: not server.alerts(), "nothing to be pending")
        house.force(task_id)
        house.wait_for_end(task_id)
        wait_until(lambda: ("RecorderBackupRunFailed", "firing") in server.alerts(), "the alert")
        # Of the last minutes: a server that got no answer within a second has no newest figure.
        found, = server.ask('last_over_time(recorder_backup_runs_total{outcome="failed"}[5m]) == 1')
        assert (found["metric"]["task"], found["metric"]["instance"]) == (
            'Doors "2"', "recorder-17")
        for one in expressions():
            server.ask(one)


def make_certificate(folder):
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                    "ec_paramgen_curve:prime256v1", "-nodes", "-subj", "/CN=localhost",
                    "-addext", "subjectAltName=DNS:localhost", "-keyout", folder / "metrics.key",
                    "-out", folder / "metrics.pem"], check=True, capture_output=True)


def start_proxy(folder, port):
    """By the example, with what it wants in this folder."""
    make_certificate(folder)
    subprocess.run(["htpasswd", "-bc", folder / "metrics.htpasswd", "metrics", "secret"],
                   check=True, capture_output=True)
    text = (EXAMPLES / "metrics-proxy.conf").read_text()
    text = text.replace("0.0.0.0:10443", f"127.0.0.1:{port}").replace("/etc/recorder", str(folder))
    text = text.replace("METRICS_RUN /run", f"METRICS_RUN {folder}")
    (folder / "proxy.conf").write_text(text)
    return subprocess.Popen(["/usr/sbin/apache2", "-d", "/usr/lib/apache2", "-f",
                             folder / "proxy.conf", "-D", "FOREGROUND"])


def status_of(folder, port, path, *words):
    """By way of the proxy."""
    return subprocess.run(["curl", "-s", "-o", "/dev/null", "-w", "%{http_code}", "--cacert",
                           folder / "metrics.pem", *words, f"https://localhost:{port}{path}"],
                          check=True, capture_output=True, text=True).stdout


def test_from_afar_a_server_reads_the_figures_by_tls_and_password(house, tmp_path):
    house.create()
    port = free_port()
    text = re.sub(r"targets: .*", f'targets: ["localhost:{port}"]', quick("scrape.yml"))
    text = text.replace("/etc/prometheus/recorder-password", f"{tmp_path}/password")
    server = Server(tmp_path, text.replace("/etc/prometheus/recorder-ca.pem",
                                           f"{tmp_path}/metrics.pem"))
    (tmp_path / "password").write_text("secret")
    with ended_afterwards(start_proxy(tmp_path, port)), ended_afterwards(server.start()):
        wait_until(lambda: server.is_ready() and listens(port), "server and proxy")
        wait_until(lambda: server.ask("recorder_backup_task_enabled == 1"), "the figures")
        assert status_of(tmp_path, port, "/metrics", "-u", "metrics:secret") == "200"
        assert status_of(tmp_path, port, "/metrics", "-u", "metrics:wrong") == "401"
        assert status_of(tmp_path, port, "/metrics") == "401"
        assert status_of(tmp_path, port, "/other", "-u", "metrics:secret") == "403"
