"""A headless browser, and an agent with kel-browse before it, for tests of pages. Python 3.

    with Shop() as shop, Browser() as browser:
        browser.open(shop.address)
"""

import atexit
import contextlib
import functools
import json
import os
import shutil
import signal
import subprocess
import tempfile
import textwrap
import time
import unittest

try:
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.by import By
except ImportError:
    webdriver = None

DEADLINE = 60  # seconds; far above what anything needs, for machines under load
PROGRAMS = os.environ.get("KEL_PROGRAMS", "")
DRIVER = shutil.which("chromedriver")
WHERE_TO_GET = "no browser: ./dev check browser installs chromium, chromium-driver and python3-selenium"
THERE_IS_ONE = bool(webdriver and DRIVER and shutil.which("chromium"))

SHOP = """
    # -*- coding: utf-8 -*-
    import Kel, _Kel, acme
    root = Kel.root()
    shelf = root.newEntity("Acme::Shelf", "shelf")
    shelf.capacity, shelf.owner = 40, "Ada"
    nail = shelf.newEntity("Acme::Item", "nail")
    bolt = shelf.newEntity("Acme::Item", "bolt")
    nail.parent, bolt.parent = bolt, nail
    nail.addPart(bolt)
    nail.position = Kel.Value("Acme::Point", x=3, y=-4)
    nail.weight, nail.size = 0.25, 60
    nail.note = "for <b>Gr\\xc3\\xb6\\xc3\\x9fe</b> \\"M4\\""
    store = root.newEntity("Acme::Store", "store")
    store.restock("M4", 12)
    for number in range(250):
        store.price["p%d" % number] = number
    """


def program(name):
    return os.path.join(PROGRAMS, name)


def wait_until(condition):
    end = time.monotonic() + DEADLINE
    while not condition():
        if time.monotonic() > end:
            raise AssertionError("it did not come true in %d seconds" % DEADLINE)
        time.sleep(0.05)


class Shop:
    """The agent acme.shop and kel-browse, in a folder that goes with them."""

    def __init__(self):
        self._children = []

    def __enter__(self):
        self.folder = tempfile.mkdtemp(prefix="kel-")
        self._environment = dict(os.environ, KELC_AGENTS_DIR=os.path.join(self.folder, "agents"),
                                 HOME=self.folder)
        self._environment.pop("PYTHONPATH", None)
        with open(os.path.join(self.folder, "shop.py"), "w") as out:
            out.write(textwrap.dedent(SHOP))
        try:
            self.start_agent()
            browse = self._start(program("kel-browse"), "acme.shop", stdout=subprocess.PIPE)
            self.address = browse.stdout.readline().decode().strip()
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        for child in self._children:
            with contextlib.suppress(ProcessLookupError):
                os.killpg(child.pid, signal.SIGKILL)
            child.wait()
            if child.stdout:
                child.stdout.close()
        shutil.rmtree(self.folder, True)

    def _start(self, *command, **keywords):
        child = subprocess.Popen(command, env=self._environment, cwd=self.folder,
                                 start_new_session=True, **keywords)
        self._children.append(child)
        return child

    def start_agent(self):
        self.agent = self._start(program("kel-agent"), "--group", "acme", "--name", "shop",
                                 "--schema", "acme", "shop.py")
        self.value("store")  # its script is done

    def stop_agent(self):
        self.agent.send_signal(signal.SIGTERM)
        self.agent.wait(DEADLINE)

    def _is_announced(self):
        return os.path.exists(os.path.join(self.folder, "agents", "acme.shop"))

    def _evaluate(self, *arguments):
        wait_until(lambda: self.agent.poll() is not None or self._is_announced())
        return subprocess.run([program("kel-eval"), "--no-wait", "acme.shop"] + list(arguments),
                              env=self._environment, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, timeout=DEADLINE)

    def value(self, text):
        """Of an expression in the agent, as soon as its script has made the names in it."""
        end = time.monotonic() + DEADLINE
        while True:
            done = self._evaluate(text)
            if done.returncode == 0:
                return done.stdout.decode().rstrip("\n")
            if (b"NameError" not in done.stderr or self.agent.poll() is not None or
                    time.monotonic() > end):
                raise AssertionError(done.stderr.decode())

    def run(self, text):
        done = self._evaluate("-x", text)
        if done.returncode:
            raise AssertionError(done.stderr.decode())


def schema_page(folder, *libraries):
    """The address of the page that kel-schema makes there."""
    path = os.path.join(folder, "types.html")
    subprocess.run([program("kel-schema"), "--html", "-o", path] + list(libraries), check=True)
    return "file://" + path


