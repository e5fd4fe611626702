#!/usr/bin/python3 -B
"""Runs the scenarios of atsc-web in a headless Chromium, with real programs and broadcasts.

Every function of scenarios/*.py that is marked with @scenario runs in a folder of its own, with
processes of its own. A scenario fails also if the page logs an error to its console, or if a
program does not end cleanly. The last line is "N passed, N failed".
"""

import argparse
import importlib
import os
import pathlib
import shutil
import signal
import sys
import tempfile
import time
import traceback

from page import Page, browser
from receiver import ROOT, Receiver
from scenario import registered

LIMIT_SECONDS = 150


class Scene:
    """What a scenario gets: a receiver, pages, and the means to look at them."""

    def __init__(self, name, folder, driver, arguments):
        self.name = name
        self.receiver = Receiver(folder, arguments.build)
        self.driver = driver
        self.pictures = arguments.pictures
        self.pages = []

    def page(self, path="/"):
        page = Page(self.driver, self.receiver.origin + "/#" + path)
        self.pages.append(page)
        return page

    def forget(self, page):
        """Closes a page that belongs to the past; its errors count."""
        errors = page.collect_errors()
        self.pages.remove(page)
        page.close()
        assert not errors, errors

    def end(self):
        """Closes everything; returns the faults that a scenario does not see by itself."""
        faults = [f"console: {error}" for page in self.pages for error in page.collect_errors()]
        for page in self.pages:
            page.close()
        faults += self.receiver.close()
        return faults


def run(name, function, driver, arguments):
    folder = tempfile.mkdtemp(prefix="atsc-web-")
    scene = Scene(name, folder, driver, arguments)
    began = time.monotonic()
    faults = []
    try:
        signal.alarm(LIMIT_SECONDS)
        function(scene)
    except Exception:  # pylint: disable=broad-except
        faults.append(traceback.format_exc())
        keep = os.path.join(arguments.failures, name)
        for number, page in enumerate(scene.pages):
            try:
                page.picture(f"{keep}-{number}.png")
            except Exception:  # pylint: disable=broad-except
                pass
        faults += [f"end of {log.name}:\n{log.read_text(errors='replace')[-1500:]}"
                   for log in sorted(pathlib.Path(folder).glob("*.log"))]
    signal.alarm(LIMIT_SECONDS)
    try:
        faults += scene.end()
    except Exception:  # pylint: disable=broad-except
        faults.append(traceback.format_exc())
        scene.receiver.close()
    signal.alarm(0)
    shutil.rmtree(folder, ignore_errors=True)
    print(f"{'FAILED' if faults else 'passed'}  {name} ({time.monotonic() - began:.1f} s)",
          flush=True)
    for fault in faults:
        print("    " + str(fault).replace("\n", "\n    "), flush=True)
    return not faults


def too_long(*_):
    raise TimeoutError(f"the scenario takes more than {LIMIT_SECONDS} s")


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("-k", metavar="WORD", action="append", default=[],
                        help="only the scenarios with one of these words in their names")
    parser.add_argument("--list", action="store_true", help="print the names of the scenarios")
    parser.add_argument("--pictures", metavar="DIR",
                        help="make the pictures of the documents in DIR too, and in DIR/all (if "
                        "there) each page at each size, dark and light")
    parser.add_argument("--build", default=os.path.join(ROOT, "build", "native"),
                        help="folder of the programs (default: build/native)")
    arguments = parser.parse_args()
    arguments.failures = os.path.join(arguments.build, "web-failures")

    folder = os.path.join(os.path.dirname(os.path.abspath(__file__)), "scenarios")
    sys.path.insert(0, folder)
    for file in sorted(os.listdir(folder)):
        if file.endswith(".py"):
            importlib.import_module(file[:-3])
    chosen = {name: function for name, function in registered.items()
              if (not arguments.k or any(word in name for word in arguments.k))
              and (name != "pictures" or arguments.pictures)}
    if arguments.list:
        print(*chosen, sep="\n")
        return 0

    shutil.rmtree(arguments.failures, ignore_errors=True)
    signal.signal(signal.SIGALRM, too_long)
    passed = 0
    driver = browser()
    try:
        for name, function in chosen.items():
            passed += run(name, function, driver, arguments)
    finally:
        driver.quit()
    print(f"\n{passed} passed, {len(chosen) - passed} failed")
    return 0 if chosen and passed == len(chosen) else 1


if __name__ == "__main__":
    sys.exit(main())
