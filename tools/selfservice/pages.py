"""The pages: the MFA page, the self-service page, and pages on which tests try what a page may do."""

import html
import json
import pathlib
import string
import time

from .messages import Reply, json_reply, redirect
from .signatures import SignIns

FOLDER = pathlib.Path(__file__).parent / "pages"


def page(name, **values):
    """A page from its file, in the common frame; values are put in as text, never as markup."""
    frame = string.Template((FOLDER / "frame.html").read_text(encoding="utf-8"))
    content = string.Template((FOLDER / f"{name}.html").read_text(encoding="utf-8"))
    escaped = {key: html.escape(str(value)) for key, value in values.items()}
    return Reply(frame.substitute(content=content.safe_substitute(escaped)).encode())


class Pages:
    def __init__(self, directory, identity, signatures, context_path, options):
        self._directory = directory
        self._identity = identity
        self._signatures = signatures
        self._signed_only = options.signed_pages
        self._sign_ins = SignIns(identity.access_key, options.page_key)
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
        """The MFA page. What a signed request says of its sign-in holds; an unsigned one has no
        nonce, and is turned away where only signed ones are served."""
        fields = {**request.query, **request.form()}
        name, domain = fields.get("USER_NAME", ""), fields.get("DOMAIN_NAME", "")
        fault = self._signatures.fault_of(request, self._identity.access_key,
                                          self._identity.agent_id)
        nonce = "" if fault else fields.get("NONCE", "")
        if not fault and not nonce:
            fault = "no nonce"
        if fault and (self._signed_only or request.header("Authorization")):
            return page("refused", reason=fault)
        sign_in = self._sign_ins.begin(name, domain, nonce)
        if sign_in is None:
            return page("refused", reason="this request has been answered before")
        return page("verify", user=self._directory.full_name(name, domain), sign_in=sign_in,
                    enroll=fields.get("enroll", "0"))

    def check(self, request):
        """Answers the MFA page: the message it is to post, or that the code was wrong."""
        fields = request.form()
        user, typed = fields.get("user", ""), fields.get("code", "")
        matches = self._directory.check_code(user, "".join(typed.split()))
        if matches:
            token = self._directory.new_token(user)
            return json_reply({"message": {
                "SYSTEM_MFA_RESULT": "SUCCESS",
                "SYSTEM_MFA_KEY": self._sign_ins.end(fields.get("sign_in", "")),
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
