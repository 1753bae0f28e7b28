#!/usr/bin/python3
"""What a screen reader knows of the agent, as a client of the accessibility bus of its own.

reader.py outline            one line for each thing that shows: role, name, states
reader.py act ROLE NAME      does the first action of the control
reader.py listen             "ready", then one line for each thing that happens, until it is ended
"""
import sys

import pyatspi
from gi.repository import GLib

AGENT = "QUORLLoginAgent"
STATES = {pyatspi.STATE_FOCUSED: "focused", pyatspi.STATE_CHECKED: "checked",
          pyatspi.STATE_INVALID_ENTRY: "invalid"}


def children(thing):
    return [child for child in (thing.getChildAtIndex(i) for i in range(thing.childCount)) if child]


def agents():
    return [application for application in children(pyatspi.Registry.getDesktop(0))
            if application.name == AGENT]


# Where the window holds its page, which is in another process, no states are told.
HOLDERS = (pyatspi.ROLE_REDUNDANT_OBJECT, pyatspi.ROLE_FILLER, pyatspi.ROLE_SCROLL_PANE)


def shown(thing, depth=0):
    """What can be seen or heard, with how deep each lies; what has nothing to say is passed over."""
    for child in children(thing):
        if not child.getState().contains(pyatspi.STATE_SHOWING) and child.getRole() not in HOLDERS:
            continue
        speaks = bool(child.name or texts(child))
        if speaks:
            yield child, depth
        yield from shown(child, depth + speaks)


def texts(thing):
    try:
        text = thing.queryText()
        return text.getText(0, -1).replace("\ufffc", "").strip()
    except NotImplementedError:
        return ""


def words(thing):
    said = [thing.getRoleName()]
    said.append(f'"{thing.name}"')
    attributes = dict(entry.split(":", 1) for entry in thing.getAttributes())
    if thing.getRole() == pyatspi.ROLE_HEADING:
        said.append("level " + attributes.get("level", "?"))
    content = texts(thing)
    if content and content != thing.name:
        said.append(f"text {content!r}")
    if thing.description:
        said.append(f"described {thing.description!r}")
    states = thing.getState()
    said += [name for state, name in STATES.items() if states.contains(state)]
    if thing.getRole() in (pyatspi.ROLE_PUSH_BUTTON, pyatspi.ROLE_RADIO_BUTTON) and \
            not states.contains(pyatspi.STATE_SENSITIVE):
        said.append("disabled")
    return " ".join(said)


def outline():
    for agent in agents():
        for thing, depth in shown(agent):
            print("  " * depth + words(thing))


def act(role, name):
    for agent in agents():
        for thing, _ in shown(agent):
            if thing.getRoleName() == role and thing.name == name:
                action = thing.queryAction()
                print("done" if action.doAction(0) else "refused", action.getName(0))
                return
    sys.exit(f"no {role} {name}")


# What is told, and of which events; names change in what is known here by events alone.
TOLD = {"window:create": "comes", "window:destroy": "goes", "object:state-changed:focused": "focus",
        "object:state-changed:showing": "says", "object:property-change:accessible-name": None}


def tell(event):
    name = next(kind for kind in TOLD if event.type.startswith(kind))
    said = TOLD[name]
    try:
        source = event.source
        if not said or (said in ("focus", "says") and not event.detail1) or \
                (said == "says" and source.getRole() != pyatspi.ROLE_NOTIFICATION) or \
                event.host_application.name != AGENT:
            return
        print(said, source.getRoleName(), f'"{source.name}"', flush=True)
    except (AttributeError, RuntimeError, GLib.GError, LookupError):
        pass  # gone by now


def listen():
    pyatspi.Registry.registerEventListener(tell, *TOLD)
    print("ready", flush=True)
    pyatspi.Registry.start()


if __name__ == "__main__":
    globals()[sys.argv[1]](*sys.argv[2:])