class Browser:
    """Chromium, which finds no name of a machine and so goes nowhere."""

    def __enter__(self):
        self._folder = tempfile.mkdtemp(prefix="kel-")
        options = webdriver.ChromeOptions()
        options.binary_location = shutil.which("chromium")
        for argument in ("--headless=new", "--disable-gpu", "--hide-scrollbars",
                         "--disable-dev-shm-usage", "--user-data-dir=" + self._folder,
                         "--host-resolver-rules=MAP * ~NOTFOUND, EXCLUDE 127.0.0.1"):
            options.add_argument(argument)
        if os.geteuid() == 0:
            options.add_argument("--no-sandbox")  # it refuses to run as root with one
        options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
        try:
            self.driver = webdriver.Chrome(service=Service(DRIVER), options=options)
        except BaseException:
            shutil.rmtree(self._folder, True)
            raise
        self.window(1100, 760)
        return self

    def __exit__(self, *_):
        self.driver.quit()
        shutil.rmtree(self._folder, True)

    def window(self, width, height, scheme="light"):
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {
            "features": [{"name": "prefers-color-scheme", "value": scheme}]})

    def open(self, address):
        self.driver.get("about:blank")  # else another hash of the same page loads nothing
        self.driver.get(address)

    def script(self, text, *arguments):
        return self.driver.execute_script(text, *arguments)

    def all(self, selector):
        """The elements that are shown."""
        return self.script("return [ ...document.querySelectorAll( arguments[0] ) ].filter("
                           "   each => each.checkVisibility() );", selector)

    def one(self, selector):
        """The element that is shown, as soon as it is."""
        wait_until(lambda: self.all(selector))
        return self.all(selector)[0]

    def text(self, selector):
        """Of the element, in one moment: it may be replaced in the next."""
        return self.script("const found = document.querySelector( arguments[0] );"
                           "return found && found.innerText;", selector)

    def wait_for_text(self, selector, text):
        wait_until(lambda: self.text(selector) == text)

    def press(self, text, within="body"):
        """The button of that text."""
        wait_until(lambda: self.script(_PRESS, within + " button", text))

    def complaints(self):
        """What the console has told since the last time."""
        return [entry["message"] for entry in self.driver.get_log("browser")]

    def requests(self):
        """The addresses that pages have asked for since the last time."""
        messages = [json.loads(entry["message"])["message"]
                    for entry in self.driver.get_log("performance")]
        return [message["params"]["request"]["url"] for message in messages
                if message["method"] == "Network.requestWillBeSent"]

    def is_too_wide(self):
        return self.script("return document.documentElement.scrollWidth > innerWidth")

    def contrast(self, selector):
        """Of the text of an element with what stands behind it; 4.5 can be read by most."""
        return self.script(_CONTRAST, self.one(selector))


# In one moment, for the page may put another button in the place of one.
_PRESS = """
const found = [ ...document.querySelectorAll( arguments[0] ) ].find(
   each => each.checkVisibility() && each.innerText === arguments[1] );
found?.click();
return Boolean( found );
"""

_CONTRAST = """
const numbers = color => color.match( /[0-9.]+/g ).map( Number );
const light = color => numbers( color ).slice( 0, 3 ).map( part => part / 255 ).map(
   part => part <= 0.03928 ? part / 12.92 : ( ( part + 0.055 ) / 1.055 ) ** 2.4 )
   .reduce( ( sum, part, number ) => sum + part * [ 0.2126, 0.7152, 0.0722 ][number], 0 );
let behind = arguments[0];
while( behind && numbers( getComputedStyle( behind ).backgroundColor )[3] === 0 ) {
   behind = behind.parentElement;
}
const [ low, high ] = [ light( getComputedStyle( arguments[0] ).color ),
   light( behind ? getComputedStyle( behind ).backgroundColor : "rgb(255,255,255)" ) ].sort(
      ( a, b ) => a - b );
return ( high + 0.05 ) / ( low + 0.05 );
"""


class BrowserCase(unittest.TestCase):
    """All tests share the browser, as it takes long to start; each has a shop of its own."""

    @classmethod
    def setUpClass(cls):
        cls.browser = shared_browser()

    def setUp(self):
        self.shop = Shop().__enter__()
        self.addCleanup(self.shop.__exit__)
        self.clean_browser()

    def clean_browser(self):
        # The page of the test before still asks its server, which is gone.
        self.browser.driver.get("about:blank")
        self.browser.window(1100, 760)
        self.browser.driver.execute_cdp_cmd("Network.clearBrowserCookies", {})
        self.browser.complaints()
        self.browser.requests()

    def assertReadable(self, selectors):
        """By day and by night, and within a window of any width."""
        for scheme in "light", "dark":
            self.browser.window(1100, 760, scheme)
            for selector in selectors:
                self.assertGreater(self.browser.contrast(selector), 4.5, (scheme, selector))
        for width in 1100, 700, 380:
            self.browser.window(width, 760)
            self.assertFalse(self.browser.is_too_wide(), width)


@functools.lru_cache()
def shared_browser():
    browser = Browser().__enter__()
    atexit.register(browser.__exit__)
    return browser
