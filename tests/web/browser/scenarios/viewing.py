"""From the first start to the guide, channel changes, several pages, what is said on the screen."""

import os
import signal
import subprocess

from large import CARRIERS, changed as changed_carrier, market
from receiver import AIR, CABLE, ROOT, lineup, until
from scenario import scenario

K5, K9, K22 = 183000000, 479000000, 521000000


@scenario
def first_start_to_the_guide(scene):
    receiver = scene.receiver
    receiver.broadcast(AIR, CABLE)
    receiver.service("--fast", dwell=60)
    receiver.web()
    page = scene.page()

    # The empty list is no dead end: the page offers the scan.
    page.click("first-scan")
    page.click("scan-start")
    page.see("scan-band")
    until(lambda: (receiver.state()["scan"] or {}).get("services", 0) >= 3, "services found")
    # A page that comes in the middle of it shows the scan with what was found before.
    page.reload()
    page.see("scan-stop")
    page.see("[data-test=scan-band] [data-carrier]")
    page.see("scan-services", "12")
    assert len(page.js("return document.querySelectorAll('[data-test=scan-band] [data-rf]')")) == 68
    carriers = page.js("return [...document.querySelectorAll("
                       "'[data-test=scan-band] [data-carrier]')].map(e => e.dataset.rf)")
    assert carriers == ["8", "15", "22", "31"], carriers

    page.go("/")
    page.see("banner-number", "5-1")
    page.see("banner-name", "KÉVA-1")
    page.see("banner-now", "The Long Lock")
    page.see("banner-next", "Little Bobby's Tables: Robert'); DROP TABLE event_t;--")
    page.keys("9", "-", "2", "ENTER")
    page.gone("digits", seconds=1)
    page.see("banner-number", "9-2")
    page.see("banner-name", "Ñandú")
    page.keys("l")
    page.see("banner-number", "5-1")
    page.keys("PAGE_UP")
    page.see("banner-number", "5-2")
    page.keys("l")
    page.see("banner-number", "5-1")

    # The station changes its evening: the guide follows, the page is not loaded anew.
    page.js("window.sameDocument = true")
    page.keys("g")
    page.see("guide-cell", "Harbor Nights")
    page.see("guide-now-line")
    changed = lineup(AIR)
    changed["channels"][0]["guide_version"] = 1
    changed["channels"][0]["services"][0]["programmes"][5]["title"] = "Special Report"
    receiver.change(changed, K5)
    page.see("guide-cell", "Special Report")
    page.gone("guide-cell", "Harbor Nights")
    assert page.js("return window.sameDocument")
    page.type("search", "lock keeper bottle")
    page.click("search-result", "The Long Lock")
    page.see("programme", "A lock keeper finds a message", "TV-14")
    page.keys("ESCAPE")

    # The other source, stopped half-way.
    page.go("/scan")
    page.click("[data-test=scan-source] [data-value=QAM]")
    page.click("scan-start")
    until(lambda: receiver.state()["scan"]["running"], "cable scan")
    page.click("scan-stop")
    until(lambda: receiver.state()["scan"]["stopped"], "end of the cable scan")
    page.see("scan-start")


@scenario
def newcomer(scene):
    """What the README says: scripts/demo --web, the address, the scan, the guide, Ctrl-C."""
    receiver = scene.receiver
    port = receiver.free_port()
    log = os.path.join(receiver.folder, "demo.log")
    with open(log, "wb") as out:
        # Whoever runs the tests in the background has made them deaf to Ctrl-C.
        demo = subprocess.Popen([os.path.join(ROOT, "scripts", "demo"), "--web",
                                 "--port", str(port)],
                                stdout=out, stderr=out, stdin=subprocess.DEVNULL,
                                preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_DFL))
    try:
        until(lambda: demo.poll() is not None or f"{port}/" in receiver.log("demo"),
              lambda: receiver.log("demo"), 100)
        page = scene.page()
        page.click("first-scan")
        page.click("scan-start")
        page.see("scan-services", "12", seconds=30)
        page.keys("g")
        page.see("guide-row", "KÉVA-1")
        page.see("guide-cell")
        scene.forget(page)
    finally:
        demo.send_signal(signal.SIGINT)
        try:
            status = demo.wait(30)
        except subprocess.TimeoutExpired:
            demo.terminate()
            status = f"{demo.wait(30)}, not by Ctrl-C"
    assert status == 0, f"{status}: " + receiver.log("demo")


