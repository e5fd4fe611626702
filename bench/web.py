#!/usr/bin/python3 -B
"""Measures atsc-web in a headless Chromium, with a market of 4,020 channels and 56,000 programmes.

How the figures come about:
- "callback to page": the server stamps each callback with the time at which the library called it
  (the key "at"). The page compares that with its own clock when its listener is called. Both read
  the clock of the same machine; the page first finds the offset of its monotonic clock to that.
  "command to page" is a check that does not trust the stamp: from the moment at which the page
  sends a command that raises a callback to the moment at which the page has that callback, so with
  the way to the service, the command, and the way back. Floor: a bare server-sent event stream of
  a program that stamps its messages in the same way.
- "callback to banner": from the stamp of CHANNEL_PLAY_SUCCESS to the end of the first frame that
  shows the number and the programme of the new channel. "key to banner" is the same from the key
  on, by the page's clock alone. Floor: the same stream, to the end of the frame that shows its
  message.
- "guide, first sight": from the start of the navigation to the end of the first frame with titles
  in all rows that fit into the window. Floor: an empty page, to the end of its first frame.
- "frame while scrolling": the time between two frames while the guide is scrolled smoothly by the
  wheel.
  Floor: the same gesture on a page with a tall empty box.
- "memory": resident memory of atsc-web. Floor: the same program before the first scan.
- "rewrites refused": what the service logs when a reader holds the guide for too long, while five
  pages scroll through the guide and a station changes its programmes again and again.

Prints one line per figure with the limit; the exit status is 1 if one is missed.
"""

import argparse
import http.server
import json
import os
import statistics
import sys
import tempfile
import threading
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(ROOT, "tests", "web", "browser"))
# pylint: disable=wrong-import-position
from large import CARRIERS, SERVICES, changed, market
from page import Page, browser
from receiver import Receiver, until

# Offset of the page's monotonic clock to the clock of the machine, at a tick of the latter.
CLOCK = """
window.clockNow = (() => {
  let tick = Date.now();
  const first = tick;
  while (tick === first) tick = Date.now();
  const offset = tick - performance.now();
  return () => performance.now() + offset;
})();
window.afterFrame = (then) => requestAnimationFrame(() => {
  const channel = new MessageChannel();
  channel.port1.onmessage = then;
  channel.port2.postMessage(0);
});
"""

REWRITES = 12

FLOOR_PAGE = b"""<!doctype html><html lang="en"><title>Floor</title><p id="text">-</p>
<div id="tall" style="height:700px;overflow:auto"><div style="height:200000px"></div></div>"""

FRAMES = """
window.frames = [];
(function frame(before) {
  requestAnimationFrame(() => {
    // Not the time that the callback is given: that is when the frame should have begun.
    const now = performance.now();
    if (before) window.frames.push(now - before);
    if (window.frames.length < 100000) frame(now);
  });
})();
"""


class Floor(http.server.BaseHTTPRequestHandler):
    """A page and a stream of events, with nothing behind them."""

    def do_GET(self):  # pylint: disable=invalid-name
        self.send_response(200)
        events = self.path == "/events"
        self.send_header("Content-Type", "text/event-stream" if events else "text/html")
        self.end_headers()
        if not events:
            self.wfile.write(FLOOR_PAGE)
            return
        for _ in range(100):
            time.sleep(0.05)
            self.wfile.write(b'data: {"at":%.3f}\n\n' % (time.time() * 1000))
            self.wfile.flush()

    def log_message(self, *_):  # pylint: disable=arguments-differ
        pass


def spread(values, share):
    return sorted(values)[min(len(values) - 1, int(len(values) * share))]


class Report:
    """Prints a line for each figure."""

    def __init__(self, as_json):
        self.as_json = as_json
        self.missed = []

    def add(self, name, unit, value, floor=None, limit=None):
        ok = limit is None or value <= limit
        if not ok:
            self.missed.append(name)
        if self.as_json:
            print(json.dumps({"name": name, "ours": round(value, 2),
                              "floor": floor and round(floor, 2),
                              "unit": unit, "limit": limit}), flush=True)
            return
        print(f"{name:44} ours {value:10.1f}  floor "
              + (f"{floor:8.1f}" if floor is not None else "       -") + f"  {unit:8}"
              + (f" limit {limit:g}{'' if ok else '  MISSED'}" if limit is not None else ""),
              flush=True)


