"""The offline page and the error page in a web view, by the scripts that the agent sends."""
import contextlib
import functools
import json
import os
import pathlib
import plistlib
import subprocess
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
PAGE = ROOT / "resources/offlineMFA/OfflineMFA.htm"
LANGUAGES = sorted(folder.name.removesuffix(".lproj") for folder in ROOT.glob("resources/*.lproj"))
STATIC_TEXTS = ["HTML_T1", "HTML_T4", "HTML_T5", "HTML_T6", "HTML_BUTTON_CANCEL",
                "HTML_BUTTON_CONTINUE", "HTML_BUTTON_NEXT", "ERRORMSG_SESSIONEXP2",
                "ERRORMSG_SESSIONEXP1", "LIMIT_RESET_MSG"]


@functools.cache
def error_pages():
    """By language and view, the scripts that draw the error page."""
    program = os.environ.get("ERROR_PAGE_SCRIPTS", ROOT / "build/release/bin/error_page_scripts")
    return json.loads(subprocess.check_output([program, pathlib.Path(program).parents[1] / "resources"]))


def texts(language):
    with open(ROOT / f"resources/{language}.lproj/Localizable.strings", "rb") as table:
        return plistlib.load(table)


@contextlib.contextmanager
def screen(size="1280x800"):
    """An X screen of its own, without window manager."""
    read, write = os.pipe()
    server = subprocess.Popen(["Xvfb", "-displayfd", str(write), "-screen", "0", size + "x24",
                               "-nolisten", "tcp", "-noreset"], pass_fds=[write],
                              stderr=subprocess.DEVNULL)
    os.close(write)
    try:
        os.environ["DISPLAY"] = ":" + os.read(read, 16).decode().strip()
        yield
    finally:
        server.terminate()
        server.wait()


