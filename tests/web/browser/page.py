"""Headless Chromium, driven by WebDriver, and what a viewer does with the page in it."""

import base64
import os

from selenium import webdriver
from selenium.common.exceptions import JavascriptException, StaleElementReferenceException
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.actions.action_builder import ActionBuilder
from selenium.webdriver.common.actions.pointer_input import PointerInput
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

from receiver import ROOT, until

SIZES = {"tv": (1280, 720), "phone": (390, 844), "large": (3840, 2160)}
AXE = os.path.join(ROOT, "build", "web-tools", "node_modules", "axe-core", "axe.min.js")

# The text of what matches and can be seen: an array.
SEEN = """
return [...document.querySelectorAll(arguments[0])]
    .filter(e => e.checkVisibility({opacityProperty: true, visibilityProperty: true}))
    .map(e => (e.matches('input, textarea, select') ? e.value : e.innerText).trim());
"""


def browser():
    """Starts Chromium."""
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    # The sandbox needs rights that a container lacks. Only pages of this machine are opened.
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                     "--disable-background-networking", "--disable-component-update",
                     "--no-first-run",
                     "--disable-background-timer-throttling", "--disable-renderer-backgrounding",
                     "--disable-backgrounding-occluded-windows", "--window-size=1280,720"):
        options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
    driver.set_page_load_timeout(20)
    return driver


def selector(name):
    """Returns the CSS selector of a data-test name; a selector stays what it is."""
    return name if name[0] in "[.#" else f'[data-test="{name}"]'