def floor_figures(driver):
    """Returns what a page costs that has nothing to do."""
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Floor)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    page = Page(driver, f"http://127.0.0.1:{server.server_port}/")
    page.js(CLOCK)
    events, drawn = page.later("""
        const done = arguments[arguments.length - 1];
        const events = [], drawn = [];
        const source = new EventSource('/events');
        source.onmessage = (event) => {
          const {at} = JSON.parse(event.data);
          events.push(clockNow() - at);
          document.getElementById('text').textContent = at;
          afterFrame(() => drawn.push(clockNow() - at));
        };
        source.onerror = () => {
          source.close();
          setTimeout(() => done([events, drawn]), 100);
        };""")
    first = first_sight(page, f"http://127.0.0.1:{server.server_port}/?again", "true")
    frames = scroll(page, 640, 400)
    page.close()
    server.shutdown()
    return {"events": events, "drawn": drawn, "first": first, "frames": frames}


def first_sight(page, address, condition):
    """Returns the milliseconds from the navigation to the end of the first such frame."""
    page.front()
    page.driver.get("about:blank")
    script = page.cdp("Page.addScriptToEvaluateOnNewDocument", source="""
        (function look() {
          requestAnimationFrame(() => {
            const channel = new MessageChannel();
            const seen = document.body && (() => { try { return %s; } catch { return false; } })();
            channel.port1.onmessage = () => {
              if (seen) window.firstSight = performance.now(); else look();
            };
            channel.port2.postMessage(0);
          });
        })();""" % condition)
    page.driver.get(address)
    value = until(lambda: page.js("return window.firstSight"), "first sight", 30)
    page.cdp("Page.removeScriptToEvaluateOnNewDocument", identifier=script["identifier"])
    return value


def scroll(page, x, y, distance=24000, speed=4000):
    """Scrolls down and up, twice; returns the times between frames."""
    page.js(FRAMES + """
        window.scrolls = 0;
        addEventListener('scroll', () => ++window.scrolls, {capture: true, passive: true});""")
    for _ in range(2):
        for direction in (-1, 1):
            page.cdp("Input.synthesizeScrollGesture", x=x, y=y, yDistance=direction * distance,
                     speed=speed, gestureSourceType="mouse", preventFling=True)
    frames, scrolls = page.js("return [window.frames, window.scrolls]")
    assert scrolls > len(frames) / 3, f"{scrolls} scrolls in {len(frames)} frames"
    return frames


# True if each row that fits into the window has a title.
GUIDE_SEEN = """(() => {
  const cells = [...document.querySelectorAll('[data-test=guide-cell]')].filter((cell) => {
    const box = cell.getBoundingClientRect();
    return box.bottom > 0 && box.top < innerHeight && /Show/.test(cell.textContent);
  });
  const rows = [...document.querySelectorAll('[data-test=guide-row]')].filter((row) => {
    const box = row.getBoundingClientRect();
    return box.bottom > 0 && box.top < innerHeight;
  });
  return rows.length >= 4 && cells.length >= rows.length;
})()"""


def callbacks(page, receiver, zaps):
    """Zaps; returns the times of callbacks, and of the banner, in milliseconds."""
    page.see("banner-number", "2-1")
    page.js(CLOCK)
    page.later("""
        const done = arguments[arguments.length - 1];
        window.delays = [], window.banners = [], window.keyed = [], window.raised = [];
        window.states = [], window.played = 0, window.expected = '';
        const text = (name) =>
            document.querySelector(`[data-test=${name}]`)?.textContent ?? '';
        // Looks only when the page has changed: to ask for frames all the time would delay them.
        const look = () => {
          const [number, title] = window.expected || ['-', '-'];
          if (!window.played || !text('banner-number').includes(number) ||
              !text('banner-now').includes(title)) return;
          const at = window.played;
          window.played = 0;
          afterFrame(() => {
            banners.push(clockNow() - at);
            keyed.push(clockNow() - window.key);
            window.expected = '';
          });
        };
        new MutationObserver(look).observe(
            document.body, {subtree: true, childList: true, characterData: true, attributes: true});
        Promise.all([import('/js/live.js'), import('/js/api.js')]).then(([live, api]) => {
          window.api = api;
          live.onState((state) => {
            if (!window.played || state.playing !== 'playing' ||
                !state.now?.title.includes(expected[1])) return;
            states.push(clockNow() - window.played);
          });
          live.onCallback((callback) => {
            const kind = callback.message?.cbtype;
            const now = clockNow();
            delays.push([kind, now - callback.at]);
            if (kind === 'PARENTAL_UPDATE' && window.sent) raised.push(now - window.sent);
            if (kind !== 'CHANNEL_PLAY_SUCCESS' || !window.expected) return;
            window.played = callback.at;
            look();
          });
          done();
        });""")
    for zap in range(zaps):
        carrier = zap % 60 + 1
        page.js("window.expected = arguments[0]; window.key = clockNow();"
                "api.command({class: 'FW', command: 'CHANNELCHANGE', input: 'VSB',"
                "             major: arguments[1], minor: 1});",
                [f"{carrier + 2}-1", f"of {carrier * SERVICES}"], carrier + 2)
        until(lambda: page.js("return window.expected === ''"), f"zap to {carrier + 2}-1", 10)
    for _ in range(40):
        before = page.js("return raised.length")
        page.js("window.sent = clockNow(); api.command({class: 'PC', command: 'SETPRTDETAIL',"
                "             preset_mode: arguments[0]});", before % 2 + 1)
        until(lambda before=before: page.js("return raised.length") > before, "PARENTAL_UPDATE", 10)
    return page.js("return {delays, banners, keyed, raised, states}")


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--json", action="store_true", help="one JSON object per line")
    parser.add_argument("--zaps", type=int, default=100, help="channel changes (default: 100)")
    parser.add_argument("--build", default=os.path.join(ROOT, "build", "native"),
                        help="folder of the programs (default: build/native)")
    arguments = parser.parse_args()
    report = Report(arguments.json)
    with tempfile.TemporaryDirectory(prefix="atsc-web-") as folder:
        receiver = Receiver(folder, arguments.build)
        driver = browser()
        driver.set_script_timeout(60)
        try:
            measure(receiver, driver, report, arguments)
        finally:
            driver.quit()
            for fault in receiver.close():
                report.missed.append(fault)
    for missed in report.missed:
        print(f"missed: {missed}", file=sys.stderr)
    return 1 if report.missed else 0


