"""The endpoints that the agent itself calls, all signed."""

import email.utils
import hmac
import time

from . import codes
from .messages import json_reply

PREFIX = "/RestAPI/logonagent"


def refusal(reason):
    return json_reply({"result": "failure", "INTERNAL_ERROR": reason}, 401)


class AgentApi:
    def __init__(self, identity, directory, max_skew):
        self._identity = identity
        self._directory = directory
        self._max_skew = max_skew

    def routes(self):
        return {
            f"{PREFIX}/getAccessKey": self._signed_by_installation_key(self.get_access_key),
            f"{PREFIX}/updateStatus": self._signed_by_agent(self.update_status),
            f"{PREFIX}/mfa/getOfflineEnrollment": self._signed_by_agent(self.get_enrollment),
            f"{PREFIX}/mfa/addOfflineEnrollment": self._signed_by_agent(self.add_enrollment),
        }

    def fault_of(self, request, key, agent_id):
        """What is wrong with the request's signature, or None."""
        if request.method != "POST":
            return "only POST is served here"
        date = request.header("idm-date")
        parsed = email.utils.parsedate_to_datetime(date) if date else None
        if parsed is None or abs(parsed.timestamp() - time.time()) > self._max_skew:
            return "idm-date is missing or too far from the server's time"
        scheme, _, credentials = request.header("Authorization").partition(" ")
        given_id, _, given = credentials.partition(":")
        if scheme != "Basic" or given_id != agent_id:
            return "unknown agent"
        expected = codes.signature(key, date, request.method, request.path)
        if not hmac.compare_digest(expected.encode(), given.encode()):
            return "wrong signature"
        return None

    def _signed(self, key, agent_id, endpoint):
        def checked(request):
            try:
                fault = self.fault_of(request, key, agent_id)
            except (ValueError, UnicodeError):
                fault = "headers that cannot be read"
            return refusal(fault) if fault else endpoint(request)
        return checked

    def _signed_by_installation_key(self, endpoint):
        return self._signed(self._identity.installation_key, "MAC", endpoint)

    def _signed_by_agent(self, endpoint):
        return self._signed(self._identity.access_key, self._identity.agent_id, endpoint)

    def get_access_key(self, _request):
        return json_reply({"result": "success", "agent_props": {
            "agent_access_key": self._identity.encrypted_key,
            "agent_id": self._identity.agent_id,
        }})

    def update_status(self, request):
        if request.form().get("status") not in ("install", "uninstall"):
            return json_reply({"result": "failure", "INTERNAL_ERROR": "unknown status"}, 400)
        return json_reply({"result": "success"})

    def get_enrollment(self, request):
        token = request.form().get("DATA_ACCESS_TOKEN")
        reply = {"ENROLLED_USERS_LIST": self._directory.enrolled_users()}
        if token is not None:
            user = self._directory.user_of_token(token)
            if user in self._directory.enrolled_users():
                reply["OFFLINE_MFA_DATA"] = self._directory.offline_data(
                    user, self._identity.access_key)
            else:
                reply["INTERNAL_ERROR"] = "the token names no enrolled user"
        return json_reply(reply)

    def add_enrollment(self, request):
        user = self._directory.user_of_token(request.form().get("DATA_ACCESS_TOKEN"))
        if user not in self._directory.users:
            return json_reply({"result": "failure", "INTERNAL_ERROR": "unknown token"}, 400)
        self._directory.enroll(user)
        return json_reply({"result": "success"})
