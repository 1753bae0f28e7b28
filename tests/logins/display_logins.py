"""Greeters on a second display while the first has a session: switching users, and the end of such an X
server. The agent goes where the greeter is."""

import os
import pwd
import time

from machine import agents, processes, run, text_of, wait_for
from terminal import Failed

# What LightDM's log holds for each greeter that it lets the agent come with.
START = 'quorl-greeter start; exit 0"\n'
SEAT = "/org/freedesktop/DisplayManager/Seat0"


def agents_display():
    """Of the one agent that runs; nothing when none does."""
    running = agents()
    if len(running) > 1:
        raise Failed(f"{len(running)} agents at once")
    found = [entry for pid in running for entry in text_of(f"/proc/{pid}/environ").split("\0")
             if entry.startswith("DISPLAY=")]
    return found[0].split("=")[1] if found else None


def x_servers():
    """Displays by the process of their X server."""
    return {text_of(f"/proc/{pid}/cmdline").split("\0")[1]: pid for pid in processes("Xvfb")}


def switch_to_greeter(logins, times):
    """As a session's menu does it; then the new greeter's display is the one that is typed at."""
    before = x_servers()
    run("env", f"XDG_SEAT_PATH={SEAT}", "dm-tool", "switch-to-greeter")
    display = wait_for("another X server", lambda: next((d for d in x_servers() if d not in before), None))
    logins._on(display)
    logins._log_has("Greeter connected", times)
    wait_for(f"the agent on {display}", lambda: agents_display() == display)
    logins._wait_for_greeter()
    return display


def session_owners():
    return {pwd.getpwuid(os.stat(f"/proc/{pid}").st_uid).pw_name for pid in processes("probe")}


def ends_in_order(do):
    """What is done ends the agent, which takes its leave as it should."""
    agent = agents()[0]
    do()
    wait_for("the agent's end", lambda: agent not in agents(), 10)
    status = wait_for("the agent's status", lambda: text_of("/run/agent.status") or text_of("/run/agent.before"), 10)
    if status.strip() != "0":
        raise Failed(f"the agent ended with status {status}")


def comes_with_greeters_alone(logins, greeters, seconds=3):
    """LightDM may bring another greeter, and that the agent; nothing else does."""
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        display = agents_display()
        if display and (display not in x_servers() or logins._log().count(START) < greeters + 1):
            raise Failed(f"the agent is back by itself, on {display}")
        time.sleep(0.1)


def switched(logins):
    """Two people, each with a session on a display of their own, let in by one agent after another."""
    first, second = logins.machine.person(), logins.machine.person()
    logins._log_in(first)
    display = switch_to_greeter(logins, 2)
    logins._show("second greeter")
    logins._log_in(second, pages=2, others=[first])
    shown = text_of(f"/var/tmp/sessions/{second}").strip()
    if shown != display or text_of(f"/var/tmp/sessions/{first}").strip() == display:
        raise Failed(f"the second session is on {shown}")
    return f"second session on {display}"


def greeter_gone(logins):
    """The second greeter's X server goes; the session on the first display goes on, without an agent."""
    first = logins.machine.person()
    logins._log_in(first)
    display = switch_to_greeter(logins, 2)
    ends_in_order(lambda: os.kill(x_servers()[display], 9))
    comes_with_greeters_alone(logins, 2)
    if session_owners() != {first}:
        raise Failed(f"sessions of {session_owners()}")


def display_cases(logins):
    return (("lightdm: users switched", switched, logins),
            ("lightdm: second greeter gone", greeter_gone, logins))
