"""Harness of the site console's tests: zanthd and zanth-sim as the gateway's end-to-end tests
start them (their conftest, loaded here under another name), and headless Chromium from Debian
driven by Selenium, each started by the test on free loopback ports in a directory of its own
and always stopped. Waits are on conditions with deadlines, never fixed sleeps."""
import importlib.util
import os
import shutil
import socket
import threading
import time

import pytest
from selenium import webdriver
from selenium.common.exceptions import StaleElementReferenceException, WebDriverException
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.support.ui import WebDriverWait

_spec = importlib.util.spec_from_file_location(
    "gateway_e2e", os.path.join(os.path.dirname(__file__), "..", "e2e", "conftest.py"))
e2e = importlib.util.module_from_spec(_spec)
_spec.loader.exec_module(e2e)

Gateway, Sim, free_port, wait_for = e2e.Gateway, e2e.Sim, e2e.free_port, e2e.wait_for
OPERATOR, READER = e2e.OPERATOR, e2e.READER

SHOTS = os.environ.get("ZANTH_CONSOLE_SHOTS",
                       os.path.join(os.path.dirname(__file__), "../../../build/asan/console-screenshots"))
PHONE = (390, 844)
DESKTOP = (1366, 900)

# The site of most tests: two controllers, three doors with their relays and lock inputs.
DOORS = """
[[doors]]
name = "Front entrance"
controller = "00:00:01"
door = 1
relay = 0
lock_input = 8
open_ms = 3000

[[doors]]
name = "Server room"
controller = "00:00:01"
door = 2
relay = 1
lock_input = 9
open_ms = 5000

[[doors]]
name = "Loading bay"
controller = "00:00:02"
door = 1
relay = 0
lock_input = 8
open_ms = 8000
"""

CHROMIUM_FLAGS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                  "--disable-quic", "--no-first-run", "--disable-background-networking",
                  "--disable-component-update", "--disable-sync", "--hide-scrollbars",
                  "--force-device-scale-factor=1", "--lang=en-GB"]


class Browser:
    """A Chromium of its own (profile, HOME), driven through chromedriver on a free port."""

    def __init__(self, directory, size=DESKTOP, flags=()):
        home = os.path.join(directory, "browser-home")
        os.makedirs(home, exist_ok=True)
        options = Options()
        options.binary_location = shutil.which("chromium") or "/usr/bin/chromium"
        for flag in [*CHROMIUM_FLAGS, *flags]:
            options.add_argument(flag)
        options.add_argument(f"--user-data-dir={os.path.join(directory, 'chromium-profile')}")
        options.add_argument(f"--window-size={size[0]},{size[1]}")
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        env = dict(os.environ, HOME=home, XDG_CONFIG_HOME=home, XDG_CACHE_HOME=home)
        self.log_path = os.path.join(directory, "chromedriver.log")
        service = Service(shutil.which("chromedriver") or "/usr/bin/chromedriver", port=free_port(),
                          env=env, log_path=self.log_path)
        self.driver = webdriver.Chrome(service=service, options=options)
        self.driver.set_page_load_timeout(30)
        self.resize(size)

    def resize(self, size):
        """The viewport (not the window) at `size`, as a phone or a desktop would show the page."""
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": size[0], "height": size[1], "deviceScaleFactor": 1, "mobile": size[0] < 600})

    def find(self, css):
        return self.driver.find_element(By.CSS_SELECTOR, css)

    def all(self, css):
        return self.driver.find_elements(By.CSS_SELECTOR, css)

    def text(self, css):
        """The text of the first match, or "" while there is none (or it is being redrawn)."""
        try:
            found = self.all(css)
            return found[0].text if found else ""
        except StaleElementReferenceException:
            return ""

    def wait(self, condition, timeout, what):
        """Polls `condition(browser)` until it is truthy; fails naming `what` and the page's state."""
        def check(_):
            try:
                return condition(self)
            except (StaleElementReferenceException, WebDriverException):
                return False
        try:
            return WebDriverWait(self.driver, timeout, poll_frequency=0.1).until(check)
        except Exception as e:
            body = ""
            try:
                body = self.driver.find_element(By.TAG_NAME, "body").text[:1500]
            except WebDriverException:
                pass
            raise AssertionError(f"timed out after {timeout} s waiting for {what}; the page shows:\n{body}") from e

    def visible(self, css):
        return any(e.is_displayed() for e in self.all(css))

    def click(self, css):
        self.wait(lambda b: b.visible(css) and b.find(css).is_enabled(), 15, f"{css} to be clickable")
        self.find(css).click()

    def open(self, url):
        self.driver.get(url)

    def login(self, gateway, token=OPERATOR, port=None):
        self.open(f"{gateway.scheme}://127.0.0.1:{port or gateway.http_port}/")
        self.wait(lambda b: b.visible("#login-token"), 30, "the login form")
        self.find("#login-token").send_keys(token)
        self.find("#login-submit").click()

    def page(self, name):
        self.driver.execute_script(f"location.hash = '#/{name}'")
        self.wait(lambda b: b.find("#main").get_attribute("data-page") == name, 10, f"the {name} page")

    def shot(self, name):
        os.makedirs(SHOTS, exist_ok=True)
        path = os.path.join(SHOTS, f"{name}.png")
        self.driver.save_screenshot(path)
        return path

    def cookies(self):
        return {c["name"]: c for c in self.driver.get_cookies()}

    def script_errors(self):
        """The page's uncaught script errors so far (a refused request is not one)."""
        try:
            return [e["message"] for e in self.driver.get_log("browser")
                    if e["level"] == "SEVERE" and "Uncaught" in e["message"]]
        except WebDriverException:
            return []

    def quit(self):
        try:
            self.driver.quit()
        except Exception:
            pass


