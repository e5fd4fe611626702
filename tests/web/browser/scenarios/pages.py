"""Every page: hostile texts, keyboard, phone, accessibility; what the developer's pages do."""

import os

from receiver import AIR, until
from scenario import scenario

VIEWS = ["/", "/guide", "/scan", "/channels", "/parental", "/settings", "/developer/callbacks",
         "/developer/console", "/developer/rows", "/developer/start"]


@scenario
def hostile_names(scene):
    receiver = scene.receiver
    receiver.ready("hostile", start="2026-11-21T20:05:00Z")
    image = '<img src=x onerror="window.hacked=1">'
    receiver.command("FW", "CHANNELADD", src="VSB", major=66, minor=6, freq=183000000,
                     name="<img onerror=a src=>")
    page = scene.page()

    def sound(where):
        faults = page.js("""
            return [window.hacked,
                document.querySelector('svg[onload], img[src="x"], bdi h1, bdi b'),
                document.body.innerText.match(/[\\u202a-\\u202e\\u2066-\\u2069]/)]""")
        assert faults == [None, None, None], (where, faults)

    page.see("banner-name", "<b>\"'&")
    page.see("banner-now", image)
    sound("banner")
    page.see("alert", image, "<script>hacked=1</script>")
    page.keys("5", "-", "2", "ENTER")
    page.see("banner-now", "javascript:hacked=1")
    page.see("banner-next", "\U0001f3ac </bdi></button><h1>big</h1>")
    page.go("/guide")
    for title in (image, "\"double\" 'single' `back` &amp; ${hacked}",
                  "</bdi></button><h1>big</h1>"):
        page.see("guide-cell", title)
    page.see("guide-row", "<img onerror=a src=>")
    sound("guide")
    page.type("search", "éé")
    page.click("search-result", "Long")
    assert page.see("programme", "<end>").count("é") == 3990
    sound("programme")
    page.keys("ESCAPE")
    for path, name, words in (
            ("/channels", "channel-row", ["<b>\"'&", "<img onerror=a src=>"]),
            ("/parental", "region-tab", ["<svg onload=hacked=1>"]),
            ("/developer/callbacks", "callback-row", [image]),
            ("/developer/rows", "main", ["<img onerror=a src=>"])):
        page.go(path)
        page.see(name, *words)
        if path == "/parental":
            page.click("region-tab", words[0])
            page.see("main", "<b>Age</b>", "<6>")
        sound(path)


@scenario
def keyboard_alone(scene):
    receiver = scene.receiver
    receiver.broadcast(AIR)
    receiver.service("--fast")
    receiver.web()
    page = scene.page()

    def walk(word, key="ARROW_DOWN", most=25):
        """Presses a key until the focus is on what has that word."""
        for _ in range(most):
            if word in page.focused():
                return
            page.keys(key)
        raise AssertionError(f"{key} does not lead to {word}; at {page.focused()!r}")

    def within(name):
        """The focus is in what has just opened, and can be seen."""
        until(lambda: page.js("return document.activeElement.matches(`[data-test=${arguments[0]}],"
                              "[data-test=${arguments[0]}] :focus-visible`)", name),
              lambda: f"the focus in {name}; at {page.focused()!r}")

    page.see("first-scan")
    walk("first-scan")
    page.keys("ENTER")
    page.see("scan-start")
    walk("scan-start", most=1)
    page.keys("ENTER")
    page.see("scan-services", "12")
    page.keys("ESCAPE")
    page.see("banner-number", "5-1")
    page.keys("ARROW_UP")
    page.see("banner-number", "5-2")
    page.keys("ARROW_DOWN")
    page.see("banner-number", "5-1")
    page.keys("3", "1", "-", "1", "ENTER")
    page.see("banner-number", "31-1")

    page.keys("g")
    page.see("guide-cell")
    within("guide")
    page.keys("ARROW_UP", "ARROW_RIGHT", "ENTER")
    page.see("programme")
    within("programme")
    page.keys("ESCAPE")
    page.gone("programme")
    within("guide")
    page.keys("ESCAPE", "m")
    page.see("menu")
    within("menu")
    walk("Settings")
    page.keys("ENTER")
    page.see("settings")
    walk("zone")
    page.keys("ESCAPE")
    page.keys("m")
    page.see("menu")
    page.keys("ESCAPE")
    page.gone("menu")


