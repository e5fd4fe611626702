"""Parental control in the page: what it stores in the receiver."""

from receiver import AIR, until
from scenario import scenario

US = ("tv", "dia", "lan", "sex", "vio", "child", "mpaa")

# Of each preset, by its age (0 for adults): the limits of regions 1 and 2, and the blocked values
# of the ages of region 5 (All, 6, 12, 18).
PRESETS = {
    6: ((3, 1, 1, 1, 1, 2, 3), (2, 2), (3, 4)),
    8: ((3, 1, 1, 1, 1, 3, 3), (4, 3), (3, 4)),
    10: ((4, 0, 0, 1, 1, 0, 4), (5, 3), (3, 4)),
    17: ((0, 0, 0, 0, 0, 0, 6), (6, 5), (4,)),
    13: ((4, 0, 0, 0, 0, 0, 5), (5, 4), (4,)),
    14: ((5, 0, 0, 0, 0, 0, 5), (6, 4), (4,)),
    0: ((0, 0, 0, 0, 0, 0, 0), (0, 0), ()),
}


def limits(receiver):
    def ratings(region):
        return receiver.command("PC", "RETREIVERATING", region=region)["reply"]

    us, canada, other = ratings(1)["us"], ratings(2)["can"], ratings(5)["dwn"][0]
    return (tuple(us[name] for name in US), (canada["eng"], canada["fra"]),
            tuple(value for value, blocked in enumerate(other) if blocked))


def pressed(page):
    """The ratings that the matrix shows as blocked."""
    return page.js("return [...document.querySelectorAll('[data-test=rating-value]"
                   "[aria-pressed=true] .pc-name')].map(e => e.textContent).join(' ')")


@scenario
def parental_presets(scene):
    receiver = scene.receiver
    receiver.ready(AIR)
    until(lambda: receiver.command("PC", "GETREGION")["reply"]["regions"] == 3, "three regions")
    page = scene.page("/parental")
    for age, wanted in PRESETS.items():
        page.click(f'[data-test="preset"][data-age="{age}"]')
        if age == 6:
            page.see("pin-new")
            page.keys("ESCAPE")  # without a PIN for now
        until(lambda: limits(receiver) == wanted,  # pylint: disable=cell-var-from-loop
              lambda: f"{age}: {limits(receiver)}")
        page.see(f'[data-age="{age}"][aria-pressed="true"]')
    assert receiver.command("PC", "GETPRTDETAIL")["reply"]["pc_enable"] == 1

    # One level with those above it, and back; a value that another one keeps; a group.
    for value, blocked in (("TV-PG", "TV-PG TV-14 TV-MA"), ("TV-14", "TV-MA"), ("TV-MA", ""),
                           ("TV-Y7", "FV TV-Y7"), ("FV", "FV TV-Y7"), ("TV-Y7", ""), ("NR", "NR")):
        page.click("rating-value", value)
        until(lambda: pressed(page) == blocked,  # pylint: disable=cell-var-from-loop
              lambda: f"{value}: {pressed(page)}")
        if value == "FV":
            page.see("toast", "Allow TV-Y7 first")
    # Another program changes a limit.
    receiver.command("PC", "STORERATING", region=1, us={"vio": 1}, can={}, dwn=[])
    until(lambda: pressed(page) == "V NR", lambda: pressed(page))