def measure(receiver, driver, report, arguments):
    receiver.broadcast(*market())
    receiver.service("--fast")
    receiver.web()
    idle = receiver.memory("atsc-web")
    receiver.scan()
    span = receiver.get("/api/guide/span?src=VSB")
    assert span["programmes"] >= 50000, span
    floor = floor_figures(driver)

    page = Page(driver, receiver.origin + "/")
    times = callbacks(page, receiver, arguments.zaps)
    delays = [delay for _, delay in times["delays"]]
    report.add(f"callback to page, median of {len(delays)}", "ms", statistics.median(delays),
               statistics.median(floor["events"]), 20)
    report.add("callback to page, worst", "ms", max(delays), max(floor["events"]), 100)
    report.add("command to page, median", "ms", statistics.median(times["raised"]),
               statistics.median(floor["events"]))
    report.add("command to page, worst", "ms", max(times["raised"]), max(floor["events"]))
    report.add("callback to new state, median", "ms", statistics.median(times["states"] or [0]))
    banners = times["banners"]
    report.add(f"callback to banner, median of {len(banners)}", "ms", statistics.median(banners),
               statistics.median(floor["drawn"]), 20)
    report.add("callback to banner, worst", "ms", max(banners), max(floor["drawn"]), 100)
    report.add("key to banner, median", "ms", statistics.median(times["keyed"]))

    sights = [first_sight(page, receiver.origin + "/#/guide", GUIDE_SEEN) for _ in range(5)]
    report.add("guide, first sight, worst of 5", "ms", max(sights), floor["first"], 1000)
    frames = scroll(page, 700, 450)
    report.add("frame while scrolling, median", "ms", statistics.median(frames),
               statistics.median(floor["frames"]))
    report.add(f"frame while scrolling, 95 % of {len(frames)}", "ms", spread(frames, 0.95),
               spread(floor["frames"], 0.95), 50)
    report.add("frame while scrolling, worst", "ms", max(frames), max(floor["frames"]))
    page.close()
    report.add("memory of atsc-web, with the guide", "MB", receiver.memory("atsc-web") / 1e6,
               idle / 1e6, 30)

    pages = [Page(driver, receiver.origin + "/#/guide") for _ in range(5)]
    for each in pages:
        each.see("guide-cell", "Show")
        # To and fro, a screen at a time, as long as the page lives.
        each.js("""
            let box = document.querySelector('[data-test=guide-cell]');
            while (box && box.scrollHeight <= box.clientHeight + 1000) box = box.parentElement;
            let step = 600;
            setInterval(() => {
              const before = box.scrollTop;
              box.scrollTop += step;
              if (box.scrollTop === before) step = -step;
            }, 30);""")
    for rewrite in range(REWRITES):
        version = receiver.state()["versions"]["guide"]
        receiver.change(changed(rewrite % 66 + 1, f"Edition {rewrite}"),
                        CARRIERS[rewrite % 66 + 1] * 1000000)
        until(lambda version=version: receiver.state()["versions"]["guide"] > version,
              lambda: "a rewritten guide:\n" + receiver.log("atsc-service")[-500:], 30)
    refused = receiver.log("atsc-service").count("is not written: ")
    report.add(f"rewrites refused, of {REWRITES} beside five pages", "", refused, None, 0)
    for each in pages:
        each.close()
    receiver.get("/api/search?src=VSB&q=blame&limit=100")
    report.add("memory of atsc-web, after a search and that", "MB",
               receiver.memory("atsc-web") / 1e6)


if __name__ == "__main__":
    sys.exit(main())
