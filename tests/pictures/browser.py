"""A headless Chromium that opens a page, answers questions about it and takes pictures.

It is driven over a pair of pipes with the DevTools protocol: messages in JSON, each
ended by a byte of 0. Whatever goes wrong in the page is collected in `troubles`, and
whatever it asks a network for in `requests`.
"""

import base64
import json
import os
import pathlib
import select
import shutil
import subprocess
import tempfile
import time

# For a machine that has much else to do.
LONGEST_S = 240
ARGUMENTS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
             "--no-first-run", "--disable-background-networking", "--disable-component-update",
             "--hide-scrollbars", "--remote-debugging-pipe", "about:blank"]


def chromium():
    """Its path, or None."""
    return shutil.which("chromium")


class Browser:
    def __init__(self, width=1280, height=1000):
        self.profile = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
        self.troubles = []
        self.requests = []
        self.events = []
        self.replies = {}
        self.last_id = 0
        self.unread = b""
        self.start()
        self.size = {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": False}

    def start(self):
        """Chromium reads commands at its descriptor 3 and writes answers at 4."""
        commands, self.to_browser = os.pipe()
        self.from_browser, answers = os.pipe()
        high = [os.dup(end) for end in (commands, answers)]  # not 3 or 4; often above 9

        command = ["/bin/bash", "-c", f'exec "$@" 3<&{high[0]} 4>&{high[1]}', "bash", chromium(),
                   f"--user-data-dir={self.profile.name}", *ARGUMENTS]
        environment = os.environ | {"HOME": self.profile.name}
        self.process = subprocess.Popen(command, pass_fds=high, stdin=subprocess.DEVNULL,
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                        env=environment, start_new_session=True)
        for end in (commands, answers, *high):
            os.close(end)

        targets = self.ask("Target.getTargets")["targetInfos"]
        page = next(t for t in targets if t["type"] == "page")
        attached = self.ask("Target.attachToTarget", targetId=page["targetId"], flatten=True)
        self.session = attached["sessionId"]
        for domain in ("Page", "Runtime", "Log", "Network"):
            self.page(f"{domain}.enable")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        try:
            self.ask("Browser.close")
            self.process.wait(LONGEST_S)
        except (OSError, TimeoutError, subprocess.TimeoutExpired):
            self.process.kill()
            self.process.wait()
        os.close(self.to_browser)
        os.close(self.from_browser)
        self.profile.cleanup()

    def send(self, method, session=None, **parameters):
        self.last_id += 1
        message = {"id": self.last_id, "method": method, "params": parameters}
        if session:
            message["sessionId"] = session
        data = json.dumps(message).encode() + b"\0"
        while data:
            data = data[os.write(self.to_browser, data):]
        return self.last_id

    def receive(self, end):
        """Waits for messages and sorts them."""
        left_s = end - time.monotonic()
        if left_s <= 0 or not select.select([self.from_browser], [], [], left_s)[0]:
            raise TimeoutError("the browser does not answer")
        data = os.read(self.from_browser, 1 << 20)
        if not data:
            raise OSError("the browser has ended")
        *messages, self.unread = (self.unread + data).split(b"\0")
        for message in map(json.loads, messages):
            if "id" in message:
                self.replies[message["id"]] = message
            else:
                self.note(message["method"], message["params"])

    def note(self, method, told):
        if method == "Runtime.exceptionThrown":
            details = told["exceptionDetails"]
            self.troubles.append(details.get("exception", details).get("description",
                                                                       details["text"]))
        elif method == "Runtime.consoleAPICalled" and told["type"] in ("error", "warning",
                                                                       "assert"):
            self.troubles.append(" ".join(str(a.get("value", a)) for a in told["args"]))
        elif method == "Log.entryAdded" and told["entry"]["level"] in ("error", "warning"):
            self.troubles.append(told["entry"]["text"])
        elif method == "Network.requestWillBeSent":
            self.requests.append(told["request"]["url"])
        self.events.append(method)

    def answer(self, number):
        end = time.monotonic() + LONGEST_S
        while number not in self.replies:
            self.receive(end)
        reply = self.replies.pop(number)
        if "error" in reply:
            raise RuntimeError(reply["error"]["message"])
        return reply["result"]

    def ask(self, method, **parameters):
        return self.answer(self.send(method, **parameters))

    def page(self, method, **parameters):
        return self.answer(self.send(method, self.session, **parameters))

    def value(self, expression):
        """What the JavaScript expression is in the page; a promise is waited for."""
        result = self.page("Runtime.evaluate", expression=expression, returnByValue=True,
                           awaitPromise=True)
        if "exceptionDetails" in result:
            raise RuntimeError(result["exceptionDetails"]["exception"]["description"])
        return result["result"].get("value")

    def wait_for(self, expression):
        end = time.monotonic() + LONGEST_S
        while not self.value(expression):
            if time.monotonic() > end:
                raise TimeoutError(f"never true: {expression}; {self.troubles}")
            time.sleep(0.05)

    def wait_for_trouble(self):
        end = time.monotonic() + LONGEST_S
        while not self.troubles:
            self.receive(end)

    def open(self, path):
        self.troubles.clear()
        self.requests.clear()
        self.events.clear()
        self.page("Emulation.setDeviceMetricsOverride", **self.size)
        self.page("Page.navigate", url=pathlib.Path(path).resolve().as_uri())
        self.wait_for("document.readyState === 'complete' && location.protocol === 'file:'")

    def picture(self, path, box=None):
        """A PNG of the whole page, or of a box in it: x, y, width, height."""
        if box is None:
            size = self.page("Page.getLayoutMetrics")["cssContentSize"]
            box = (0, 0, size["width"], size["height"])
        clip = dict(zip(("x", "y", "width", "height"), box)) | {"scale": 1}
        taken = self.page("Page.captureScreenshot", format="png", captureBeyondViewport=True,
                          clip=clip)
        pathlib.Path(path).write_bytes(base64.b64decode(taken["data"]))