class Page:
    """One page (a window of the browser). Names are those of the data-test attributes."""

    def __init__(self, driver, address):
        self.driver = driver
        driver.switch_to.window(driver.window_handles[0])
        driver.switch_to.new_window("window")
        self.handle = driver.current_window_handle
        driver.front_page = self
        self.errors = []
        self.resize("tv")
        driver.get(address)

    def front(self):
        """Makes this the page that the driver talks to."""
        if getattr(self.driver, "front_page", None) is not self:
            self.driver.switch_to.window(self.handle)
            self.driver.front_page = self

    def js(self, script, *arguments):
        self.front()
        return self.driver.execute_script(script, *arguments)

    def later(self, script, *arguments):
        """Runs a script that calls its last argument when it is done."""
        self.front()
        return self.driver.execute_async_script(script, *arguments)

    def cdp(self, command, **keys):
        self.front()
        return self.driver.execute_cdp_cmd(command, keys)

    def resize(self, size, touch=False):
        width, height = SIZES[size]
        self.cdp("Emulation.setDeviceMetricsOverride", width=width, height=height,
                 deviceScaleFactor=1, mobile=touch)
        self.cdp("Emulation.setTouchEmulationEnabled", enabled=touch)

    def media(self, **features):
        """Sets what the browser prefers: prefers_color_scheme="light"."""
        self.cdp("Emulation.setEmulatedMedia", features=[
            {"name": name.replace("_", "-"), "value": value} for name, value in features.items()])

    def go(self, path):
        """Opens a view as a link does, without a new load of the page."""
        self.js("location.hash = arguments[0]", "#" + path)

    def reload(self):
        self.front()
        self.driver.refresh()

    # -- seeing

    def texts(self, name):
        try:
            return self.js(SEEN, selector(name))
        except (JavascriptException, StaleElementReferenceException):
            return []

    def text(self, name):
        return " ".join(self.texts(name))

    def see(self, name, *words, seconds=15):
        """Waits until elements of that name are visible and contain the words."""
        until(lambda: self.texts(name) and all(word in self.text(name) for word in words),
              lambda: f"{name} with {words}; seen: {self.texts(name)[:8]}; page: "
                      f"{self.js('return document.body.innerText')[:600]!r}", seconds)
        return self.text(name)

    def gone(self, name, *words, seconds=15):
        """Waits until no visible element of that name contains the words."""
        until(lambda: not [text for text in self.texts(name)
                           if all(word in text for word in words)],
              lambda: f"end of {name} {words}; seen: {self.texts(name)[:8]}", seconds)

    def whole(self):
        return self.js("return document.body.innerText")

    def focused(self):
        """What has the focus: its data-test, label or text."""
        return self.js("""
            const e = document.activeElement;
            return e === document.body ? '' :
                [e.dataset.test, e.getAttribute('aria-label'), e.innerText].join(' ').trim();""")

    # -- doing

    def keys(self, *keys):
        """Presses keys: texts, or names such as ENTER."""
        self.front()
        for key in keys:
            actions = ActionBuilder(self.driver)
            code = getattr(Keys, key, None) if len(key) > 1 else key
            for character in code or key:
                actions.key_action.key_down(character).key_up(character)
            actions.perform()

    def find(self, name, *words, seconds=15):
        """Returns the first visible element of that name that contains the words."""
        script = """
            return [...document.querySelectorAll(arguments[0])].find(e =>
                e.checkVisibility() && arguments[1].every(w =>
                    [e.getAttribute('aria-label'), e.innerText, e.value].join(' ').includes(w)));
            """
        return until(lambda: self.js(script, selector(name), words),
                     lambda: f"{name} with {words}; seen: {self.texts(name)[:12]}", seconds)

    def click(self, name, *words):
        def clicked():
            element = self.find(name, *words)
            try:
                self.js("arguments[0].scrollIntoView({block: 'nearest'})", element)
                element.click()
                return True
            except StaleElementReferenceException:
                return False
        until(clicked, f"a click on {name} {words}")

    def tap(self, name, *words):
        """Touches an element with a finger."""
        element = self.find(name, *words)
        self.js("arguments[0].scrollIntoView({block: 'nearest'})", element)
        finger = PointerInput("touch", "finger")
        actions = ActionBuilder(self.driver, mouse=finger)
        actions.pointer_action.move_to(element).pointer_down().pointer_up()
        actions.perform()

    def type(self, name, text, *words):
        element = self.find(name, *words)
        element.clear()
        element.send_keys(text)

    def pin(self, digits, name="pin"):
        """Answers the question for a PIN that is open."""
        self.type(name, digits)
        self.keys("ENTER")

    # -- checking

    def collect_errors(self):
        """Takes the errors of the console: exceptions, violations of the policy, failed loads."""
        self.front()
        for entry in self.driver.get_log("browser"):
            refused = entry["source"] == "network" and any(
                reason in entry["message"] for reason in (
                    "status of 401", "status of 403", "status of 503", "ERR_CONNECTION_REFUSED",
                    "ERR_INCOMPLETE_CHUNKED_ENCODING", "ERR_EMPTY_RESPONSE",
                    "ERR_CONNECTION_RESET"))
            if entry["level"] in ("SEVERE", "WARNING") and not refused:
                self.errors.append(entry["message"])
        return self.errors

    def axe(self, where):
        """Returns the serious and critical faults that axe-core finds."""
        self.collect_errors()
        if not self.js("return !!window.axe"):
            with open(AXE, encoding="utf-8") as file:
                self.cdp("Runtime.evaluate", expression=file.read())
        found = self.later("""
            const done = arguments[arguments.length - 1];
            axe.run(document, {resultTypes: ['violations'], preload: false}).then(
                r => done(r.violations.filter(v => ['serious', 'critical'].includes(v.impact)).map(
                    v => v.id + ' ' + v.nodes.slice(0, 4).map(n => n.html.slice(0, 160) + ' ' +
                        (n.any[0]?.message ?? n.all[0]?.message ?? '')).join(' | '))),
                e => done(['axe: ' + e]));""")
        # Styles that axe-core sets for itself violate the page's policy.
        self.driver.get_log("browser")
        return [f"{where}: {fault}" for fault in found]

    def picture(self, path):
        os.makedirs(os.path.dirname(os.path.abspath(path)), exist_ok=True)
        image = self.cdp("Page.captureScreenshot", format="png")
        with open(path, "wb") as file:
            file.write(base64.b64decode(image["data"]))

    def close(self):
        self.front()
        self.driver.close()
        self.driver.front_page = None
