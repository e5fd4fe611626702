"""Parental control and emergency alerts."""

from receiver import AIR, EVENING, lineup, until
from scenario import scenario

K5, K9 = 183000000, 479000000


def with_alert(sequence, text, priority, seconds):
    changed = lineup(AIR)
    changed["channels"][0]["alerts"] = [{
        "sequence": sequence, "originator": "CIV", "event_code": "CAE", "text": text,
        "priority": priority, "time_remaining": seconds, "locations": [{"state": 0}]}]
    return changed


@scenario
def parental_limit(scene):
    receiver = scene.receiver
    receiver.ready(AIR, start="2026-11-21T18:50:00Z")
    page = scene.page()
    page.see("banner-now", "The Council Live")

    page.go("/parental")
    page.click("parental-pin")
    page.pin("2468", "pin-new")
    page.pin("2468", "pin-repeat")
    page.gone("pin-repeat")
    # Who has just chosen it is not asked again.
    page.click("rating-value", "TV-14")
    until(lambda: receiver.command("PC", "RETREIVERATING", region=1)["reply"]["us"]["tv"] == 4,
          lambda: receiver.command("PC", "RETREIVERATING", region=1))
    # The first limit switches parental control on.
    until(lambda: receiver.command("PC", "GETPRTDETAIL")["reply"]["pc_enable"] == 1,
          "limits applied")
    page.type("check-rating", "TV-MA")
    page.click("check-send")
    page.see("check-result", "blocked")
    page.go("/guide")
    until(lambda: "The Long Lock" in page.text("[data-blocked=true]"), "a mark in the guide")

    # Blocked at the boundary: the clock moves to three seconds before it.
    page.go("/")
    receiver.change(lineup(AIR), K5, start="2026-11-21T18:59:57Z")
    page.see("block", "The Long Lock", "TV-14")
    # A page that comes later, with no grant, asks the same.
    other = scene.page()
    other.see("block", "TV-14")
    for wrong in ("1111", "2222", "3333"):
        other.pin(wrong)
        other.see("pin-error", "Wrong")
    assert receiver.state()["pin"]["wait"] > 0, receiver.state()["pin"]
    # A guess during the wait is no guess, even if it is right; no other way leads past.
    assert receiver.post("/api/pin", {"op": "unlock", "pin": "2468"})["ok"] is False
    for command in ({"class": "PC", "command": "PWDUNLOCK", "lock_status": 1},
                    {"class": "FW", "command": "CHANNELCHANGE", "input": "VSB", "major": 5,
                     "minor": 1, "password_reqd": False},
                    {"class": "PC", "command": "RESET"}):
        status, answer = receiver.request("/api/command", command)
        assert (status, answer["error"]) == (403, "pin"), (command, status, answer)
    other.see("block")
    until(lambda: receiver.state()["pin"]["wait"] == 0, "end of the wait", 40)
    other.pin("2468")
    other.gone("block")
    page.gone("block")
    page.see("banner-now", "The Long Lock")

    # A locked channel asks too, with its own reason.
    receiver.change(lineup(AIR), K5, start=EVENING)
    receiver.command("FW", "CHANNELMODIFY", src="VSB", major=9, minor=3, type="lock")
    other.keys("9", "-", "3", "ENTER")
    other.see("block")
    assert receiver.state()["block"]["kind"] == "locked"
    # What has a dash is a channel number; what was too short is not the beginning of the next try.
    other.see("block", "Escape", "dash")
    other.keys("2", "2", "ENTER")
    other.see("pin-error", "four to eight")
    other.keys("2", "2", "-", "1", "ENTER")
    other.see("banner-number", "22-1")
    other.keys("l")
    other.see("block")
    other.pin("2468")
    other.gone("block")


@scenario
def both_kinds_of_alert(scene):
    receiver = scene.receiver
    receiver.ready(AIR)
    page = scene.page()
    page.see("banner-number", "5-1")
    text = "The river rises. Leave the lower town."
    receiver.change(with_alert(1, text, 15, 8), K5)
    page.see("alert", text)
    width, height = page.js("const b = document.querySelector('[data-test=alert]')"
                            ".getBoundingClientRect(); return [b.width, b.height]")
    assert (width, height) == (1280, 720), "a blocking alert covers the screen"
    # It stays through a reload, on every view, and lets nothing pass.
    page.reload()
    page.see("alert", text)
    page.go("/guide")
    page.see("alert", text)
    top = page.js("return document.elementFromPoint(640, 400)"
                  ".closest('[data-test=alert]') !== null")
    assert top, "something lies above the alert"
    page.gone("alert")
    page.see("guide-row", "5-1")

    receiver.change(with_alert(2, "Road works on Pier 9.", 3, 4), K5)
    page.see("alert", "Road works on Pier 9.")
    box = page.js("const b = document.querySelector('[data-test=alert]').getBoundingClientRect();"
                  "return [b.top, b.height]")
    assert box[0] < 10 and box[1] < 240, f"runs along the top: {box}"
    page.reload()
    page.see("alert", "Road works on Pier 9.")
    page.see("guide-row", "5-1")
    page.gone("alert")
    # Only wanted alerts are shown.
    page.go("/settings")
    page.click("alerts-wanted")
    page.click("[data-test=option][data-value='3']")
    until(lambda: receiver.command("EAS", "EASUSERSETTING", op="get")["reply"]["setting"] == 3,
          "the setting")
    receiver.change(with_alert(3, "Unwanted.", 7, 4), K5)
    receiver.change(with_alert(4, "Wanted.", 15, 4), K5)
    page.see("alert", "Wanted.")
    page.gone("alert")