@scenario
def several_pages(scene):
    receiver = scene.receiver
    receiver.ready()
    # More pages than a browser opens connections to a host.
    pages = [scene.page() for _ in range(7)]
    for page in pages:
        page.see("banner-number", "5-1")
    pages[0].keys("9", "-", "1", "ENTER")
    for page in reversed(pages):
        page.see("banner-number", "9-1")
        page.see("banner-now")
    pages[1].go("/channels")
    pages[2].go("/channels")
    pages[1].click("channel-row", "31-2")
    pages[1].click("channel-skip")
    pages[2].see("[data-test=channel-row][data-skipped]", "31-2")
    # A page that was away gets what it missed; the developer's list shows it once.
    pages[3].go("/developer/callbacks")
    pages[3].see("callback-row", "CHANNEL_PLAY_SUCCESS")
    for page in pages[4:]:
        scene.forget(page)
    pages[0].keys("5", "-", "1", "ENTER")
    pages[3].go("/")
    pages[3].see("banner-number", "5-1")
    # What a page shows first does not wait for news.
    pages[3].reload()
    pages[3].see("banner-number", "5-1", seconds=3)
    # After a search of both sources the channel of before plays.
    receiver.tune(9, 1)
    pages[3].go("/scan")
    pages[3].click("scan-both")
    until(lambda: (receiver.state()["scan"] or {}).get("src") == "QAM"
          and receiver.state()["scan"]["over"], "end of both searches")
    until(lambda: receiver.playing(9, 1) and receiver.state()["source"] == "VSB",
          lambda: receiver.state())
    # A search in the guide follows the source; a programme opens with its own text.
    pages[3].go("/guide")
    pages[3].click("[data-test=guide-source] [data-value=QAM]")
    pages[3].type("search", "harbor")
    pages[3].see("search-result", "Soccer: Harbor City")
    pages[3].click("[data-test=guide-source] [data-value=VSB]")
    pages[3].gone("search-result", "Soccer")
    pages[3].click("search-result", "Harbor Nights")
    pages[3].see("programme", "a ship that is in no register")


@scenario
def said_not_blank(scene):
    """Standby, no signal, no service, another TV application."""
    receiver = scene.receiver
    receiver.broadcast(AIR)
    receiver.service("--fast")
    first = receiver.start("atsc-tv", "watch")
    until(lambda: "waiting for callbacks" in receiver.log("atsc-tv"), "the other TV application")
    receiver.web()
    page = scene.page()
    page.see("other-tv", str(first.pid))
    receiver.stop("atsc-tv")
    page.gone("other-tv")
    until(lambda: receiver.state()["registered"], "registration")
    receiver.scan()
    page.see("banner-number", "5-1")

    receiver.silence("vsb", K9)
    page.keys("9", "-", "1", "ENTER")
    page.see("no-signal", seconds=12)
    page.keys("2", "2", "-", "1", "ENTER")
    page.see("banner-number", "22-1")
    page.gone("no-signal")

    page.go("/settings")
    page.click("standby-on")
    page.go("/")
    page.see("standby")
    page.reload()
    page.see("standby", "channel number", "remote")
    page.click("standby-off")
    page.gone("standby")
    page.see("banner-number", "22-1")

    # The service dies: the page says so, and everything goes on by itself when it is back.
    pid = receiver.processes["atsc-web"].pid
    receiver.kill("atsc-service")
    page.see("no-service")
    receiver.service("--fast")
    page.gone("no-service")
    until(lambda: receiver.state()["playing"] == "playing", lambda: receiver.state())
    page.keys("5", "-", "2", "ENTER")
    page.see("banner-number", "5-2")
    state = receiver.state()
    assert state["registered"] and state["service"]["pid"] == receiver.processes["atsc-service"].pid
    assert receiver.processes["atsc-web"].pid == pid
    changed = lineup(AIR)
    changed["channels"][0]["guide_version"] = 1
    changed["channels"][0]["services"][1]["programmes"][2]["title"] = "After the restart"
    page.go("/guide")
    page.see("guide-row", "5-2")
    for programme in changed["channels"][0]["services"][1]["programmes"]:
        programme["title"] = "After the restart"
    receiver.change(changed, K5)
    page.see("guide-cell", "After the restart")

    # atsc-web itself dies: the page says that too.
    receiver.kill("atsc-web")
    page.see("lost")
    receiver.web()
    page.gone("lost")
    page.see("guide-cell", "After the restart")


@scenario
def four_thousand_channels(scene):
    receiver = scene.receiver
    receiver.ready(*market())
    span = receiver.get("/api/guide/span?src=VSB")
    assert span["programmes"] >= 50000, span
    page = scene.page("/guide")
    page.see("guide-cell", "Show 3 of 0")
    page.gone("guide-cell", "of 4019")
    # Only what can be seen is drawn, wherever one is.
    page.keys("END")
    page.see("guide-row", "S4019")
    page.see("guide-cell", "of 4019")
    drawn = page.js("return document.querySelectorAll('[data-test=guide-cell]').length")
    assert drawn < 1500, drawn
    page.type("search", "episode 7 of 2345")
    page.click("search-result", "Show 7 of 2345")
    page.see("programme", "What happens in episode 7 of 2345, and who is to blame.")
    page.keys("ESCAPE")
    # What changes on the air changes on the page, at the place where one looks.
    receiver.change(changed_carrier(66, "Something else"), CARRIERS[66] * 1000000)
    page.go("/")
    page.go("/guide")
    page.see("guide-row")
    page.keys("END")
    page.see("guide-cell", "Something else", seconds=30)
    page.go("/channels")
    page.type("channel-search", "S3999")
    page.see("channel-row", "S3999")
    page.gone("channel-row", "S0")
