"""Firefox without a screen, driven by its own remote protocol, because Debian has no driver for it.

A message is its length, a colon, and a list in JSON: [0, number, command, parameters], answered by [1, number, error, result].
"""

import base64
import json
import os
import shutil
import socket
import subprocess
import tempfile

from Page import wait_for
from selenium.webdriver.common.by import By

ELEMENT = "element-6066-11e4-a52e-4f735466cecf"  # the key of a reference, by the WebDriver standard
PREFERENCES = {
    "marionette.port": 0,  # any free port
    "browser.download.folderList": 2,
    "browser.helperApps.neverAsk.saveToDisk": "text/html,image/svg+xml",
    "browser.shell.checkDefaultBrowser": False,
    "app.update.enabled": False,
    "datareporting.policy.dataSubmissionEnabled": False,
    "toolkit.telemetry.reportingpolicy.firstRun": False,
    "network.captive-portal-service.enabled": False,
    "network.connectivity-service.enabled": False,
}


class Element:
    def __init__(self, browser, reference):
        self.browser = browser
        self.reference = reference

    def _ask(self, command, **parameters):
        return self.browser.ask(f"WebDriver:{command}", id=self.reference, **parameters)

    def click(self):
        self._ask("ElementClick")

    def clear(self):
        self._ask("ElementClear")

    def send_keys(self, text):
        self._ask("ElementSendKeys", text=text)

    def is_displayed(self):
        return bool(self._ask("IsElementDisplayed"))


class Firefox:
    """Has the methods of selenium's browser that the tests use."""

    def __init__(self, width=1280, height=1000):
        self._profile = tempfile.mkdtemp()
        with open(os.path.join(self._profile, "user.js"), "w", encoding="utf-8") as file:
            for name, value in {**PREFERENCES, "browser.download.dir": self._profile}.items():
                file.write(f"user_pref({json.dumps(name)}, {json.dumps(value)});\n")
        self._process = subprocess.Popen(
            ["firefox-esr", "--marionette", "--remote-allow-system-access", "--headless", "--no-remote", "--profile", self._profile],
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True,
            env={**os.environ, "HOME": self._profile, "MOZ_HEADLESS_WIDTH": str(width), "MOZ_HEADLESS_HEIGHT": str(height)})
        self._number = 0
        self._socket = socket.create_connection(("127.0.0.1", int(wait_for(self._port, "Firefox", 60))))
        self._reader = self._socket.makefile("rb")
        self._read()
        self.ask("WebDriver:NewSession", capabilities={})

    def _port(self):
        assert self._process.poll() is None, "Firefox has ended"
        try:
            with open(os.path.join(self._profile, "MarionetteActivePort"), encoding="utf-8") as file:
                return file.read().strip()
        except FileNotFoundError:
            return ""

    def _read(self):
        length = b""
        while (byte := self._reader.read(1)) != b":":
            assert byte, "Firefox has gone"
            length += byte
        return json.loads(self._reader.read(int(length)))

    def ask(self, command, **parameters):
        self._number += 1
        message = json.dumps([0, self._number, command, parameters]).encode()
        self._socket.sendall(str(len(message)).encode() + b":" + message)
        _, number, error, result = self._read()
        assert number == self._number
        assert error is None, f"{command}: {error}"
        return result.get("value") if isinstance(result, dict) else result

    def get(self, address):
        self.ask("WebDriver:Navigate", url=address)

    def refresh(self):
        self.ask("WebDriver:Refresh")

    @property
    def title(self):
        return str(self.ask("WebDriver:GetTitle"))

    def execute_script(self, script, *arguments):
        return self.ask("WebDriver:ExecuteScript", script=script, args=list(arguments))

    def find_elements(self, by, value):
        selector = f"#{value}" if by == By.ID else value
        found = self.ask("WebDriver:FindElements", using="css selector", value=selector)
        return [Element(self, each[ELEMENT]) for each in found]

    def find_element(self, by, value):
        return self.find_elements(by, value)[0]

    def save_screenshot(self, file):
        with open(file, "wb") as picture:
            picture.write(base64.b64decode(self.ask("WebDriver:TakeScreenshot", full=False)))

    def use_theme(self, theme):
        """Sets the theme, which is "light" or "dark"."""
        self.ask("Marionette:SetContext", value="chrome")
        self.execute_script(
            "Services.prefs.setIntPref('layout.css.prefers-color-scheme.content-override', arguments[0])",
            {"dark": 0, "light": 1}[theme])
        self.ask("Marionette:SetContext", value="content")

    def downloads(self):
        return self._profile

    def quit(self):
        self._process.terminate()
        self._process.wait()
        shutil.rmtree(self._profile, ignore_errors=True)
