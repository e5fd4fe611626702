"""The list of scenarios."""

registered = {}


def scenario(function):
    """Marks a function as a scenario; it gets a Scene of run.py."""
    registered[function.__name__.replace("_", "-")] = function
    return function