class PageStage:
    """One window with the page. Import it only once a screen is there."""

    def __init__(self, size=(1280, 800), scale=1):
        os.environ.setdefault("DBUS_SESSION_BUS_ADDRESS", "disabled:")
        os.environ["NO_AT_BRIDGE"] = "1"
        os.environ["GDK_SCALE"] = str(scale)
        import gi
        for name in ("Gdk", "GdkX11", "Gtk"):
            gi.require_version(name, "3.0")
        gi.require_version("WebKit2", "4.1")
        from gi.repository import GdkX11, GLib, Gtk, WebKit2  # GdkX11 gives windows their X id
        self.glib, self.webkit = GLib, WebKit2
        self.settings = Gtk.Settings.get_default()
        self.settings.set_property("gtk-enable-animations", False)
        content = WebKit2.UserContentManager()
        content.connect("script-message-received::MACLoginAgent", self._on_message)
        content.register_script_message_handler("MACLoginAgent")
        content.connect("script-message-received::reader", self._on_words)
        content.register_script_message_handler("reader")
        self.view = WebKit2.WebView(user_content_manager=content)
        web = self.view.get_settings()
        web.set_hardware_acceleration_policy(WebKit2.HardwareAccelerationPolicy.NEVER)
        web.set_javascript_can_access_clipboard(True)
        web.set_minimum_font_size(14)
        self.window = Gtk.Window(type=Gtk.WindowType.TOPLEVEL)
        self.window.add(self.view)
        self.window.resize(*size)
        self.window.show_all()
        self.messages = []
        self.said = []
        self.answer = lambda message: None

    def look(self, size, theme="light", text_scale=1.0):
        """Size of the window in points, theme (light, dark, contrast), text scaling."""
        self.settings.set_property("gtk-theme-name",
                                   "HighContrast" if theme == "contrast" else "Adwaita")
        self.settings.set_property("gtk-application-prefer-dark-theme", theme == "dark")
        self.settings.set_property("gtk-xft-dpi", int(96 * 1024 * text_scale))
        self.window.resize(*size)
        fits = lambda: self.script("return innerWidth") == int(size[0] / text_scale)
        query = {"light": "not (prefers-color-scheme: dark)", "dark": "(prefers-color-scheme: dark)",
                 "contrast": "(prefers-contrast: more)"}[theme]
        themed = lambda: self.script(f"return matchMedia('{query}').matches")
        assert self.spin(10, lambda: fits() and themed()), (size, theme, text_scale)

    def _on_message(self, _, result):
        message = json.loads(result.get_js_value().to_string())
        self.messages.append(message)
        self.answer(message)

    def _on_words(self, _, result):
        words = json.loads(result.get_js_value().to_json(0))
        self.said.append(words["words"] + (" (once)" if words["once"] else ""))

    def keys(self, number, *words):
        """Has xdotool press that many keys, and waits until the page saw them let go."""
        before = self.script("return released")
        subprocess.run(["xdotool", "windowfocus", str(self.window.get_window().get_xid()), *words],
                       check=True)
        assert self.spin(20, lambda: self.script("return released") >= before + number), words
        self.spin(0.1)

    def type(self, text):
        self.keys(len(text), "type", "--delay", "8", "--", text)

    def press(self, *names):
        self.keys(len(names), "key", *names)

    def enter(self, code):
        """The code and Return in one go, without a look at the page between them."""
        self.press(*code, "Return")

    def spin(self, seconds=0.0, until=None):
        """Runs the main loop that long, or until the condition holds; answers whether it does."""
        deadline = time.monotonic() + seconds
        context = self.glib.MainContext.default()
        while not (until and until()):
            if time.monotonic() >= deadline:
                return False
            if not context.iteration(False):
                time.sleep(0.002)
        return True

    def script(self, source):
        """Evaluates a script and gives its value."""
        done = []
        self.view.evaluate_javascript(f"JSON.stringify((() => {{ {source} }})())", -1, None, None,
                                      None, lambda view, task: done.append(
                                          view.evaluate_javascript_finish(task).to_string()))
        assert self.spin(20, lambda: done), source
        return json.loads(done[0]) if done[0] != "undefined" else None

    def run(self, source):
        """Hands over one of the agent's own scripts, which works in the page's global scope."""
        done = []
        self.view.evaluate_javascript(source + ";undefined", -1, None, None, None,
                                      lambda view, task: done.append(
                                          view.evaluate_javascript_finish(task)))
        assert self.spin(20, lambda: done), source

    def put(self, element, text):
        self.run(f"document.getElementById('{element}').innerHTML = '{text}';")

    def unhide(self, element):
        self.run(f"document.getElementById('{element}').removeAttribute('class');")

    def show(self, view, language="en", limit=("LIMIT_ATTEMPTS", 5), serial="", user="ada.lovelace",
             domain="EXAMPLE", digits=6, names=("Authenticator app", "Security token")):
        """Loads the page and fills it: verify, alert, wait, choose or expired."""
        self.load(PAGE.as_uri())
        self.run("var released = 0; addEventListener('keyup', () => { ++released; }, true)")
        self.messages.clear()
        self.said.clear()
        table = texts(language)
        say = lambda key: table["IDS_MFA_OFFLINE_" + key]
        self.put("USERNAME", user)
        self.put("DOMAINNAME", f"({domain})")
        timer = (ROOT / "tests/data/offline-page/timer.js").read_text()
        timer = timer.replace("Time is up", say("ERRORMSG_SESSIONEXP1"))
        timer = timer.replace("Start again", say("ERRORMSG_SESSIONEXP2"))
        if view == "choose":
            rows = (ROOT / "tests/data/offline-page/rows.html").read_text().splitlines()
            for place, name in enumerate(names):
                # The stored rows are those of three methods called App, Token and Phone.
                row = rows[place].replace(("App", "Token", "Phone")[place], name)
                self.run("document.getElementById('RADIOGROUP').insertAdjacentHTML('beforeEnd', "
                         f"'{row}');")
            self.run(timer)
            self.unhide("CHOOSETAB")
        else:
            if limit:
                self.put("LIMIT_TYPE", say(limit[0]))
                self.unhide("SHOW_LIMIT")
                self.put("LIMIT_VALUE", limit[1])
                timer += 'addClass(document.getElementById("LIMIT_VALUE"), "text-danger");'
            self.put("T2", say("HTML_T2").replace("%TYPE%", names[0]))
            self.unhide("AUTHTAB")
            self.run(timer)
            hint = say("HTML_HARDWARE_TOKEN_DESC") if serial else say("HTML_T3")
            self.put("T3", hint.replace("%SERIAL_NUMBER%", serial))
            self.run('document.getElementById("PASSCODE").focus(); '
                     f'document.getElementById("PASSCODE").setAttribute("maxlength",{digits} );')
        static = {"IDS_MFA_OFFLINE_" + key: say(key) for key in STATIC_TEXTS}
        self.run(f"var i18nText = {json.dumps(static)};loadResources();")
        if view in ("alert", "wait"):
            self.refuse(language)
        if view == "wait":
            self.run("rest(30)")
        if view == "expired":
            help_line = {"label": table["IDS_HELP_LABEL"], "text": "Service <b>desk</b>: 555 0100"}
            self.run(f"setHelp({json.dumps(help_line)})")
            self.run("minutes = 0; sessionTimeOut()")

    def load(self, url):
        loaded = []
        handler = self.view.connect("load-changed", lambda _, event: loaded.append(event)
                                    if event == self.webkit.LoadEvent.FINISHED else None)
        self.view.load_uri(url)
        assert self.spin(20, lambda: loaded)
        self.view.disconnect(handler)

    def show_error(self, view, language="en"):
        self.load("about:blank")
        for script in error_pages()[language][view]:
            self.run(script)

    def refuse(self, language="en"):
        """The agent's answer to a wrong code."""
        self.run("document.getElementById('PASSCODE').value='';")
        self.put("ALERTDATA", texts(language)["IDS_MFA_OFFLINE_ERRORMSG_OTP"])
        self.unhide("ALERT")

    def picture(self):
        """What the view shows, as a cairo surface."""
        done = []
        self.view.get_snapshot(self.webkit.SnapshotRegion.VISIBLE, self.webkit.SnapshotOptions.NONE,
                               None, lambda view, task: done.append(view.get_snapshot_finish(task)))
        assert self.spin(20, lambda: done)
        return done[0]