class Proxy:
    """A TCP relay on a port of its own in front of the gateway: cut() drops every connection and
    stops listening, as a lost network would; restore() listens again on the same port."""

    def __init__(self, target_port):
        self.target = target_port
        self.port = free_port()
        self.lock = threading.Lock()
        self.conns = []
        self.listener = None
        self.thread = None
        self.restore()

    def restore(self):
        self.listener = socket.socket()
        self.listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        self.listener.bind(("127.0.0.1", self.port))
        self.listener.listen(64)
        self.thread = threading.Thread(target=self._accept, args=(self.listener,), daemon=True)
        self.thread.start()

    def _accept(self, listener):
        while True:
            try:
                client, _ = listener.accept()
            except OSError:
                return
            try:
                server = socket.create_connection(("127.0.0.1", self.target), timeout=5)
                server.settimeout(None)
            except OSError:
                client.close()
                continue
            with self.lock:
                self.conns += [client, server]
            for a, b in ((client, server), (server, client)):
                threading.Thread(target=self._pipe, args=(a, b), daemon=True).start()

    @staticmethod
    def _pipe(a, b):
        try:
            while True:
                data = a.recv(65536)
                if not data:
                    break
                b.sendall(data)
        except OSError:
            pass
        for s in (a, b):
            try:
                s.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass

    def cut(self):
        if self.listener:
            # shutdown wakes the thread blocked in accept; close alone would leave it listening.
            try:
                self.listener.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass
            self.listener.close()
            self.listener = None
            self.thread.join(timeout=5)
        with self.lock:
            conns, self.conns = self.conns, []
        for s in conns:
            try:
                s.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass
            s.close()

    def cleanup(self):
        self.cut()


class ConsoleSite(e2e.Site):
    """Adds proxies and browsers; the browsers are closed before anything else stops."""

    def __init__(self, directory):
        super().__init__(directory)
        self.browsers = []

    def proxy(self, target_port):
        return self.keep(Proxy(target_port))

    def browser(self, size=DESKTOP, flags=()):
        b = Browser(self.dir, size, flags)
        self.browsers.append(b)
        return b


@pytest.fixture
def site(tmp_path):
    """Makes gateways, simulators and browsers that are always stopped, the browsers first."""
    os.environ["HOME"] = str(tmp_path)
    os.environ["XDG_CONFIG_HOME"] = str(tmp_path)
    made = ConsoleSite(str(tmp_path))
    yield made
    errors = []
    for b in made.browsers:
        errors += b.script_errors()
        b.quit()
    made.cleanup()
    assert not errors, f"the page threw: {errors}"


def console_gateway(site, extra="", doors=DOORS, **kw):
    """A gateway of the usual site with the console on, started."""
    return site.gateway(extra=extra, doors=doors, **kw).start()


def wait_until(condition, timeout, what):
    return wait_for(condition, timeout, what)


def monotonic():
    return time.monotonic()