@scenario
def phone_with_a_finger(scene):
    receiver = scene.receiver
    receiver.ready()
    page = scene.page()
    page.resize("phone", touch=True)
    page.reload()
    page.see("banner-number", "5-1")
    page.tap("remote-open")
    page.tap("remote-up")
    page.see("banner-number", "5-2")
    page.keys("ESCAPE")
    for view in VIEWS:
        page.go(view)
        page.see("main")
        wide = page.js("return Math.max(...['html', 'body', '#view'].map("
                       "    (name) => document.querySelector(name).scrollWidth))")
        assert wide <= 390, f"{view} is {wide} pixels wide"
    page.go("/guide")
    page.tap("guide-cell", "The Long Lock")
    page.see("programme", "TV-14")
    page.tap("programme-play")
    page.see("banner-number", "5-1")


@scenario
def every_page_named_and_readable(scene):
    receiver = scene.receiver
    receiver.ready()
    page = scene.page()
    faults = []
    for scheme in ("dark", "light"):
        page.media(prefers_color_scheme=scheme, prefers_reduced_motion="reduce")
        for view in VIEWS:
            page.go(view)
            page.see("main")
            faults += page.axe(f"{scheme} {view}")
        page.go("/guide")
        page.click("guide-cell", "The Long Lock")
        page.see("programme")
        faults += page.axe(f"{scheme} programme")
        page.keys("ESCAPE")
        page.keys("m")
        page.see("menu")
        faults += page.axe(f"{scheme} menu")
        page.keys("ESCAPE")
    assert not faults, "\n".join(faults)


@scenario
def for_developers(scene):
    receiver = scene.receiver
    receiver.ready()
    page = scene.page("/developer/console")
    page.click("console-command", "SRV GETCUR")
    page.click("console-send")
    page.see("console-reply", '"chn_name"', "KÉVA-1")
    page.type("console-text", "no json")
    page.click("console-send")
    page.see("console-reply", "-1", "not valid JSON")
    page.type("console-text", '{"class":"FW","command":"PALY"}')
    page.click("console-send")
    page.see("console-reply", "FW has no command “PALY”")
    page.type("console-text", '{"class":"CC","command":"get_sar"')
    page.see(".dev-about", "get_sar")
    page.go("/developer/callbacks")
    receiver.tune(9, 1)
    page.see("callback-row", "CHANNEL_PLAY_SUCCESS")
    page.type("callback-filter", "EPG_")
    page.gone("callback-row", "CHANNEL_PLAY_SUCCESS")
    for text in ("GPS_UTC_Offset 18", '"GPS_UTC_Offset": 18, "System', "18 · DS_Status 0"):
        page.type("callback-filter", text)
        page.see("callback-row", "STT_UPDATE_EVENT")
        page.gone("callback-row", "EPG_")
    page.go("/developer/rows")
    page.see("main", "channel_data_t", "KÉVA-1")
    page.see("[data-test=rows-first][aria-disabled=true]")
    page.go("/developer/start")
    page.see("main", "ATSC_RegisterTVServerBackend", "ch_id_pk")
    scene.forget(page)

    # Without the console neither the page nor the server takes raw commands.
    receiver.stop("atsc-web")
    receiver.web("--no-console")
    page = scene.page("/developer/console")
    page.see("main")
    page.see("console-off")
    page.gone("[data-test=console-send]:enabled")
    status, answer = receiver.request("/api/console", b'{"class":"PC","command":"RESET"}')
    assert (status, answer["error"]) == (403, "console")

    # With a token the page asks once, and the browser keeps it.
    scene.forget(page)
    receiver.stop("atsc-web")
    token = os.path.join(receiver.folder, "token")
    with open(os.open(token, os.O_CREAT | os.O_WRONLY, 0o600), "w", encoding="utf-8") as file:
        file.write("a-secret-of-the-house")
    receiver.web("--token-file", token)
    page = scene.page()
    page.type(".login input", "not the secret")
    page.keys("ENTER")
    page.see(".login-message")
    page.type(".login input", "a-secret-of-the-house")
    page.keys("ENTER")
    page.see("banner-number")
    scene.page("/guide").see("guide-cell")
