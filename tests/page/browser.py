# SPDX-License-Identifier: MIT
# Copyright (c) 2026 the xapel2_ext_sc authors
# A page in a headless Chromium, over the browser's debugging pipe.

import base64
import json
import os
import subprocess
import tempfile


class Browser:
    """One browser with one page. Errors of the page and addresses that it asks for gather in errors and requests."""

    def __init__(self, program="chromium"):
        self.folder = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
        command_read, self.command = os.pipe()
        self.reply, reply_write = os.pipe()

        def take_pipes():  # the browser reads commands from 3 and writes replies to 4
            ends = [os.dup(command_read), os.dup(reply_write)]
            os.dup2(ends[0], 3)
            os.dup2(ends[1], 4)

        self.process = subprocess.Popen(
            [program, "--headless", "--no-sandbox", "--remote-debugging-pipe", "--hide-scrollbars", "--disable-gpu",
             "--user-data-dir=" + self.folder.name, "about:blank"],
            preexec_fn=take_pipes, close_fds=False, stderr=subprocess.DEVNULL)
        os.close(command_read)
        os.close(reply_write)
        self.buffer, self.id, self.session = b"", 0, None
        self.errors, self.requests, self.events = [], [], set()
        page = self.call("Target.createTarget", url="about:blank")["targetId"]
        self.session = self.call("Target.attachToTarget", targetId=page, flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Log", "Network"):
            self.call(domain + ".enable")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        os.close(self.command)  # ends the browser
        self.process.wait(60)
        self.folder.cleanup()

    def _message(self):
        while b"\0" not in self.buffer:
            data = os.read(self.reply, 1 << 20)
            if not data:
                raise RuntimeError("the browser has ended")
            self.buffer += data
        text, self.buffer = self.buffer.split(b"\0", 1)
        message = json.loads(text)
        name, params = message.get("method"), message.get("params", {})
        self.events.add(name)
        if name in ("Runtime.exceptionThrown", "Log.entryAdded", "Runtime.consoleAPICalled"):
            self.errors.append(params)
        if name == "Network.requestWillBeSent":
            self.requests.append(params["request"]["url"])
        return message

    def call(self, method, **params):
        self.id += 1
        request = {"id": self.id, "method": method, "params": params}
        if self.session:
            request["sessionId"] = self.session
        os.write(self.command, json.dumps(request).encode() + b"\0")
        while True:
            message = self._message()
            if message.get("id") == self.id:
                if "error" in message:
                    raise RuntimeError(f"{method}: {message['error']}")
                return message["result"]

    def show(self, file, width, height=900, dark=False, script=True):
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1,
                  mobile=width < 600)
        self.call("Emulation.setEmulatedMedia",
                  features=[{"name": "prefers-color-scheme", "value": "dark" if dark else "light"}])
        self.call("Emulation.setScriptExecutionDisabled", value=not script)
        self.events.clear()
        self.call("Page.navigate", url="file://" + file)
        while "Page.loadEventFired" not in self.events:
            self._message()

    def value(self, expression):
        result = self.call("Runtime.evaluate", expression=expression, returnByValue=True)
        if "exceptionDetails" in result:
            raise RuntimeError(f"{expression}: {result['exceptionDetails']}")
        return result["result"].get("value")

    def picture(self, file, whole=True):
        data = self.call("Page.captureScreenshot", captureBeyondViewport=whole)["data"]
        with open(file, "wb") as out:
            out.write(base64.b64decode(data))
