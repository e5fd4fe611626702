"""A market of 4,020 channels with 50,000 programmes and more, which no sample lineup describes."""

# The carriers: centre frequencies of RF 2 to 69 in MHz.
CARRIERS = [57, 63, 69, 79, 85, *range(177, 214, 6), *range(473, 804, 6)]
SERVICES = 60
GENRES = ["news", "drama", "movie", "sports"]


def _service(number, index):
    return {
        "program": index + 1, "pmt_pid": 32 + index * 4, "major": number // SERVICES + 2,
        "minor": index + 1, "name": f"S{number}",
        "source_id": number + 1 if number < 4000 else number + 100,
        "guide_offset": number * 7 % 60,
        "programmes": [{"minutes": 110, "title": f"Show {show} of {number}",
                        "description": f"What happens in episode {show} of {number}, "
                                       "and who is to blame.",
                        "genres": [GENRES[number % 4]]} for show in range(12)],
        "streams": [{"type": "mpeg2-video", "pid": 33 + index * 4},
                    {"type": "ac3", "pid": 34 + index * 4, "language": "eng"}]}


def carrier(index, guide_version=0):
    return {"frequency": CARRIERS[index] * 1000000, "tsid": index + 1,
            "guide_version": guide_version,
            "services": [_service(index * SERVICES + service, service)
                         for service in range(SERVICES)]}


def market(carriers=67):
    """Lineups of the market, each small enough for psipmux."""
    channels = [carrier(index) for index in range(carriers)]
    return [{"medium": "air", "guide_hours": 24, "channels": channels[first:first + 8]}
            for first in range(0, carriers, 8)]


def changed(index, title):
    """The lineup of one carrier, with other titles."""
    one = carrier(index, guide_version=1)
    for service in one["services"]:
        for programme in service["programmes"]:
            programme["title"] = title
    return {"medium": "air", "guide_hours": 24, "channels": [one]}
