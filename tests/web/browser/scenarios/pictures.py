"""Pictures of every page, for the documents and to look at. Runs only with --pictures DIR.

DIR gets the pictures of the documents; DIR/all, if it exists, each page at each size, dark
and light.
"""

import datetime
import os
import subprocess

from page import SIZES
from receiver import AIR, CABLE, lineup, until
from scenario import scenario
from limits import with_alert

K5 = 183000000
SCHEMES = ("dark", "light")
# The pictures of the documents: page, size, look.
CHOSEN = {
    "screen": ("banner", "tv", "dark"), "guide": ("guide", "tv", "dark"),
    "guide-light": ("guide", "tv", "light"), "programme": ("programme", "tv", "dark"),
    "scan": ("scan", "tv", "dark"), "channels": ("channels", "tv", "light"),
    "parental": ("parental", "tv", "dark"), "alert": ("alert", "tv", "dark"),
    "console": ("console", "tv", "light"), "phone": ("guide", "phone", "dark"),
}


class Album:
    """Takes the pictures of a page in its state."""

    def __init__(self, scene, page):
        self.scene = scene
        self.page = page
        self.evenings = 0
        self.all = os.path.join(scene.pictures, "all")

    def evening(self):
        """Sets the receiver's clock back, so that each picture shows the same minute."""
        self.evenings += 1  # streams with the same start share a clock that runs on
        for start in (f"2026-11-21T18:{self.evenings:02}:00Z",
                      f"2026-11-21T19:05:{self.evenings:02}Z"):
            self.scene.receiver.change(lineup(AIR), K5, start=start)
            until(lambda start=start: self.clock().startswith(start[:16]), f"the clock at {start}")

    def clock(self):
        utc = self.scene.receiver.state()["clock"]["utc"]
        return datetime.datetime.fromtimestamp(utc, datetime.timezone.utc).isoformat()

    def take(self, name, arrange=None):
        for size in SIZES:
            for scheme in SCHEMES:
                chosen = [file for file, which in CHOSEN.items() if which == (name, size, scheme)]
                if not chosen and not os.path.isdir(self.all):
                    continue
                self.page.resize(size, touch=size == "phone")
                self.page.media(prefers_color_scheme=scheme, prefers_reduced_motion="reduce")
                if arrange:
                    arrange()
                self.page.cdp("Input.dispatchMouseEvent", type="mouseMoved", x=2, y=2)
                self.page.later("const done = arguments[0]; document.fonts.ready.then(() =>"
                                "requestAnimationFrame(() => setTimeout(done, 250)));")
                for file in chosen:
                    path = os.path.join(self.scene.pictures, file + ".png")
                    self.page.picture(path)
                    subprocess.run(["pngquant", "--force", "--ext", ".png", path], check=True)
                if os.path.isdir(self.all):
                    self.page.picture(os.path.join(self.all, f"{name}-{size}-{scheme}.png"))


@scenario
def pictures(scene):
    receiver = scene.receiver
    receiver.broadcast(AIR, CABLE)
    receiver.service("--fast", dwell=40)
    receiver.web()
    page = scene.page()
    album = Album(scene, page)
    page.see("first-scan")
    album.take("first-start")
    receiver.scan("QAM")
    page.go("/scan")
    page.click("scan-source-VSB")
    page.click("scan-start")
    until(lambda: ((receiver.state()["scan"] or {}).get("progress") or 0) > 50, "half a scan")
    album.take("scan-running")
    until(lambda: receiver.state()["scan"]["over"], "end of the scan")
    page.see("scan-services", "12")
    album.take("scan")
    receiver.command("FW", "CHANNELMODIFY", src="VSB", major=5, minor=1, type="fav", group=1)
    receiver.command("FW", "CHANNELMODIFY", src="VSB", major=31, minor=2, type="skip")
    receiver.command("FW", "CHANNELMODIFY", src="VSB", major=22, minor=2, type="lock")
    until(lambda: receiver.get("/api/guide/span?src=VSB").get("programmes"), "guide")
    album.evening()
    page.go("/")

    def banner():
        if not page.texts("banner-number"):
            page.keys("i")
        page.see("banner-number", "5-1")

    album.take("banner", banner)
    page.keys("m")
    page.see("menu")
    album.take("menu")
    page.keys("ESCAPE")
    page.go("/guide")
    page.see("guide-cell", "Harbor Nights")
    album.evening()
    album.take("guide", lambda: page.see("guide-cell", "The Long Lock"))
    page.resize("tv")
    page.click("guide-cell", "The Long Lock")
    page.see("programme")
    album.take("programme")
    page.keys("ESCAPE")
    page.type("search", "harbor")
    page.see("search-result")
    album.take("search")
    page.go("/channels")
    page.resize("tv")
    page.click("channel-row", "5-1")
    album.take("channels")
    page.go("/settings")
    page.see("settings")
    album.take("settings")
    page.go("/developer/console")
    page.resize("tv")
    page.click("[data-test=console-command][data-command='SRV GETCUR']")
    page.click("console-send")
    page.see("console-reply", "KÉVA-1")
    album.take("console")
    page.go("/developer/callbacks")
    page.see("callback-row")
    album.take("callbacks")
    page.go("/developer/rows")
    page.see("rows-row")
    album.take("rows")
    page.go("/parental")
    page.resize("tv")
    receiver.post("/api/pin", {"op": "set", "pin": "2468"})
    grant = receiver.post("/api/pin", {"op": "check", "pin": "2468"})["grant"]
    for command in ({"command": "STORERATING", "region": 1, "us": {"tv": 4, "mpaa": 5, "vio": 1},
                     "can": {}, "dwn": []}, {"command": "SETPRTDETAIL", "pc_enable": 1}):
        status, answer = receiver.request("/api/command", {"class": "PC", **command}, X_Grant=grant)
        assert status == 200, answer
    page.see("rating-value", "TV-14")
    album.take("parental")
    page.go("/")
    page.see("block", "TV-14")
    album.take("block")
    page.resize("tv")
    receiver.change(with_alert(1, "Storm surge warning until 9 PM: the river rises. Leave the "
                                  "lower town and the piers at once.", 15, 100), K5)
    page.see("alert")
    album.take("alert")
    receiver.change(with_alert(2, "Road works on Pier 9 tonight: use the bridge.", 3, 100), K5)
    receiver.tune(9, 1)
    receiver.tune(5, 1)
    page.see("alert", "Pier 9")
    album.take("alert-strip")
    receiver.tune(9, 1)
    receiver.command("FW", "POWERDOWN", powerdown=True)
    page.see("standby")
    album.take("standby")
