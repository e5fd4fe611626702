"""The channel list as a viewer edits it, and what the guide shows of it."""

from receiver import until
from scenario import scenario


@scenario
def channel_list_edited(scene):
    receiver = scene.receiver
    receiver.ready()
    page = scene.page("/channels")

    def row(number):
        return next(each for each in receiver.get("/api/channels?src=VSB")["channels"]
                    if each["number"] == number)

    page.click("channel-row", "9-2")
    page.click("channel-fav-3")
    until(lambda: row("9-2")["fav"] == 0x10 << 2, lambda: row("9-2"))
    page.type("channel-name", "Noticias y más")
    page.click("channel-rename")
    page.see("channel-row", "Noticias y más")
    page.click("channel-lock")
    page.see("pin-new")  # the first lock needs a PIN
    page.keys("ESCAPE")
    until(lambda: row("9-2")["flags"] & 4, lambda: row("9-2"))
    page.click("channel-row", "5-3")
    page.click("channel-delete")
    until(lambda: row("5-3")["flags"] & 0x20, lambda: row("5-3"))
    page.click("channel-add")
    for name, value in (("major", "66"), ("minor", "6"), ("rf", "8"), ("name", "By hand")):
        page.type("add-" + name, value)
    page.click("add-save")
    page.see("channel-row", "By hand")
    assert row("66-6")["manual"] and row("66-6")["freq"] == 183000000, row("66-6")

    # The guide: one favourite group, one genre, the other source.
    page.go("/guide")
    page.see("guide-row", "Noticias y más")
    page.gone("guide-row", "5-3")
    page.click("guide-group")
    page.click("[data-test=option][data-value='3']")
    page.gone("guide-row", "5-1")
    assert len(page.texts("guide-row")) == 1, page.texts("guide-row")
    # A search has the same limits.
    page.type("search", "tranvia")
    page.see("search-result", "9-2")
    page.type("search", "harbor")
    page.see(".results .virtual-empty", "harbor", "Antenna", "Favourites 3")
    page.keys("ESCAPE")
    page.click("guide-group")
    page.click("[data-test=option][data-value='0']")
    page.see("guide-row", "5-1")
    page.click("guide-genre")
    page.click("option", "Sports")
    page.gone("guide-row", "5-2")
    page.see("guide-row", "9-1")
    page.click("guide-genre")
    page.click("[data-test=option][data-value='0']")
    page.click("[data-test=guide-source] [data-value=QAM]")
    page.gone("guide-row", "5-1")

    # Everything goes; the screen offers the scan again.
    page.go("/channels")
    page.click("channel-reset")
    page.click("[data-test=dialog] .danger")
    until(lambda: not receiver.get("/api/channels?src=VSB")["channels"], "an empty list")
    page.go("/")
    page.see("first-scan")
