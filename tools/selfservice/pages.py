"""The pages: the MFA page, the self-service page, and pages on which tests try what a page may do."""

import html
import json
import pathlib
import string
import time

from .messages import Reply, json_reply, redirect

FOLDER = pathlib.Path(__file__).parent / "pages"


def page(name, **values):
    """A page from its file, in the common frame; values are put in as text, never as markup."""
    frame = string.Template((FOLDER / "frame.html").read_text(encoding="utf-8"))
    content = string.Template((FOLDER / f"{name}.html").read_text(encoding="utf-8"))
    escaped = {key: html.escape(str(value)) for key, value in values.items()}
    return Reply(frame.substitute(content=content.safe_substitute(escaped)).encode())


class Pages:
    def __init__(self, directory, context_path):
        self._directory = directory
        self._context_path = context_path

    def routes(self):
        return {
            "/": lambda _request: page("index"),
            "/mfa/verify": self.verify,
            "/mfa/check": self.check,
            "/AgentPasswordSelfService.cc": self.self_service,
            "/page/echo": self.echo,
            "/page/files": lambda _request: page("files"),
            "/page/ways-out": lambda _request: page("ways_out"),
            "/page/popup": lambda _request: page("popup"),
            "/page/download": self.download,
            "/page/cookies": self.cookies,
            "/page/post": self.post_message,
            "/page/slow": self.slow,
            "/redirect": self.redirect,
            "/reply": lambda request: Reply(request.body, request.query.get("type", "")),
            "/favicon.ico": lambda _request: Reply(b"", "image/x-icon", 204),
        }

    def verify(self, request):
        fields = {**request.query, **request.form()}
        user = self._directory.full_name(fields.get("USER_NAME"), fields.get("DOMAIN_NAME"))
        return page("verify", user=user, enroll=fields.get("enroll", "0"))

    def check(self, request):
        """Answers the MFA page: the message it is to post, or that the code was wrong."""
        fields = request.form()
        user, typed = fields.get("user", ""), fields.get("code", "")
        matches = self._directory.check_code(user, "".join(typed.split()))
        if matches:
            token = self._directory.new_token(user)
            return json_reply({"message": {
                "SYSTEM_MFA_RESULT": "SUCCESS",
                "SYSTEM_MFA_KEY": token[::-1],
                "OFFLINE_ENROLLMENT_DATA_ACCESS_TOKEN": token,
                "SYSTEM_MFA_ERROR_MSG": None,
            }})
        if matches is None:
            return json_reply({"message": {
                "SYSTEM_MFA_RESULT": "FAILURE",
                "SYSTEM_MFA_KEY": None,
                "OFFLINE_ENROLLMENT_DATA_ACCESS_TOKEN": None,
                "SYSTEM_MFA_ERROR_MSG": "Too many wrong codes. Close this window and try again.",
            }})
        return json_reply({"wrong": True})

    def self_service(self, request):
        return page("done" if request.method == "POST" else "self_service")

    def echo(self, request):
        """Shows what arrived; the body as text and as hexadecimal digits."""
        lines = "\n".join(f"{name}: {value}" for name, value in request.headers)
        return page("echo", method=request.method, target=request.target, headers=lines,
                    text=request.body.decode("utf-8", "replace"), hexadecimal=request.body.hex())

    def download(self, _request):
        return Reply(b"not for the disk\n", "application/octet-stream", 200,
                     [("Content-Disposition", 'attachment; filename="download.bin"')])

    def cookies(self, request):
        reply = page("cookies", cookies=request.header("Cookie"))
        reply.headers = [("Set-Cookie", "session_cookie=one; Path=/; Secure; HttpOnly"),
                         ("Set-Cookie", "lasting_cookie=two; Path=/; Secure; Max-Age=86400")]
        return reply

    def post_message(self, request):
        """Posts ?message= on the agent's channel: ?form=object parses it first, ?size=N posts a
        text of that many letters instead, ?times=N repeats it."""
        script = {"message": request.query.get("message", ""),
                  "form": request.query.get("form", "text"),
                  "size": int(request.query.get("size", "0")),
                  "times": int(request.query.get("times", "1"))}
        return page("post_message", parameters=json.dumps(script))

    def slow(self, request):
        time.sleep(min(float(request.query.get("seconds", "2")), 120))
        return page("done")

    def redirect(self, request):
        return redirect(request.query.get("to", self._context_path + "/"),
                        int(request.query.get("status", "302")))
