"""Debian's Chromium without a screen, in which tests open pages and act as the pages' scripts."""
import os
import signal

from selenium import webdriver
from selenium.webdriver.chrome.service import Service

from processes import descendants, signal_all
from waiting import SECONDS

# Names ending so lead to this machine; for a browser, each is a site like any other.
SITES = "example"

SWITCHES = [
    "--headless=new", "--no-sandbox",  # root needs the latter, and nothing foreign is opened
    "--disable-dev-shm-usage", "--disable-gpu", "--disable-background-networking",
    "--disable-component-update", "--no-first-run",
    f"--host-resolver-rules=MAP *.{SITES} 127.0.0.1"]


class Chromium:
    """`folder` is for whatever the browser writes."""

    def __init__(self, folder):
        options = webdriver.ChromeOptions()
        options.binary_location = "/usr/bin/chromium"
        for switch in [*SWITCHES, f"--user-data-dir={folder}/profile"]:
            options.add_argument(switch)
        self.service = Service("/usr/bin/chromedriver", env={**os.environ, "HOME": str(folder)})
        self.driver = webdriver.Chrome(service=self.service, options=options)
        self.driver.set_page_load_timeout(SECONDS)
        self.driver.set_script_timeout(SECONDS)

    def __enter__(self):
        return self

    def __exit__(self, *unused):
        started = descendants(self.service.process.pid)
        try:
            self.driver.quit()
        finally:
            signal_all(started, signal.SIGKILL)  # whoever hangs

    def keep_cookie(self, origin, name, value, same_site):
        """The only cookie from now on, as if `origin` had set it."""
        self.driver.execute_cdp_cmd("Network.clearBrowserCookies", {})
        kept = self.driver.execute_cdp_cmd("Network.setCookie", {
            "url": origin, "name": name, "value": value, "sameSite": same_site,
            "secure": same_site == "None"})
        assert kept["success"]

    def open(self, url):
        self.driver.get(url)

    def run(self, script, *arguments):
        """Runs a script in the page; what it hands to done() comes back."""
        return self.driver.execute_async_script(
            "const done = arguments[arguments.length - 1];" + script, *arguments)

    @property
    def url(self):
        return self.driver.current_url
